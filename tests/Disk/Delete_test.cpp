// Deletes, in both structures. Those at random, of several at once, are the campaign `processes`, and those beside what
// an interrupted one has left `kill`.
#include "support/FileSetFixture.h"

#include <dicom/IOD_Image.h>

namespace {

namespace fs = std::filesystem;

class DeleteTest : public BothStructuresTest {
protected:
  static Deletion Delete(Disk_RootDirectoryFile& root, QueryLevel level, std::string const& studies,
                         std::string const& series = {}, std::string const& images = {}) {
    int error = 0;
    SCL_MoveIdentifier identifier(level, &error);
    if (!studies.empty()) identifier.SetStudyInstanceUID(Dicom_UI(studies));
    if (!series.empty()) identifier.SetSeriesInstanceUID(Dicom_UI(series));
    if (!images.empty()) identifier.SetSOPInstanceUID(Dicom_UI(images));
    return DeleteObjects(root, identifier);
  }
};

FOR_BOTH_STRUCTURES(DeleteTest);

} // namespace

TEST_P(DeleteTest, RequestsThatAreRefusedChangeNothing) {
  auto root = OpenForDeletes();
  Phantom::Object const o{}, second{.study = 2};
  ASSERT_EQ(Store(*root, *Example(o)) | Store(*root, *Example(second)), 0);
  auto const files = Files();
  Deletion const refused{-1, 4, 0, 0};
  EXPECT_EQ(Delete(*root, STUDY, ""), refused);
  EXPECT_EQ(Delete(*root, STUDY, "1.2.3"), refused);
  EXPECT_EQ(Delete(*root, SERIES, StudyOf(o) + "\\" + StudyOf(second), SeriesOf(o)), refused);
  EXPECT_EQ(Delete(*root, SERIES, "1.2.3", SeriesOf(o)), refused);
  LogCapture log;
  EXPECT_EQ(Delete(*root, SERIES, StudyOf(o)), refused) << "not the whole study";
  EXPECT_EQ(Delete(*root, IMAGE, StudyOf(o), SeriesOf(o)), refused) << "not the whole series";
  EXPECT_EQ(Delete(*root, IMAGE, StudyOf(o), "", ImageOf(o)), refused);
  EXPECT_EQ(log.Count(3, "Instance UID says what is to go"), 3);
  EXPECT_EQ(Files(), files);
  EXPECT_EQ(Delete(*root, SERIES, StudyOf(o), "1.2.3"), (Deletion{-1, 0, 0, 0})) << "the root is written all the same";
  // of two studies the first goes, although the second isn't there
  EXPECT_EQ(Delete(*root, STUDY, StudyOf(o) + "\\1.2.3"), (Deletion{-1, 4, 1, 0}));
  EXPECT_EQ(Studies(*root), 1);
  EXPECT_EQ(Images(*root, Dicom_UI(StudyOf(second))), std::set<std::string>{ImageOf(second)});
}

TEST_P(DeleteTest, SomeImagesOfASeries) {
  auto root = OpenForDeletes();
  Phantom::Object const o{};
  std::string const images = "1.2.3\\" + ImageOf(o) + "\\" + ImageOf({.image = 2});
  for (int image = 1; image <= 4; ++image)
    ASSERT_EQ(Store(*root, *Example({.image = image})), 0);
  for (auto const& [name, size] : Files()) // one file is gone already: that is only a warning
    if (name.ends_with("/I7000000")) fs::remove(At(name));
  EXPECT_EQ(Delete(*root, IMAGE, StudyOf(o), SeriesOf(o), images), (Deletion{0, 0, 2, 1}));
  EXPECT_EQ(Delete(*root, IMAGE, StudyOf(o), SeriesOf(o), images), (Deletion{0, 0, 0, 3}));
  EXPECT_EQ(Ask(*root, STUDY, {{kStudyUid, StudyOf(o)}, {kStudyImages, ""}}).at(0)->Text(kStudyImages), "2");
  auto other = OpenForDeletes(); // knows of what is left as well
  ASSERT_EQ(Store(*root, *Example({.kind = Phantom::Kind::MR, .series = 2})), 0);
  EXPECT_EQ(Delete(*other, SERIES, StudyOf(o), SeriesOf({.series = 2})), (Deletion{0, 0, 1, 0}));
  ExpectSound(); // no modality of its own is left
  EXPECT_EQ(Delete(*other, SERIES, StudyOf(o), SeriesOf(o)), (Deletion{0, 0, 2, 0}));
  EXPECT_EQ(Studies(*root) + Studies(*other), 0);
  ExpectSound(); // no folders are left
  if (structure) ExpectMedium(Prefix(), {});
  root.reset(), other.reset();
  EXPECT_EQ(Files().size(), 3u) << "DICOMDIR, LOCKFILE and VERSION";
}

TEST_P(DeleteTest, CineFilesGoUnlessThatIsSwitchedOff) {
  using Own = std::optional<bool>;
  for (auto const& [process, own, wanted] :
       {std::tuple(false, Own(), false), {false, true, true}, {true, false, false}, {true, Own(), true}}) {
    Disk_SetDeletesCineFiles(process);
    auto root = OpenForDeletes();
    root->SetDeletesCineFiles(own);
    auto msg = Example();
    msg->SetImageType(IOD_Image::DERIVED | IOD_Image::SECONDARY | IOD_Image::ITINERARY | IOD_Image::CINE);
    TempDirectory outside;
    msg->SetInputFileName(Dicom_ST(outside.Write("cine", "x")));
    ASSERT_EQ(Store(*root, *msg), 0);
    EXPECT_EQ(Delete(*root, STUDY, StudyOf({})), (Deletion{0, 0, 1, 0}));
    EXPECT_EQ(fs::exists(outside / "cine"), !wanted);
  }
}

// As the root does it, whose locks a caller has to hold.
TEST_F(FileSetTest, TheLowerLevelsDelete) {
  for (int image = 1; image <= 6; ++image)
    ASSERT_EQ(Store(*Open(), *Example({.series = (image + 1) / 2, .image = image})), 0);
  Dicom_UI const series = Phantom::SeriesUid({.series = 1}), image = Phantom::InstanceUid({.series = 1, .image = 1});
  Disk_StudyDirectoryFile study(Disk_FileID(Prefix().c_str(), Dicom_CS("SA100000\\DIRFILE"), 0), 0, nullptr, 0);
  using Told = std::tuple<int, int, int, int, std::string>; // the result, images completed and failed, series, modality
  for (auto const& [of_series, images, told] :
       {std::tuple(series, Dicom_UI(image.GetText() + "\\1.2.3"), Told(0, 1, 1, 0, "")),
        {series, Phantom::InstanceUid({.series = 1, .image = 2}), {0, 1, 0, 1, "CT"}},
        {series, UI_NULL, {-1, 0, 0, 0, ""}}, // is gone
        {UI_NULL, UI_NULL, {0, 4, 0, 2, ""}}}) {
    MXL_SubOperationsReport report;
    report.Set(MXL_SubOperationsReport::Failed, Dicom_US(9)); // starts anew
    int removed = -1;
    Dicom_CS modality("MR");
    int const result = study.Delete(of_series, images, &report, &removed, modality);
    EXPECT_EQ(Told(result, report.Get(report.Completed), report.Get(report.Failed), removed, modality.GetText()), told);
    EXPECT_EQ(study.Delete(of_series, images, nullptr, &removed, modality), -1);
  }
}
