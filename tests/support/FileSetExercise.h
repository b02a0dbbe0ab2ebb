// A small file-set that is given a damaged or hostile file, and everything that a caller may do with it then: look,
// query, fetch, store, delete, scan. Nothing of that may crash, lead out of the file-set, fail without a word, or
// change what it only reads. Used by tests and by the fuzzers.
#pragma once

#include "support/FaultyFileSystem.h"
#include "support/FileSet.h"
#include "support/TempDirectory.h"

#include <infra/CToolParse.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_FileSystem.h>

#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <set>

/// The real file system with a fence around one directory, current for its scope: notes each call that changes
/// something outside of it, whichever links lead there, and each whose path names something outside.
class FencedFileSystem : public FaultyFileSystem {
  using Base = FaultyFileSystem;

public:
  explicit FencedFileSystem(std::string const& directory)
      : FaultyFileSystem([this](std::string_view call, char const* path) { return Pass(call, path), 0; }),
        inside_(Real(directory)) {}

  std::vector<std::string> escapes;

  int Open(char const* path, int flags, mode_t mode) override {
    if ((flags & (O_ACCMODE | O_CREAT | O_TRUNC)) == O_RDONLY)
      Look("Open", path);
    else
      Change("Open", path, !(flags & O_NOFOLLOW));
    return Base::Open(path, flags, mode);
  }
  int Rename(char const* from, char const* to) override { return Change("Rename", from), Base::Rename(from, to); }
  int Exchange(char const* a, char const* b) override { return Change("Exchange", a), Base::Exchange(a, b); }
  int Link(char const* from, char const* to) override { return Change("Link", from), Base::Link(from, to); }

private:
  static std::string Real(std::string const& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) ? resolved : "";
  }
  bool Holds(std::string_view path) const {
    return path.starts_with(inside_) && (path.size() == inside_.size() || path[inside_.size()] == '/');
  }
  void Note(std::string_view call, std::string const& path) { escapes.push_back(std::string(call) + " " + path); }

  void Pass(std::string_view call, char const* path) {
    static std::set<std::string_view> const s_looks{"Stat", "Lstat", "Access", "List"},
        s_changes{"Rename", "Exchange", "Link", "Unlink", "Mkdir", "Rmdir"};
    if (s_looks.count(call) != 0) Look(call, path);
    if (s_changes.count(call) != 0) Change(call, path);
  }
  void Look(std::string_view call, std::string const& path) {
    if (path.empty() || path == "/proc/sys/kernel/random/boot_id") return; // names nothing, or the machine
    if (!Holds(path) || (path + "/").find("/../") != std::string::npos) Note(call, path);
  }
  void Change(std::string_view call, std::string const& path, bool follows = false) {
    if (path.empty()) return;
    Look(call, path);
    std::size_t const cut = path.rfind('/');
    std::string const parent = Real(path.substr(0, cut));
    if (!parent.empty() && !Holds(parent)) Note(call, path + " in " + parent);
    struct stat status {};
    if (!follows || Util_FileSystemInterface::Lstat(path.c_str(), &status) == -1 || !S_ISLNK(status.st_mode)) return;
    std::string const target = Real(path); // empty when it is to be made
    if (!Holds(target)) Note(call, path + " to " + target);
  }

  std::string const inside_;
};

class FileSetExercise {
public:
  std::string prefix;
  std::map<std::string, std::string> files; // what stands in it before each run, by relative name
  std::size_t escapes = 0;

  explicit FileSetExercise(unsigned structure) : structure_(structure) {
    prefix = home_ / "set";
    std::filesystem::create_directories(prefix);
    std::filesystem::create_directories(Outside());
    Util_FileSystem::SetDurability(Util_Durability::Relaxed);
    for (Phantom::Object const& object : Objects())
      if (auto const root = Open()) Store(*root, object);
    files = ReadFiles(prefix);
  }
  ~FileSetExercise() { KlbGLog.SetSink(nullptr); }

  static std::vector<Phantom::Object> Objects() {
    return {{.size = 4}, {.image = 2, .size = 4}, {.series = 2, .size = 4}, {.patient = 2, .size = 4}};
  }
  /// Beside the file-set; nothing may happen to it.
  std::string Outside() const { return home_ / "outside"; }
  std::string At(std::string const& name) const { return prefix + "/" + name; }

  std::unique_ptr<Disk_RootDirectoryFile> Open(unsigned flags = Disk_StoreParams::STORE_NATIVE) {
    auto root = OpenSet(prefix, flags | structure_);
    Expect(root ? 0 : -1, "open");
    if (root) root->SetSupportPar({0, 1, 0});
    return root;
  }
  /// All images, from a root of its own: 0 or -1.
  int Query() {
    auto const root = Open();
    Dicom_Sequence rows;
    return root ? root->Query(All(IMAGE), 1, &rows) : -1;
  }
  int Check(bool deep) {
    Disk_CheckResult result;
    return CheckSet(prefix, structure_, deep, &result);
  }
  /// Somebody has changed it.
  void MarkDirty() { is_dirty_ = true; }
  /// Everything as it was at first.
  void Restore() {
    if (!is_dirty_) return;
    std::filesystem::remove_all(prefix);
    for (auto const& [name, bytes] : files) {
      std::filesystem::create_directories(std::filesystem::path(At(name)).parent_path());
      WriteFile(At(name), bytes);
    }
    is_dirty_ = false;
  }
  /// With another content of a file. Empty, or what went wrong.
  std::string RunWith(std::string const& name, std::string_view bytes) {
    Restore();
    WriteFile(At(name), bytes);
    bool const is_known = files.count(name) != 0; // a redo record is for whoever comes first
    std::string const problem = Run(is_known ? std::vector{name} : std::vector<std::string>());
    is_dirty_ = is_dirty_ || !is_known;
    if (!is_dirty_) WriteFile(At(name), files[name]);
    return problem;
  }
  /// With one more object, which is asked for and deleted by its own identifiers too.
  std::string RunWith(IOD_Msg& object) {
    Restore();
    is_dirty_ = true;
    also_ = &object;
    std::string const problem = Run();
    also_ = nullptr;
    return problem;
  }
  /// With what stands there. `unchanged`: what reading must leave as it is.
  std::string Run(std::vector<std::string> const& unchanged = {}) {
    FencedFileSystem fence(prefix);
    problem_.clear();
    lines_ = 0;
    KlbGLog.SetLogLevel(4);
    KlbGLog.SetSink([this](int, std::string const&) { ++lines_; });
    std::map<std::string, std::string> before;
    for (std::string const& name : unchanged)
      before[name] = ReadFile(At(name));
    Look();
    for (auto const& [name, bytes] : before)
      if (!bytes.empty() && ReadFile(At(name)) != bytes) problem_ += "reading changed " + name + "; ";
    is_dirty_ = is_dirty_ || root_;
    Change();
    root_.reset();
    escapes += fence.escapes.size();
    for (std::string const& escape : fence.escapes)
      problem_ += "outside: " + escape + "; ";
    return problem_;
  }

private:
  static SCL_QueryIdentifier All(QueryLevel level) {
    Keys keys{{kStudyUid, ""}};
    if (level >= SERIES) keys.push_back({kSeriesUid, ""});
    if (level >= IMAGE) keys.insert(keys.end(), {{kSopUid, ""}, {kFileId, ""}});
    return Asking(level, keys);
  }
  /// A failure tells why.
  void Expect(int result, char const* what) {
    if (result != 0 && result != -1) problem_ += std::string(what) + " gave " + std::to_string(result) + "; ";
    if (result == -1 && lines_ == 0) problem_ += std::string(what) + " failed without a line; ";
    lines_ = 0;
  }
  void Look() {
    found_.clear();
    Expect(Check(true), "check");
    root_ = Open();
    if (!root_) return;
    if (also_) TakeAlso();
    for (auto const level : {STUDY, SERIES, IMAGE}) {
      int result = 0;
      Answers const rows = AnswersOf(*root_, All(level), &result);
      Expect(result, "query");
      for (std::size_t i = 0; i < rows.size() && i < 6; ++i)
        found_.emplace_back(level, std::make_unique<SCL_MoveIdentifier>(*rows[i]));
    }
  }
  void Change() {
    if (!root_) return;
    for (auto const& [level, row] : found_) {
      if (level != IMAGE) continue;
      Fetch(*row);
      row->Remove(kFileId);
      Fetch(*row);
    }
    for (Phantom::Object const& object :
         {Objects()[0], Phantom::Object{.image = 9, .size = 4}, Phantom::Object{.patient = 9, .size = 4}})
      Store(*root_, object);
    if (structure_ == 0) {
      Report report;
      Expect(root_->ProcessZombieFiles(report), "scan");
    }
    for (auto row = found_.rbegin(); row != found_.rend(); ++row)
      Delete(*row->second, row->first);
    root_.reset();
    if (Open()) Expect(Check(false), "check");
  }
  void TakeAlso() {
    Expect(StoreObject(*root_, also_, true), "store");
    SCL_MoveIdentifier const own(*also_);
    SCL_QueryIdentifier identifier(IMAGE);
    for (auto const& tag : {kStudyUid, kSeriesUid, kSopUid})
      identifier.Set(tag, own.Get(tag));
    Dicom_Sequence rows;
    Expect(root_->Query(identifier, 1, &rows), "query");
    Fetch(own);
    for (auto const level : {STUDY, SERIES, IMAGE})
      found_.emplace_back(level, std::make_unique<SCL_MoveIdentifier>(own));
  }
  void Fetch(SCL_MoveIdentifier const& identifier) {
    int told = 0;
    auto const object = FetchObject(*root_, identifier, &told);
    Expect(told, "fetch");
  }
  void Store(Disk_RootDirectoryFile& root, Phantom::Object const& object) {
    Expect(StoreObject(root, Phantom::Make(object).get()), "store");
  }
  void Delete(SCL_MoveIdentifier& identifier, QueryLevel level) {
    identifier.Set(Dicom_Tag(0x0008, 0x0052), SCL_QueryRetrieveLevel::TextOf(level));
    Expect(DeleteObjects(*root_, identifier).result, "delete");
  }
  struct Report : CToolParseDICOMReport {
    int ProcessFile(RWCString) override { return 0; }
    int ProcessFolder(RWCString) override { return 0; }
  };

  unsigned const structure_;
  TempDirectory const home_{true};
  std::string problem_;
  std::unique_ptr<Disk_RootDirectoryFile> root_;
  std::vector<std::pair<QueryLevel, std::unique_ptr<SCL_MoveIdentifier>>> found_;
  bool is_dirty_ = false;
  int lines_ = 0;
  IOD_Msg* also_ = nullptr;
};
