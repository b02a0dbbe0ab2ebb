#include "commands/Commands.h"

#include "output/Json.h"
#include "output/Report.h"
#include "output/Text.h"
#include "sets/Search.h"

#include <cstring>
#include <fcntl.h>
#include <infra/Klb_FileSystemUtils.h>
#include <infra/Util_FileSystem.h>
#include <map>
#include <memory>
#include <set>

namespace {

char const kDescription[] =
    "Tells what a file-set holds: the numbers of its records, their dates, and its size on disk";

char const kFooter[] = R"(
The version counts the writes of the root directory file. When it changes, other processes read their records again.

Example:
  fileset info /data/set

Ends with 0; 1 when a study can't be read; 2 for a wrong command line; 3 when the file-set can't be opened.)";

constexpr Dicom_Tag kRecordType{0x0004, std::uint16_t(0x1430)};
constexpr Dicom_Tag kStudyDate{0x0008, std::uint16_t(0x0020)};
constexpr Dicom_Tag kModality{0x0008, std::uint16_t(0x0060)};
constexpr Dicom_Tag kStoreDate = Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_STORE_DATE;

struct Options {
  std::string directory;
  bool json = false;
};

struct Range {
  std::string oldest, newest;
  void Add(std::string const& date) {
    if (date.empty()) return;
    if (oldest.empty() || date < oldest) oldest = date;
    if (date > newest) newest = date;
  }
};

struct Facts {
  Structure structure = Structure::None;
  long version = 0, size_kb = 0;
  std::size_t patients = 0, studies = 0, series = 0, instances = 0;
  std::map<std::string, std::size_t> kinds, modalities; // instances by kind of record, series by modality
  Range study_dates, store_dates;
};

// 0 where there is none.
long RootVersion(std::string const& directory) {
  Util_FileDescriptor const file = Util_FileSystem::Open((directory + "/VERSION").c_str(), O_RDONLY | O_NONBLOCK);
  char bytes[4];
  std::int32_t version = 0;
  if (file && Util_FileSystem::ReadAll(file.Get(), bytes, sizeof bytes) == sizeof bytes)
    Dicom_Copy(bytes, &version, sizeof bytes, 1, Dicom_Endianity::Little);
  return version;
}

// 0, or -1 (reported) when the file-set can't be read.
int Gather(FileSet& set, Report& report, Facts* facts) {
  Search search(set, report);
  search.PassOverDamage();
  Search::Rows studies, series, instances;
  std::vector<Key> const study_keys = {
      {Attributes::kPatientId, ""}, {Attributes::kIssuerOfPatientId, ""}, {kStudyDate, ""}, {kStoreDate, ""}};
  if (search.Run(Level::STUDY, study_keys, &studies) == -1 ||
      search.Run(Level::SERIES, {{kModality, ""}}, &series) == -1 ||
      search.Run(Level::IMAGE, {{kRecordType, ""}}, &instances) == -1)
    return -1;
  std::set<std::pair<std::string, std::string>> patients;
  for (auto const& study : studies) {
    patients.emplace(study->Text(Attributes::kPatientId), study->Text(Attributes::kIssuerOfPatientId));
    facts->study_dates.Add(study->Text(kStudyDate));
    facts->store_dates.Add(study->Text(kStoreDate));
  }
  for (auto const& one : series)
    ++facts->modalities[one->Text(kModality)];
  for (auto const& instance : instances)
    ++facts->kinds[instance->Text(kRecordType)];
  facts->patients = patients.size();
  facts->studies = studies.size();
  facts->series = series.size();
  facts->instances = instances.size();
  return 0;
}

char const* StructureName(Structure structure) { return structure == Structure::Private ? "private" : "standard"; }

std::string Listed(std::map<std::string, std::size_t> const& counts) {
  std::string text;
  for (auto const& [name, count] : counts)
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + (name.empty() ? "(none)" : name);
  return text.empty() ? text : " (" + text + ")";
}

std::string FromTo(Range const& range) {
  if (range.oldest.empty()) return "none";
  return range.oldest == range.newest ? range.oldest : range.oldest + " to " + range.newest;
}

void PrintText(Facts const& facts) {
  std::pair<char const*, std::string> const lines[] = {
      {"Structure", StructureName(facts.structure)},
      {"Version", std::to_string(facts.version)},
      {"Patients", std::to_string(facts.patients)},
      {"Studies", std::to_string(facts.studies)},
      {"Series", std::to_string(facts.series) + Listed(facts.modalities)},
      {"Instances", std::to_string(facts.instances) + Listed(facts.kinds)},
      {"Study dates", FromTo(facts.study_dates)},
      {"Stored", FromTo(facts.store_dates)},
      {"Size", std::to_string(facts.size_kb) + " KB"},
  };
  for (auto const& [name, value] : lines)
    std::printf("%-12s %s\n", name, Printable(value).c_str());
}

void PrintJson(Facts const& facts) {
  auto const range = [](Range const& r) { return nlohmann::json{{"oldest", r.oldest}, {"newest", r.newest}}; };
  std::printf("%s\n", JsonText({{"structure", StructureName(facts.structure)},
                                {"version", facts.version},
                                {"patients", facts.patients},
                                {"studies", facts.studies},
                                {"series", facts.series},
                                {"instances", facts.instances},
                                {"instances_by_kind", facts.kinds},
                                {"series_by_modality", facts.modalities},
                                {"study_dates", range(facts.study_dates)},
                                {"store_dates", range(facts.store_dates)},
                                {"size_kb", facts.size_kb}})
                          .c_str());
}

int Run(Options const& options) {
  Report report;
  FileSet set = OpenFileSet(options.directory, Access::Read, {}, report);
  if (!set.root) return kNotOpened;
  Facts facts;
  facts.structure = set.structure;
  facts.version = RootVersion(options.directory);
  facts.size_kb = Klb_FileSystemUtils::GetDirSize(options.directory.c_str());
  if (facts.size_kb == -1)
    report.Fail(options.directory, std::string("its size can't be told: ") + std::strerror(errno));
  if (Gather(set, report, &facts) == -1) return kNotOpened;
  if (options.json)
    PrintJson(facts);
  else
    PrintText(facts);
  return report.Result();
}

} // namespace

Command AddInfo(CLI::App& app) {
  auto const options = std::make_shared<Options>();
  CLI::App* line = app.add_subcommand("info", kDescription)->footer(kFooter);
  line->add_option("DIR", options->directory, "The file-set")->required();
  line->add_flag("--json", options->json, "Print JSON");
  return {line, [options] { return Run(*options); }};
}
