#include "Phantom_DataSet.h"
#include "Phantom_Identity.h"
#include "Phantom_Modules.h"
#include "Phantom_Pixels.h"

#include <algorithm>
#include <utility>

namespace Phantom {

namespace {

constexpr double kFieldOfView = 350; // mm
constexpr double kThickness = 5;

bool WithContrast(Object const& object) { return object.series % 2 == 0; }

// Bytes in OB and words in OW, as all explicit and implicit syntaxes understand it.
void AddPixels(Dicom_Msg& msg, std::string&& bytes, bool words) {
  if (bytes.size() % 2) bytes += '\0'; // what a file would add
  std::unique_ptr<Dicom_Type> value;
  if (words) {
    value = std::make_unique<Dicom_OW>(bytes.data(), bytes.size(), 1, nullptr);
  } else {
    value = std::make_unique<Dicom_OB>(bytes.data(), bytes.size(), 1, nullptr);
  }
  msg.Add(Dicom_ME(Dicom_Tag(0x7FE0, 0x0010), std::move(value)));
}

void AddMatrix(Dicom_Msg& msg, Object const& object, char const* photometric, int samples, int bits) {
  Add(msg, 0x00280002, samples);
  Add(msg, 0x00280004, photometric);
  Add(msg, 0x00280010, object.size);
  Add(msg, 0x00280011, object.size);
  Add(msg, 0x00280100, bits > 8 ? 16 : 8);
  Add(msg, 0x00280101, bits);
  Add(msg, 0x00280102, bits - 1);
  Add(msg, 0x00280103, object.is_signed && samples == 1 ? 1 : 0);
}

void AddGreyscale(Dicom_Msg& msg, Object const& object, Greyscale image) {
  AddMatrix(msg, object, "MONOCHROME2", 1, object.bits);
  for (auto const& [element, value] : {std::pair{0x0106, image.smallest}, std::pair{0x0107, image.largest}}) {
    Dicom_Tag const tag(0x0028, std::uint16_t(element));
    if (object.is_signed) {
      msg.Set(tag, Dicom_SS(std::int16_t(value)));
    } else {
      msg.Set(tag, Dicom_US(std::uint16_t(value)));
    }
  }
  AddPixels(msg, std::move(image.bytes), object.bits > 8);
}

// Where the slice lies in the patient; all series of a study share the frame of reference.
void AddPlane(Dicom_Msg& msg, Object const& object) {
  double const corner = -kFieldOfView / 2;
  double const location = 100 - kThickness * ((object.image - 1) % object.slices);
  std::string const spacing = Decimal(kFieldOfView / object.size);
  AddAll(msg, {{0x00180050, Decimal(kThickness)},
               {0x00185100, "HFS"},
               {0x00200012, "1"},
               {0x00200020, "L\\P"},
               {0x00200032, Decimal(corner) + "\\" + Decimal(corner) + "\\" + Decimal(location)},
               {0x00200037, "1\\0\\0\\0\\1\\0"},
               {0x00200052, MakeUid(object, Purpose::FrameOfReference, Level::Study).View()},
               {0x00201040, ""},
               {0x00201041, Decimal(location)},
               {0x00280030, spacing + "\\" + spacing}});
}

void AddAcquisition(Dicom_Msg& msg, Object const& object, char const* image_type) {
  Region const& region = RegionOf(object);
  bool const contrast = WithContrast(object);
  AddAll(msg, {{0x00080008, image_type},
               {0x00080022, msg.Text(Dicom_Tag(0x00080023))},
               {0x00080032, msg.Text(Dicom_Tag(0x00080033))},
               {0x00180015, region.body_part},
               {0x00181030, std::string(region.name) + (contrast ? " with contrast" : " routine")},
               {0x00204000, "Made by phantom"}});
  AddCode(msg, 0x00082218, {region.code, "SCT", region.name});
  if (contrast) {
    AddAll(msg, {{0x00180010, object.kind == Kind::CT ? "Iomeprol 400" : "Gadobutrol"},
                 {0x00181040, "IV"},
                 {0x00181041, object.kind == Kind::CT ? "80" : "7.5"}});
  }
}

constexpr Constant kCt[] = {
    {0x00180022, "HELICAL MODE"}, {0x00180060, "120"}, {0x00180090, "500"}, {0x00181100, "350"},
    {0x00181110, "1040"},         {0x00181111, "570"}, {0x00181120, "0"},   {0x00181130, "145.5"},
    {0x00181140, "CW"},           {0x00181150, "500"}, {0x00181152, "110"}, {0x00181160, "FLAT"},
    {0x00181210, "B30f"},         {0x00281054, "HU"},
};

constexpr Constant kMr[] = {
    {0x00180020, "SE"},    {0x00180021, "SK"},     {0x00180022, "PFP\\CG"}, {0x00180023, "2D"},  {0x00180083, "2"},
    {0x00180084, "63.68"}, {0x00180085, "1H"},     {0x00180087, "1.5"},     {0x00180088, "6"},   {0x00180089, "224"},
    {0x00180091, "9"},     {0x00180095, "190"},    {0x00181062, "857"},     {0x00181088, "70"},  {0x00181090, "20"},
    {0x00181100, "350"},   {0x00181250, "Coil_8"}, {0x00181312, "ROW"},     {0x00181314, "150"}, {0x00181315, "N"},
};

// Window: centre and width in what the pixels stand for, which is the pixels themselves but in CT.
void AddWindow(Dicom_Msg& msg, std::string const& centre, std::string const& width, std::string const& explanation) {
  AddAll(msg, {{0x00281050, centre}, {0x00281051, width}, {0x00281055, explanation}});
}

void AddWindowAround(Dicom_Msg& msg, Greyscale const& image) {
  AddWindow(msg, std::to_string((image.smallest + image.largest) / 2),
            std::to_string(std::max(image.largest - image.smallest, 1)), "WINDOW1");
}

} // namespace

void AddCt(Dicom_Msg& msg, Object const& object) {
  AddAcquisition(msg, object, "ORIGINAL\\PRIMARY\\AXIAL");
  AddPlane(msg, object);
  AddAll(msg, kCt);
  Add(msg, 0x00181151, 180 + 3 * (object.image % 20)); // the tube current follows the patient
  Add(msg, 0x00281052, object.is_signed ? 0 : -1024);
  Add(msg, 0x00281053, CtSlope(object));
  AddWindow(msg, "40\\-600", "400\\1500", "SOFT\\LUNG");
  AddGreyscale(msg, object, CtSlice(object));
}

void AddMr(Dicom_Msg& msg, Object const& object) {
  AddAcquisition(msg, object, "ORIGINAL\\PRIMARY\\OTHER");
  AddPlane(msg, object);
  AddAll(msg, kMr);
  bool const t1 = WithContrast(object);
  AddAll(msg, {{0x00180024, t1 ? "*se2d1" : "*tse2d1_9"},
               {0x00180080, t1 ? "480" : "4200"},
               {0x00180081, t1 ? "12" : "98"},
               {0x00180086, "1"},
               {0x00181060, Decimal(80 + 25.5 * (object.image % 30))}});
  Greyscale image = MrSlice(object);
  AddWindowAround(msg, image);
  AddGreyscale(msg, object, std::move(image));
}

void AddUs(Dicom_Msg& msg, Object const& object) {
  AddAcquisition(msg, object, "ORIGINAL\\PRIMARY\\ABDOMINAL\\0011");
  AddAll(msg, {{0x00185010, "C5-1"}, {0x00186031, "SECTOR_PHASED"}, {0x00200020, ""}, {0x00280014, "1"}});
  AddMatrix(msg, object, "RGB", 3, 8);
  Add(msg, 0x00280006, object.planar);
  AddPixels(msg, ColourImage(object), false);
}

void AddMultiFrame(Dicom_Msg& msg, Object const& object) {
  AddAcquisition(msg, object, "DERIVED\\SECONDARY");
  Greyscale image = Cine(object);
  AddWindowAround(msg, image);
  AddAll(msg, {{0x00080064, "SYN"},
               {0x00181063, "40"},
               {0x00200020, ""},
               {0x00280008, std::to_string(object.frames)},
               {0x00280009, std::to_string(0x00181063)},
               {0x00281052, "0"},
               {0x00281053, "1"},
               {0x00281054, "US"},
               {0x00280301, "NO"},
               {0x20500020, "IDENTITY"}});
  AddGreyscale(msg, object, std::move(image));
}

} // namespace Phantom
