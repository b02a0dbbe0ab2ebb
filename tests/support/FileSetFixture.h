// A file-set in a directory of its own, and what the tests of the engine ask about it.
#pragma once

#include "support/FileSet.h"
#include "support/LogCapture.h"
#include "support/Objects.h"
#include "support/TempDirectory.h"

#include <infra/Klb_GError.h>
#include <infra/Util_Clock.h>
#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <thread>
#include <tuple>

class FileSetTest : public testing::Test {
protected:
  ~FileSetTest() override { // whatever the test has set, and however it has ended
    Util_Clock::SetNow(0);
    Util_FileSystem::SetDurability(Util_Durability::Full);
  }

  std::string Prefix() const { return directory.Path(); }
  std::string At(std::string const& relative) const { return directory / relative; }

  std::unique_ptr<Disk_RootDirectoryFile> Open(unsigned flags = Disk_StoreParams::STORE_NATIVE,
                                               Disk_StorageStrategy* strategy = nullptr) {
    auto root = OpenSet(Prefix(), flags | structure, strategy);
    EXPECT_TRUE(root);
    return root;
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
    return StoreObject(root, &msg, tolerate, icon);
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
    std::string const bytes = ReadFile(At(folder + "/VERSION"));
    return bytes.size() < 4 ? -1 : int(DicomdirWalk::Load(bytes, 0, 4));
  }

  /// The records of a private directory file.
  Answers Records(std::string const& file) const {
    Answers records;
    auto const msg = ReadObject(At(file));
    auto const* sq = msg ? dynamic_cast<Dicom_SQ const*>(msg->Get(kRecords)) : nullptr;
    for (int i = 0; sq && i < sq->GetNValues(); ++i)
      records.push_back(std::make_unique<IOD_Msg>(*sq->GetSequence()->Get(i)));
    return records;
  }

  /// In a directory file, behind the engine's back.
  void ChangeRecords(std::string const& file, std::function<void(Answers&)> const& change) const {
    auto const msg = ReadObject(At(file));
    Answers records = Records(file);
    change(records);
    auto sequence = std::make_unique<Dicom_Sequence>();
    for (auto& record : records)
      sequence->Append(record.release(), true);
    msg->Set(kRecords, Dicom_SQ(sequence.release()));
    SaveObject(*msg, At(file));
  }
  void ChangeEachRecord(std::string const& file, std::function<void(Dicom_Msg&)> const& change) const {
    ChangeRecords(file, [&](Answers& records) {
      for (auto const& record : records)
        change(*record);
    });
  }

  /// The one record of a kind in the root file.
  std::unique_ptr<IOD_Msg> RootRecord(char const* type) const {
    for (auto& record : Records("DICOMDIR"))
      if (record->Text(kRecordType) == type) return std::move(record);
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
    return FetchObject(root, identifier);
  }
  static int Delete(Disk_RootDirectoryFile& root, QueryLevel level, Phantom::Object const& object) {
    Allow(root);
    return DeleteObjects(root, Named(level, object)).result;
  }

  static Answers Ask(Disk_RootDirectoryFile& root, QueryLevel level, Keys const& keys = {}, int expected = 0) {
    int result = 0;
    Answers answers = AnswersOf(root, Asking(level, keys), &result);
    EXPECT_EQ(result, expected);
    return answers;
  }
  /// How many there are, or -1.
  static int Studies(Disk_RootDirectoryFile& root) {
    int result = 0;
    std::size_t const count = AnswersOf(root, Asking(STUDY), &result).size();
    return result == 0 ? int(count) : -1;
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
    EXPECT_EQ(CheckSet(Prefix(), structure, true, &result), 0);
    return result;
  }
  /// `is_interrupted`: there may be what an interrupted operation leaves and repeating it mends, and no damage.
  void ExpectSound(bool is_interrupted = false) const {
    for (Disk_Finding const& finding : Check().findings)
      EXPECT_TRUE(is_interrupted && finding.cause != Disk_Finding::Damage)
          << finding.path << ": " << finding.kind << ": " << finding.text;
  }

  /// It gives -1, tells why in one line of the log, sets this code, and changes nothing.
  template <class Call>
  void ExpectRefused(Call call, std::string const& line, int code) const {
    auto const files = ReadFiles(Prefix());
    LogCapture log;
    KlbGError.Set(0);
    EXPECT_EQ(call(), -1) << line;
    EXPECT_EQ(KlbGError.Get(), code) << line;
    EXPECT_EQ(log.Count(3, line), 1) << line;
    EXPECT_TRUE(ReadFiles(Prefix()) == files) << line;
  }

  static constexpr Dicom_Tag kRecords{0x0004, 0x1220};
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
#define FOR_BOTH_STRUCTURES(Suite) INSTANTIATE_TEST_SUITE_P(Structures, Suite, kBothStructures, StructureName)
