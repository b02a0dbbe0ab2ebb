#include "Phantom_DataSet.h"
#include "Phantom_Identity.h"
#include "Phantom_Modules.h"

#include <iterator>

namespace Phantom {

namespace {

constexpr Region kRegions[] = {
    {"HEAD", "Head", "69536005"},        {"CHEST", "Chest", "51185008"},
    {"ABDOMEN", "Abdomen", "818981001"}, {"LSPINE", "Lumbar spine", "122496007"},
    {"PELVIS", "Pelvis", "816092008"},   {"NECK", "Neck", "45048000"},
};

constexpr char const* kReasons[] = {"follow-up", "staging", "trauma", "pain", "screening"};

char const* ReasonOf(Object const& object) {
  return kReasons[Number(object, Purpose::Region, Level::Study) / std::size(kRegions) % std::size(kReasons)];
}

std::string StudyDescription(Object const& object) {
  return std::string(RegionOf(object).name) + " " + ReasonOf(object);
}

constexpr long long kSeriesTime = 5 * 60 * 1000; // ms
constexpr long long kImageTime = 320;

long long SeriesStart(Object const& object) { return (object.series - 1) * kSeriesTime; }

std::string SeriesDescription(Object const& object) {
  std::string const region = RegionOf(object).name;
  switch (object.kind) {
  case Kind::CT:
    return region + (object.series % 2 ? " plain 5.0 B30f" : " contrast 5.0 B30f");
  case Kind::MR:
    return region + (object.series % 2 ? " t2 tse tra" : " t1 se tra KM");
  case Kind::US:
    return region + " duplex";
  case Kind::MultiFrame:
    return region + " cine";
  case Kind::PR:
    return "Presentation";
  default:
    return "Report";
  }
}

void AddProcedureStep(Dicom_Msg& msg, Object const& object) {
  Items step;
  AddReference(step.New(), Dicom_UI("1.2.840.10008.3.1.2.3.3"), MakeUid(object, Purpose::ProcedureStep, Level::Study));
  step.Into(msg, 0x00081111);
  std::string const date = StudyDate(object);
  AddAll(msg, {{0x00400244, date},
               {0x00400245, TimeAfterStudy(object, 0)},
               {0x00400253, "PPS" + std::to_string(object.study)},
               {0x00400254, StudyDescription(object)}});
  Items request;
  AddAll(request.New(), {{0x00321060, StudyDescription(object)},
                         {0x00400007, StudyDescription(object)},
                         {0x00400009, "SPS" + std::to_string(object.study)},
                         {0x00401001, "RP" + std::to_string(object.study)}});
  request.Into(msg, 0x00400275);
}

} // namespace

Region const& RegionOf(Object const& object) {
  return kRegions[Number(object, Purpose::Region, Level::Study) % std::size(kRegions)];
}

void AddPatient(Dicom_Msg& msg, Object const& object) {
  Person const person = Patient(object);
  std::uint64_t const body = Number(object, Purpose::Patient, Level::Patient) >> 32;
  double const height = 1.50 + double(body % 45) / 100;
  AddAll(msg, {{0x00100010, person.name},
               {0x00100020, PatientId(object).View()},
               {0x00100021, "PHANTOM"},
               {0x00100030, BirthDate(object)},
               {0x00100040, person.female ? "F" : "M"},
               {0x00101010, AgeInStudy(object)},
               {0x00101020, Decimal(height)},
               {0x00101030, Decimal(22 * height * height + double(body % 19))},
               {0x001021B0, ReasonOf(object)},
               {0x00104000, "Not a real person"}});
}

void AddStudy(Dicom_Msg& msg, Object const& object) {
  std::uint64_t const accession = Number(object, Purpose::Accession, Level::Study) % 10'000'000'000;
  AddAll(msg, {{0x00080020, StudyDate(object)},
               {0x00080030, TimeAfterStudy(object, 0)},
               {0x00080050, "A" + std::to_string(accession)},
               {0x00080090, Physician(object, 0)},
               {0x00081030, StudyDescription(object)},
               {0x00081048, Physician(object, 1)},
               {0x00081060, Physician(object, 2)},
               {0x0020000D, StudyUid(object).View()},
               {0x00200010, std::to_string(object.study)}});
  AddCode(msg, 0x00081032, {"363679005", "SCT", "Imaging procedure"});
}

void AddSeries(Dicom_Msg& msg, Object const& object) {
  AddAll(msg, {{0x00080021, StudyDate(object)},
               {0x00080031, TimeAfterStudy(object, SeriesStart(object))},
               {0x00080060, Modality(object.kind).View()},
               {0x0008103E, SeriesDescription(object)},
               {0x00081050, Physician(object, 3)},
               {0x00081070, Physician(object, 4)},
               {0x0020000E, SeriesUid(object).View()},
               {0x00200011, std::to_string(object.series)}});
  AddProcedureStep(msg, object);
}

void AddEquipment(Dicom_Msg& msg, Object const& object) {
  std::string const modality = Modality(object.kind).GetText();
  AddAll(msg, {{0x00080070, "Phantom Works"},
               {0x00080080, Institution(object.charset, object.patient)},
               {0x00080081, "1 Nowhere Street"},
               {0x00081010, modality + "01"},
               {0x00081040, "Radiology"},
               {0x00081090, "Phantom " + modality},
               {0x00181000, "4711"},
               {0x00181020, "1.0"},
               {0x00181200, DateBeforeStudy(object, 30)},
               {0x00181201, "060000"}});
}

void AddInstance(Dicom_Msg& msg, Object const& object) {
  std::string const date = StudyDate(object);
  std::string const time = TimeAfterStudy(object, SeriesStart(object) + object.image * kImageTime);
  std::string_view const set = CharacterSetTerms(object.charset);
  if (!set.empty()) Add(msg, 0x00080005, set);
  AddAll(msg, {{0x00080012, date},
               {0x00080013, time},
               {0x00080016, SopClass(object).View()},
               {0x00080018, InstanceUid(object).View()},
               {0x00080023, date},
               {0x00080033, time},
               {0x00200013, std::to_string(object.image)}});
}

void AddOwnAttributes(IOD_Msg& msg, Object const& object) {
  if (!object.key_image.empty()) msg.SetKolbaKeyImage(Dicom_CS(object.key_image));
  if (!object.image_label.empty()) msg.SetImageLabel(Dicom_SH(object.image_label));
  if (!object.series_label.empty()) msg.SetSeriesLabel(Dicom_SH(object.series_label));
  if (!object.slice_number.empty()) msg.SetSliceNumber(Dicom_DS(object.slice_number));
  if (!object.slice_direction.empty()) msg.SetSliceDirection(Dicom_CS(object.slice_direction));
  if (!object.study_body_part.empty()) msg.SetKolbaStudyBodyPart(Dicom_CS(object.study_body_part));
}

} // namespace Phantom
