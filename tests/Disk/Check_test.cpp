// The check finds each kind of damage, and nothing in a sound file-set. Every row breaks a copy of a small one.
#include "support/FaultyFileSystem.h"
#include "support/FileSetFixture.h"

#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
constexpr unsigned kPrivate = 0, kStandard = Disk_StoreParams::STANDARD_STRUCTURE;
constexpr auto kDamage = Disk_Finding::Damage;
constexpr auto kStore = Disk_Finding::InterruptedStore, kDelete = Disk_Finding::InterruptedDelete;

// Two patients; the first has two studies, the first study two series of two images each.
class Broken : public FileSetTest {
public:
  explicit Broken(unsigned with_structure = 0) { structure = with_structure; }
  void TestBody() override {}
  void StoreAll() {
    for (Phantom::Object const& object :
         {Phantom::Object{}, {.image = 2}, {.series = 2}, {.series = 2, .image = 2}, {.study = 2}, {.patient = 2}})
      StoreOne(object);
  }
  void StoreOne(Phantom::Object object) {
    object.size = 16;
    ASSERT_EQ(Store(*Open(0), *Phantom::Make(object)), 0);
  }
  std::string Path(std::string const& name = {}) const { return name.empty() ? Prefix() : At(name); }

  // The `number`th of the files whose relative name ends so, in alphabetical order.
  std::string Find(std::string const& end, std::size_t number = 0) const {
    for (auto const& [name, size] : Files())
      if (name.ends_with(end) && number-- == 0) return At(name);
    ADD_FAILURE() << "no " << end;
    return {};
  }
  std::string Object(std::size_t number = 0) const { return Find("0", number); } // none of the others ends so
  std::string SeriesFolder() const { return fs::path(Object()).parent_path(); }
  std::string SeriesFile() const { return SeriesFolder() + "/DIRFILE"; }
  std::string StudyFolder() const { return fs::path(SeriesFolder()).parent_path(); }
  std::string StudyFile() const { return StudyFolder() + "/DIRFILE"; }
  std::string RootFile() const { return At("DICOMDIR"); }

  // Private: the records of a directory file are changed.
  void Edit(std::string const& path, std::function<void(Answers&)> const& change) const {
    ChangeRecords(fs::relative(path, Prefix()), change);
  }
  // The study's counters and modalities stand in the root, behind the record of the patient.
  template <class Value>
  void EditStudy(Dicom_Tag tag, Value value) const {
    Edit(RootFile(), [&](Answers& records) { EXPECT_EQ(records[1]->Set(tag, value), 0); });
  }

  // Standard: bytes are changed in their place.
  DicomdirWalk Walk() const { return DicomdirWalk(RootFile()); }
  void Patch(std::size_t place, std::string const& bytes) const {
    std::fstream file(RootFile(), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(std::streamoff(place));
    file << bytes;
  }
  static std::string Bytes(std::uint32_t number) { return {reinterpret_cast<char const*>(&number), 4}; }
  // Where the value of an element stands; `from` is the start of a record, or 0 for what is before them.
  std::size_t ValueAt(std::uint32_t from, std::uint32_t tag) const {
    std::string const content = directory.Read("DICOMDIR");
    char const pattern[] = {char(tag >> 16), char(tag >> 24), char(tag), char(tag >> 8)};
    return content.find(std::string(pattern, 4), from) + 8;
  }
  void SetNumber(std::uint32_t from, std::uint32_t tag, std::uint32_t value) const {
    Patch(ValueAt(from, tag), Bytes(value));
  }
  std::uint32_t Place(int level, std::size_t number = 0) const { return Walk().Level(level).at(number)->place; }
  void Swap(std::string const& a, std::string const& b) const {
    fs::rename(a, At("swap"));
    fs::rename(b, a);
    fs::rename(At("swap"), b);
  }
  void Grow(std::string const& path, int bytes) const { fs::resize_file(path, fs::file_size(path) + bytes); }
  using FileSetTest::Ask, FileSetTest::Check, FileSetTest::Delete, FileSetTest::directory, FileSetTest::Fetch,
      FileSetTest::Files, FileSetTest::Open, FileSetTest::Uids;
};

using Damage = std::function<void(Broken&)>;
using File = std::string (Broken::*)() const;

// Of the first record in a file.
Damage Set(File file, Dicom_Tag tag, char const* text) {
  return [=](Broken& b) { b.Edit((b.*file)(), [=](auto& records) { records[0]->Set(tag, Dicom_CS(text)); }); };
}
Damage Without(File file, Dicom_Tag tag) {
  return [=](Broken& b) { b.Edit((b.*file)(), [=](auto& records) { records[0]->Remove(tag); }); };
}
Damage AsTheSecond(Dicom_Tag tag) {
  return [=](Broken& b) { b.Edit(b.SeriesFile(), [=](auto& records) { records[0]->Set(tag, records[1]->Get(tag)); }); };
}

struct Row {
  char const* kind;
  unsigned structure;
  Disk_Finding::Cause cause;
  Damage damage;
};

constexpr std::uint32_t kFirst = 0x00041200, kLast = 0x00041202, kFlag = 0x00041212;
constexpr std::uint32_t kNext = 0x00041400, kInUse = 0x00041410, kLower = 0x00041420;

Row const kRows[] = {
    // objects, in either structure
    {"object-missing", kPrivate, kDelete, [](Broken& b) { fs::remove(b.Object()); }},
    {"object-missing", kStandard, kDelete, [](Broken& b) { fs::remove(b.Object()); }},
    {"object-not-a-file", kPrivate, kDamage,
     [](Broken& b) {
       std::string const o = b.Object();
       fs::remove(o), fs::create_directory(o);
     }},
    {"object-empty", kPrivate, kDamage, [](Broken& b) { fs::resize_file(b.Object(), 0); }},
    {"object-unreadable", kPrivate, kDamage, [](Broken& b) { b.Grow(b.Object(), -100); }},
    {"object-pixels", kPrivate, kDamage,
     [](Broken& b) {
       std::fstream(b.Object(), std::ios::in | std::ios::out | std::ios::binary).seekp(-40, std::ios::end)
           << std::string(32, '\0');
     }},
    {"object-instance-uid", kPrivate, kDamage, [](Broken& b) { b.Swap(b.Object(0), b.Object(1)); }},
    {"object-series-uid", kPrivate, kDamage, [](Broken& b) { b.Swap(b.Object(0), b.Object(2)); }},
    {"object-study-uid", kPrivate, kDamage, [](Broken& b) { b.Swap(b.Object(0), b.Object(5)); }},
    // what no record names
    {"file-unnamed", kPrivate, kStore, [](Broken& b) { fs::copy(b.Object(), b.SeriesFolder() + "/I9"); }},
    {"file-unnamed", kStandard, kStore, [](Broken& b) { fs::copy(b.Object(), b.SeriesFolder() + "/I9"); }},
    {"temporary-file", kPrivate, kStore, [](Broken& b) { fs::copy(b.Object(), b.Object() + ".tmp"); }},
    {"temporary-file", kPrivate, kStore, [](Broken& b) { fs::copy(b.RootFile(), b.RootFile() + ".tmp"); }},
    {"folder-unnamed", kPrivate, kStore, [](Broken& b) { fs::create_directory(b.Path("SZ")); }},
    {"folder-unnamed", kStandard, kStore, [](Broken& b) { fs::create_directory(b.Path("ABCDEFGH")); }},
    // directory files
    {"version-missing", kPrivate, kStore, [](Broken& b) { fs::remove(b.SeriesFolder() + "/VERSION"); }},
    {"version-invalid", kPrivate, kDamage, [](Broken& b) { fs::resize_file(b.Path("VERSION"), 3); }},
    {"directory-file-missing", kPrivate, kDelete, [](Broken& b) { fs::remove(b.SeriesFile()); }},
    {"directory-file-unreadable", kPrivate, kDamage, [](Broken& b) { fs::resize_file(b.StudyFile(), 400); }},
    {"directory-file-unreadable", kStandard, kDamage, [](Broken& b) { fs::resize_file(b.RootFile(), 300); }},
    {"folder-missing", kPrivate, kDelete, [](Broken& b) { fs::remove_all(b.StudyFolder()); }},
    // private records
    {"study-image-count", kPrivate, kStore, [](Broken& b) { b.EditStudy(kStudyImages, Dicom_IS(3)); }},
    {"study-series-count", kPrivate, kDelete, [](Broken& b) { b.EditStudy(kStudySeries, Dicom_IS(3)); }},
    {"series-image-count", kPrivate, kDelete, Set(&Broken::StudyFile, kSeriesImages, "9")},
    {"counter-invalid", kPrivate, kDamage, [](Broken& b) { b.EditStudy(kStudyImages, Dicom_LO("four")); }},
    {"modality-missing", kPrivate, kStore, [](Broken& b) { b.EditStudy(kModalities, Dicom_CS("US")); }},
    {"modality-extra", kPrivate, kDelete, [](Broken& b) { b.EditStudy(kModalities, Dicom_CS("CT\\MR\\US")); }},
    {"record-type", kPrivate, kDamage, Set(&Broken::SeriesFile, kRecordType, "STUDY")},
    {"record-type", kPrivate, kDamage, Set(&Broken::SeriesFile, kRecordType, "IMAGX")},
    {"record-type", kStandard, kDamage, [](Broken& b) { b.Patch(b.ValueAt(b.Place(0), 0x00041430), "PATIENX "); }},
    {"record-type", kPrivate, kDamage, [](Broken& b) { b.EditStudy(kRecordType, Dicom_CS("SERIES")); }},
    {"patient-missing", kPrivate, kDamage, [](Broken& b) { b.Edit(b.RootFile(), [](auto& r) { r[0].swap(r[1]); }); }},
    {"patient-empty", kPrivate, kDamage, [](Broken& b) { b.Edit(b.RootFile(), [](auto& r) { r.pop_back(); }); }},
    {"uid-missing", kPrivate, kDamage, Without(&Broken::SeriesFile, kSopUid)},
    {"uid-twice", kPrivate, kDamage, AsTheSecond(kSopUid)},
    {"file-id-missing", kPrivate, kDamage, Without(&Broken::SeriesFile, kFileId)},
    {"file-id-illegal", kPrivate, kDamage, Set(&Broken::SeriesFile, kFileId, "..\\PASSWD")},
    {"file-id-shared", kPrivate, kDamage, AsTheSecond(kFileId)},
    {"study-empty", kPrivate, kDelete, [](Broken& b) { b.Edit(b.StudyFile(), [](auto& r) { r.clear(); }); }},
    {"series-empty", kPrivate, kDelete, [](Broken& b) { b.Edit(b.SeriesFile(), [](auto& r) { r.clear(); }); }},
    // chains
    {"link-outside", kStandard, kDamage, [](Broken& b) { b.SetNumber(b.Place(3), kNext, 0x7FFFFFFF); }},
    {"link-into-record", kStandard, kDamage, [](Broken& b) { b.SetNumber(b.Place(3), kNext, b.Place(3, 1) + 8); }},
    {"link-loop", kStandard, kDamage, [](Broken& b) { b.SetNumber(b.Place(3, 1), kNext, b.Place(3)); }},
    {"link-shared", kStandard, kDamage, [](Broken& b) { b.SetNumber(b.Place(2, 1), kLower, b.Place(3)); }},
    {"record-unreached", kStandard, kDamage, [](Broken& b) { b.SetNumber(b.Place(3), kNext, 0); }},
    {"record-type", kStandard, kDamage, [](Broken& b) { b.Patch(b.ValueAt(b.Place(2), 0x00041430), "STUDY "); }},
    {"record-unreadable", kStandard, kDamage, [](Broken& b) { b.Patch(b.Place(3) + 8 + 6, "\xF0\xFF"); }},
    {"hole", kStandard, kDamage, [](Broken& b) { b.Patch(b.Place(3, 1), std::string(8, '\0')); }},
    {"record-cut", kStandard, kDamage, [](Broken& b) { b.Patch(b.Place(3, 5) + 4, Broken::Bytes(0x00FFFFFF)); }},
    {"length-beyond-file", kStandard, kDamage, [](Broken& b) { b.Grow(b.RootFile(), -20); }},
    {"bytes-behind-records", kStandard, kDamage, [](Broken& b) { b.Grow(b.RootFile(), 20); }},
    {"first-record-offset", kStandard, kDamage, [](Broken& b) { b.SetNumber(0, kFirst, 0); }},
    {"last-record-offset", kStandard, kDamage, [](Broken& b) { b.SetNumber(0, kLast, b.Place(0)); }},
    {"consistency-flag", kStandard, kDamage, [](Broken& b) { b.Patch(b.ValueAt(0, kFlag), "\xFF\xFF"); }},
    {"in-use-flag", kStandard, kDamage, [](Broken& b) { b.Patch(b.ValueAt(b.Place(3), kInUse), "\x01"); }},
    {"live-below-deleted", kStandard, kDamage,
     [](Broken& b) { b.Patch(b.ValueAt(b.Place(2), kInUse), std::string(2, '\0')); }},
    {"study-image-count", kStandard, kDamage, [](Broken& b) { b.Patch(b.ValueAt(b.Place(1), 0x00201208), "7"); }},
    {"redo-torn", kStandard, kStore, [](Broken& b) { b.directory.Write("DICOMDIR.redo", "DISKREDO"); }},
};

} // namespace

TEST(CheckTest, EachKindOfDamageIsFoundAndNothingIsChanged) {
  std::set<std::string> kinds;
  int number = 0;
  for (Row const& row : kRows) {
    SCOPED_TRACE("row " + std::to_string(number++) + ": " + row.kind + (row.structure ? ", standard" : ", private"));
    Broken broken(row.structure);
    Util_FileSystem::SetDurability(Util_Durability::Relaxed);
    broken.StoreAll();
    EXPECT_EQ(broken.Check().n_findings, 0u);
    std::string const object = broken.Object();
    auto const msg = ReadObject(object);
    row.damage(broken);
    auto const files = broken.Files();
    auto const content = broken.directory.Read("DICOMDIR");
    Disk_CheckResult const result = broken.Check();
    if (std::string_view(row.kind) == "object-missing") {
      ASSERT_EQ(result.n_findings, 1u);
      Disk_Finding const& f = result.findings[0];
      EXPECT_EQ((std::vector{f.path, f.patient_id, f.study_uid, f.series_uid, f.instance_uid}),
                (std::vector{object, msg->GetPatientID().GetText(), msg->GetStudyInstanceUID().GetText(),
                             msg->GetSeriesInstanceUID().GetText(), msg->GetSOPInstanceUID().GetText()}));
      EXPECT_EQ((std::vector{result.instances, result.objects_decoded}), (std::vector<std::uint64_t>{6, 5}));
    }
    bool found = false;
    std::string others;
    for (Disk_Finding const& finding : result.findings) {
      found = found || (finding.kind == row.kind && finding.cause == row.cause);
      others += finding.kind + "(" + std::to_string(finding.cause) + ") " + finding.text + "\n";
      EXPECT_TRUE(finding.path.starts_with(broken.Path())) << finding.path;
    }
    EXPECT_TRUE(found) << "found only " << others;
    EXPECT_EQ(broken.Files(), files);
    EXPECT_EQ(broken.directory.Read("DICOMDIR"), content);
    kinds.insert(row.kind);
  }
  EXPECT_GE(kinds.size(), 30u);
}

TEST(CheckTest, ShortageOfMemoryIsNoDamage) {
  for (unsigned const structure : {kPrivate, kStandard}) {
    Broken set(structure);
    set.StoreAll();
    for (std::string const& path : {set.Object(), structure ? set.Object() : set.SeriesFile()}) {
      FaultyFileSystem const full(
          [&](std::string_view call, char const* name) { return call == "Open" && name == path ? ENOMEM : 0; });
      Disk_CheckResult const result = set.Check();
      ASSERT_EQ(result.n_findings, 1u) << path;
      EXPECT_EQ(result.findings[0].kind, "not-checked");
      EXPECT_EQ(result.findings[0].cause, Disk_Finding::NoMemory);
    }
  }
}

// A damaged part fails a query as before, and takes nothing else away from who asks for what can be read.
TEST(CheckTest, WhatCanBeReadIsGiven) {
  std::tuple<unsigned, std::size_t, Damage> const cases[] = {
      // of six images so many are left
      {kPrivate, 4, [](Broken& b) { fs::resize_file(b.SeriesFile(), fs::file_size(b.SeriesFile()) / 2); }},
      {kPrivate, 5, Set(&Broken::SeriesFile, kRecordType, "IMAGX")},
      {kPrivate, 2, [](Broken& b) { fs::resize_file(b.StudyFile(), 400); }},
      {kPrivate, 2, [](Broken& b) { b.EditStudy(kRecordType, Dicom_CS("IMAGX")); }},
      {kStandard, 5, [](Broken& b) { b.Patch(b.Place(3, 1) + 4, Broken::Bytes(0x00FFFFFF)); }},
      {kStandard, 5, [](Broken& b) { b.SetNumber(b.Place(1), kNext, 0x7FFFFFFF); }},
      {kStandard, 5, [](Broken& b) { b.SetNumber(b.Place(3), kNext, b.Place(3)); }},
  };
  for (auto const& [structure, left, damage] : cases) {
    SCOPED_TRACE(left);
    Broken broken(structure);
    broken.StoreAll();
    damage(broken);
    Keys const keys = {{kStudyUid, "*"}, {kSopUid, ""}};
    constexpr unsigned kLenient = Disk_StoreParams::READ_ONLY | Disk_StoreParams::PASS_OVER_DAMAGE;
    for (unsigned const flags : {unsigned(Disk_StoreParams::READ_ONLY), unsigned(Disk_StoreParams::PASS_OVER_DAMAGE)})
      Broken::Ask(*broken.Open(flags), IMAGE, keys, -1);
    auto root = broken.Open(kLenient);
    Answers const found = Broken::Ask(*root, IMAGE, keys);
    EXPECT_EQ(found.size(), left);
    for (auto const& image : found)
      EXPECT_TRUE(Broken::Fetch(*root, Broken::Uids(*image)));
  }
}

// While objects are read, one that is still to be read is deleted, and another gets its name.
TEST(CheckTest, AnObjectThatGetsAnotherNameMeanwhileIsNoDamage) {
  for (unsigned const structure : {kPrivate, kStandard}) {
    Broken set(structure);
    for (int image = 1; image <= 20; ++image)
      set.StoreOne({.image = image});
    Disk_CheckOptions options;
    options.deep = true;
    bool changed = false;
    options.progress = [&](std::uint64_t done, std::uint64_t all) {
      if (done == all || changed) return true;
      changed = true;
      auto root = set.Open();
      EXPECT_EQ(Broken::Delete(*root, IMAGE, {.image = 20}), 0);
      auto msg = Phantom::Make({.image = 21, .size = 16});
      msg->SetImageNumber(Dicom_IS(20)); // which names its file
      EXPECT_EQ(StoreObject(*root, msg.get()), 0);
      return true;
    };
    Disk_CheckResult result;
    EXPECT_EQ(Disk_Check(set.Path().c_str(), structure, options, &result), 0);
    EXPECT_TRUE(changed);
    EXPECT_EQ(result.n_findings, 0u) << result.findings[0].path << ": " << result.findings[0].text;
    EXPECT_EQ(set.Check().n_findings, 0u);
  }
}

TEST(CheckTest, WhatIsUnderWayIsNoFinding) {
  for (unsigned const structure : {kPrivate, kStandard}) {
    Broken set(structure);
    set.StoreOne({});
    pid_t const writer = fork();
    if (writer == 0) {
      FaultyFileSystem const slow([](std::string_view call, char const*) {
        if (call == "Fdatasync" || call == "Fsync") usleep(10000);
        return 0;
      });
      for (int image = 2; image <= 12; ++image)
        set.StoreOne({.image = image});
      _exit(testing::Test::HasFailure());
    }
    int status = 0, checks = 0;
    for (; waitpid(writer, &status, WNOHANG) == 0; ++checks) {
      Disk_CheckResult const result = set.Check();
      EXPECT_EQ(result.n_findings, 0u) << result.findings[0].path << ": " << result.findings[0].text;
    }
    EXPECT_EQ(status, 0);
    EXPECT_GT(checks, 1);
  }
}
