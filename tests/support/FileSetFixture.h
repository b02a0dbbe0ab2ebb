// A file-set in a directory of its own, and what the tests of the engine ask about it.
#pragma once

#include "Phantom.h"
#include "support/Identifiers.h"
#include "support/LogCapture.h"
#include "support/Objects.h"
#include "support/TempDirectory.h"

#include <Disk/Disk_Check.h>
#include <Disk/Disk_RootDirectoryFile.h>
#include <infra/Klb_GError.h>
#include <infra/Util_Clock.h>
#include <infra/Util_FileSystem.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>

class FileSetTest : public testing::Test {
protected:
  ~FileSetTest() override { // whatever the test has set, and however it has ended
    Util_Clock::SetNow(0);
    Util_FileSystem::SetDurability(Util_Durability::Full);
  }

  static constexpr auto STUDY = SCL_QueryRetrieveLevel::STUDY, SERIES = SCL_QueryRetrieveLevel::SERIES,
                        IMAGE = SCL_QueryRetrieveLevel::IMAGE;
  static constexpr Dicom_Tag kStudyUid{0x0020, std::uint16_t(0x000D)}, kSopUid{0x0008, std::uint16_t(0x0018)};

  std::string Prefix() const { return directory.Path(); }
  std::string At(std::string const& relative) const { return Prefix() + "/" + relative; }

  std::unique_ptr<Disk_RootDirectoryFile> Open(unsigned flags = Disk_StoreParams::STORE_NATIVE,
                                               Disk_StorageStrategy* strategy = nullptr) {
    int status = 0;
    auto root = std::make_unique<Disk_RootDirectoryFile>(Prefix().c_str(), Disk_StoreParams(flags | structure), 0,
                                                         &status, strategy);
    EXPECT_EQ(status, 0);
    return status == 0 ? std::move(root) : nullptr;
  }

  /// Deletes of all kinds.
  static void Allow(Disk_RootDirectoryFile& root, bool honour_protection = false) {
    root.SetSupportPar({1, 1, honour_protection});
  }
  std::unique_ptr<Disk_RootDirectoryFile> OpenForDeletes(bool honour_protection = false) {
    auto root = Open();
    Allow(*root, honour_protection);
    return root;
  }

  /// A CT object with the identifiers of the examples: Study ID A1, Series Number 3, Instance Number 7.
  static std::unique_ptr<IOD_Msg> Example(Phantom::Object object = {}) {
    object.size = 16;
    std::unique_ptr<IOD_Msg> msg = Phantom::Make(object);
    msg->SetStudyID(Dicom_SH("A1"));
    msg->SetSeriesNumber(Dicom_IS(3));
    msg->SetImageNumber(Dicom_IS(7));
    return msg;
  }

  static int Store(Disk_RootDirectoryFile& root, IOD_Msg& msg, bool tolerate = false, bool icon = false) {
    return root.Store({.msg = &msg, .add_icon = icon, .store_unmatching_images = tolerate});
  }

  /// The files below the prefix by their relative names.
  std::map<std::string, std::uintmax_t> Files() const {
    std::map<std::string, std::uintmax_t> files;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(Prefix()))
      if (entry.is_regular_file())
        files[std::filesystem::relative(entry.path(), Prefix()).string()] = entry.file_size();
    return files;
  }

  int Version(std::string const& folder) const {
    std::string const bytes = ReadFile(folder.empty() ? At("VERSION") : At(folder + "/VERSION"));
    return bytes.size() < 4 ? -1 : int(DicomdirWalk::Load(bytes, 0, 4));
  }

  /// The records of a private directory file.
  std::vector<std::unique_ptr<IOD_Msg>> Records(std::string const& file) const {
    std::vector<std::unique_ptr<IOD_Msg>> records;
    auto const msg = ReadObject(At(file));
    auto const* sq = msg ? dynamic_cast<Dicom_SQ const*>(msg->Get(Dicom_Tag(0x0004, 0x1220))) : nullptr;
    for (int i = 0; sq && i < sq->GetNValues(); ++i)
      records.push_back(std::make_unique<IOD_Msg>(*sq->GetSequence()->Get(i)));
    return records;
  }

  /// In a directory file, behind the engine's back.
  void ChangeRecords(std::string const& file, std::function<void(Dicom_Msg&)> const& change) const {
    Dicom_Tag const records(0x0004, 0x1220);
    auto const msg = ReadObject(At(file));
    auto sequence = std::make_unique<Dicom_Sequence>();
    for (auto const& record : Records(file)) {
      change(*record);
      sequence->Append(new Dicom_Msg(*record), true);
    }
    msg->Set(records, Dicom_SQ(sequence.release()));
    SaveObject(*msg, At(file));
  }

  /// The one record of a kind in the root file.
  std::unique_ptr<IOD_Msg> RootRecord(char const* type) const {
    for (auto& record : Records("DICOMDIR"))
      if (record->Text(Dicom_Tag(0x0004, 0x1430)) == type) return std::move(record);
    ADD_FAILURE() << "no " << type << " record";
    return std::make_unique<IOD_Msg>();
  }

  static SCL_MoveIdentifier Uids(IOD_Msg const& msg) {
    SCL_MoveIdentifier identifier;
    identifier.SetStudyInstanceUID(msg.GetStudyInstanceUID());
    identifier.SetSeriesInstanceUID(msg.GetSeriesInstanceUID());
    identifier.SetSOPInstanceUID(msg.GetSOPInstanceUID());
    return identifier;
  }

  static std::unique_ptr<IOD_Msg> Fetch(Disk_RootDirectoryFile& root, SCL_MoveIdentifier const& identifier) {
    IOD_Msg* object = nullptr;
    int const result = root.GetOne(identifier, 1, &object, nullptr);
    return std::unique_ptr<IOD_Msg>(result == 0 ? object : nullptr);
  }

  static int Delete(Disk_RootDirectoryFile& root, SCL_QueryRetrieveLevel::Value level, Phantom::Object const& object) {
    Allow(root);
    MXL_SubOperationsReport report;
    SCL_ResponseStatus status;
    return root.Delete(Named(level, object), 1, &report, status);
  }

  /// The answers to a query.
  using Keys = std::vector<std::pair<Dicom_Tag, std::string>>;
  using Answers = std::vector<std::unique_ptr<IOD_Msg>>;
  static Answers Ask(Disk_RootDirectoryFile& root, SCL_QueryRetrieveLevel::Value level, Keys const& keys = {},
                     int expected = 0) {
    SCL_QueryIdentifier identifier(level);
    for (auto const& [tag, value] : keys)
      identifier.Set(tag, Dicom_UT(value));
    Dicom_Sequence results;
    EXPECT_EQ(root.Query(identifier, 1, &results), expected);
    Answers answers;
    for (int i = 0; i < results.GetNItems(); ++i)
      answers.push_back(std::make_unique<IOD_Msg>(*results.Get(i)));
    return answers;
  }
  /// How many there are, or -1.
  static int Studies(Disk_RootDirectoryFile& root) {
    Dicom_Sequence results;
    return root.Query(SCL_QueryIdentifier(STUDY), 1, &results) == 0 ? results.GetNItems() : -1;
  }
  /// The SOP Instance UIDs in a study.
  static std::set<std::string> Images(Disk_RootDirectoryFile& root, Dicom_UI const& study) {
    std::set<std::string> uids;
    for (auto const& image : Ask(root, IMAGE, {{kStudyUid, study.GetText()}, {kSopUid, ""}}))
      uids.insert(image->Text(kSopUid));
    return uids;
  }
  void Clear() const {
    for (auto const& entry : std::filesystem::directory_iterator(Prefix()))
      std::filesystem::remove_all(entry.path());
  }

  /// What the check finds, objects included.
  Disk_CheckResult Check() const {
    Disk_CheckResult result;
    Disk_CheckOptions options;
    options.deep = true;
    EXPECT_EQ(Disk_Check(Prefix().c_str(), structure, options, &result), 0);
    return result;
  }
  void ExpectSound() const {
    for (Disk_Finding const& finding : Check().findings)
      ADD_FAILURE() << finding.path << ": " << finding.kind << ": " << finding.text;
  }
  /// Interrupted operations may leave what repeating them mends, and nothing else.
  void ExpectNoDamage() const {
    for (Disk_Finding const& finding : Check().findings)
      EXPECT_NE(finding.cause, Disk_Finding::Damage) << finding.path << ": " << finding.kind << ": " << finding.text;
  }

  TempDirectory directory;
  unsigned structure = 0; // STANDARD_STRUCTURE for file-sets of that kind
};

/// Tests that hold for both structures.
class BothStructuresTest : public FileSetTest, public testing::WithParamInterface<unsigned> {
protected:
  BothStructuresTest() { structure = GetParam(); }
};

inline auto const kBothStructures = testing::Values(0u, unsigned(Disk_StoreParams::STANDARD_STRUCTURE));
inline std::string StructureName(testing::TestParamInfo<unsigned> const& info) {
  return info.param ? "Standard" : "Private";
}
