#include "Phantom_DataSet.h"
#include "Phantom_Identity.h"
#include "Phantom_Modules.h"

#include <iterator>

namespace Phantom {

namespace {

Object At(Object object, Reference const& reference, int image) {
  object.kind = reference.kind;
  object.series = reference.series;
  object.image = image;
  return object;
}

void AddImages(Dicom_Msg& msg, Object const& object, Reference const& reference) {
  Items images;
  for (int image = 1; image <= reference.images; ++image) {
    Object const referred = At(object, reference, image);
    AddReference(images.New(), SopClass(referred), InstanceUid(referred));
  }
  images.Into(msg, 0x00081140);
}

void AddReferencedSeries(Dicom_Msg& msg, Object const& object) {
  Items series;
  for (Reference const& reference : object.references) {
    Dicom_Msg& item = series.New();
    Add(item, 0x0020000E, SeriesUid(At(object, reference, 1)).View());
    AddImages(item, object, reference);
  }
  if (!object.references.empty()) series.Into(msg, 0x00081115);
}

void AddDisplay(Dicom_Msg& msg, Object const& object) {
  std::string const size = std::to_string(object.size);
  Items area;
  AddAll(area.New(),
         {{0x00700052, "1\\1"}, {0x00700053, size + "\\" + size}, {0x00700100, "SCALE TO FIT"}, {0x00700102, "1\\1"}});
  area.Into(msg, 0x0070005A);
  Items window;
  AddAll(window.New(), {{0x00281050, "60"}, {0x00281051, "350"}});
  window.Into(msg, 0x00283110);
  Items layer;
  AddAll(layer.New(), {{0x00700002, "MARKS"}, {0x00700062, "1"}});
  layer.Into(msg, 0x00700060);
  Items text;
  AddAll(text.New(), {{0x00700004, "DISPLAY"}, {0x00700006, "Finding"}, {0x00700014, "0.1\\0.1"}, {0x00700015, "N"}});
  Items annotation;
  Dicom_Msg& mark = annotation.New();
  Add(mark, 0x00700002, "MARKS");
  text.Into(mark, 0x00700008);
  annotation.Into(msg, 0x00700001);
}

// Content items

void AddConcept(Dicom_Msg& item, char const* relationship, char const* type, Code const& name) {
  if (relationship) Add(item, 0x0040A010, relationship);
  Add(item, 0x0040A040, type);
  AddCode(item, 0x0040A043, name);
}

void AddCodeItem(Items& items, char const* relationship, Code const& name, Code const& value) {
  Dicom_Msg& item = items.New();
  AddConcept(item, relationship, "CODE", name);
  AddCode(item, 0x0040A168, value);
}

void AddTextSection(Items& items, Code const& heading, Code const& name, std::string_view text) {
  Dicom_Msg& section = items.New();
  AddConcept(section, "CONTAINS", "CONTAINER", heading);
  Add(section, 0x0040A050, "SEPARATE");
  Items content;
  Dicom_Msg& paragraph = content.New();
  AddConcept(paragraph, "CONTAINS", "TEXT", name);
  Add(paragraph, 0x0040A160, text);
  content.Into(section, 0x0040A730);
}

void AddContent(Dicom_Msg& msg, Object const& object) {
  std::string const region = RegionOf(object).name;
  AddConcept(msg, nullptr, "CONTAINER", {"18782-3", "LN", "Radiology Report"});
  Add(msg, 0x0040A050, "SEPARATE");
  Items items;
  AddCodeItem(items, "HAS CONCEPT MOD", {"121049", "DCM", "Language of Content Item and Descendants"},
              {"en", "RFC5646", "English"});
  AddCodeItem(items, "HAS CONCEPT MOD", {"121058", "DCM", "Procedure reported"},
              {"363679005", "SCT", "Imaging procedure"});
  AddCodeItem(items, "HAS OBS CONTEXT", {"121005", "DCM", "Observer Type"}, {"121006", "DCM", "Person"});
  Dicom_Msg& observer = items.New();
  AddConcept(observer, "HAS OBS CONTEXT", "PNAME", {"121008", "DCM", "Person Observer Name"});
  Add(observer, 0x0040A123, Physician(object, 2));
  AddTextSection(items, {"121060", "DCM", "History"}, {"121060", "DCM", "History"}, "None: nobody is ill here.");
  AddTextSection(items, {"121070", "DCM", "Findings"}, {"121071", "DCM", "Finding"},
                 region + ": an ellipsoid that moves from slice to slice.");
  AddTextSection(items, {"121072", "DCM", "Impressions"}, {"121073", "DCM", "Impression"}, "Phantom.");
  items.Into(msg, 0x0040A730);
}

void AddObservers(Dicom_Msg& msg, Object const& object) {
  constexpr int kDays[] = {1, 3, 2}; // after the study, the latest in the middle
  Items observers;
  for (int i = 0; i < object.observers; ++i) {
    Dicom_Msg& observer = observers.New();
    AddAll(observer, {{0x0040A027, Institution(object.charset, object.patient)},
                      {0x0040A030, DateBeforeStudy(object, -kDays[std::size_t(i) % std::size(kDays)]) + "101500"},
                      {0x0040A075, Physician(object, 2 + i)}});
    Items().Into(observer, 0x0040A088);
  }
  observers.Into(msg, 0x0040A073);
}

} // namespace

void AddPresentationState(Dicom_Msg& msg, Object const& object) {
  AddAll(msg, {{0x00700080, "PHANTOM_" + std::to_string(object.image)},
               {0x00700081, "Soft tissue with a mark"},
               {0x00700082, StudyDate(object)},
               {0x00700083, TimeAfterStudy(object, 45 * 60 * 1000 + object.image * 1000LL)},
               {0x00700084, Physician(object, 2)},
               {0x00180015, RegionOf(object).body_part},
               {0x20500020, "IDENTITY"}});
  AddReferencedSeries(msg, object);
  AddDisplay(msg, object);
}

void AddReport(Dicom_Msg& msg, Object const& object) {
  bool const verified = object.observers > 0;
  AddAll(msg, {{0x0040A491, "COMPLETE"}, {0x0040A493, verified ? "VERIFIED" : "UNVERIFIED"}});
  if (verified) AddObservers(msg, object);
  AddCode(msg, 0x0040A372, {"363679005", "SCT", "Imaging procedure"});
  Items template_used;
  AddAll(template_used.New(), {{0x00080105, "DCMR"}, {0x0040DB00, "2000"}});
  template_used.Into(msg, 0x0040A504);
  AddContent(msg, object);
}

} // namespace Phantom
