#include <Disk/Disk_RootDirectoryFile.h>

#include "Disk/hierarchy/Disk_Operation.h"
#include "Disk/query/Disk_RecordWalk.h"
#include "Disk/query/Disk_ResponseFilter.h"
#include "Disk/structure/Disk_RootRecords.h"

#include <array>

struct Disk_RootDirectoryFile::QueryRoad {
  Disk_RootDirectoryFile& root;

  int query(SCL_QueryIdentifier const& identifier, SCL_InformationModel model, Dicom_Sequence* results);
  int query_patients(Disk_RecordWalk& walk, Dicom_Sequence* results);
  int query_patient(Disk_RecordWalk const& walk, Disk_PatientDirectoryRecord const& patient,
                    std::unique_ptr<SCL_QueryRspIdentifier>* response) const;
  int query_below(Disk_RecordWalk& walk, Disk_StudyDirectoryRecord* study, Dicom_Msg const* patient_response,
                  Dicom_Sequence* results);
  int query_record(Disk_RecordWalk const& walk, Disk_DirectoryRecord const& record,
                   std::unique_ptr<SCL_QueryRspIdentifier>* response) const;
  int query_study(Disk_RecordWalk const& walk, Disk_StudyDirectoryRecord const& study,
                  Dicom_Msg const* patient_response, Dicom_Sequence* results) const;
  int query_lower(Disk_RecordWalk& walk, Disk_StudyDirectoryRecord* study, Dicom_Sequence* results);
};

namespace {

enum class Choice { Chosen, PassedOver, Impossible };

/// Whether a query at series or image level goes into a study.
Choice ChooseStudy(IOD_Msg const& record, Disk_RecordWalk const& walk) {
  Dicom_UI const uid = record.GetStudyInstanceUID();
  if (uid != UI_NULL && walk.StudyUid() != UI_NULL)
    return uid.Match(walk.StudyUid()) ? Choice::Chosen : Choice::PassedOver;
  Dicom_SH const number = record.GetAccessionNumber();
  if (number == SH_NULL && walk.AccessionNumber() == SH_NULL) return Choice::Impossible;
  return number.Match(walk.AccessionNumber()) ? Choice::Chosen : Choice::PassedOver;
}

} // namespace

int Disk_RootDirectoryFile::Query(SCL_QueryIdentifier const& identifier, SCL_InformationModel model,
                                  Dicom_Sequence* results) {
  if (Disk_RefuseNull("Query", results) == -1) return -1;
  return Disk_Guarded("Query", [&] { return QueryRoad{*this}.query(identifier, model, results); });
}

int Disk_RootDirectoryFile::QueryRoad::query(SCL_QueryIdentifier const& identifier, SCL_InformationModel model,
                                             Dicom_Sequence* results) {
  root.ResetStudyFile();
  if (model != 1) return DISK_FAIL(DISK_ERROR_INFORMATION_MODEL, "Query(): Unsupported information model.\n");
  Disk_FileSetHold file_set;
  if (root.lock(file_set, true) == -1) return DISK_FAIL("Query(): Can't lock file-set.\n");
  if (root.Read() == -1) return DISK_FAIL("Query(): Can't read root directory file.\n");
  Disk_RecordWalk walk(identifier, identifier.GetQueryRetrieveLevel());
  if (query_patients(walk, results) == -1) return -1;
  if (file_set.Release() == -1) return DISK_FAIL("Query(): Can't unlock file-set.\n");
  Disk_FilterMissingTags(identifier, results);
  return 0;
}

int Disk_RootDirectoryFile::QueryRoad::query_patients(Disk_RecordWalk& walk, Dicom_Sequence* results) {
  // an identifier that no study may be compared with is refused, whether or not there is one with its UID
  bool const is_fit = walk.Status() == 0 && walk.Level() != SCL_QueryRetrieveLevel::UNKNOWN;
  auto const query_studies = [&](Disk_PatientDirectoryRecord const& patient, auto const& studies) {
    std::unique_ptr<SCL_QueryRspIdentifier> response;
    int const may_match = query_patient(walk, patient, &response);
    if (may_match != 1) return may_match;
    for (Disk_StudyDirectoryRecord* study : studies) {
      Disk_PassingOver const damage{is_fit && root.passes_over_damage()};
      int const result = query_below(walk, study, response.get(), results);
      if (result == -1 && damage.Failed() == -1) return -1;
    }
    return 0;
  };
  // a trace tells of each study why it isn't meant
  bool const is_traced = walk.Level() == SCL_QueryRetrieveLevel::STUDY && Klb_LogFile::GetLogLevel(210000) == 7;
  if (auto const* const only = is_fit && !is_traced ? root.records->Index().AllOf(walk.StudyUid().View()) : nullptr) {
    for (Disk_StudyIndex::Entry const& entry : *only)
      if (query_studies(*entry.patient, std::array{entry.study}) == -1) return -1;
    return 0;
  }
  for (Disk_PatientDirectoryRecord* patient : root.records->patients)
    if (query_studies(*patient, patient->GetStudyRecords()) == -1) return -1;
  return 0;
}

/// 1 when the patient's studies may match, with what the patient's record tells where that isn't told by theirs; 0; -1.
int Disk_RootDirectoryFile::QueryRoad::query_patient(Disk_RecordWalk const& walk,
                                                     Disk_PatientDirectoryRecord const& patient,
                                                     std::unique_ptr<SCL_QueryRspIdentifier>* response) const {
  if (!Disk_IsLive(*root.structure, patient)) return 0;
  if (!root.structure->AsksPatients() || walk.Level() != SCL_QueryRetrieveLevel::STUDY) return 1;
  if (query_record(walk, patient, response) == 0) return *response ? 1 : 0;
  return DISK_FAIL("Query: Failed query the patient record.\n");
}

int Disk_RootDirectoryFile::QueryRoad::query_below(Disk_RecordWalk& walk, Disk_StudyDirectoryRecord* study,
                                                   Dicom_Msg const* patient_response, Dicom_Sequence* results) {
  if (!Disk_IsLive(*root.structure, *study)) return 0;
  switch (walk.Level()) {
  case SCL_QueryRetrieveLevel::STUDY:
    return query_study(walk, *study, patient_response, results);
  case SCL_QueryRetrieveLevel::SERIES:
  case SCL_QueryRetrieveLevel::IMAGE:
    return query_lower(walk, study, results);
  default:
    return DISK_FAIL(DISK_ERROR_LEVEL, "Query(): unknown Query/Retrieve Level.\n");
  }
}

int Disk_RootDirectoryFile::QueryRoad::query_record(Disk_RecordWalk const& walk, Disk_DirectoryRecord const& record,
                                                    std::unique_ptr<SCL_QueryRspIdentifier>* response) const {
  DISK_LOG(7, "Got %d Elements in query identifier\n", walk.GetNElements());
  DISK_LOG(7, "Will query %d elements in the disk\n", record.GetRecordMsg()->GetNElements());
  return walk.Run(*record.GetRecordMsg(), response);
}

int Disk_RootDirectoryFile::QueryRoad::query_study(Disk_RecordWalk const& walk, Disk_StudyDirectoryRecord const& study,
                                                   Dicom_Msg const* patient_response, Dicom_Sequence* results) const {
  std::unique_ptr<SCL_QueryRspIdentifier> response;
  if (query_record(walk, study, &response) == -1) return DISK_FAIL("Query: FAiled query the study record.\n");
  if (!response) return 0;
  if (patient_response) {
    if (response->Update(*patient_response, false, false) == -1)
      return DISK_FAIL("Query: Failed update the patient result.\n");
    Disk_DeclareCharacterSet(*response);
  }
  return Disk_AppendResponse(std::move(response), results, "Query: Can't add a result to the sequence of results.\n");
}

int Disk_RootDirectoryFile::QueryRoad::query_lower(Disk_RecordWalk& walk, Disk_StudyDirectoryRecord* study,
                                                   Dicom_Sequence* results) {
  switch (ChooseStudy(*study->GetRecordMsg(), walk)) {
  case Choice::Chosen:
    break;
  case Choice::PassedOver:
    return 0;
  case Choice::Impossible:
    return DISK_FAIL(DISK_FAILURE_ARGUMENT, "Query: Can't get study instance UID nor Accession Number.\n");
  }
  Disk_LowerResponses responses(*results);
  Dicom_UI const uid = study->GetRecordMsg()->GetStudyInstanceUID();
  if (walk.StampStudy(uid) == -1) return -1;
  Klb_Attempt const attempt;
  root.GetStudyFile(study);
  Disk_Hold<Disk_StudyDirectoryFile> held;
  if (!root.study_file || held.Shared(*root.study_file) == -1) {
    if (!root.has_lost_folder(*study)) return DISK_FAIL("Query: Can't lock study .\n");
    attempt.Forget();
    return 0;
  }
  if (root.study_file->Query(walk, results) == -1) return DISK_FAIL("Query(): Can't query lower level.\n");
  if (held.Release() == -1) return DISK_FAIL("Query(): Can't unlock study.\n");
  root.KeepStudyFile();
  if (uid == UI_NULL && !responses.IsEmpty()) return DISK_FAIL("Query(): Can't get Study instance UID.\n");
  responses.Keep();
  return 0;
}
