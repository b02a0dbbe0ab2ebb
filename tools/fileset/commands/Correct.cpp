#include "commands/Commands.h"

#include "commands/Choice.h"
#include "output/Json.h"
#include "output/Report.h"
#include "output/Text.h"
#include "program/Interruption.h"
#include "sets/Cause.h"
#include "sets/Search.h"

#include <algorithm>
#include <memory>
#include <set>

namespace {

char const kDescription[] = "Corrects attributes of a patient, in the records and in every object";

char const kFooter[] = R"(
These attributes can be corrected, by keyword or tag: PatientName, PatientID, IssuerOfPatientID, Manufacturer,
ManufacturerModelName. A value can't be made empty. Values are given in UTF-8. If the character set of an object
lacks a character of the new value, the object is rewritten in Unicode.

The patient is the one with this ID and issuer; without --issuer, the one without an issuer. Every object is
rewritten, compressed without loss unless --native is given. The records are written last.

An object that can't be read stops the correction. So does Ctrl-C, between two objects. The objects before it have
the new values then, the records the old ones. Put the object right or delete it, and run the same command again:
it finishes the work.

Only file-sets of the private structure can do this.

Examples:
  fileset correct /data/set --patient 4711 --set 'PatientName=Miller^Joan' --set PatientID=4712
  fileset correct /data/set --patient 4711 --issuer CITY --set 0008,0070=ACME

Ends with 0 when everything is corrected; 1 when there is no such patient or something failed; 2 for a wrong
command line; 3 when the file-set can't be opened. Each failure has a line on standard error.)";

constexpr Dicom_Tag kPatientName{0x0010, std::uint16_t(0x0010)};
constexpr Dicom_Tag kManufacturer{0x0008, std::uint16_t(0x0070)};
constexpr Dicom_Tag kModelName{0x0008, std::uint16_t(0x1090)};

struct Options {
  std::string directory, patient, issuer;
  std::vector<std::string> settings;
  bool native = false, json = false;
};

// The new values; an empty one leaves its attribute alone.
struct Values {
  std::string name, id, issuer, manufacturer, model;
};

struct Correctable {
  Dicom_Tag tag;
  std::string Values::*value;
} const kCorrectable[] = {{kPatientName, &Values::name},
                          {Attributes::kPatientId, &Values::id},
                          {Attributes::kIssuerOfPatientId, &Values::issuer},
                          {kManufacturer, &Values::manufacturer},
                          {kModelName, &Values::model}};

// Why the attribute can't have this value; empty if it can.
std::string ValueProblem(Dicom_Tag const& tag, std::string const& value) {
  constexpr std::size_t kLongest = 64; // characters, in each group of a name
  constexpr std::ptrdiff_t kMostGroups = 3;
  if (value.find_first_not_of(' ') == std::string::npos) return "a value can't be blanked";
  if (value.find('\\') != std::string::npos || Printable(value) != value)
    return "the value must be printable UTF-8 text without backslashes";
  std::size_t length = 0, longest = 0;
  for (char const c : value) {
    length = c == '=' && tag == kPatientName ? 0 : length + ((c & 0xC0) != 0x80);
    longest = std::max(longest, length);
  }
  if (longest > kLongest) return "the value has more than 64 characters";
  bool const too_many = tag == kPatientName && std::count(value.begin(), value.end(), '=') >= kMostGroups;
  return too_many ? "a name has three groups at most" : "";
}

// Empty, or what is wrong with "PatientName=Miller^Joan".
std::string Take(std::string const& setting, Values* values) {
  std::size_t const sign = std::min(setting.find('='), setting.size());
  std::string const name = setting.substr(0, sign);
  Dicom_Tag tag;
  bool const known = Attributes::Find(name, &tag) == 0;
  auto const target = std::find_if(std::begin(kCorrectable), std::end(kCorrectable),
                                   [&](Correctable const& one) { return known && one.tag == tag; });
  if (target == std::end(kCorrectable)) {
    std::string names;
    for (Correctable const& one : kCorrectable)
      names += (names.empty() ? "" : ", ") + Attributes::Name(one.tag);
    return name + ": can't be corrected; these can: " + names;
  }
  std::string& value = values->*target->value;
  if (!value.empty()) return name + ": is set twice";
  value = setting.substr(std::min(sign + 1, setting.size()));
  std::string const problem = ValueProblem(tag, value);
  return problem.empty() ? problem : name + ": " + problem;
}

// One of the library's corrections.
struct Pass {
  std::string attributes;
  std::function<int()> run;
  std::size_t corrected = 0; // objects
};

std::string Listed(Values const& values, std::initializer_list<std::string Values::*> members) {
  std::string names;
  for (Correctable const& one : kCorrectable)
    if (!(values.*one.value).empty() && std::find(members.begin(), members.end(), one.value) != members.end())
      names += (names.empty() ? "" : ", ") + Attributes::Name(one.tag);
  return names;
}

// The equipment comes first, because the other correction may change the ID by which the patient is found.
std::vector<Pass> Passes(Options const& options, Values const& values, Disk_RootDirectoryFile& root) {
  auto const lo = [](std::string const& text) { return text.empty() ? LO_NULL : Dicom_LO(text); };
  Dicom_LO const patient = lo(options.patient), issuer = lo(options.issuer);
  std::vector<Pass> passes = {
      {Listed(values, {&Values::manufacturer, &Values::model}),
       [=, &root] { return root.ChangeManufacturerParms(patient, issuer, lo(values.manufacturer), lo(values.model)); }},
      {Listed(values, {&Values::name, &Values::id, &Values::issuer}), [=, &root] {
         Dicom_PN const name = values.name.empty() ? PN_NULL : Dicom_PN(values.name);
         return root.ChangePatientsName(patient, issuer, name, lo(values.id), lo(values.issuer));
       }}};
  std::erase_if(passes, [](Pass const& pass) { return pass.attributes.empty(); });
  return passes;
}

// Keeps the objects of this patient. The keys of a search may match more than one ID.
Search::Rows Only(Search::Rows rows, std::string const& patient, std::string const& issuer) {
  std::erase_if(rows, [&](auto const& row) {
    return row->Text(Attributes::kPatientId) != patient || row->Text(Attributes::kIssuerOfPatientId) != issuer;
  });
  return rows;
}

// kDone; or what to end with (reported) if the file-set can't be read or has no such patient.
int FindObjects(Options const& options, Search& search, Report& report, std::size_t* objects) {
  using namespace Attributes;
  Search::Rows rows;
  if (search.Run(Level::IMAGE, {{kPatientId, options.patient}, {kIssuerOfPatientId, ""}}, &rows) == -1)
    return kNotOpened;
  std::set<std::string> issuers;
  for (auto const& row : rows)
    if (row->Text(kPatientId) == options.patient) issuers.insert(row->Text(kIssuerOfPatientId));
  *objects = Only(std::move(rows), options.patient, options.issuer).size();
  if (*objects > 0 || issuers.empty()) return kDone; // the library decides whether a patient without objects exists
  std::string known;
  for (std::string const& issuer : issuers)
    known += (known.empty() ? "" : ", ") + (issuer.empty() ? "none" : issuer);
  report.Fail(options.patient, "no such patient with this issuer; issuers of patients with this ID: " + known);
  return kFailed;
}

// Warns if the new ID belongs to another patient: the two keep separate records, and a later correction finds only one.
void WarnOfNamesake(Options const& options, Values const& values, Search& search, Report const& report) {
  using namespace Attributes;
  std::string const id = values.id.empty() ? options.patient : values.id;
  std::string const issuer = values.issuer.empty() ? options.issuer : values.issuer;
  if (id == options.patient && issuer == options.issuer) return;
  Search::Rows rows;
  if (search.Run(Level::STUDY, {{kPatientId, id}, {kIssuerOfPatientId, ""}}, &rows) == 0 &&
      !Only(std::move(rows), id, issuer).empty())
    report.Warn(id, "another patient has this ID already; the two keep records of their own");
}

void Correct(Options const& options, std::vector<Pass>& passes, std::size_t objects, FileSet& set, Report& report) {
  Pass* current = nullptr;
  set.root->SetObjectDone([&] {
    ++current->corrected;
    report.Step();
  });
  set.root->SetStop(IsInterrupted);
  WatchForInterruption();
  report.Begin(objects * passes.size());
  for (Pass& pass : passes) {
    current = &pass;
    if (pass.run() == -1) {
      bool const interrupted = IsInterrupted() && WasStopped();
      report.Fail(options.patient,
                  (interrupted ? "interrupted: the objects counted have the new values, the records the old ones"
                               : LastCause()) +
                      (objects > 0 ? "; the same command run again finishes the work" : ""));
      break;
    }
    if (pass.corrected < objects)
      report.Fail(options.patient, "another patient record has the same ID and issuer: its objects weren't reached");
  }
  report.End();
  set.root->SetObjectDone(nullptr);
}

void PrintOutcome(std::vector<Pass> const& passes, std::size_t objects, bool as_json, Report const& report) {
  if (!as_json) {
    for (Pass const& pass : passes)
      std::printf("%s: %zu of %zu objects corrected\n", pass.attributes.c_str(), pass.corrected, objects);
    return;
  }
  nlohmann::json corrections = nlohmann::json::array();
  for (Pass const& pass : passes)
    corrections.push_back({{"attributes", pass.attributes}, {"corrected", pass.corrected}});
  std::printf(
      "%s\n",
      JsonText({{"objects", objects}, {"corrections", corrections}, {"failures", FailuresJson(report, "patient")}})
          .c_str());
}

int Run(Options const& options) {
  Report report;
  Values values;
  for (std::string const& setting : options.settings)
    if (std::string const problem = Take(setting, &values); !problem.empty()) {
      report.Fail("--set", problem);
      return kUsage;
    }
  Disk_StoreParams params;
  params.store_native = options.native ? 1 : 0;
  params.refuse_lost = 1;
  FileSet set;
  int result = kDone;
  if (OpenPrivateFileSet(options.directory, Access::Change, params, report, &set, &result) == -1) return result;
  Search search(set, report);
  std::size_t objects = 0;
  result = FindObjects(options, search, report, &objects);
  if (result != kDone) return result;
  if (objects > 0) WarnOfNamesake(options, values, search, report);
  std::vector<Pass> passes = Passes(options, values, *set.root);
  Correct(options, passes, objects, set, report);
  PrintOutcome(passes, objects, options.json, report);
  return report.Result();
}

} // namespace

Command AddCorrect(CLI::App& app) {
  auto const options = std::make_shared<Options>();
  CLI::App* line = app.add_subcommand("correct", kDescription)->footer(kFooter);
  line->add_option("DIR", options->directory, "The file-set")->required();
  line->add_option("--patient", options->patient, "The patient with this Patient ID")
      ->option_text("ID")
      ->required()
      ->check(Choice::IsNotEmpty());
  line->add_option("--issuer", options->issuer, "... and this Issuer of Patient ID")
      ->option_text("ISSUER")
      ->check(Choice::IsNotEmpty());
  line->add_option("--set", options->settings, "An attribute and its new value; as often as you like")
      ->option_text("KEYWORD=VALUE")
      ->required()
      ->expected(1)
      ->take_all()
      ->allow_extra_args(false);
  line->add_flag("--native", options->native, "Write the objects uncompressed, as explicit little endian");
  line->add_flag("--json", options->json, "Print the outcome as JSON");
  return {line, [options] { return Run(*options); }};
}
