#include "support/FaultyFileSystem.h"
#include "support/FileSetFixture.h"

#include <Disk/Disk_Error.h>
#include <dicom/Dicom_Compressor.h>

namespace {

using StoreTest = FileSetTest;
class StoreOfFilesTest : public BothStructuresTest {};
INSTANTIATE_TEST_SUITE_P(Structures, StoreOfFilesTest, kBothStructures, StructureName);

int Count(IOD_Msg const& record) { return record.GetNumberOfStudyRelatedImages(); }

} // namespace

TEST_F(StoreTest, FirstStoreLeavesExactlyTheseFiles) {
  auto root = Open();
  EXPECT_EQ(Files(), (std::map<std::string, std::uintmax_t>{{"LOCKFILE", 0}}));
  auto msg = Example();
  ASSERT_EQ(Store(*root, *msg), 0);
  std::vector<std::string> names;
  for (auto const& [name, size] : Files())
    names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{"DICOMDIR", "LOCKFILE", "SA100000/DIRFILE", "SA100000/LOCKFILE",
                                             "SA100000/S3000000/DIRFILE", "SA100000/S3000000/I7000000",
                                             "SA100000/S3000000/VERSION", "SA100000/VERSION", "VERSION"}));
  EXPECT_EQ(Version(""), 1);
  EXPECT_EQ(Version("SA100000"), 2);
  EXPECT_EQ(Version("SA100000/S3000000"), 2);
  EXPECT_EQ(RootRecord("STUDY")->GetReferencedFileID().GetText(), "SA100000\\DIRFILE");
  EXPECT_EQ(Records("SA100000/DIRFILE")[0]->GetReferencedFileID().GetText(), "SA100000\\S3000000\\DIRFILE");
  EXPECT_EQ(Records("SA100000/S3000000/DIRFILE")[0]->GetReferencedFileID().GetText(), "SA100000\\S3000000\\I7000000");
}

TEST_F(StoreTest, NamesFollowFromTheObject) {
  struct Case {
    char const *study_id, *series, *image, *label, *study_dir, *series_dir, *file;
  } const cases[] = {
      {"A1", "3", "7", "", "SA100000", "S3000000", "I7000000"},
      {"A1", "3", "12", "AB", "SA100001", "S3000000", "I12AB000"},
      {"abc", "", "", "", "S___0000", "SU000000", "IU000000"},
      {"12345678", "1234567", "12345", "", "S3456000", "S2345000", "I2345000"},
      {"", "3", "7", "a-b", nullptr, "S3000000", "I7_B0000"}, // named after the end of the UID
  };
  auto root = Open();
  int n = 0;
  for (Case const& c : cases) {
    auto msg = Example({.study = ++n});
    msg->SetStudyID(Dicom_SH(c.study_id));
    msg->SetSeriesNumber(Dicom_IS(c.series));
    msg->SetImageNumber(Dicom_IS(c.image));
    msg->SetImageLabel(Dicom_SH(c.label));
    ASSERT_EQ(Store(*root, *msg), 0) << c.study_id;
    std::string folder = c.study_dir ? c.study_dir : "";
    if (!c.study_dir) {
      std::string uid = msg->GetStudyInstanceUID().GetText();
      std::replace(uid.begin(), uid.end(), '.', '_');
      folder = "S" + uid.substr(uid.size() - 6, 4) + "000";
    }
    std::string const file = folder + "/" + c.series_dir + "/" + c.file;
    EXPECT_EQ(Files().count(file), c.label[0] == 'a' ? 0u : 1u) << file;
  }
}

TEST_F(StoreTest, MissingIdentifiersAreToldByName) {
  struct Case {
    std::uint16_t group, element;
    char const* line;
  } const cases[] = {{0x0020, 0x000D, "Store: Missing Study Instance UID."},
                     {0x0020, 0x000E, "Store: Missing Series Instance UID."},
                     {0x0008, 0x0018, "Store: Missing SOP Instance UID."},
                     {0x0010, 0x0020, "Store: Missing Patient ID."}};
  auto root = Open();
  for (Case const& c : cases) {
    auto msg = Example();
    msg->Remove(Dicom_Tag(c.group, c.element));
    LogCapture log;
    EXPECT_EQ(Store(*root, *msg), -1);
    EXPECT_EQ(log.Count(3, c.line), 1) << c.line;
  }
  EXPECT_EQ(root->Store(nullptr, false, 0, 0, nullptr, 0, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(Files().size(), 1u);
}

TEST_F(StoreTest, ValuesThatWouldLeaveTheFileSetAreRefusedBeforeAnyDirectory) {
  for (char const* number : {"../../x", "/etc", "1\\2", ".", "..", "\n1", "\u00E4"}) {
    auto root = Open();
    auto msg = Example();
    msg->SetSeriesNumber(Dicom_IS(number));
    auto known = Example({.series = 2});
    ASSERT_EQ(Store(*root, *known), 0);
    auto const before = Files();
    KlbGError.Set(0);
    EXPECT_EQ(Store(*root, *msg), -1) << number;
    EXPECT_EQ(KlbGError.Get(), DISK_ERROR_FILE_NAME) << number;
    EXPECT_EQ(Files(), before) << number;
  }
}

TEST_F(StoreTest, StoringAgainReplacesTheFileAndCountsNothing) {
  auto root = Open();
  auto msg = Example();
  ASSERT_EQ(Store(*root, *msg), 0);
  Util_Clock::SetNow(1700000000);
  msg->SetStudyDescription(Dicom_LO("second time"));
  ASSERT_EQ(Store(*root, *msg), 0);
  EXPECT_EQ(Files().size(), 9u);
  auto const study = RootRecord("STUDY");
  EXPECT_EQ(Count(*study), 1);
  EXPECT_EQ(study->GetNumberOfStudyRelatedSeries(), Dicom_IS(1));
  EXPECT_EQ(study->GetLastUpdateDate().Year(), 2023);
  auto const series = Records("SA100000/DIRFILE");
  EXPECT_EQ(int(series[0]->GetNumberOfSeriesRelatedImages()), 1);
  EXPECT_EQ(series[0]->GetLastUpdateDate().Year(), 2023);
  EXPECT_EQ(Fetch(*root, Uids(*msg))->GetStudyDescription().GetText(), "second time");
}

TEST_F(StoreTest, CountersAndModalities) {
  auto root = Open();
  for (auto const& [series, image, modality] :
       {std::tuple(1, 1, "CT"), {1, 2, "CT"}, {2, 1, "MR"}, {3, 1, "CT"}, {4, 1, "C"}}) {
    auto msg = Example({.series = series, .image = image});
    msg->SetModality(Dicom_CS(modality));
    msg->SetReferringPhysiciansName(Dicom_PN("Last^" + std::to_string(series)));
    ASSERT_EQ(Store(*root, *msg), 0);
  }
  auto const study = RootRecord("STUDY");
  EXPECT_EQ(Count(*study), 5);
  EXPECT_EQ(int(study->GetNumberOfStudyRelatedSeries()), 4);
  EXPECT_EQ(study->GetNumberOfSeries(), Dicom_UL(4));
  EXPECT_EQ(study->GetModalitiesInStudy().GetText(), "CT\\MR") << "C is found within CT";
  EXPECT_EQ(study->GetMultiModality().GetText(), "CT\\MR\\C");
  EXPECT_EQ(study->GetReferringPhysiciansName().GetText(), "Last^4");
  EXPECT_EQ(study->GetProtectionFlag().GetText(), "N");
  EXPECT_TRUE(study->Has(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE));
}

TEST_F(StoreTest, MismatchesAreRefusedOrTolerated) {
  struct Case {
    void (*change)(IOD_Msg&);
    int code;
    char const *refused, *tolerated;
  } const cases[] = {
      {[](IOD_Msg& m) { m.SetPatientsName(Dicom_PN("Other^One")); }, DISK_ERROR_PATIENT_MISMATCH,
       "Patient Name is Other^One, but must be ", "Store: Patient's name doesn't match the study UID, but the image"},
      {[](IOD_Msg& m) { m.SetPatientID(Dicom_LO("other")); }, DISK_ERROR_PATIENT_MISMATCH,
       "Patient ID is other, but must be ", "Store: Patient ID doesn't match the study UID, but the image"},
      {[](IOD_Msg& m) { m.SetStudyID(Dicom_SH("B2")); }, DISK_ERROR_STUDY_ID_MISMATCH,
       "Study ID is B2, but must be A1. Store cant be done...",
       "Store: Study ID doesn't match the study UID, but the image is stored."},
      {[](IOD_Msg& m) { m.SetSeriesNumber(Dicom_IS(8)); }, DISK_ERROR_SERIES_NUMBER_MISMATCH,
       "Series number is 8, but must be 3.", "Store: Series number does not match the series UID, but the image"},
  };
  for (unsigned const with : {0u, unsigned(Disk_StoreParams::STANDARD_STRUCTURE)}) {
    Clear();
    structure = with;
    auto root = Open();
    auto first = Example();
    ASSERT_EQ(Store(*root, *first), 0);
    int image = 1;
    for (Case const& c : cases) {
      auto msg = Example({.image = ++image});
      c.change(*msg);
      LogCapture log;
      KlbGError.Set(0);
      auto const files = Files();
      std::string const records = directory.Read("DICOMDIR");
      EXPECT_EQ(Store(*root, *msg), -1);
      EXPECT_EQ(KlbGError.Get(), c.code);
      EXPECT_EQ(log.Count(3, c.refused), 1) << c.refused;
      EXPECT_EQ(Files(), files);
      EXPECT_EQ(directory.Read("DICOMDIR"), records);
      EXPECT_EQ(Store(*root, *msg, true), 0);
      EXPECT_EQ(log.Count(5, c.tolerated), 1) << c.tolerated;
      if (structure) continue;
      EXPECT_EQ(RootRecord("STUDY")->GetPatientID(), first->GetPatientID()) << "the stored values stay";
    }
    ExpectSound();
    EXPECT_EQ(Check().instances, 5u);
  }
}

TEST_F(StoreTest, SeriesNumbersEqualAsIntegersMatch) {
  auto root = Open();
  auto first = Example(), second = Example({.image = 2});
  first->SetSeriesNumber(Dicom_IS("07"));
  second->SetSeriesNumber(Dicom_IS("7"));
  ASSERT_EQ(Store(*root, *first), 0);
  LogCapture log;
  EXPECT_EQ(Store(*root, *second), 0);
  EXPECT_EQ(log.Count(5, "the integer value is equal - saving."), 1);
}

TEST_F(StoreTest, PatientsDifferByIdAndIssuer) {
  auto root = Open();
  int study = 0;
  for (auto const& [id, issuer] : {std::pair("P1", ""), {"P1", "X"}, {"P1", ""}, {"P2", ""}}) {
    auto msg = Example({.study = ++study});
    msg->SetPatientID(Dicom_LO(id));
    msg->SetIssuerOfPatientID(Dicom_LO(issuer));
    ASSERT_EQ(Store(*root, *msg), 0);
  }
  std::string order;
  for (auto const& record : Records("DICOMDIR"))
    order += record->Text(Dicom_Tag(0x0004, 0x1430))[0];
  EXPECT_EQ(order, "PSSPSPS") << "each patient is followed by its studies";
}

TEST_F(StoreTest, KeyImageFlagOfAKnownImage) {
  struct Step {
    char const *flag, *expected;
  };
  auto root = Open();
  auto msg = Example();
  for (Step const& step : {Step{"N", "N"}, {"Y", "Y"}, {"", "N"}, {"Y", "Y"}}) {
    msg->SetKolbaKeyImage(Dicom_CS(step.flag));
    ASSERT_EQ(Store(*root, *msg), 0);
    EXPECT_EQ(Records("SA100000/S3000000/DIRFILE")[0]->GetKolbaKeyImage().GetText(), step.expected);
  }
}

TEST_F(StoreTest, FakedDatesAreTheEarliestOfTheImages) {
  struct Case {
    char const *date, *time, *kept_date, *kept_time;
  } const cases[] = {
      {"20200105", "120000", "20200105", "120000"}, {"20200107", "080000", "20200105", "120000"},
      {"20200105", "115959", "20200105", "115959"}, {"", "010000", "20200105", "115959"},
      {"20200101", "", "20200105", "115959"},       {"20200104", "235959", "20200104", "235959"},
  };
  auto root = Open();
  int image = 0;
  for (Case const& c : cases) {
    auto msg = Example({.image = ++image});
    msg->SetStudyDate(DA_NULL);
    msg->SetStudyTime(TM_NULL);
    msg->SetImageDate(Dicom_DA(c.date));
    msg->SetImageTime(Dicom_TM(c.time));
    ASSERT_EQ(Store(*root, *msg), 0);
    auto const study = RootRecord("STUDY");
    EXPECT_EQ(study->GetFakedStudyDate().GetText(), c.kept_date) << image;
    EXPECT_EQ(study->GetFakedStudyTime().GetText(), c.kept_time) << image;
  }
  auto dated = Example({.study = 2});
  ASSERT_EQ(Store(*root, *dated), 0);
  EXPECT_FALSE(Records("DICOMDIR").back()->Has(Dicom_Dictionary::KOLBA_FAKED_STUDY_DATE));
}

TEST_P(StoreOfFilesTest, MoveStoreRenames) {
  auto root = Open();
  auto msg = Example();
  ASSERT_EQ(Phantom::Write({.size = 16}, At("incoming")), 0);
  char stored[Disk_FileID::kPathSize] = {};
  auto const move = [&](char* source) {
    return root->Store(msg.get(), false, 0, 0, nullptr, 1, source, stored, nullptr);
  };
  EXPECT_EQ(move(nullptr), -1);
  std::string source = At("incoming"), missing = At("missing");
  EXPECT_EQ(move(missing.data()), -1);
  ASSERT_EQ(move(source.data()), 0);
  EXPECT_FALSE(std::filesystem::exists(source));
  EXPECT_TRUE(std::filesystem::exists(stored));
  EXPECT_TRUE(Fetch(*Open(), Uids(*msg)));
  ExpectNoDamage();
  if (structure) ExpectMedium(Prefix(), {msg->GetSOPInstanceUID().GetText()});
}

TEST_P(StoreOfFilesTest, InPlaceStoreWritesNoObject) {
  auto root = Open();
  auto msg = Example();
  std::filesystem::create_directories(At("STUDY/SERIES"));
  std::string file = At("STUDY/SERIES/OBJ"), missing = At("STUDY/SERIES/NONE"), prefix = Prefix();
  ASSERT_EQ(Phantom::Write({.size = 16}, file, Dicom_UI("1.2.840.10008.1.2")), 0);
  auto const bytes = directory.Read("STUDY/SERIES/OBJ");
  auto const store = [&](IOD_Msg& object, std::string& place) {
    return root->Store(&object, false, 0, 1, place.data(), 0, nullptr, nullptr, nullptr);
  };
  EXPECT_TRUE(!structure || store(*msg, missing) == -1);
  ASSERT_EQ(store(*msg, file), 0);
  EXPECT_EQ(directory.Read("STUDY/SERIES/OBJ"), bytes);
  EXPECT_TRUE(Fetch(*root, Uids(*msg)));
  if (structure) {
    ExpectMedium(Prefix(), {msg->GetSOPInstanceUID().GetText()});
    auto const record = DicomdirWalk(At("DICOMDIR")).Level(3).at(0)->values;
    EXPECT_EQ(record.at(0x00041500), "STUDY\\SERIES\\OBJ");
    EXPECT_EQ(record.at(0x00041512), "1.2.840.10008.1.2");
    return;
  }
  EXPECT_EQ(RootRecord("STUDY")->GetReferencedFileID().GetText(), "STUDY\\DIRFILE");
  EXPECT_EQ(Records("STUDY/DIRFILE")[0]->GetReferencedFileID().GetText(), "STUDY\\S3000000\\DIRFILE")
      << "a new series has a directory of its own";
  EXPECT_EQ(Records("STUDY/S3000000/DIRFILE")[0]->GetReferencedFileID().GetText(), "STUDY\\SERIES\\OBJ");
  {
    FaultyFileSystem counting;
    ASSERT_EQ(Store(*root, *msg), 0);
    EXPECT_EQ(counting.calls["Fsync"], 4) << "the object's folder, besides those of the records";
  }
  auto other = Example({.study = 2});
  LogCapture log;
  EXPECT_EQ(store(*other, prefix), -1);
  EXPECT_EQ(log.Count(3, "NewStudy(): Can't generate a file ID."), 1);
}

TEST_F(StoreTest, IconsAreMadeAndCarriedOver) {
  auto root = Open();
  auto msg = Example();
  ASSERT_EQ(Store(*root, *msg, false, true), 0);
  Dicom_SQ const icon = Records("SA100000/S3000000/DIRFILE")[0]->GetIconImage();
  ASSERT_EQ(icon.GetNValues(), 1);
  auto again = Example();
  ASSERT_EQ(Store(*root, *again), 0);
  EXPECT_EQ(Fetch(*root, Uids(*again))->GetIconImage(), icon) << "the record's icon goes with the object";
  auto bare = Example({.image = 2}); // it has a compressed icon and nothing else to show
  Dicom_Sequence items;
  items.Append(IOD_Msg(*again).Clone(), true);
  ASSERT_EQ(Dicom_Compressor().Compress(items.Get(0), 0), 0);
  bare->SetIconImage(Dicom_SQ(&items, 1));
  bare->Remove(Dicom_Tag(0x7FE0, std::uint16_t(0x0010)));
  ASSERT_EQ(Store(*root, *bare, false, true), 0);
  Dicom_SQ const decoded = Records("SA100000/S3000000/DIRFILE")[1]->GetIconImage();
  ASSERT_EQ(decoded.GetNValues(), 1);
  EXPECT_EQ(decoded.GetSequence()->Get(0)->GetEncapsulatedSyntax(), UI_NULL);
}

TEST_F(StoreTest, ReadOnlyRootStoresNothing) {
  { Open(); }
  auto root = Open(Disk_StoreParams::READ_ONLY | Disk_StoreParams::STORE_NATIVE);
  auto msg = Example();
  EXPECT_EQ(Store(*root, *msg), -1);
}

TEST_F(StoreTest, DurableStoreOfAKnownSeriesSyncsFourFilesAndThreeDirectories) {
  auto root = Open();
  auto first = Example(), second = Example({.image = 2});
  ASSERT_EQ(Store(*root, *first), 0);
  std::vector<std::string> done;
  FaultyFileSystem const watching([&, start = Prefix().size()](std::string_view call, char const* path) {
    if (call == "Fdatasync" || call == "Fsync" || call == "Rename")
      done.push_back(std::string(call) + " " + std::string(path).substr(start));
    return 0;
  });
  ASSERT_EQ(Store(*root, *second), 0);
  std::vector<std::string> const in_order{// no name is given before all contents below the root are on the disk
                                          "Fdatasync /SA100000/S3000000/I7000001.tmp",
                                          "Fdatasync /SA100000/S3000000/DIRFILE.tmp", "Fdatasync /SA100000/DIRFILE.tmp",
                                          // and none to a level above before those below it have theirs
                                          "Rename /SA100000/S3000000/I7000001", "Rename /SA100000/S3000000/DIRFILE",
                                          "Fsync /SA100000/S3000000", "Rename /SA100000/DIRFILE", "Fsync /SA100000",
                                          "Fdatasync /DICOMDIR.tmp", "Rename /DICOMDIR", "Fsync "};
  EXPECT_EQ(done, in_order);
}
