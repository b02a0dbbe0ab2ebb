// Walks the table of docs/errors.md: each of its conditions is provoked, and gives what its row says.
#include "reliability/Allocations.h"
#include "support/FaultyFileSystem.h"
#include "support/FileSetFixture.h"

#include <Disk/Disk_Access.h>
#include <Disk/Disk_CacheRepository.h>
#include <Disk/Disk_Error.h>
#include <Disk/Disk_Failure.h>
#include <infra/CToolParse.h>

#include <fnmatch.h>
#include <regex>

namespace {

constexpr unsigned kNative = Disk_StoreParams::STORE_NATIVE, kReadOnly = Disk_StoreParams::READ_ONLY,
                   kLenient = kReadOnly | Disk_StoreParams::PASS_OVER_DAMAGE;

/// "EIO", "211007" or "210000 + EIO"; 0 where the column is empty.
int Code(std::string const& text) {
  if (text.empty() || std::isdigit(text[0]))
    return std::atoi(text.c_str()) + (text.size() > 9 ? Code(text.substr(9)) : 0);
  for (int code = 1; code < 200; ++code)
    if (strerrorname_np(code) == text) return code;
  return -1;
}

std::vector<std::string> Split(std::string const& text, char const* at) {
  std::regex const separator(std::string(" *") + at + " *");
  return {std::sregex_token_iterator(text.begin(), text.end(), separator, -1), {}};
}

struct Nothing : CToolParseDICOMReport {
  int ProcessFile(RWCString) override { return 0; }
  int ProcessFolder(RWCString) override { return 0; }
};

} // namespace

class FailureTest : public FileSetTest {
protected:
  std::string WithPaths(std::string text) const {
    for (auto const& [name, path] : {std::pair("SET", Prefix()), {"OBJECT", At("SA100000/S3000000/I7000000")}})
      if (std::size_t const place = text.find(name); place != text.npos) text.replace(place, strlen(name), path);
    return text;
  }
  void Begin(std::string const& conditions) {
    std::vector<std::string> const all = Split(conditions, ";");
    is = {all.begin(), all.end()};
    structure = is.count("standard structure") ? unsigned(Disk_StoreParams::STANDARD_STRUCTURE) : 0;
    object = {}, call = {};
    msg = Example({.image = 2});
    std::filesystem::create_directories(Prefix());
    Clear();
    auto const root = Open();
    ASSERT_EQ(Store(*root, *Example()), 0);
    EXPECT_EQ(Disk_LastFailure().code, 0) << "a success has none";
    EXPECT_EQ(is.count("the study is protected") ? root->ProtectImages(Named(STUDY, {}), 1, nullptr) : 0, 0);
    for (std::string const& condition : all)
      Apply(condition, WithPaths(condition.substr(0, condition.find(" is "))));
  }
  void Apply(std::string const& condition, std::string const& path) {
    unsigned group = 0, element = 0;
    char words[3][80] = {};
    if (std::sscanf(condition.c_str(), "%79s of %79s fails with %79s", words[0], words[1], words[2]) == 3) {
      call = words[0], file = WithPaths(words[1]), error = Code(words[2]);
    } else if (std::sscanf(condition.c_str(), "%*[^(](%x,%x) is %79s", &group, &element, words[0]) == 3) {
      Dicom_Tag const tag{std::uint16_t(group), std::uint16_t(element)};
      msg->Remove(tag);
      if (std::string_view(words[0]) != "missing") msg->Set(tag, Dicom_UT(std::string(words[0])));
    } else if (condition.starts_with("no such ")) {
      (condition.ends_with("study") ? object.study : condition.ends_with("series") ? object.series : object.image) = 2;
    } else if (path.starts_with("/")) {
      EXPECT_GT(std::filesystem::remove_all(path), 0u);
      if (condition.ends_with(" a folder")) std::filesystem::create_directory(path);
      if (condition.ends_with(" damaged")) WriteFile(path, "no DICOM file");
      if (condition.ends_with(" empty")) WriteFile(path, "");
    }
  }
  bool Null() const { return is.count("null argument") != 0; }
  int Run(std::string const& operation) {
    FaultyFileSystem const faulty([this, locks = 0](std::string_view asked, char const* path) mutable {
      if (is.count("no unlock") && asked == "Flock" && ++locks > 1) return EIO;
      return asked == call && path && std::string_view(path).ends_with(file) ? error : 0;
    });
    Disk_CheckResult result;
    if (operation == "Check") return Disk_Check(Prefix().c_str(), structure, {}, Null() ? nullptr : &result);
    if (operation == "Cache: Store") return Disk_CacheRepository().Store(msg.get(), false);
    unsigned const flags = (is.count("read-only") ? kReadOnly : 0) | (is.count("damage is passed over") ? kLenient : 0);
    int status = 0;
    Disk_RootDirectoryFile root(operation == "Open" && Null() ? nullptr : Prefix().c_str(),
                                Disk_StoreParams(flags | kNative | structure), 0, &status, nullptr);
    if (operation == "Open") return status;
    if (!is.count("it isn't allowed")) Allow(root, true);
    root.SetAutoDeletePar({INT32_MAX, 0});
    root.SetStop([stops = is.count("the caller stops it")] { return stops != 0; });
    return On(root, operation);
  }
  int On(Disk_RootDirectoryFile& root, std::string const& operation) {
    auto const level = is.count("level series")    ? SERIES
                       : is.count("level image")   ? IMAGE
                       : is.count("level unknown") ? SCL_QueryRetrieveLevel::UNKNOWN
                                                   : STUDY;
    SCL_MoveIdentifier const named = Named(level, object), image = Named(IMAGE, object);
    SCL_QueryIdentifier query(level);
    query.SetStudyInstanceUID(Phantom::StudyUid({}));
    int const model = is.count("model 2") ? 2 : 1;
    Dicom_LO const id = msg->GetPatientID(), issuer = msg->GetIssuerOfPatientID();
    Dicom_Sequence results;
    MXL_SubOperationsReport report;
    SCL_ResponseStatus status;
    Nothing nothing;
    std::vector<Disk_AutoDeleteCandidate> candidates;
    IOD_Msg *fetched = nullptr, *stored = Null() ? nullptr : msg.get(), **place = Null() ? nullptr : &fetched;
    Disk_Access access(root);
    std::map<std::string, std::function<long()>> const operations{
        {"Query", [&] { return root.Query(query, model, Null() ? nullptr : &results); }},
        {"Store", [&] { return root.Store({.msg = stored}); }},
        {"GetOne", [&] { return root.GetOne(image, model, place, nullptr); }},
        {"Delete", [&] { return root.Delete(named, model, Null() ? nullptr : &report, status); }},
        {"ProtectImages", [&] { return root.ProtectImages(named, model, nullptr); }},
        {"SetStudyCompleted", [&] { return root.SetStudyCompleted(named.GetStudyInstanceUID()); }},
        {"SetStudyAccessed", [&] { return root.SetStudyAccessed(named.GetStudyInstanceUID()); }},
        {"FreeSpace", [&] { return root.FreeSpace(); }},
        {"AutoDelete", [&] { return root.AutoDelete(); }},
        {"ListAutoDelete", [&] { return root.ListAutoDelete(Null() ? nullptr : &candidates); }},
        {"ChangePatientsName", [&] { return root.ChangePatientsName(id, issuer, Dicom_PN("New"), LO_NULL, LO_NULL); }},
        {"ChangeManufacturerParms", [&] { return root.ChangeManufacturerParms(id, issuer, LO_NULL, LO_NULL); }},
        {"ProcessZombieFiles", [&] { return root.ProcessZombieFiles(nothing); }},
        {"Sync", [&] { return root.Sync(); }},
        {"FetchNext", [&] { return access.OpenQuery(query, 1) == 0 ? access.FetchNext(place) : 1; }}};
    auto const& run = operations.at(operation);
    FailAllocations(1, false);
    ArmAllocations(is.count("memory runs out"));
    long const result = run();
    ArmAllocations(false);
    return int(result);
  }

  std::set<std::string> is; // the conditions
  Phantom::Object object;
  std::unique_ptr<IOD_Msg> msg;
  std::string call, file; // of the file system that fails
  int error = 0;
};

TEST_F(FailureTest, EachRowOfTheTableHolds) {
  std::ifstream in(DISK_SOURCE_DIR "/docs/errors.md");
  int rows = 0;
  for (std::string line; std::getline(in, line);) {
    auto const cells = Split(line, "\\|"); // the first one is empty
    if (cells.size() != 7 || cells[1] == "Operation" || cells[1][0] == '-') continue;
    SCOPED_TRACE(line + std::to_string(++rows));
    Begin(cells[2]);
    Disk_PassedOver passed;
    bool const is_refused = cells[3] == "-1" && call.empty() && cells[1] != "GetOne" && cells[1] != "FetchNext" &&
                            std::filesystem::exists(Prefix());
    auto const files = is_refused ? Files() : std::map<std::string, std::uintmax_t>();
    KlbGError.Set(0);
    EXPECT_EQ(Run(cells[1]), std::stoi(cells[3]));
    EXPECT_EQ(KlbGError.Get(), Code(cells[4]));
    Disk_Failure failure = Disk_LastFailure();
    if (cells[3] == "0") {
      EXPECT_EQ(failure.code, 0);
      ASSERT_FALSE(passed.Entries().empty());
      failure = {passed.Entries()[0].code, passed.Entries()[0].text.c_str(), passed.Entries()[0].path.c_str()};
    }
    EXPECT_EQ(failure.code, Code(cells[5]));
    EXPECT_STRNE(Disk_ErrorText(failure.code), Disk_ErrorText(1));
    std::thread([] { EXPECT_EQ(Disk_LastFailure().code, 0) << "another thread's"; }).join();
    EXPECT_EQ(fnmatch(WithPaths(cells[6]).c_str(), failure.text, 0), 0) << failure.text;
    EXPECT_TRUE(!is_refused || Files() == files);
  }
  EXPECT_GT(rows, 50);
}
