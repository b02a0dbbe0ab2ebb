#include <dicom/GDS_Icon.h>

#include "dicom/encoding/Dicom_DataSetReader.h"
#include "dicom/pixels/Dicom_Fragments.h"
#include "dicom/pixels/Dicom_ImagePixel.h"
#include "dicom/pixels/Dicom_JpegHeader.h"
#include "dicom/pixels/Dicom_JpegLs.h"
#include "dicom/pixels/Dicom_Rle.h"
#include "dicom/pixels/GDS_IconModule.h"

#include <dicom/Dicom_Compressor.h>
#include <dicom/Dicom_UIDic.h>
#include <dicom/Util_File.h>
#include <infra/Klb_LogFile.h>

#include <dlfcn.h>
#include <exception>

namespace {

constexpr int kIconSize = 64;
constexpr char kModule[] = "libDiskIcons.so";

/// The icon module beside this library, else the one that the loader finds; null without one.
void* OpenModule() {
  Dl_info self{};
  if (dladdr(reinterpret_cast<void const*>(&OpenModule), &self) != 0 && self.dli_fname) {
    std::string const path = self.dli_fname;
    std::string const beside = path.substr(0, path.rfind('/') + 1) + kModule;
    if (void* const module = dlopen(beside.c_str(), RTLD_NOW | RTLD_LOCAL)) return module;
  }
  return dlopen(kModule, RTLD_NOW | RTLD_LOCAL);
}

using Renderer = decltype(&GDS_RenderIcon);

Renderer LoadRenderer() {
  void* const module = OpenModule();
  void* const function = module ? dlsym(module, "GDS_RenderIcon") : nullptr;
  if (!function) {
    char const* const why = dlerror();
    DISK_LOG(5, "GDS_Icon: there will be no icons: %s\n", why ? why : kModule);
  }
  return reinterpret_cast<Renderer>(function);
}

/// Whether the form makes sense and an image of that size is worth an icon.
bool IsPlausible(Dicom_ImagePixel const& image) {
  constexpr std::uint64_t kMostPixels = 100'000'000;
  return image.rows > 0 && image.columns > 0 && std::uint64_t(image.rows) * image.columns <= kMostPixels &&
         image.samples > 0 && image.samples <= 4 && image.bits_allocated > 0 && image.bits_allocated <= 32 &&
         image.bits_stored > 0 && image.bits_stored <= image.bits_allocated && image.high_bit < image.bits_allocated &&
         image.high_bit + 1 >= image.bits_stored;
}

/// The bytes of one frame, counted from 0: a slice of native pixels, empty when they don't hold it whole.
std::string_view NativeFrame(Dicom_ImagePixel const& image, std::string_view pixels, std::uint64_t frame) {
  std::uint64_t const bits = image.FrameBits();
  if (bits % 8 != 0 && frame > 0) return {}; // it begins inside a byte
  std::uint64_t const length = (bits + 7) / 8;
  if (frame >= pixels.size() / length) return {};
  return pixels.substr(std::size_t(frame * length), std::size_t(length));
}

/// One frame of encapsulated pixels: decoded where it is run length encoded, else as items. Null when it
/// can't be found or isn't what the attributes tell; JPEG-LS looks at its streams itself.
std::unique_ptr<Dicom_Type> EncapsulatedFrame(Dicom_ImagePixel const& image, Dicom_OtherType const& pixels,
                                              std::uint64_t frame) {
  constexpr std::uint64_t kHighestRatio = 1024; // that JPEG can have
  auto const frames = Dicom_FindFrames(pixels.Bytes(), std::uint64_t(image.frames));
  if (frame >= frames.size()) return nullptr;
  std::string_view const fragments = frames[std::size_t(frame)];
  std::string storage;
  std::string const& syntax = pixels.EncapsulatedSyntax();
  if (syntax == kRleSyntax) { // DCMTK's decoder trusts the offsets in a frame
    std::string const native = Dicom_DecodeRle(image, Dicom_FrameBytes(fragments, storage));
    return native.empty() ? nullptr : Dicom_MakePixelData(image, native, true);
  }
  if (!Dicom_IsJpegLs(syntax)) {
    if (image.FrameBytes() / kHighestRatio > fragments.size()) return nullptr;
    if (!Dicom_CheckJpeg(image, Dicom_FrameBytes(fragments, storage))) return nullptr;
  }
  std::string items(8, '\0'); // an empty offset table
  Dicom_PutItemHeader(items.data(), 0);
  items += fragments;
  return std::make_unique<Dicom_OB>(items.data(), items.size(), 1, nullptr, syntax);
}

std::unique_ptr<Dicom_Type> PixelsOfFrame(Dicom_ImagePixel const& image, Dicom_OtherType const& pixels,
                                          std::uint64_t frame) {
  if (pixels.IsEncapsulated()) return EncapsulatedFrame(image, pixels, frame);
  std::string_view const bytes = NativeFrame(image, pixels.Bytes(), frame);
  return bytes.empty() ? nullptr : Dicom_MakePixelData(image, bytes, false);
}

/// A message of one frame with what it takes to show it: nothing else of an object, however large, goes to
/// the module. Its native pixels stay in `msg`. Null when there is no such frame.
std::unique_ptr<IOD_Msg> ExtractFrame(IOD_Msg const& msg, int frame) {
  Dicom_OtherType const* const pixels = Dicom_PixelData(msg);
  Dicom_ImagePixel const image(msg);
  if (!pixels || frame < 1 || frame > image.frames || !IsPlausible(image)) return nullptr;
  std::unique_ptr<Dicom_Type> value = PixelsOfFrame(image, *pixels, std::uint64_t(frame - 1));
  if (!value) return nullptr;
  auto extract = std::make_unique<IOD_Msg>();
  extract->SetSOPClassUID(msg.GetSOPClassUID());
  extract->SetSOPInstanceUID(msg.GetSOPInstanceUID());
  for (std::uint16_t const group : {0x0028, 0x2050}) { // the image, its LUTs and windows; how its output is meant
    for (Dicom_ElementCursor c(msg, std::uint32_t(group) << 16); !c.AtEnd(); c.Next()) {
      if (c.Element().GetTag().Group() != group) break;
      extract->Add(c.Element());
    }
  }
  extract->Remove(Dicom_Tag(0x0028, 0x0008)); // the number of frames
  extract->Add(Dicom_ME(Dicom_Tag(kPixelDataTag), std::move(value)));
  // JPEG-LS is decoded here, as the module's codec for it shares its names with this library's
  bool const jpeg_ls = Dicom_IsJpegLs(extract->GetEncapsulatedSyntax().View());
  if (jpeg_ls && Dicom_Compressor().Decompress(extract.get()) == -1) return nullptr;
  return extract;
}

std::unique_ptr<IOD_Msg> MakeIcon(IOD_Msg const& msg, int frame) {
  std::unique_ptr<IOD_Msg> const extract = ExtractFrame(msg, frame);
  if (!extract) return nullptr;
  static Renderer const s_render = LoadRenderer();
  if (!s_render) return nullptr;
  int status = 0;
  Util_File const file(*extract, &status, Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, 2, nullptr);
  if (status == -1) return nullptr;
  unsigned char pixels[kIconSize * kIconSize];
  int columns = 0, rows = 0;
  if (s_render(file.Bytes().data(), file.Bytes().size(), 0, kIconSize, pixels, &columns, &rows) == -1) return nullptr;
  auto icon = std::make_unique<IOD_Msg>();
  icon->SetSamplesPerPixel(Dicom_US(1));
  icon->SetPhotometricInterpretation(Dicom_CS("MONOCHROME2"));
  icon->SetRows(Dicom_US(std::uint16_t(rows)));
  icon->SetColumns(Dicom_US(std::uint16_t(columns)));
  icon->SetBitsAllocated(Dicom_US(8));
  icon->SetBitsStored(Dicom_US(8));
  icon->SetHighBit(Dicom_US(7));
  icon->SetPixelRepresentation(Dicom_US(0));
  icon->Set(Dicom_Tag(kPixelDataTag), Dicom_OB(pixels, std::size_t(columns) * std::size_t(rows), 1, nullptr));
  return icon;
}

} // namespace

IOD_Msg* GDS_Icon::GetImagePixelModule(int frame) const {
  if (!msg_) return nullptr;
  try {
    return MakeIcon(*msg_, frame).release();
  } catch (std::exception const& failure) {
    DISK_LOG(4, "GDS_Icon: no icon: %s\n", failure.what());
    return nullptr;
  }
}
