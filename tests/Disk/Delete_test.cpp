// Deletes, in both structures. A model of what was stored and not deleted is compared with records and files.
#include "support/DicomdirWalk.h"
#include "support/FileSetFixture.h"

#include <dicom/IOD_Image.h>

#include <random>

namespace {

namespace fs = std::filesystem;

class DeleteTest : public BothStructuresTest {
protected:
  static constexpr int kSize = 16;

  static Phantom::Object Numbered(int patient, int study, int series, int image) {
    auto const kind = series == 3 ? Phantom::Kind::MR : Phantom::Kind::CT;
    return {.kind = kind, .patient = patient, .study = study, .series = series, .image = image, .size = kSize};
  }
  int StoreOne(Disk_RootDirectoryFile& root, Phantom::Object const& object) {
    auto msg = Phantom::Make(object);
    return Store(root, *msg);
  }

  struct Outcome {
    int result;
    int status;
    int completed, failed;
    friend bool operator==(Outcome const&, Outcome const&) = default;
    friend std::ostream& operator<<(std::ostream& out, Outcome const& o) {
      return out << o.result << " " << o.status << " " << o.completed << " " << o.failed;
    }
  };
  static Outcome Delete(Disk_RootDirectoryFile& root, SCL_QueryRetrieveLevel::Value level, std::string const& studies,
                        std::string const& series = {}, std::string const& images = {}) {
    int error = 0;
    SCL_MoveIdentifier identifier(level, &error);
    if (!studies.empty()) identifier.SetStudyInstanceUID(Dicom_UI(studies));
    if (!series.empty()) identifier.SetSeriesInstanceUID(Dicom_UI(series));
    if (!images.empty()) identifier.SetSOPInstanceUID(Dicom_UI(images));
    MXL_SubOperationsReport report;
    SCL_ResponseStatus status;
    int const result = root.Delete(identifier, 1, &report, status);
    return {result, int(status), int(report.Get(MXL_SubOperationsReport::Completed)),
            int(report.Get(MXL_SubOperationsReport::Failed))};
  }
  static std::string Study(Phantom::Object const& o) { return Phantom::StudyUid(o).GetText(); }
  static std::string Series(Phantom::Object const& o) { return Phantom::SeriesUid(o).GetText(); }
  static std::string Image(Phantom::Object const& o) { return Phantom::InstanceUid(o).GetText(); }

  std::set<std::string> Found(Disk_RootDirectoryFile& root, std::set<std::string> const& studies) {
    std::set<std::string> uids;
    for (std::string const& study : studies)
      uids.merge(Images(root, Dicom_UI(study)));
    return uids;
  }
};

INSTANTIATE_TEST_SUITE_P(Structures, DeleteTest, kBothStructures, StructureName);

// Stores and deletes at random, through two roots in turn; after each step the file-set is sound and tells what a model
// of it says. At the end all is deleted, and nothing is left.
class RandomDeletes : public DeleteTest {
protected:
  using Objects = std::vector<std::unique_ptr<IOD_Msg>>;

  IOD_Msg const& Remaining(Objects const& objects) const {
    for (auto const& msg : objects)
      if (model.count(msg->GetStudyInstanceUID().GetText())) return *msg;
    return *objects[0];
  }

  void Step(Disk_RootDirectoryFile& root, IOD_Msg const& msg, unsigned what) {
    std::string const study = msg.GetStudyInstanceUID().GetText(), series = msg.GetSeriesInstanceUID().GetText();
    std::string const image = msg.GetSOPInstanceUID().GetText();
    bool const has_study = model.count(study), has_series = has_study && model[study].count(series);
    bool const has_image = has_series && model[study][series].count(image);
    switch (what) {
    case 0:
      EXPECT_EQ(Delete(root, STUDY, study).result, has_study ? 0 : -1);
      model.erase(study);
      break;
    case 1:
      EXPECT_EQ(Delete(root, SERIES, study, series).result, has_series ? 0 : -1);
      if (has_series) model[study].erase(series);
      break;
    case 2:
      EXPECT_EQ(Delete(root, IMAGE, study, series, image),
                (Outcome{has_series ? 0 : -1, has_study ? 0 : 4, has_image, has_series && !has_image}));
      if (has_image) model[study][series].erase(image);
      break;
    default:
      IOD_Msg copy(msg);
      EXPECT_EQ(Store(root, copy, true), 0);
      model[study][series].insert(image);
    }
    std::erase_if(model[study], [](auto const& entry) { return entry.second.empty(); });
    std::erase_if(model, [](auto const& entry) { return entry.second.empty(); });
  }

  std::map<std::string, std::map<std::string, std::set<std::string>>> model; // study, series, images
};
INSTANTIATE_TEST_SUITE_P(Structures, RandomDeletes, kBothStructures, StructureName);

} // namespace

TEST_P(RandomDeletes, AgreeWithAModel) {
  Objects objects;
  std::set<std::string> studies;
  for (int i = 0; i < 48; ++i) {
    objects.push_back(Phantom::Make(Numbered(i / 24 + 1, i / 12 % 2 + 1, i / 4 % 3 + 1, i % 4 + 1)));
    studies.insert(objects.back()->GetStudyInstanceUID().GetText());
  }
  int const steps = std::getenv("DISK_LONG_TESTS") ? 2000 : 150;
  std::mt19937 random(4);
  auto root = OpenForDeletes(), other = OpenForDeletes();
  for (int step = 0; (step < steps || !model.empty()) && !HasFailure(); ++step) {
    SCOPED_TRACE(step);
    IOD_Msg const& msg = step < steps ? *objects[random() % objects.size()] : Remaining(objects);
    Step(random() % 2 ? *root : *other, msg, step == 0 ? 7 : random() % (step < steps ? 8 : 3));
    std::set<std::string> expected;
    for (auto const& [uid, its_series] : model)
      for (auto const& [series_uid, uids] : its_series)
        expected.insert(uids.begin(), uids.end());
    for (auto* reader : {root.get(), other.get()})
      EXPECT_EQ(Found(*reader, studies), expected);
    ExpectSound();
    EXPECT_TRUE(!structure || DicomdirWalk(At("DICOMDIR")).problems.empty());
  }
  root.reset(), other.reset();
  std::set<std::string> left;
  for (auto const& entry : fs::directory_iterator(Prefix()))
    left.insert(entry.path().filename());
  EXPECT_EQ(left, (std::set<std::string>{"DICOMDIR", "LOCKFILE", "VERSION"}));
}

// A delete that was interrupted left records of what is gone: new objects get other names, and stay when it is
// repeated.
TEST_P(DeleteTest, NamesOfWhatIsGoneAreNotGivenAgain) {
  std::set<std::string> const others{"DICOMDIR", "LOCKFILE"};
  for (auto const level : {STUDY, SERIES, IMAGE}) {
    SCOPED_TRACE(level);
    Clear();
    auto root = OpenForDeletes();
    Phantom::Object const o{}, other{.study = level == STUDY ? 2 : 1, .series = level == IMAGE ? 1 : 2, .image = 2};
    auto const first = Example(o), next = Example(other); // alike in all that names are made from
    ASSERT_EQ(Store(*root, *first), 0);
    fs::path gone;
    for (auto const& [name, size] : Files())
      if (fs::path(name).filename().string().size() == 8 && others.count(fs::path(name).filename()) == 0)
        gone = At(name);
    for (int i = level; i < IMAGE; ++i)
      gone = gone.parent_path();
    ASSERT_NE(gone, fs::path(Prefix()));
    fs::remove_all(gone);
    ASSERT_EQ(Store(*root, *next), 0);
    Delete(*root, level, Study(o), level == STUDY ? "" : Series(o), level == IMAGE ? Image(o) : "");
    EXPECT_TRUE(Fetch(*root, Uids(*next)));
    ExpectNoDamage();
  }
}

TEST_P(DeleteTest, RequestsThatAreRefusedChangeNothing) {
  auto root = OpenForDeletes();
  auto const o = Numbered(1, 1, 1, 1), second = Numbered(1, 2, 1, 1);
  ASSERT_EQ(StoreOne(*root, o), 0);
  ASSERT_EQ(StoreOne(*root, second), 0);
  auto const files = Files();
  EXPECT_EQ(Delete(*Open(), STUDY, Study(o)).result, -1) << "off until it is allowed";
  Outcome const refused{-1, 4, 0, 0};
  EXPECT_EQ(Delete(*root, STUDY, ""), refused);
  EXPECT_EQ(Delete(*root, STUDY, "1.2.3"), refused);
  EXPECT_EQ(Delete(*root, SERIES, Study(o) + "\\" + Study(second), Series(o)), refused);
  EXPECT_EQ(Delete(*root, SCL_QueryRetrieveLevel::Value(7), Study(o)), refused);
  LogCapture log;
  EXPECT_EQ(Delete(*root, SERIES, Study(o)), refused) << "not the whole study";
  EXPECT_EQ(Delete(*root, IMAGE, Study(o), Series(o)), refused) << "not the whole series";
  EXPECT_EQ(Delete(*root, IMAGE, Study(o), "", Image(o)), refused);
  EXPECT_EQ(log.Count(3, "Instance UID says what is to go"), 3);
  EXPECT_EQ(Files(), files);
  // of two studies the first goes, although the second isn't there
  EXPECT_EQ(Delete(*root, STUDY, Study(o) + "\\1.2.3"), (Outcome{-1, 4, 1, 0}));
  EXPECT_EQ(Found(*root, {Study(o), Study(second)}), std::set<std::string>{Image(second)});
}

TEST_P(DeleteTest, SomeImagesOfASeries) {
  auto root = OpenForDeletes();
  std::string images = "1.2.3";
  for (int image = 1; image <= 4; ++image) {
    auto const o = Numbered(1, 1, 1, image);
    ASSERT_EQ(StoreOne(*root, o), 0);
    if (image <= 2) images += "\\" + Image(o);
  }
  auto const o = Numbered(1, 1, 1, 1);
  for (auto const& [name, size] : Files()) // one file is gone already: that is only a warning
    if (name.ends_with("/I1000000")) fs::remove(At(name));
  EXPECT_EQ(Delete(*root, IMAGE, Study(o), Series(o), images), (Outcome{0, 0, 2, 1}));
  EXPECT_EQ(Delete(*root, IMAGE, Study(o), Series(o), images), (Outcome{0, 0, 0, 3}));
  Dicom_Tag const counter(0x0020, 0x1208);
  EXPECT_EQ(Ask(*root, STUDY, {{kStudyUid, Study(o)}, {counter, ""}}).at(0)->Text(counter), "2");
}

TEST_P(DeleteTest, CineFilesGoUnlessThatIsSwitchedOff) {
  for (bool const wanted : {false, true}) {
    Disk_SetDeletesCineFiles(wanted);
    auto root = OpenForDeletes();
    auto msg = Phantom::Make(Numbered(1, 1, 1, 1));
    msg->SetImageType(IOD_Image::DERIVED | IOD_Image::SECONDARY | IOD_Image::ITINERARY | IOD_Image::CINE);
    TempDirectory outside;
    msg->SetInputFileName(Dicom_ST(outside.Write("cine", "x")));
    ASSERT_EQ(Store(*root, *msg), 0);
    EXPECT_EQ(Delete(*root, STUDY, msg->GetStudyInstanceUID().GetText()).result, 0);
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
