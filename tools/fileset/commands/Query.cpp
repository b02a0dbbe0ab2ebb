#include "commands/Commands.h"

#include "output/Json.h"
#include "output/Report.h"
#include "output/Text.h"
#include "sets/Search.h"

#include <algorithm>
#include <memory>
#include <set>
#include <unistd.h>

namespace {

char const kDescription[] = "Finds studies, series or images in a file-set by their attributes";

char const kFooter[] = R"(
The records of the file-set answer; no object is opened.

A key names an attribute, by its DICOM keyword or tag, and the value that it must have:
  *    any characters
  ?    any one character
  -    a range of dates or times: 20240101-20241231, 20240101-, -20241231
  \    a list of UIDs: 1.2.3\1.2.4
Names are compared without regard to case. A key without a value shows the attribute. Without any such key the
usual attributes of the level are shown. A key may belong to another level: a patient's name finds images too. An
attribute that no record keeps is neither found nor shown, and a line on standard error says so.

This system's own attributes have names as well: StudyStoreDate, StudyAccessDate, ProtectionFlag.

Examples:
  fileset query /data/set --key 'PatientName=miller*' --key StudyDate=2024-
  fileset query /data/set --level series --key PatientID=4711 --key Modality --key SeriesDescription
  fileset query /data/set --level image --key Modality=CT --json

Ends with 0, also when nothing is found; 1 when something can't be read, which is told, and the rest is shown; 2
for a wrong command line, keyword, level or date; 3 when there is no file-set or it can't be opened.)";

// Wider cells are cut on a terminal; a UID has 64 characters at most.
constexpr std::size_t kWidest = 64;

struct Options {
  std::string directory;
  std::string level_name = "study";
  std::vector<std::string> keys;
  std::size_t limit = SIZE_MAX;
  bool json = false;
};

struct LevelName {
  char const* one;
  char const* many;
  Level level;
} const kLevels[] = {
    {"study", "studies", Level::STUDY}, {"series", "series", Level::SERIES}, {"image", "images", Level::IMAGE}};

std::string CellText(Dicom_Msg const& row, Dicom_Tag const& tag) {
  Dicom_Type const* const value = row.Get(tag);
  if (!value || value->IsEmpty()) return {};
  if (auto const* sequence = dynamic_cast<Dicom_SQ const*>(value))
    return "(" + std::to_string(sequence->GetNValues()) + " items)";
  if (dynamic_cast<Dicom_OtherType const*>(value)) return "(" + std::to_string(value->GetLength()) + " bytes)";
  return value->GetText();
}

void PrintTable(Search::Rows const& rows, std::vector<Key> const& columns, LevelName const& level) {
  std::vector<std::string> headers;
  headers.reserve(columns.size());
  for (Key const& column : columns)
    headers.push_back(Attributes::Name(column.tag));
  Table table(headers);
  for (auto const& row : rows) {
    std::vector<std::string> cells;
    cells.reserve(columns.size());
    for (Key const& column : columns)
      cells.push_back(CellText(*row, column.tag));
    table.AddRow(std::move(cells));
  }
  table.Print(stdout, isatty(STDOUT_FILENO) == 1 ? kWidest : 0);
  std::printf("%zu %s\n", rows.size(), rows.size() == 1 ? level.one : level.many);
}

void PrintJson(Search::Rows const& rows) {
  std::printf("[");
  for (std::size_t i = 0; i < rows.size(); ++i)
    std::printf("%s\n%s", i > 0 ? "," : "", JsonText(DicomJson(*rows[i])).c_str());
  std::printf("\n]\n");
}

// The keys of the command line. 0, or -1 with the cause reported.
int ParseKeys(Options const& options, std::vector<Key>* keys, Report& report) {
  std::set<std::string> names;
  for (std::string const& text : options.keys) {
    Key key;
    std::string problem;
    if (Attributes::ParseKey(text, &key, &problem) == 0 && !names.insert(Attributes::Name(key.tag)).second)
      problem = Attributes::Name(key.tag) + ": the key is given twice";
    if (!problem.empty()) {
      report.Fail("--key", problem);
      return -1;
    }
    keys->push_back(std::move(key));
  }
  return 0;
}

// Adds the usual attributes of the level, unless the user chose what to see.
void AddDefaultKeys(Level level, std::vector<Key>* keys) {
  if (std::any_of(keys->begin(), keys->end(), [](Key const& key) { return key.value.empty(); })) return;
  std::vector<Key> all = Attributes::DefaultKeys(level);
  for (Key& key : *keys) {
    auto const same = std::find_if(all.begin(), all.end(), [&](Key const& k) { return k.tag == key.tag; });
    if (same != all.end())
      *same = std::move(key);
    else
      all.push_back(std::move(key));
  }
  *keys = std::move(all);
}

// Warns of keys that nothing at this level can match: the empty answer would look like a file-set without such objects.
void WarnOfLowerKeys(std::vector<Key> const& keys, Level level, bool standard, Report const& report) {
  for (Key const& key : keys)
    if (!key.value.empty() && Attributes::LevelOf(key.tag) > level && Attributes::IsKept(key.tag, standard))
      report.Warn(Attributes::Name(key.tag), "kept at a lower level, try --level series or --level image");
}

// Warns of keys that this system's records never hold. Records of other systems may.
void WarnOfUnkept(std::vector<Key> const& keys, bool standard, Search::Rows const& rows, Report const& report) {
  for (Key const& key : keys) {
    bool const is_there = std::any_of(rows.begin(), rows.end(), [&key](auto const& row) {
      Dicom_Type const* const value = row->Get(key.tag);
      return value && !value->IsEmpty();
    });
    if (!is_there && !Attributes::IsKept(key.tag, standard))
      report.Warn(Attributes::Name(key.tag), "the records don't keep it, so it is neither found nor shown");
  }
}

int Run(Options const& options) {
  Report report;
  std::vector<Key> keys;
  if (ParseKeys(options, &keys, report) == -1) return kUsage;
  LevelName const& level = *std::find_if(std::begin(kLevels), std::end(kLevels), [&](LevelName const& candidate) {
    return candidate.one == options.level_name;
  });
  AddDefaultKeys(level.level, &keys);
  FileSet set = OpenFileSet(options.directory, Access::Read, {}, report);
  if (!set.root) return kNotOpened;
  Search::Rows rows;
  if (Search(set, report).PassOverDamage().Run(level.level, keys, &rows) == -1) return kNotOpened;
  WarnOfUnkept(keys, set.structure == Structure::Standard, rows, report);
  if (rows.empty()) WarnOfLowerKeys(keys, level.level, set.structure == Structure::Standard, report);
  if (rows.size() > options.limit) rows.resize(options.limit);
  if (options.json)
    PrintJson(rows);
  else
    PrintTable(rows, keys, level);
  return report.Result();
}

} // namespace

Command AddQuery(CLI::App& app) {
  auto const options = std::make_shared<Options>();
  CLI::App* line = app.add_subcommand("query", kDescription)->footer(kFooter);
  line->add_option("DIR", options->directory, "The file-set")->required();
  line->add_option("--level", options->level_name, "What to find: study, series or image")
      ->option_text("LEVEL [study]")
      ->check(CLI::IsMember({"study", "series", "image"}));
  line->add_option("--key", options->keys, "An attribute to compare, or to show; as often as you like")
      ->option_text("KEYWORD[=VALUE]")
      ->expected(1)
      ->take_all()
      ->allow_extra_args(false);
  line->add_option("--limit", options->limit, "Show no more than N")
      ->option_text("N")
      ->check(CLI::Range(0, 2147483647));
  line->add_flag("--json", options->json, "DICOM JSON model instead of a table");
  return {line, [options] { return Run(*options); }};
}
