// Drives the commands that maintain a file-set: what they refuse, change, find, remove, and leave alone.
#include "support/FileSet.h"
#include "support/Files.h"
#include "support/Kill.h"
#include "support/ProgramFixture.h"
#include "support/Readers.h"

#include <Disk/Disk_Check.h>
#include <Disk/Disk_RootDirectoryFile.h>
#include <csignal>
#include <dicom/IOD_Image.h>
#include <fcntl.h>
#include <future>
#include <sys/file.h>

#include <chrono>
#include <thread>
#include <tuple>

namespace {

class MaintenanceTest : public ProgramTest {
protected:
  std::string FirstImage() const { return PathOf("image", "SOPInstanceUID=" + image); }

  std::size_t Fetched() const { return RunJson({"fetch", "set", "--all", "--out", "out"})["fetched"]; }

  static void Copy(std::string const& from, std::string const& to) {
    fs::remove_all(to);
    fs::copy(from, to, fs::copy_options::recursive);
  }

  // Runs the program, and interrupts it where it waits for the lock of the first study.
  Result Interrupted(std::string const& line, int kind) const {
    std::string const path = temp / (PathOf("study", "StudyInstanceUID=" + first_study) + "/LOCKFILE");
    int const fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    struct stat status {};
    EXPECT_EQ(fstat(fd, &status) | flock(fd, kind), 0);
    auto program = std::async(std::launch::async, [&] { return Line(line); });
    int pid = 0;
    while (pid == 0 && program.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready) {
      std::ifstream locks("/proc/locks");
      for (std::string lock; pid == 0 && std::getline(locks, lock);)
        if (lock.find(":" + std::to_string(status.st_ino) + " ") != lock.npos)
          std::sscanf(lock.c_str(), "%*d: -> FLOCK ADVISORY %*s %d", &pid);
    }
    if (pid != 0) kill(pid, SIGINT);
    close(fd);
    return program.get();
  }

  Dicom_UI const kNative{"1.2.840.10008.1.2.1"}, kJpegLs{"1.2.840.10008.1.2.4.80"};
  std::string image = ImageOf(Small(Phantom::Kind::CT));
  std::string other = ImageOf(Small(Phantom::Kind::CT, 1, 1, 2));
  std::string patient = Phantom::PatientId(Small(Phantom::Kind::CT)).GetText();
};

// A variable that isn't set, a wildcard or a slip never chooses more than a UID would.
TEST_F(MaintenanceTest, WhatChoosesIsWhole) {
  std::string const values[] = {"", " ", "*", "1.2?", "1.2\\1.3", "1.2a", std::string(65, '1')};
  constexpr int kTexts = 2, kAnyUids = 5, kUids = 7; // how many of the values are refused
  std::pair<int, std::vector<std::string>> const lines[] = {
      {kUids, // the value follows
       {"delete set --study", "delete set --dry-run --image", "delete set --study " + first_study + " --series",
        "cache delete set --study", "protect set --study", "unprotect set --study", "complete set --study"}},
      {kAnyUids, {"fetch set --out out --study", "export set --out out --image"}},
      {kTexts,
       {"correct set --set PatientID=2 --patient", "correct set --set PatientID=2 --patient " + patient + " --issuer",
        "auto-delete set --free-mb 2147483647 --min-age-days", "cache clean set --mb",
        "cache clean set --for-study 1000000", "fetch set --out out --file-id"}}};
  auto const files = ReadFiles(temp / "set");
  for (auto const& [refused, of_this] : lines)
    for (std::string const& line : of_this)
      for (int i = 0; i < refused; ++i) {
        std::istringstream words(line);
        std::vector<std::string> arguments{std::istream_iterator<std::string>(words), {}};
        arguments.push_back(values[i]);
        EXPECT_EQ(Run(arguments).code, 2) << line << " '" << values[i] << "'";
      }
  for (char const* line : {"delete set", "delete set --all", "delete set --all --yes --json --image 1.2",
                           "delete set --yes", "cache delete set --all", "protect set", "protect set --all",
                           "unprotect set --all", "complete set --all", "cache clean set --all", "scan set --remove"})
    EXPECT_EQ(Line(line).code, 2) << line;
  EXPECT_EQ(ReadFiles(temp / "set"), files);
  EXPECT_FALSE(fs::exists(temp / "out"));
  for (auto const& [line, out] : {std::pair("delete set --all --dry-run --json", "{\"images\":4,"),
                                  {"protect set --all --yes", "2 studies protected, 0 failed\n"},
                                  {"delete set --all --yes", "0 images deleted, 2 failed\n"},
                                  {"unprotect set --all --yes", "2 studies unprotected, 0 failed\n"},
                                  {"delete set --all --yes", "8 images deleted, 0 failed\n"}})
    EXPECT_NE(Line(line).out.find(out), std::string::npos) << line << "\n" << Line(line).out;
}

TEST_F(MaintenanceTest, ProtectedStudiesStay) {
  ExpectFailure("protect set --study 1.2.3 " + first_study, 1, "1.2.3: no such study in the file-set\n");
  ExpectFailure("delete set --study " + first_study, 1, "study " + first_study + ": protected");
  Expect("complete set --study " + first_study, 0);
  Expect("query set --key StudyLoadCompleted=Y --key ProtectionFlag=Y", 0, "\n1 study\n");
  Expect("unprotect set --study " + first_study, 0);
  Expect("delete set --dry-run --study 1.2.3 " + first_study, 1, "would delete study " + first_study + ", 4 images\n",
         "fileset: 1.2.3: no such study in the file-set\n");
  Expect("delete set --image " + image, 0, "1 image deleted, 0 failed\n");
  Expect("delete set --study " + first_study, 0, "3 images deleted, 0 failed\n");
  WriteChanged("in/cine", [this](IOD_Msg& object) {
    object.SetImageType(IOD_Image::DERIVED | IOD_Image::SECONDARY | IOD_Image::ITINERARY | IOD_Image::CINE);
    object.SetInputFileName(Dicom_ST(temp.Write("cine", "x")));
  });
  for (std::string const command : {"", "cache "}) {
    Expect(command + "store set in/cine", 0);
    Expect(command + "delete set --study " + first_study, 0);
    EXPECT_TRUE(fs::exists(temp / "cine")) << "whoever made the object may name any file";
  }
}

// A delete is killed at each of its calls that write; then the program is told the same.
TEST_F(MaintenanceTest, AKilledDeleteIsCompletedByTheSameCommand) {
  Phantom::Object const ct[] = {Small(Phantom::Kind::CT), Small(Phantom::Kind::CT, 1, 1, 2),
                                Small(Phantom::Kind::CT, 1, 1, 3)};
  Phantom::Object const sr = Small(Phantom::Kind::SR, 1, 2);
  struct {
    QueryLevel level;
    std::vector<Phantom::Object> objects;
    bool names_study;
    std::size_t left; // of 8 objects
  } const cases[] = {{IMAGE, {ct[1]}, false, 7},  {IMAGE, {ct[0], ct[1], ct[2]}, false, 5},
                     {IMAGE, {sr}, true, 7},      {IMAGE, {ct[0], ct[1], ct[2], sr}, false, 4},
                     {SERIES, {ct[0]}, false, 5}, {SERIES, {sr}, true, 7},
                     {STUDY, {}, true, 4}};
  TempDirectory const fast(true);
  std::string const set = fast / "copy";
  auto const has = [&set](std::size_t objects) {
    Disk_CheckResult result;
    return CheckSet(set, 0, false, &result) == 0 && result.n_findings == 0 && result.instances == objects;
  };
  for (auto const& c : cases) {
    std::string line = "delete " + set + (c.names_study ? " --study " + first_study : "");
    if (c.level != STUDY) line += c.level == IMAGE ? " --image" : " --series";
    for (Phantom::Object const& object : c.objects)
      line += " " + (c.level == IMAGE ? Phantom::InstanceUid(object) : Phantom::SeriesUid(object)).GetText();
    auto const remove = [&] {
      auto const root = OpenSet(set, 0);
      root->SetSupportPar({0, 1, 0});
      for (Phantom::Object const& object : c.objects.empty() ? std::vector{sr} : c.objects)
        DeleteObjects(*root, Named(c.level, object));
      return 0;
    };
    Copy(temp / "set", set);
    int const calls = CountWrites(remove);
    for (int point = 1; point <= calls; ++point) {
      SCOPED_TRACE(line + ", killed at call " + std::to_string(point));
      Copy(temp / "set", set);
      ASSERT_EQ(KillAt(point, remove), kKilled);
      bool const was_done = has(c.left);
      Result const result = Line(line);
      bool const was_gone = result.err.find(": no such ") != std::string::npos;
      EXPECT_EQ(result.code, was_gone ? 1 : 0) << result.err;
      EXPECT_TRUE(was_gone ? was_done || c.objects.size() > 1 : !was_done) << result.err;
      EXPECT_TRUE(has(c.left)) << Line("check " + set).out;
    }
  }
}

TEST_F(MaintenanceTest, CorrectionIsCompletedAfterAnObjectIsPutRight) {
  std::string const correct = "correct set --patient " + patient +
                              " --issuer PHANTOM --set PatientName=Müller^Жанна --set 0010,0020=NEW --set "
                              "Manufacturer=ACME";
  std::string const path = FirstImage(), bytes = temp.Read(path);
  temp.Write(path, bytes.substr(0, 200));
  ExpectFailure(correct, 1, patient + ": " + path + ": ");
  Expect("query set --key PatientID=NEW", 0, "\n0 studies\n");
  temp.Write(path, bytes);
  Expect(correct, 0);
  json const rows = RunJson({"query", "set", "--key", "PatientID=NEW", "--key", "PatientName"});
  EXPECT_EQ(rows.at(0).at("00100010").at("Value").at(0).at("Alphabetic"), "Müller^Жанна");
  ASSERT_EQ(Fetched(), 8u);
  int corrected = 0;
  for (auto const& entry : fs::directory_iterator(temp / "out")) {
    auto const object = ReadObject(entry.path());
    ASSERT_TRUE(object);
    corrected += object->GetPatientID().GetText() == "NEW" && object->GetManufacturer().GetText() == "ACME" &&
                 object->GetPatientsName().GetText() == "Müller^Жанна";
  }
  EXPECT_EQ(corrected, 4);
}

// Between two objects or studies; the same command goes on.
TEST_F(MaintenanceTest, InterruptionsEndAtASafePoint) {
  Copy(temp / "set", temp / "whole");
  std::this_thread::sleep_for(std::chrono::milliseconds(1100)); // no study is of this second
  struct {
    std::string line;
    int lock; // that is held; who reads takes a shared one
    std::string told;
    std::size_t studies; // left
    int again;
  } const cases[] = {
      {"correct set --patient " + patient + " --issuer PHANTOM --set PatientID=NEW", LOCK_SH,
       patient + ": interrupted: the objects counted have the new values", 2, 0},
      {"scan set", LOCK_SH, "set: interrupted", 2, 0},
      {"export set --out out --study " + first_study, LOCK_EX, "out: interrupted", 2, 0},
      {"auto-delete set --free-mb 2147483647 --min-age-days 0", LOCK_SH, "set: interrupted", 1, 1},
      {"cache clean set --all --yes", LOCK_SH, "set: interrupted", 1, 0},
  };
  for (auto const& c : cases) {
    Copy(temp / "whole", temp / "set");
    Result const result = Interrupted(c.line, c.lock);
    EXPECT_EQ(result.code, 1) << c.line;
    EXPECT_NE(result.err.find("fileset: " + c.told), std::string::npos) << c.line << "\n" << result.err;
    EXPECT_EQ(RunJson({"query", "set"}).size(), c.studies) << c.line;
    Expect("check set --deep", 0);
    Expect(c.line, c.again);
    EXPECT_EQ(RunJson({"query", "set"}).size(), c.studies / 2 * 2) << c.line;
  }
}

// The record goes all the same, so nobody would notice.
TEST_F(MaintenanceTest, WhatCantBeRemovedIsTold) {
  std::string const path = FirstImage(), named = "--study " + first_study;
  fs::remove(temp / path);
  fs::create_directories(temp / path); // can't be unlinked
  Copy(temp / "set", temp / "whole");
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  for (std::string const& line : {"delete set --image " + image, "delete set " + named, "cache delete set " + named,
                                  std::string("cache clean set --all --yes"),
                                  std::string("auto-delete set --free-mb 1999999999 --min-age-days 0")}) {
    Copy(temp / "whole", temp / "set");
    bool const is_deleted = line.starts_with("delete") || line.starts_with("cache delete");
    ExpectFailure(line, 1, (is_deleted ? path + ": is left on the disk: Is a directory" : path.substr(0, 10)));
  }
}

TEST_F(MaintenanceTest, ScanRemovesWhatNoRecordNamesAndNothingElse) {
  Expect("scan set", 0);
  std::string const series = fs::path(FirstImage()).parent_path();
  std::string const lost = "set/SLOST000", left = series + "/I9000000.tmp", documents = "set/Documents";
  // what no file-set has made: by its name, by what it holds, a link
  std::string const foreign[] = {documents,      "set/SLOST001",   "set/SLOST002",
                                 "set/SLOST003", series + "/link", series + "/note"};
  for (std::string const& file : {lost + "/S-2.5000/I1234000", lost + "/LOCKFILE", lost + "/VERSION",
                                  lost + "/DIRFILE.tmp", left, documents + "/LOCKFILE", foreign[1] + "/S2000000/note",
                                  foreign[2] + "/S2000000/I9000000/I9000000", foreign[3] + "/VERSION", foreign[5]})
    temp.Write(file, "mine");
  for (std::string const& link : {foreign[3] + "/S2000000", foreign[4]})
    fs::create_directory_symlink(temp / documents, temp / link);
  std::string const listed = Expect("scan set", 1, lost + " (folder, 5 in it, 1 KB)\n").out;
  std::string const kept = "; stays, as it is or holds nothing that a file-set makes)\n";
  EXPECT_NE(listed.find(left + " (file, 1 KB)\n"), listed.npos) << listed;
  for (std::string const& path : foreign)
    EXPECT_NE(listed.find(kept, listed.find(path + " (")), listed.npos) << path << "\n" << listed;
  Expect("scan set --remove", 2);
  EXPECT_TRUE(fs::exists(temp / lost));
  Expect("scan set --remove --yes", 1, "\n0 adopted, 2 removed, 6 left, 0 failed\n");
  EXPECT_FALSE(fs::exists(temp / lost) || fs::exists(temp / left));
  EXPECT_EQ(temp.Read(documents + "/LOCKFILE"), "mine");
  EXPECT_EQ(Fetched(), 8u);
  for (std::string const& path : foreign)
    fs::remove_all(temp / path);
  fs::remove_all(temp / PathOf("study", "StudyInstanceUID=" + first_study));
  for (char const* const line : {"query set --level image", "scan set --remove --yes", "scan set"})
    EXPECT_EQ(Line(line).code, 0) << line;
}

TEST_F(MaintenanceTest, ScanRemovesNothingItCantBeSureOf) {
  // a study that was stored in place, deeper than the scan looks for records
  std::string const deep = temp / "set/other/study/series/object";
  fs::create_directories(fs::path(deep).parent_path());
  ASSERT_EQ(Phantom::Write(Small(Phantom::Kind::CT, 3), deep), 0);
  auto const root = OpenSet(temp / "set", 0);
  ASSERT_EQ(StoreInPlace(*root, Phantom::Make(Small(Phantom::Kind::CT, 3)).get(), deep), 0);
  Expect("scan set --remove --yes", 1, "stays, as it is or holds what a record names");
  EXPECT_EQ(Fetched(), 9u);
  // a study behind a link
  std::string const study = PathOf("study", "StudyInstanceUID=" + first_study);
  fs::rename(temp / study, temp / "moved");
  fs::create_directory_symlink(temp / "moved", temp / study);
  fs::create_directories(temp / "moved/SLOST000");
  ExpectFailure("scan set --remove --yes", 1, study + "/SLOST000: " + study + " is a symbolic link");
  EXPECT_TRUE(fs::exists(temp / "moved/SLOST000"));
  // a study that can't be read
  temp.Write("moved/DIRFILE", temp.Read("moved/DIRFILE").substr(0, 400));
  fs::create_directories(temp / "set/SLOST000");
  ExpectFailure("scan set --remove --yes", 1, "set: nothing is adopted or removed");
  EXPECT_TRUE(fs::exists(temp / "set/SLOST000"));
}

TEST_F(MaintenanceTest, ScanAdoptsObjectsWithoutRecords) {
  // a study whose record is lost, and an image of another
  std::string const lost = PathOf("study", "StudyInstanceUID=" + first_study);
  Copy(temp / lost, temp / "lost");
  Expect("delete set --study " + first_study, 0);
  fs::rename(temp / "lost", temp / "set/SAAA0000");
  std::string const uid = ImageOf(Small(Phantom::Kind::CT, 2, 1, 2));
  std::string const path = PathOf("image", "SOPInstanceUID=" + uid), bytes = temp.Read(path);
  std::string const series = fs::path(path).parent_path();
  Expect("delete set --image " + uid, 0);
  for (char const* name : {"/IA000000", "/IB000000", "/IC000000.tmp"}) // B is known by then
    temp.Write(series + name, bytes);
  temp.Write(series + "/ID000000", bytes.substr(0, bytes.size() - 10));
  WriteChanged(series + "/E", [](IOD_Msg& msg) { // contradicts its study
    msg.SetStudyInstanceUID(Phantom::StudyUid(Small(Phantom::Kind::CT, 2)));
  });
  temp.Write(series + "/F", "");
  fs::resize_file(temp / (series + "/F"), std::uintmax_t(5) << 30); // too much to be read
  std::string const renamed = ImageOf(Small(Phantom::Kind::CT, 2, 1, 3));
  fs::rename(temp / PathOf("image", "SOPInstanceUID=" + renamed), temp / (series + "/G"));
  Result const result = Expect("scan set --adopt", 1, "6 adopted, 0 removed, 6 left, 2 failed\n",
                               "fileset: " + series + "/E: can't be adopted: ");
  EXPECT_NE(result.err.find("fileset: " + series + "/F: can't be read: "), std::string::npos) << result.err;
  EXPECT_NE(result.out.find(series + "/IB000000: an object that the file-set has already\n"), std::string::npos);
  Expect("scan set --adopt --remove --yes", 1); // E and F stay: nobody else has them
  std::string const left = Line("scan set").out;
  EXPECT_TRUE(left.starts_with(series + "/E (file") && left.ends_with(")\n2 that no record names\n")) << left;
  EXPECT_EQ(Fetched(), 8u);
  // a series whose directory file is lost is left alone until its objects have records again
  for (char const* name : {"/E", "/F", "/DIRFILE"})
    fs::remove(temp / (series + name));
  std::string const gone = ": " + series + "/DIRFILE is gone; adopting";
  ExpectFailure("store set in", 1, "in/pt0002/st001/se001/im00001.dcm" + gone);
  ExpectFailure("correct set --patient PH1-00002 --issuer PHANTOM --set PatientName=New", 1, "PH1-00002" + gone);
  EXPECT_FALSE(fs::exists(temp / (series + "/DIRFILE")));
  Expect("scan set --adopt", 0);
  Expect("store set in", 0);
  Expect("query set --level image", 0, "\n8 images\n");
}

TEST_F(MaintenanceTest, AutoDeleteTakesTheLeastRecentlyUpdatedFirst) {
  auto const pause = [] { std::this_thread::sleep_for(std::chrono::milliseconds(1100)); }; // dates have seconds
  pause();
  Expect("store set in/" + Phantom::FileName(Small(Phantom::Kind::CT)), 0);
  pause();
  std::string const second_study = StudyOf(Small(Phantom::Kind::CT, 2));
  std::string const command = "auto-delete set --free-mb 2147483647 --min-age-days 0";
  std::string const dry = Expect(command + " --dry-run", 1, "\n2 studies would go; ").out;
  EXPECT_LT(dry.find("would delete study " + second_study), dry.find("would delete study " + first_study)) << dry;
  Expect("protect set --study " + second_study, 0);
  Expect(command, 1, "1 study deleted;", ": 1 study protected\n");
  EXPECT_EQ(Fetched(), 4u);
  Expect("auto-delete set --free-mb 0 --min-age-days 0", 0);
}

TEST_F(MaintenanceTest, ExportsWhatIsThere) {
  fs::remove(temp / FirstImage());
  std::string const command = "export set --study " + first_study + " --out ";
  ExpectFailure(command + "folder", 1, image + ": ");
  ExpectFailure(command + "standard --standard", 1, image + ": ");
  ExpectFailure(command + "in --standard", 1, "in: isn't empty");
  EXPECT_EQ(std::distance(fs::directory_iterator(temp / "folder"), {}), 3);
  ExpectMedium(temp / "standard", UidsBelow(temp / "folder"));
  EXPECT_EQ(Line("export set --out compressed --standard --as-stored --image " + other).code, 0);
  EXPECT_EQ(Line("store native in --standard --icon").code + Line("store coded in --standard --compress").code, 0);
  EXPECT_EQ(Line("store decoded compressed --standard").code, 0);
  for (auto const& [set, record, file] : {std::tuple("standard", kNative, UI_NULL),
                                          {"compressed", kJpegLs, kJpegLs},
                                          {"native", kNative, UI_NULL},
                                          {"decoded", kNative, UI_NULL},
                                          {"coded", kNative, kJpegLs}}) {
    json const rows =
        RunJson({"query", set, "--level", "image", "--key", "SOPInstanceUID=" + other, "--key", "0004,1512"});
    EXPECT_EQ(rows.at(0).at("00041512").at("Value").at(0), record.GetText()) << set;
    Expect(std::string("fetch ") + set + " --force --out one --image " + other, 0);
    EXPECT_EQ(ReadObject(temp / ("one/" + other + ".dcm"))->GetEncapsulatedSyntax(), file) << set;
  }
  Expect(command + "folder --force", 1, "3 exported");
  // what is damaged elsewhere is told, and keeps nothing from being found and copied
  std::string const sound = SeriesOf(Small(Phantom::Kind::CT, 2));
  std::string const study = PathOf("study", "StudyInstanceUID=" + first_study) + "/DIRFILE";
  temp.Write(study, temp.Read(study).substr(0, 400));
  Expect("export set --out part --series " + sound, 1, "3 exported");
  Expect("query set --level image", 1, "\n4 images\n", "fileset: study " + first_study + ": " + study);
  ExpectFailure("export set --out none --study " + first_study, 1, "set: ");
  ExpectMedium(temp / "native", UidsBelow(temp / "in"));
  if (!HasReaders()) GTEST_SKIP() << "dcmdump (dcmtk) and gdcmdump (libgdcm-tools) aren't installed";
  for (char const* folder : {"standard/DICOMDIR", "native/DICOMDIR"})
    ExpectReadersTake(temp / folder);
  for (auto const& entry : fs::directory_iterator(temp / "folder"))
    ExpectReadersTake(entry.path());
}

TEST_F(MaintenanceTest, CheckTellsWhatIsWrongAndWhere) {
  EXPECT_EQ(Line("check set --deep").out,
            "2 patients, 2 studies, 4 series, 8 images, 8 objects read, 6 decoded: sound\n");
  Expect("export set --out standard --standard --study " + first_study, 0);
  Expect("check standard", 0);
  ExpectFailure("protect standard --study 1", 1, "standard: a file-set of the standard structure");
  std::string const path = FirstImage();
  fs::remove(temp / path);
  Result const result =
      Expect("check set", 1,
             path +
                 ": object-missing: the object's file doesn't exist (left by an interrupted delete, or damage)\n"
                 "    patient " +
                 patient + "\n    study " + first_study + "\n");
  EXPECT_NE(result.out.find("    instance " + image + "\n"), std::string::npos);
  // the structure of one that can't be read is told from what is beside it
  for (char const* set : {"set", "standard"}) {
    fs::resize_file(temp / (std::string(set) + "/DICOMDIR"), 100);
    Expect(std::string("check --json ") + set, 1, "\"directory-file-unreadable\"");
  }
}

TEST_F(MaintenanceTest, ACacheTellsWhoGoesAndLetsThemGo) {
  temp.Write("cache.yaml", "push: {max_cached_studies: 5, modality_image_size: {ct: 2000000}}\n");
  auto const cache = [this](std::string const& line, int code, std::string const& out = "") {
    return Expect("--config cache.yaml cache " + line, code, out);
  };
  cache("store kept in --now 2026-01-01", 0);
  cache("fetch kept --study " + first_study + " --out out --now 2026-01-02", 0);
  cache("status kept --now 2026-03-01", 0, "]  40 %  2 of 5\n");
  std::string const uid = first_study, expected = "study " + uid + ", grade ";
  for (auto const& [how, code, told] : {std::tuple("--studies 1", 0, "would delete " + expected),
                                        {"--for-study 3 CT", 1, "would delete " + expected},
                                        {"--mb 4000", 0, "0 studies would go"}})
    cache(std::string("clean kept --dry-run --now 2026-03-01 ") + how, code, told);
  Result const clean = cache("clean kept --studies 2 --now 2026-03-01", 1, "deleted " + expected);
  EXPECT_NE(clean.err.find("not as much as was wanted"), std::string::npos) << "the other was never read, and stays";
  cache("clean kept --dry-run --studies 2", 1);
  cache("clean kept --all --yes", 0, "deleted ");
  cache("status kept", 0, "  0 of 5\n");
}

// What is told as stored is there, whatever had to make room.
TEST_F(MaintenanceTest, ACacheTellsWhatItGaveUpAgain) {
  for (int patient = 11; patient <= 18; ++patient) // the largest goes first
    WriteLarge("large/" + std::to_string(patient), Small(Phantom::Kind::CT, patient), patient == 12 ? 1400 : 1000);
  temp.Write("cache.yaml", "push: {max_repository_size_mb: 5, max_repository_hd_percentage: 100}\n");
  Result const result = Line("--config cache.yaml cache store kept large --json");
  EXPECT_EQ(result.code, 1);
  std::string const gone = StudyOf(Small(Phantom::Kind::CT, 12));
  json const told = json::parse(result.out, nullptr, false);
  EXPECT_EQ(told["given_up"], json({gone}));
  EXPECT_NE(result.err.find("study " + gone + ": 1 of the objects just stored had to go again"), std::string::npos);
  EXPECT_NE(result.err.find("there is no room for it, and no study may go"), std::string::npos) << result.err;
  EXPECT_EQ(RunJson({"query", "kept", "--level", "image"}).size(), told["stored"]);
}

} // namespace
