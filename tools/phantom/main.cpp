// The program: fills a directory with the objects of made-up patients.
#include "Phantom.h"
#include "Progress.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <infra/Util_FileSystem.h>
#include <map>

namespace {

enum class Choice { Ct, Mr, Us, Mf, Pr, Sr, Mix };

struct Options {
  std::string directory;
  int patients = 1, studies = 1, series = 2, images = 10;
  Choice kind = Choice::Ct;
  Dicom_UI const* syntax = &Dicom_UIDic::NATIVE_TRANSFER_SYNTAX;
  Phantom::Object model; // what all objects have in common
};

char const kDescription[] =
    "Makes DICOM objects of patients that don't exist, for demonstrations, tests and measurements.\n"
    "The same options give the same bytes; another --seed gives other patients with other UIDs.\n";

char const kFooter[] = R"(
Kinds: ct and mr are slices of a volume in which a shape moves, us is colour (by pixel in odd series, by
plane in even ones), mf has many greyscale frames in an object. pr (presentation states) and sr (reports)
begin every study with a CT series, to which the presentation states refer. mix takes turns: ct or mr,
us or mf, pr, sr.

Files are named OUT/pt0001/st001/se001/im00001.dcm; those that are there are written over.

Example: 3 patients with 2 studies of 4 series of 20 objects, 480 files in all
  phantom /tmp/objects --patients 3 --studies 2 --series 4 --images 20 --kind mix

Ends with 0 when all is done, 1 when a file can't be written, 2 when the command line is wrong.)";

Phantom::Kind KindOf(Choice choice, Phantom::Object const& place) {
  using Phantom::Kind;
  bool const even = (place.patient + place.study) % 2 == 0;
  switch (choice) {
  case Choice::Ct:
    return Kind::CT;
  case Choice::Mr:
    return Kind::MR;
  case Choice::Us:
    return Kind::US;
  case Choice::Mf:
    return Kind::MultiFrame;
  case Choice::Pr:
    return place.series == 1 ? Kind::CT : Kind::PR;
  case Choice::Sr:
    return place.series == 1 ? Kind::CT : Kind::SR;
  case Choice::Mix:
    break;
  }
  switch (place.series % 4) {
  case 1:
    return even ? Kind::CT : Kind::MR;
  case 2:
    return even ? Kind::US : Kind::MultiFrame;
  case 3:
    return Kind::PR;
  default:
    return Kind::SR;
  }
}

// Everything about the series but the image number.
Phantom::Object SeriesOf(Options const& options, int patient, int study, int series) {
  constexpr int kMostReferences = 10;
  Phantom::Object object = options.model;
  object.patient = patient;
  object.study = study;
  object.series = series;
  object.slices = options.images;
  object.kind = KindOf(options.kind, object);
  object.planar = object.kind == Phantom::Kind::US && series % 2 == 0 ? 1 : 0;
  Phantom::Object first = object;
  first.series = 1;
  object.references = {{KindOf(options.kind, first), 1, std::min(options.images, kMostReferences)}};
  return object;
}

bool WriteSeries(Options const& options, Phantom::Object object, Progress& progress, long& done) {
  namespace fs = std::filesystem;
  fs::path const root(options.directory);
  std::error_code failure;
  fs::path const directory = (root / Phantom::FileName(object)).parent_path();
  fs::create_directories(directory, failure);
  if (failure) {
    std::fprintf(stderr, "phantom: %s: %s\n", directory.c_str(), failure.message().c_str());
    return false;
  }
  for (object.image = 1; object.image <= options.images; ++object.image) {
    std::string const path = root / Phantom::FileName(object);
    std::string error;
    if (Phantom::Write(object, path, *options.syntax, &error) == -1) {
      std::fprintf(stderr, "phantom: %s: %s\n", path.c_str(), error.c_str());
      return false;
    }
    progress.Show(++done);
  }
  return true;
}

bool WriteAll(Options const& options) {
  long const total = long(options.patients) * options.studies * options.series * options.images;
  Progress progress(total);
  long done = 0;
  for (int patient = 1; patient <= options.patients; ++patient)
    for (int study = 1; study <= options.studies; ++study)
      for (int series = 1; series <= options.series; ++series)
        if (!WriteSeries(options, SeriesOf(options, patient, study, series), progress, done)) return false;
  return true;
}

using Phantom::Charset;

std::map<std::string, Choice> const kKinds = {{"ct", Choice::Ct},  {"mr", Choice::Mr}, {"us", Choice::Us},
                                              {"mf", Choice::Mf},  {"pr", Choice::Pr}, {"sr", Choice::Sr},
                                              {"mix", Choice::Mix}};
std::map<std::string, Charset> const kCharsets = {{"ascii", Charset::Ascii},       {"latin1", Charset::Latin1},
                                                  {"utf8", Charset::Utf8},         {"greek", Charset::Greek},
                                                  {"cyrillic", Charset::Cyrillic}, {"japanese", Charset::Japanese},
                                                  {"korean", Charset::Korean},     {"chinese", Charset::Chinese}};
std::map<std::string, Dicom_UI const*> const kSyntaxes = {{"native", &Dicom_UIDic::NATIVE_TRANSFER_SYNTAX},
                                                          {"implicit", &Dicom_UIDic::IMPLICIT_VR_LITTLE_ENDIAN},
                                                          {"bigendian", &Dicom_UIDic::EXPLICIT_VR_BIG_ENDIAN}};

// An option whose value is the one that one of the words of the table stands for.
template <class T>
void AddChoice(CLI::App& app, char const* name, T& value, std::map<std::string, T> const& words, char const* standard,
               char const* help) {
  std::string list;
  for (auto const& [word, unused] : words)
    list += (list.empty() ? "" : ", ") + word;
  app.add_option_function<std::string>(
         name, [&value, &words](std::string const& word) { value = words.at(word); }, std::string(help) + ": " + list)
      ->option_text("[" + std::string(standard) + "]")
      ->check(CLI::IsMember(words));
}

void AddOptions(CLI::App& app, Options& options) {
  CLI::Range const counts(1, 99'999);
  app.add_option("OUT", options.directory, "Directory for the files; made if it isn't there")->required();
  app.add_option("--patients", options.patients, "Patients")->check(counts)->capture_default_str();
  app.add_option("--studies", options.studies, "Studies per patient")->check(counts)->capture_default_str();
  app.add_option("--series", options.series, "Series per study")->check(counts)->capture_default_str();
  app.add_option("--images", options.images, "Objects per series")->check(counts)->capture_default_str();
  AddChoice(app, "--kind", options.kind, kKinds, "ct", "What the objects are");
  Phantom::Object& model = options.model;
  app.add_option("--size", model.size, "Rows and columns")->check(CLI::Range(1, 16384))->capture_default_str();
  app.add_option("--bits", model.bits, "Bits stored per pixel")->check(CLI::Range(8, 16))->capture_default_str();
  app.add_flag("--signed", model.is_signed, "Signed pixels");
  app.add_option("--frames", model.frames, "Frames per object of kind mf")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  AddChoice(app, "--charset", model.charset, kCharsets, "latin1", "Whose names, and how they are encoded");
  AddChoice(app, "--syntax", options.syntax, kSyntaxes, "native", "Transfer syntax; native is explicit little endian");
  app.add_option("--seed", model.seed, "What the patients and their UIDs depend on")->capture_default_str();
}

int Run(int argc, char** argv) {
  CLI::App app(kDescription, "phantom");
  app.footer(kFooter);
  Options options;
  options.model.size = 256;
  AddOptions(app, options);
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  // nothing is lost that the same command couldn't make again
  Util_FileSystem::SetDurability(Util_Durability::Relaxed);
  if (!WriteAll(options)) return 1;
  std::printf("Wrote %ld objects to %s.\n", long(options.patients) * options.studies * options.series * options.images,
              options.directory.c_str());
  return 0;
}

} // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (std::exception const& error) {
    std::fprintf(stderr, "phantom: %s\n", error.what());
    return 1;
  }
}
