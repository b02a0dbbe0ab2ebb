// Bulk loads by the tool, beside cp and the codec, or beside the bare writing of what the stores write.
#include "FileSet.h"
#include "Limits.h"

#include <charls/charls.h>
#include <dicom/Dicom_OtherTypes.h>
#include <fstream>

namespace fs = std::filesystem;

namespace {

using namespace Bench;

std::string Tool() { return fs::canonical("/proc/self/exe").parent_path() / "fileset"; }

/// At a terminal, where the tool draws its bar.
std::string Seen(std::string const& command) { return "script -qec '" + command + "' /dev/null"; }

double Run(std::string const& command) {
  return Microseconds([&] { Require(std::system((command + " >/dev/null 2>&1").c_str()) == 0, command); });
}

/// Objects as files, in order of their names.
void WriteSources(std::string const& folder, int objects, int size) {
  fs::create_directory(folder);
  for (int i = 0; i < objects; ++i) {
    Phantom::Object place = Usual(i);
    place.size = size;
    std::string bytes;
    Require(Phantom::Make(place)->ToFileBytes(&bytes) == 0, "writing an object");
    char name[16];
    std::snprintf(name, sizeof name, "/%06d.dcm", i);
    std::ofstream(folder + name, std::ios::binary) << bytes;
  }
  Settle();
}

/// The compression of so many images, in microseconds.
double Encode(int objects, int size) {
  auto const object = Phantom::Make({.size = size});
  auto const* pixels = dynamic_cast<Dicom_OtherType const*>(object->Get({0x7FE0, std::uint16_t(0x0010)}));
  std::vector<char> const source(pixels->Bytes().begin(), pixels->Bytes().end());
  std::vector<char> stream(2 * source.size());
  return Microseconds([&] {
    for (int i = 0; i < objects; ++i) {
      charls::jpegls_encoder encoder;
      encoder.frame_info({std::uint32_t(size), std::uint32_t(size), 12, 1}).destination(stream);
      encoder.encode(source);
    }
  });
}

void Large(Scope const& scope) {
  int const objects = scope.quick ? 200 : 2000;
  constexpr int kSize = 512, kRuns = 5;
  Progress(std::to_string(objects) + " objects of 512 x 512");
  Folder const folder(scope.base);
  std::string const source = folder.Path() + "/source";
  WriteSources(source, objects, kSize);
  std::vector<double> ours, copying;
  for (int run = 0; run < kRuns; ++run) {
    std::string const number = std::to_string(run);
    copying.push_back(Run("cp -r " + source + " " + folder.Path() + "/copy" + number + " && sync -f " + source));
    ours.push_back(Run(Seen(Tool() + " store " + folder.Path() + "/set" + number + " " + source)));
    fs::remove_all(folder.Path() + "/copy" + number);
    fs::remove_all(folder.Path() + "/set" + number);
    Settle();
  }
  Report("bulk", "objects of 512 x 512", "ours", objects, Median(ours) / 1e6, "s");
  Report("bulk", "objects of 512 x 512", "cp", objects, Median(copying) / 1e6, "s");
  Report("bulk", "objects of 512 x 512", "codec", objects, Encode(objects, kSize) / 1e6, "s");
}

/// What the stores of so many usual objects write, by a bare program: directory files grow as records come to them.
double BareStores(std::string const& base, std::string const& set, int objects) {
  auto const root = Open(set);
  std::string const first = PathOf(*root, Usual(0));
  PrivateLimit limit(base, set, first);
  return Microseconds([&] {
    for (int i = 0; i < objects; ++i)
      limit.WriteGrown(double(i % kImages + 1) / kImages, double(i / kImages % kSeries + 1) / kSeries,
                       double(i + 1) / objects);
  });
}

void Small(Scope const& scope) {
  int const objects = scope.quick ? 1000 : 5000;
  constexpr int kRuns = 5;
  Progress(std::to_string(objects) + " objects of 64 x 64");
  Folder const folder(scope.base);
  std::string const source = folder.Path() + "/source";
  WriteSources(source, objects, 64);
  std::vector<double> ours, bare;
  for (int run = 0; run < kRuns; ++run) {
    std::string const set = folder.Path() + "/set" + std::to_string(run);
    ours.push_back(Run(Seen(Tool() + " store --native " + set + " " + source)));
    Folder const limit(scope.base);
    bare.push_back(BareStores(limit.Path(), set, objects));
    Settle();
  }
  Report("bulk", "objects of 64 x 64", "ours", objects, Median(ours) / 1e6, "s");
  Report("bulk", "objects of 64 x 64", "bare", objects, Median(bare) / 1e6, "s");
}

} // namespace

void Bench::Bulk(Scope const& scope) {
  Large(scope);
  Small(scope);
}
