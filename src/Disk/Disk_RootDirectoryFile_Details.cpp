// Keeps the details of a study record up to date after a store: counters, modalities, dates.
#include <Disk/Disk_RootDirectoryFile.h>

#include "Disk/Disk_RecordIO.h"

#include <tuple>

namespace {

int Logged(int result) {
  if (result == -1) DISK_LOG(3, "Store: Can't update study directory record.\n");
  return result;
}

} // namespace

int Disk_RootDirectoryFile::update_zentara_details(Disk_StudyDirectoryRecord* study, IOD_Msg* msg, int new_series,
                                                   int new_image) {
  IOD_Msg& record = *study->GetRecordMsg();
  Dicom_DA const date = GetCurrentDate();
  Dicom_TM const time = GetTickCount();
  Dicom_DT const now(date, time.Hours(), time.Minutes(), 0.0, nullptr);
  if (Logged(record.SetLastUpdateDate(date)) == -1 || Logged(record.SetLastUpdateTime(time)) == -1) return -1;
  if (Logged(record.Set(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_STORE_DATE, now)) == -1) return -1;
  if (Logged(record.Set(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE, DT_NULL)) == -1) return -1;

  if (record.GetStudyDate() == DA_NULL && record.GetStudyTime() == TM_NULL &&
      UpdateFakedStudyDateAndTime(study, msg->GetImageDate(), msg->GetImageTime()) == -1)
    DISK_LOG(4, "Store: Warning: can't update faked study date/time\n");

  if (new_series && Logged(count_new_series(record, *msg)) == -1) return -1;
  if (new_image) {
    Dicom_IS const images = record.GetNumberOfStudyRelatedImages();
    if (Logged(images == IS_NULL ? -1 : record.SetNumberOfStudyRelatedImages(Dicom_IS(Disk_Moved(images, 1), true))) ==
        -1)
      return -1;
  }
  Dicom_PN const physician = msg->GetReferringPhysiciansName();
  DISK_LOG(7, "Store: Setting study's refering physician's name to \"%s\".\n", physician.CStr());
  if (record.SetReferringPhysiciansName(physician.Duplicate()) == 0) return 0;
  DISK_LOG(3, "Store: Can't set the refering physician's name.\n");
  return -1;
}

int Disk_RootDirectoryFile::count_new_series(IOD_Msg& record, IOD_Msg const& msg) {
  std::optional<int> const before = Disk_CountedSeries(record);
  if (!before) return -1;
  int const count = Disk_Moved(*before, 1);
  if (record.SetNumberOfStudyRelatedSeries(Dicom_IS(count, true)) == -1) return -1;
  if (record.SetNumberOfSeries(Disk_OwnCounter(count)) == -1) return -1;

  DISK_LOG(7, "******* Adding series modality to study *******\n");
  Dicom_CS const modality = msg.GetModality(), modalities = record.GetModalitiesInStudy();
  if (record.SetMultiModality(record.GetMultiModality() | modality) == -1) return -1;
  bool const contained = modalities.View().find(modality.View()) != std::string_view::npos;
  return record.SetModalitiesInStudy(contained ? modalities : modalities | modality);
}

/// Keeps the earliest date and time of the images. Times are compared to the second.
int Disk_RootDirectoryFile::UpdateFakedStudyDateAndTime(Disk_StudyDirectoryRecord* study, Dicom_DA const& date,
                                                        Dicom_TM const& time) const {
  if (date == DA_NULL || time == TM_NULL) return 0;
  IOD_Msg& record = *study->GetRecordMsg();
  Dicom_DA const kept_date = record.GetFakedStudyDate();
  Dicom_TM const kept_time = record.GetFakedStudyTime();
  if (kept_date != DA_NULL && kept_time != TM_NULL) {
    auto const second = [](Dicom_TM const& of) { return std::tuple(of.Hours(), of.Minutes(), of.Seconds()); };
    if (kept_date < date) return 0;
    if (!(date < kept_date) && second(kept_time) <= second(time)) return 0;
  }
  if (record.SetFakedStudyDate(date.Duplicate()) == -1) return -1;
  return record.SetFakedStudyTime(time.Duplicate());
}

/// A record of the standard shape keeps its length: what Modalities In Study gains the dummy element loses.
int Disk_RootDirectoryFile::update_standard_details(Disk_StudyDirectoryRecord* study, Dicom_CS const& modality,
                                                    int new_series, int new_image) {
  constexpr Dicom_Tag kRelatedSeries{0x0020, std::uint16_t(0x1206)}, kRelatedImages{0x0020, std::uint16_t(0x1208)};
  constexpr char kFailed[] = "update_standard_details: Can't update study directory record.\n";
  IOD_Msg& record = *study->GetRecordMsg();
  if (new_series) {
    Dicom_IS const series = record.GetNumberOfStudyRelatedSeries();
    char const* failure = kFailed;
    if ((series != IS_NULL && Disk_SetCounter(*study, kRelatedSeries, Disk_Moved(series, 1)) == -1) ||
        add_modality(record, modality, &failure) == -1) {
      DISK_LOG_TEXT(3, failure);
      return -1;
    }
  }
  Dicom_IS const images = record.GetNumberOfStudyRelatedImages();
  if (!new_image || images == IS_NULL) return 0;
  return Logged(Disk_SetCounter(*study, kRelatedImages, Disk_Moved(images, 1)));
}

int Disk_RootDirectoryFile::add_modality(IOD_Msg& record, Dicom_CS const& modality, char const** failure) {
  Dicom_CS const modalities = record.GetModalitiesInStudy();
  if (!record.Has(Dicom_Dictionary::KOLBA_DUMMY_DICOMDIR_DATA) || modalities.Match(modality)) return 0;
  Dicom_CS const merged = modalities | modality;
  if (record.SetModalitiesInStudy(merged) == -1) return -1;
  int const length = (int(merged.GetLength()) + 1) & ~1; // as it stands in the file
  int const rest = Disk_StudyDirectoryRecord::kReservoirSize - length;
  if (rest < 0) {
    *failure = "update_standard_details: Can't update study directory record, incorrect size.\n";
    return -1;
  }
  int status = 0;
  Dicom_OB const dummy(Disk_StudyDirectoryRecord::dummy_data_reservoir, std::size_t(rest), 0, &status);
  return status == -1 ? -1 : record.Set(Dicom_Dictionary::KOLBA_DUMMY_DICOMDIR_DATA, dummy);
}

/// A delete that came while the file-set was given up has counted what the study's file holds, with what a store had
/// just brought: its counts aren't to be raised for that once more.
int Disk_RootDirectoryFile::limit_counts(IOD_Msg& record) {
  int series = 0, images = 0;
  if (study_file->Count(&series, &images) == -1) return -1;
  if (int(record.GetNumberOfStudyRelatedImages()) > images &&
      Logged(record.SetNumberOfStudyRelatedImages(Dicom_IS(images, true))) == -1)
    return -1;
  if (Disk_CountedSeries(record).value_or(0) <= series) return 0;
  if (Logged(record.SetNumberOfStudyRelatedSeries(Dicom_IS(series, true))) == -1) return -1;
  return Logged(record.SetNumberOfSeries(Disk_OwnCounter(series)));
}
