#include "Phantom.h"

#include "Phantom_Modules.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dicom/Util_File.h>

namespace Phantom {

namespace {

struct KindRow {
  char const* modality;
  char const* sop_class;
  void (*add)(Dicom_Msg&, Object const&);
};

constexpr KindRow kKinds[] = {
    {"CT", "1.2.840.10008.5.1.4.1.1.2", AddCt},
    {"MR", "1.2.840.10008.5.1.4.1.1.4", AddMr},
    {"US", "1.2.840.10008.5.1.4.1.1.6.1", AddUs},
    {"OT", "1.2.840.10008.5.1.4.1.1.7.2", AddMultiFrame},
    {"PR", "1.2.840.10008.5.1.4.1.1.11.1", AddPresentationState},
    {"SR", "1.2.840.10008.5.1.4.1.1.88.11", AddReport},
};

KindRow const& RowOf(Kind kind) { return kKinds[std::size_t(kind)]; }

constexpr bool Between(int low, int number, int high) { return low <= number && number <= high; }

bool InRange(Object const& o) {
  constexpr int kMost = 1'000'000'000;
  for (int const place : {o.patient, o.study, o.series, o.image, o.slices})
    if (!Between(1, place, kMost)) return false;
  if (!Between(1, o.size, 16384) || !Between(8, o.bits, 16) || !Between(0, o.planar, 1) ||
      !Between(1, o.frames, 1'000'000) || !Between(0, o.observers, 1000))
    return false;
  constexpr long long kMostPixels = 1LL << 29;
  return o.kind != Kind::MultiFrame || 1LL * o.size * o.size * o.frames <= kMostPixels;
}

} // namespace

std::unique_ptr<IOD_Msg> Make(Object const& object) {
  if (!InRange(object)) return nullptr;
  auto msg = std::make_unique<IOD_Msg>();
  AddInstance(*msg, object);
  AddPatient(*msg, object);
  AddStudy(*msg, object);
  AddSeries(*msg, object);
  AddEquipment(*msg, object);
  RowOf(object.kind).add(*msg, object);
  AddOwnAttributes(*msg, object);
  return msg;
}

Dicom_CS Modality(Kind kind) { return Dicom_CS(RowOf(kind).modality); }

Dicom_UI SopClass(Object const& object) {
  if (object.kind == Kind::MultiFrame && object.bits > 8) return Dicom_UI("1.2.840.10008.5.1.4.1.1.7.3");
  return Dicom_UI(RowOf(object.kind).sop_class);
}

std::string FileName(Object const& object) {
  char name[80];
  std::snprintf(name, sizeof name, "pt%04d/st%03d/se%03d/im%05d.dcm", object.patient, object.study, object.series,
                object.image);
  return name;
}

int Write(Object const& object, std::string const& path, Dicom_UI const& syntax, std::string* error) {
  auto const fail = [&](std::string const& cause) {
    if (error) *error = cause;
    return -1;
  };
  std::unique_ptr<IOD_Msg> const msg = Make(object);
  if (!msg) return fail("a number of the object is out of range");
  int status = 0;
  std::string text;
  Util_File file(*msg, &status, syntax, 2, &text);
  if (status == -1) return fail(text);
  return file.Write(path.c_str(), nullptr) == -1 ? fail(std::strerror(errno)) : 0;
}

} // namespace Phantom
