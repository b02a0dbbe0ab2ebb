// A small file-set that is given a damaged or hostile file, and everything that a caller may do with it then: look,
// query, fetch, store, delete, scan. Nothing of that may crash, lead out of the file-set, fail without a word, or
// change what it only reads. Used by tests and by the fuzzers.
#pragma once

#include "Phantom.h"
#include "support/FencedFileSystem.h"
#include "support/TempDirectory.h"

#include <Disk/Disk_Check.h>
#include <Disk/Disk_RootDirectoryFile.h>
#include <infra/CToolParse.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_FileSystem.h>

#include <array>
#include <memory>

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
    int status = 0;
    auto root = std::make_unique<Disk_RootDirectoryFile>(prefix.c_str(), Disk_StoreParams(flags | structure_), 0,
                                                         &status, nullptr);
    Expect(status, "open");
    if (status != 0) return nullptr;
    root->SetSupportPar({0, 1, 0});
    return root;
  }
  /// All images, from a root of its own: 0 or -1.
  int Query() {
    auto const root = Open();
    Dicom_Sequence rows;
    return root ? root->Query(All(SCL_QueryRetrieveLevel::IMAGE), 1, &rows) : -1;
  }
  int Check(bool deep) {
    Disk_CheckResult result;
    Disk_CheckOptions options;
    options.deep = deep;
    return Disk_Check(prefix.c_str(), Disk_StoreParams(structure_), options, &result);
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
  static SCL_QueryIdentifier All(SCL_QueryRetrieveLevel::Value level) {
    SCL_QueryIdentifier identifier(level);
    identifier.SetStudyInstanceUID(UI_NULL);
    if (level >= SCL_QueryRetrieveLevel::SERIES) identifier.SetSeriesInstanceUID(UI_NULL);
    if (level < SCL_QueryRetrieveLevel::IMAGE) return identifier;
    identifier.SetSOPInstanceUID(UI_NULL);
    identifier.Set(Dicom_Tag(0x0004, std::uint16_t(0x1500)), Dicom_CS(""));
    return identifier;
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
    for (auto const level : kLevels) {
      Dicom_Sequence rows;
      Expect(root_->Query(All(level), 1, &rows), "query");
      for (int i = 0; i < rows.GetNItems() && i < 6; ++i)
        found_.emplace_back(level, std::make_unique<SCL_MoveIdentifier>(*rows.Get(i)));
    }
  }
  void Change() {
    if (!root_) return;
    for (auto const& [level, row] : found_) {
      if (level != SCL_QueryRetrieveLevel::IMAGE) continue;
      Fetch(*row);
      row->Remove(Dicom_Tag(0x0004, std::uint16_t(0x1500)));
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
    Expect(root_->Store({.msg = also_, .store_unmatching_images = 1}), "store");
    SCL_MoveIdentifier const own(*also_);
    SCL_QueryIdentifier identifier(SCL_QueryRetrieveLevel::IMAGE);
    for (auto const& tag : {kStudyUid, kSeriesUid, kInstanceUid})
      identifier.Set(tag, own.Get(tag));
    Dicom_Sequence rows;
    Expect(root_->Query(identifier, 1, &rows), "query");
    Fetch(own);
    for (auto const level : kLevels)
      found_.emplace_back(level, std::make_unique<SCL_MoveIdentifier>(own));
  }
  void Fetch(SCL_MoveIdentifier const& identifier) {
    IOD_Msg* object = nullptr;
    Expect(root_->GetOne(identifier, 1, &object, nullptr), "fetch");
    delete object;
  }
  void Store(Disk_RootDirectoryFile& root, Phantom::Object const& object) {
    std::unique_ptr<IOD_Msg> const msg = Phantom::Make(object);
    Expect(root.Store({.msg = msg.get()}), "store");
  }
  void Delete(SCL_MoveIdentifier& identifier, SCL_QueryRetrieveLevel::Value level) {
    identifier.Set(Dicom_Tag(0x0008, std::uint16_t(0x0052)), SCL_QueryRetrieveLevel::TextOf(level));
    MXL_SubOperationsReport report;
    SCL_ResponseStatus status;
    Expect(root_->Delete(identifier, 1, &report, status), "delete");
  }
  static constexpr std::array kLevels{SCL_QueryRetrieveLevel::STUDY, SCL_QueryRetrieveLevel::SERIES,
                                      SCL_QueryRetrieveLevel::IMAGE};
  struct Report : CToolParseDICOMReport {
    int ProcessFile(RWCString) override { return 0; }
    int ProcessFolder(RWCString) override { return 0; }
  };

  static constexpr Dicom_Tag kStudyUid{0x0020, std::uint16_t(0x000D)}, kSeriesUid{0x0020, std::uint16_t(0x000E)},
      kInstanceUid{0x0008, std::uint16_t(0x0018)};

  unsigned const structure_;
  TempDirectory const home_{true};
  std::string problem_;
  std::unique_ptr<Disk_RootDirectoryFile> root_;
  std::vector<std::pair<SCL_QueryRetrieveLevel::Value, std::unique_ptr<SCL_MoveIdentifier>>> found_;
  bool is_dirty_ = false;
  int lines_ = 0;
  IOD_Msg* also_ = nullptr;
};
