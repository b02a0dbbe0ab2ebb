#include "support/FileSetFixture.h"

#include <Disk/Disk_Error.h>
#include <dicom/Dicom_Compressor.h>

namespace {

struct StoreTest : FileSetTest {
  Disk_FileID const kStudy{Prefix().c_str(), Dicom_CS("SA100000\\DIRFILE"), 0};
};
using StoreOfFilesTest = BothStructuresTest;
FOR_BOTH_STRUCTURES(StoreOfFilesTest);

} // namespace

TEST_P(StoreOfFilesTest, FirstStoreLeavesExactlyTheseFiles) {
  auto msg = Example();
  msg->SetStudyInstanceUID(Dicom_UI("1.2.3"));
  msg->SetSeriesInstanceUID(Dicom_UI("1.2.840.10008.1.1"));
  ASSERT_EQ(Store(*Open(), *msg), 0);
  std::string names;
  for (auto const& [name, size] : Files())
    names += name + " ";
  EXPECT_EQ(names, // the names of folders follow from the UIDs in the standard structure
            structure
                ? "DICOMDIR GBFU0NQA/T4SBYDCU/I7000000 GBFU0NQA/T4SBYDCU/VERSION GBFU0NQA/VERSION LOCKFILE VERSION "
                : "DICOMDIR LOCKFILE SA100000/DIRFILE SA100000/LOCKFILE SA100000/S3000000/DIRFILE "
                  "SA100000/S3000000/I7000000 SA100000/S3000000/VERSION SA100000/VERSION VERSION ");
  for (std::string const folder : {"", "GBFU0NQA", "GBFU0NQA/T4SBYDCU", "SA100000", "SA100000/S3000000"})
    if (std::filesystem::exists(At(folder))) {
      EXPECT_EQ(Version(folder), folder[0] == 'S' ? 2 : 1) << folder;
    }
  if (structure) return ExpectMedium(Prefix(), {msg->GetSOPInstanceUID().GetText()});
  EXPECT_EQ(RootRecord("STUDY")->GetReferencedFileID().GetText(), "SA100000\\DIRFILE");
  EXPECT_EQ(Records("SA100000/DIRFILE")[0]->GetReferencedFileID().GetText(), "SA100000\\S3000000\\DIRFILE");
  EXPECT_EQ(Records("SA100000/S3000000/DIRFILE")[0]->GetReferencedFileID().GetText(), "SA100000\\S3000000\\I7000000");
}

TEST_F(StoreTest, NamesFollowFromTheObject) {
  struct {
    char const *study_id, *series, *image, *label, *study_dir, *series_dir, *file;
  } const cases[] = {
      {"A1", "3", "7", "", "SA100000", "S3000000", "I7000000"},
      {"A1", "3", "12", "AB", "SA100001", "S3000000", "I12AB000"},
      {"abc", "", "", "", "S___0000", "SU000000", "IU000000"},
      {"12345678", "1234567", "12345", "", "S3456000", "S2345000", "I2345000"},
      {"A1", "1.0", ".", "", "SA100002", "S1.00000", "I.000000"},
      {"A1", "\n1", "\u00E4", "", "SA100003", "S_100000", "I__00000"}, // which no code string holds
      {"", "3", "7", "a-b", nullptr, "S3000000", "I7__0000"},          // named after the end of the UID
      {"A1", "../../x", "7", "", nullptr, nullptr, nullptr},           // would leave the file-set: nothing is made
      {"A1", "1\\2", "7", "", nullptr, nullptr, nullptr},
  };
  auto root = Open();
  int n = 0;
  for (auto const& c : cases) {
    auto msg = Example({.study = ++n});
    msg->SetStudyID(Dicom_SH(c.study_id));
    msg->SetSeriesNumber(Dicom_IS(c.series));
    msg->SetImageNumber(Dicom_IS(c.image));
    msg->SetImageLabel(Dicom_SH(c.label));
    if (!c.file) {
      ASSERT_EQ(Store(*root, *Example({.study = n, .series = 2})), 0); // so that the study is known
      ExpectRefused([&] { return Store(*root, *msg); }, "Disk_FileID(): Illegal file name", DISK_ERROR_FILE_NAME);
      continue;
    }
    ASSERT_EQ(Store(*root, *msg), 0) << c.study_id;
    std::string folder = c.study_dir ? c.study_dir : "";
    if (!c.study_dir) {
      std::string uid = msg->GetStudyInstanceUID().GetText();
      std::replace(uid.begin(), uid.end(), '.', '_');
      folder = "S" + uid.substr(uid.size() - 6, 4) + "000";
    }
    std::string const file = folder + "/" + c.series_dir + "/" + c.file;
    EXPECT_EQ(Files().count(file), 1u) << file;
    EXPECT_TRUE(Fetch(*Open(), Uids(*msg))) << file;
  }
}

TEST_F(StoreTest, CountersAndModalities) {
  auto root = Open();
  for (auto const& [series, image, modality] :
       {std::tuple(1, 1, "CT"), {1, 2, "CT"}, {2, 1, "MR"}, {3, 1, "CT"}, {4, 1, "C"}}) {
    auto msg = Example({.series = series, .image = image});
    msg->SetModality(Dicom_CS(modality));
    msg->SetReferringPhysiciansName(Dicom_PN("Last^" + std::to_string(series)));
    if (image == 2) msg->SetSeriesNumber(Dicom_IS("03")); // the number is the same
    ASSERT_EQ(Store(*root, *msg), 0);
    Util_Clock::SetNow(1700000000);
    ASSERT_EQ(Store(*root, *msg), 0); // counts nothing
  }
  EXPECT_EQ(RootRecord("STUDY")->GetLastUpdateDate().Year(), 2023);
  EXPECT_EQ(Records("SA100000/DIRFILE")[0]->GetLastUpdateDate().Year(), 2023);
  auto const study = RootRecord("STUDY");
  EXPECT_EQ(int(study->GetNumberOfStudyRelatedImages()), 5);
  EXPECT_EQ(int(study->GetNumberOfStudyRelatedSeries()), 4);
  EXPECT_EQ(study->GetNumberOfSeries(), Dicom_UL(4));
  EXPECT_EQ(study->GetModalitiesInStudy().GetText(), "CT\\MR") << "C is found within CT";
  EXPECT_EQ(study->GetMultiModality().GetText(), "CT\\MR\\C");
  EXPECT_EQ(study->GetReferringPhysiciansName().GetText(), "Last^4");
  EXPECT_EQ(study->GetProtectionFlag().GetText(), "N");
}

TEST_F(StoreTest, MismatchesCanBeTolerated) {
  struct Case {
    void (*change)(IOD_Msg&);
    char const* tolerated;
  } const cases[] = {
      {[](IOD_Msg& m) { m.SetPatientsName(Dicom_PN("Other^One")); }, "Patient's name doesn't match the study UID"},
      {[](IOD_Msg& m) { m.SetPatientID(Dicom_LO("other")); }, "Patient ID doesn't match the study UID"},
      {[](IOD_Msg& m) { m.SetStudyID(Dicom_SH("B2")); }, "Study ID doesn't match the study UID"},
      {[](IOD_Msg& m) { m.SetSeriesNumber(Dicom_IS(8)); }, "Series number does not match the series UID"},
      {[](IOD_Msg& m) { m.SetIssuerOfPatientID(Dicom_LO("X")); }, "Patient ID doesn't match the study UID"},
  };
  for (unsigned const with : {0u, unsigned(Disk_StoreParams::STANDARD_STRUCTURE)}) {
    Clear();
    structure = with;
    auto root = Open();
    auto first = Example();
    ASSERT_EQ(Store(*root, *first), 0);
    int image = 1;
    for (Case const& c : cases) {
      if (!structure && &c == std::end(cases) - 1) continue; // no patient record is compared there
      auto msg = Example({.image = ++image});
      c.change(*msg);
      LogCapture log;
      EXPECT_EQ(Store(*root, *msg, true), 0);
      EXPECT_EQ(log.Count(5, "Store: " + std::string(c.tolerated) + ", but the image is stored"), 1) << c.tolerated;
      if (structure) continue;
      EXPECT_EQ(RootRecord("STUDY")->GetPatientID(), first->GetPatientID()) << "the stored values stay";
    }
    ExpectSound();
    EXPECT_EQ(Check().instances, structure ? 6u : 5u);
  }
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
    order += record->Text(kRecordType)[0];
  EXPECT_EQ(order, "PSSPSPS") << "each patient is followed by its studies";
}

TEST_F(StoreTest, KeyImageFlagOfAKnownImage) {
  auto root = Open();
  auto msg = Example();
  for (auto const& [flag, expected] : {std::pair("N", "N"), {"Y", "Y"}, {"", "N"}, {"Y", "Y"}}) {
    msg->SetKolbaKeyImage(Dicom_CS(flag));
    ASSERT_EQ(Store(*root, *msg), 0);
    EXPECT_EQ(Records("SA100000/S3000000/DIRFILE")[0]->GetKolbaKeyImage().GetText(), expected);
  }
}

TEST_F(StoreTest, FakedDatesAreTheEarliestOfTheImages) {
  std::array<char const*, 4> const cases[] = {
      // the image's date and time, and those that are kept
      {"20200105", "120000", "20200105", "120000"},     {"20200107", "080000", "20200105", "120000"},
      {"20200105", "115959", "20200105", "115959"},     {"", "010000", "20200105", "115959"},
      {"20200101", "", "20200105", "115959"},           {"20200104", "235959.5", "20200104", "235959.5"},
      {"20200104", "235959.1", "20200104", "235959.5"}, // to the second
  };
  auto root = Open();
  int image = 0;
  for (auto const& [date, time, kept_date, kept_time] : cases) {
    auto msg = Example({.image = ++image});
    msg->SetStudyDate(DA_NULL);
    msg->SetStudyTime(TM_NULL);
    msg->SetImageDate(Dicom_DA(date));
    msg->SetImageTime(Dicom_TM(time));
    ASSERT_EQ(Store(*root, *msg), 0);
    auto const study = RootRecord("STUDY");
    EXPECT_EQ(study->GetFakedStudyDate().GetText() + " " + study->GetFakedStudyTime().GetText(),
              std::string(kept_date) + " " + kept_time);
  }
  auto dated = Example({.study = 2});
  ASSERT_EQ(Store(*root, *dated), 0);
  EXPECT_FALSE(Records("DICOMDIR").back()->Has(Dicom_Dictionary::KOLBA_FAKED_STUDY_DATE));
}

TEST_P(StoreOfFilesTest, InPlaceStoreWritesNoObject) {
  auto root = Open();
  auto msg = Example();
  std::filesystem::create_directories(At("STUDY/SERIES"));
  std::string file = At("STUDY/SERIES/OBJ"), missing = At("STUDY/SERIES/NONE");
  ASSERT_EQ(Phantom::Write({.size = 16}, file, Dicom_UI("1.2.840.10008.1.2")), 0);
  auto const bytes = directory.Read("STUDY/SERIES/OBJ");
  for (auto const durability : {Util_Durability::Relaxed, Util_Durability::Full}) {
    Util_FileSystem::SetDurability(durability);
    for (auto const* syntax : {&Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, static_cast<Dicom_UI const*>(nullptr)}) {
      Disk_StoreRequest request{.msg = msg.get(), .in_place = 1, .existing_file = missing.c_str()};
      request.syntax_in_file = syntax;
      ExpectRefused([&] { return root->Store(request); }, "Store: Can't find ", 210000 + ENOENT);
    }
    EXPECT_EQ(Studies(*root), 0);
  }
  ASSERT_EQ(StoreInPlace(*root, msg.get(), file), 0);
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
  auto other = Example({.study = 2});
  std::filesystem::create_directories(At("STUDY/SERIES/x"));
  for (char const* refused : {"", "/OBJ", "/STUDY/OBJ", "/STUDY//OBJ", "/STUDY/SERIES/NEW", "/STUDY/SERIES/x/NEW"}) {
    std::string place = Prefix() + refused;
    EXPECT_TRUE(!*refused || Phantom::Write({.study = 2, .size = 16}, place) == 0);
    ExpectRefused([&] { return StoreInPlace(*root, other.get(), place); }, "NewStudy(): Can't generate a file ID.",
                  DISK_ERROR_FILE_NAME);
  }
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

TEST_P(StoreOfFilesTest, CountersStopAtTheirLimit) {
  ASSERT_EQ(Store(*Open(), *Example()), 0);
  for (char const* name : {"DICOMDIR", "SA100000/DIRFILE"}) {
    std::string bytes = structure && *name == 'S' ? "" : directory.Read(name);
    for (char const element : {'\x06', '\x08', '\x09'})
      if (auto const at = bytes.find(std::string("\x20\0", 2) + element + "\x12IS"); at != bytes.npos)
        bytes.replace(at + 8, 12, "2147483647  ");
    if (!bytes.empty()) directory.Write(name, bytes);
  }
  auto root = Open();
  ASSERT_EQ(Store(*root, *Example({.image = 2})) | Store(*root, *Example({.series = 2})), 0);
  auto const study = Ask(*root, STUDY, {{kStudySeries, ""}, {kStudyImages, ""}});
  EXPECT_EQ(study.at(0)->Text(kStudySeries) + study[0]->Text(kStudyImages), "21474836472147483647");
  EXPECT_EQ(Ask(*root, SERIES, {{kStudyUid, ""}, {kSeriesImages, "2147483647"}}).size(), 1u);
}

// Records that were written before there was the standard's attribute have only ours.
TEST_F(StoreTest, OwnCountersCountWhereTheStandardsAreMissing) {
  for (int image : {1, 2, 3})
    ASSERT_EQ(Store(*Open(), *Example({.series = image / 3 + 1, .image = image})), 0);
  ChangeEachRecord("SA100000/DIRFILE", [](Dicom_Msg& series) { series.Remove(kSeriesImages); });
  int series = 0, images = 0;
  EXPECT_EQ(Disk_StudyDirectoryFile(kStudy, 0, nullptr, 0).Count(&series, &images), 0);
  EXPECT_EQ(images, 3);
  ChangeEachRecord("DICOMDIR", [&](Dicom_Msg& record) {
    if (record.Has(kStudyImages)) record.Set(kStudyImages, Dicom_IS(1)); // as an interrupted store leaves it
  });
  ASSERT_EQ(Delete(*Open(), SERIES, {.series = 2}), 0);
  EXPECT_EQ(Ask(*Open(), STUDY, {{kStudyImages, ""}}).at(0)->Text(kStudyImages), "2");
}

// What can't do without an argument refuses to go on without it.
TEST_F(StoreTest, MissingArgumentsAreRefused) {
  auto const msg = Example();
  ASSERT_EQ(Store(*Open(), *msg), 0);
  Disk_StudyDirectoryFile below(kStudy, 0, nullptr, 0);
  std::function<int()> const calls[] = {
      [&] { return Studies(*std::make_unique<Disk_RootDirectoryFile>(Prefix().c_str(), 0, 0, nullptr, nullptr)); },
      [&] { return below.Query(SERIES, SCL_QueryIdentifier(SERIES), nullptr); },
      [&] { return below.Store(msg.get(), nullptr, nullptr, nullptr, 0, 0, 0, nullptr, 0, nullptr, nullptr, nullptr); },
      [&] { return Disk_FileID(Prefix().c_str(), "x", nullptr, 0).GetID() == CS_NULL ? -1 : 0; },
  };
  for (auto const& call : calls) {
    LogCapture log(3);
    EXPECT_EQ(call(), -1) << &call - calls;
    EXPECT_EQ(log.Count(3, "NULL"), 1) << &call - calls;
  }
}
