#include "support/FileSetFixture.h"

#include <dicom/SCL_Identifier.h>

namespace {

class QueryTest : public FileSetTest {
protected:
  Answers Ask(SCL_QueryRetrieveLevel::Value level, Keys const& keys, int expected = 0) {
    return FileSetTest::Ask(*root, level, keys, expected);
  }

  void Fill() {
    for (int patient : {1, 2})
      for (int series : {1, 2})
        for (int image : {1, 2, 3}) {
          auto msg = Phantom::Make({.patient = patient, .series = series, .image = image, .size = 16});
          ASSERT_EQ(Store(*root, *msg), 0);
        }
  }

  std::unique_ptr<Disk_RootDirectoryFile> root = Open();
  static constexpr Dicom_Tag kSeriesUid{0x0020, std::uint16_t(0x000E)}, kName{0x0010, std::uint16_t(0x0010)},
      kModality{0x0008, std::uint16_t(0x0060)}, kNumber{0x0020, std::uint16_t(0x0013)},
      kStudyDescription{0x0008, std::uint16_t(0x1030)}, kAccession{0x0008, std::uint16_t(0x0050)},
      kFileId{0x0004, std::uint16_t(0x1500)}, kLabel{0x0008, std::uint16_t(0x1010)};
};

std::string Uid(int patient, int series = 0) {
  Phantom::Object const o{.patient = patient, .series = series ? series : 1};
  return (series ? Phantom::SeriesUid(o) : Phantom::StudyUid(o)).GetText();
}

} // namespace

TEST_F(QueryTest, LevelsAndKeys) {
  EXPECT_TRUE(Ask(SCL_QueryRetrieveLevel::UNKNOWN, {}).empty()) << "an unknown level goes unnoticed";
  Fill();
  std::tuple<SCL_QueryRetrieveLevel::Value, Keys, std::size_t> const cases[] = {
      {STUDY, {}, 2},
      {STUDY, {{kStudyUid, Uid(1)}}, 1},
      {STUDY, {{kStudyUid, Uid(1) + "\\" + Uid(2)}}, 2},
      {STUDY, {{kStudyUid, "1.2.3"}}, 0},
      {STUDY, {{kName, "*"}}, 2},
      {STUDY, {{kLabel, "value"}}, 0}, // a record lacks the attribute: the filter takes the response away
      {STUDY, {{kLabel, "***"}}, 2},
      {STUDY, {{kLabel, "^^"}}, 2},
      {STUDY, {{kLabel, ""}}, 2},
      {STUDY, {{kSeriesUid, "1.2"}}, 2}, // exempt
      {SERIES, {{kStudyUid, Uid(1)}}, 2},
      {SERIES, {{kStudyUid, Uid(1)}, {kSeriesUid, Uid(1, 2)}}, 1},
      {SERIES, {{kStudyUid, Uid(1)}, {kModality, "CT"}}, 2},
      {SERIES, {{kStudyUid, Uid(1)}, {kModality, "MR"}}, 0},
      {SERIES, {{kStudyUid, Uid(1)}, {kAccession, "none"}}, 2 * 0}, // chosen by UID; series lack it
      {IMAGE, {{kStudyUid, Uid(1)}}, 6},
      {IMAGE, {{kStudyUid, Uid(2)}, {kSeriesUid, Uid(2, 1)}}, 3},
      {IMAGE, {{kStudyUid, Uid(2)}, {kSeriesUid, ""}}, 6},
      {IMAGE, {{kStudyUid, Uid(1)}, {kNumber, "2"}}, 2},
      {IMAGE, {{kStudyUid, Uid(1)}, {kStudyDescription, "x"}}, 0},
      {IMAGE, {{kStudyUid, "1.2"}}, 0},
  };
  for (auto const& [level, keys, answers] : cases)
    EXPECT_EQ(Ask(level, keys).size(), answers) << level << " " << (keys.empty() ? "" : keys.back().second);
  auto const images = Ask(IMAGE, {{kStudyUid, Uid(1)}, {kSopUid, ""}, {kFileId, ""}});
  ASSERT_EQ(images.size(), 6u);
  for (auto const& image : images) {
    EXPECT_EQ(image->GetNElements(), 4);
    EXPECT_EQ(image->GetStudyInstanceUID().GetText(), Uid(1));
    EXPECT_NE(image->GetSeriesInstanceUID(), UI_NULL);
    EXPECT_EQ(image->GetReferencedFileID().GetNValues(), 3);
  }
  auto const studies = Ask(STUDY, {});
  EXPECT_EQ(studies[0]->GetNElements(), 0);
  Ask(SCL_QueryRetrieveLevel::UNKNOWN, {{kStudyUid, "1.2"}}, -1);
  Dicom_Sequence results;
  SCL_QueryIdentifier by_name(STUDY);
  by_name.SetPatientsName(Dicom_PN("*a*"));
  results.Append(new IOD_Msg, true); // of an earlier query: it goes through the filter, too
  ASSERT_EQ(root->Query(by_name, 1, &results), 0);
  for (int i = 0; i < results.GetNItems(); ++i)
    EXPECT_TRUE(results.Get(i)->Has(kName));
}

TEST_F(QueryTest, ATraceTellsOfEachStudyWhyItIsNotMeant) {
  Fill();
  for (Keys const& keys : {Keys{{kStudyUid, Uid(1)}}, Keys{{kAccession, "?*"}, {kStudyUid, Uid(1)}, {kSopUid, ""}}}) {
    LogCapture log;
    EXPECT_LE(Ask(STUDY, keys).size(), 1u);
    EXPECT_EQ(log.Count(7, "Got " + std::to_string(keys.size() + 1) + " Elements in query identifier"), 2);
    EXPECT_EQ(log.Count(7, " elements in the disk"), 2);
    EXPECT_EQ(log.Count(7, "doesn't match. queried for: " + Uid(1) + ", disk has: " + Uid(2)), 1);
  }
}

TEST_F(QueryTest, ADriftedStudyThatIsDeletedIsWarnedOf) {
  Fill();
  ChangeEachRecord("DICOMDIR", [](Dicom_Msg& record) { record.Set(Dicom_Tag(0x0020, 0x1206), Dicom_IS(9, true)); });
  root = Open();
  LogCapture log;
  MXL_SubOperationsReport report;
  report.Set(MXL_SubOperationsReport::Failed, Dicom_US(9));
  SCL_ResponseStatus status;
  EXPECT_EQ(root->Delete(SCL_MoveIdentifier(), 1, &report, status), -1);
  EXPECT_EQ(log.Count(7, ": Delete:"), 1) << "also where deletes are off";
  EXPECT_EQ(report.Get(MXL_SubOperationsReport::Failed), Dicom_US(9)) << "it is another request's";
  EXPECT_EQ(Delete(*root, STUDY, {}), 0);
  EXPECT_EQ(log.Count(4, "Delete: Warning: inconsistent db. Un-empty study is deleted"), 1);
}

TEST_F(QueryTest, StudiesWithoutUidKeyAreChosenByAccessionNumber) {
  for (int study : {1, 2}) {
    auto msg = Example({.study = study});
    msg->SetAccessionNumber(study == 1 ? Dicom_SH("ACC") : SH_NULL);
    ASSERT_EQ(Store(*root, *msg), 0);
  }
  LogCapture log;
  EXPECT_EQ(Ask(SERIES, {{kModality, ""}}, -1).size(), 1u) << "the first study has an accession number";
  EXPECT_EQ(log.Count(3, "Query: Can't get study instance UID nor Accession Number."), 1);
  ChangeEachRecord("SA100000/S3000000/DIRFILE", [](Dicom_Msg& image) { image.Set(kSeriesUid, Dicom_UI("1.2")); });
  auto const images = Ask(IMAGE, {{kStudyUid, Uid(1)}, {kSopUid, ""}, {kSeriesUid, ""}});
  ASSERT_EQ(images.size(), 1u);
  EXPECT_EQ(images[0]->GetSeriesInstanceUID().GetText(), Uid(1, 1)) << "what stands above counts";
  ChangeEachRecord("DICOMDIR", [](Dicom_Msg& record) { record.Remove(kStudyUid); });
  EXPECT_TRUE(Ask(SERIES, {{kAccession, "ACC"}}, -1).empty());
  EXPECT_EQ(log.Count(3, "Query(): Can't get Study instance UID."), 1);
}

TEST_F(QueryTest, PrivateAttributesAreFoundInAnyBlock) {
  Fill();
  ChangeEachRecord("DICOMDIR", [](Dicom_Msg& record) { // behind the block that the identifier has it in front of
    record.Set(Dicom_Tag(0x0009, std::uint8_t(1), "SOMEBODY ELSE"), Dicom_LO("x"));
  });
  root = Open();
  for (char const* flag : {"N", "Y", ""}) {
    Keys keys{{Dicom_Dictionary::KOLBA_PROTECTION_FLAG, flag}};
    EXPECT_EQ(Ask(STUDY, keys).size(), *flag == 'Y' ? 0u : 2u) << flag;
    keys.insert(keys.begin(), {Dicom_Tag(0x0009, std::uint8_t(1), "SOMEBODY ELSE"), ""}); // takes the first block
    auto const studies = Ask(STUDY, keys);
    ASSERT_EQ(studies.size(), *flag ? 0u : 2u) << "the filter looks in the identifier's block";
    EXPECT_TRUE(studies.empty() || studies[0]->GetProtectionFlag().GetText() == "N");
  }
}

TEST_F(QueryTest, NamesOfDifferentCharacterSetsCompare) {
  int patient = 0;
  for (auto const charset :
       {Phantom::Charset::Ascii, Phantom::Charset::Latin1, Phantom::Charset::Greek, Phantom::Charset::Cyrillic,
        Phantom::Charset::Japanese, Phantom::Charset::Korean, Phantom::Charset::Chinese, Phantom::Charset::Utf8}) {
    auto msg = Phantom::Make({.patient = ++patient, .size = 16, .charset = charset});
    ASSERT_EQ(Store(*root, *msg), 0);
    std::string const name = msg->GetPatientsName().GetText();
    EXPECT_EQ(name.find('?'), name.npos) << "lost in its character set";
    auto const whole = Ask(STUDY, {{kName, name}});
    ASSERT_EQ(whole.size(), 1u) << name;
    EXPECT_EQ(whole[0]->GetPatientsName().GetText(), name);
    bool const ascii = std::all_of(name.begin(), name.end(), [](char c) { return c > 0; });
    EXPECT_EQ(whole[0]->GetSpecificCharacterSet().GetText(), ascii ? "" : "ISO_IR 192");
    EXPECT_FALSE(Ask(STUDY, {{kName, name.substr(0, name.find('^')) + "*"}}).empty()) << name;
  }
}

TEST_F(QueryTest, TextOfItemsIsDeclaredToo) {
  auto msg = Phantom::Make({.kind = Phantom::Kind::SR});
  Dicom_Tag const concept_name(0x0040, std::uint16_t(0xA043)), meaning(0x0008, std::uint16_t(0x0104));
  auto items = std::make_unique<Dicom_Sequence>();
  items->Append(new Dicom_Msg, true);
  items->Get(0)->Set(meaning, Dicom_LO("M\u00FCnchen"));
  msg->Set(concept_name, Dicom_SQ(items.release()));
  ASSERT_EQ(Store(*root, *msg), 0);
  auto const images = Ask(IMAGE, {{kStudyUid, msg->GetStudyInstanceUID().GetText()}, {concept_name, ""}});
  ASSERT_EQ(images.size(), 1u);
  EXPECT_EQ(images[0]->GetSpecificCharacterSet().GetText(), "ISO_IR 192");
}

TEST_F(QueryTest, OtherVendorsAttributeIsRequiredOfRecordsThatHaveItsBlock) {
  auto msg = Example();
  ASSERT_EQ(Store(*root, *msg), 0);
  auto const answers = [&](char const* value) {
    Dicom_Tag const wanted(0x07A1, std::uint8_t(0x2B), "ELSCINT1");
    return Ask(IMAGE, {{kStudyUid, msg->GetStudyInstanceUID().GetText()}, {wanted, value}}).size();
  };
  for (char const* value : {"", "*", "Y"})
    EXPECT_EQ(answers(value), *value != 'Y') << "a record without the block is like any other";
  ChangeEachRecord("SA100000/S3000000/DIRFILE", [](Dicom_Msg& record) {
    record.Set(Dicom_Tag(0x07A1, std::uint8_t(0x2C), "ELSCINT1"), Dicom_CS("another"));
  });
  root = Open();
  for (char const* value : {"", "*", "Y"})
    EXPECT_EQ(answers(value), *value == '\0') << value;
}
