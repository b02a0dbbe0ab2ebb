#include <dicom/Dicom_Compressor.h>

#include "dicom/encoding/Dicom_DataSetReader.h"
#include "dicom/pixels/Dicom_Fragments.h"
#include "dicom/pixels/Dicom_ImagePixel.h"
#include "dicom/pixels/Dicom_JpegLs.h"
#include "infra/Klb_Failure.h"

#include <dicom/Dicom_UIDic.h>
#include <infra/Util_Buffer.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>

namespace {

constexpr Dicom_Tag kPlanarConfiguration{0x0028, std::uint16_t(0x0006)};
constexpr std::uint64_t kLongestValue = 0xFFFFFFFE;

std::string UidOf(Dicom_Msg const& msg) { return msg.Text(Dicom_Tag(0x0008, 0x0018)); }

/// Pixels beyond a size that memory takes easily must be proportionate to what they are decoded from: a few
/// bytes can stand for gigabytes of one colour.
bool IsProportionate(std::uint64_t pixels, std::uint64_t compressed) {
  constexpr std::uint64_t kAlwaysTaken = 1 << 30, kHighestRatio = 64;
  return pixels <= kAlwaysTaken || pixels / kHighestRatio <= compressed;
}

/// Why the codec doesn't take images of this form; null when it does.
char const* WhyUnsuitable(Dicom_ImagePixel const& image) {
  if (image.rows == 0 || image.columns == 0) return "it has no rows or columns";
  if (image.bits_allocated != 8 && image.bits_allocated != 16) return "a sample has neither 8 nor 16 bits";
  if (image.samples != 1 && image.samples != 3) return "a pixel has neither 1 nor 3 samples";
  if (image.subsampled) return "its colour is subsampled";
  if (image.frames < 1) return "it has no frames";
  return nullptr;
}

/// Why the pixels can't be brought back as they are; null when they can.
char const* WhyUnsuitable(Dicom_ImagePixel const& image, Dicom_OtherType const& pixels) {
  if (pixels.GetVR() != Dicom_VR::OB && pixels.GetVR() != Dicom_VR::OW) return "its pixel data are neither OB nor OW";
  if (char const* const why = WhyUnsuitable(image)) return why;
  std::string_view const bytes = pixels.Bytes();
  if (!image.IsLengthOfPixels(bytes.size())) return "the length of its pixel data isn't what the attributes tell";
  bool const padded = image.FrameBytes() * std::uint64_t(image.frames) < bytes.size();
  return padded && bytes.back() != '\0' ? "the byte behind its pixels isn't zero" : nullptr;
}

int LeaveAlone(Dicom_Msg const& msg, char const* why) {
  DISK_LOG(6, "Dicom_Compressor: object <%s> isn't compressed: %s\n", UidOf(msg).c_str(), why);
  return 0;
}

int Fail(Dicom_Msg const& msg, char const* what, Dicom_DecodingFailure const& why) {
  bool const no_memory = why.kind == Dicom_DecodingFailure::NoMemory;
  int const code = no_memory ? KLB_ERR_SYSTEM + ENOMEM : int(KLB_FAILURE_ARGUMENT);
  return DISK_FAIL(Klb_Cause(code).Unset(), "Dicom_Compressor: can't %s object <%s>: %s\n", what, UidOf(msg).c_str(),
                   why.text.c_str());
}

/// Room for noise, which grows by some percent. What isn't used is never touched.
std::uint64_t Capacity(Dicom_ImagePixel const& image) {
  constexpr std::uint64_t kMarkersPerFrame = 256;
  std::uint64_t const frames = std::uint64_t(image.frames), pixels = frames * image.FrameBytes();
  return std::min(kLongestValue, pixels + pixels / 8 + frames * kMarkersPerFrame);
}

/// The items of the compressed pixels: the offset table and a fragment per frame. 0; 1 when they take more
/// than the buffer; -1, with `*error`, when the codec failed.
int EncodeFrames(Dicom_ImagePixel const& image, std::string_view pixels, Util_Buffer& items, std::string* error) {
  std::size_t const frames = std::size_t(image.frames), frame = std::size_t(image.FrameBytes());
  std::size_t const first = 8 + 4 * frames;
  int const precision = Dicom_JpegLsPrecision(image, pixels);
  char* const out = items.data();
  if (first > items.size()) return 1;
  Dicom_PutItemHeader(out, std::uint32_t(4 * frames));
  std::size_t used = first;
  for (std::size_t i = 0; i < frames; ++i) {
    constexpr std::size_t kHeaderAndPadding = 9;
    if (items.size() - used <= kHeaderAndPadding) return 1;
    std::size_t const room = items.size() - used - kHeaderAndPadding;
    std::ptrdiff_t const length =
        Dicom_EncodeJpegLs(image, precision, pixels.substr(i * frame, frame), out + used + 8, room, error);
    if (length <= 0) return length == 0 ? 1 : -1;
    std::size_t const padded = (std::size_t(length) + 1) & ~std::size_t(1);
    if (padded > std::size_t(length)) out[used + 8 + std::size_t(length)] = '\0';
    Dicom_Store32(out + 8 + 4 * i, std::uint32_t(used - first), false);
    Dicom_PutItemHeader(out + used, std::uint32_t(padded));
    used += 8 + padded;
  }
  items.Truncate(used);
  return 0;
}

int CompressPixels(Dicom_Msg& msg) {
  Dicom_OtherType const* const pixels = Dicom_PixelData(msg);
  if (!pixels) {
    bool const floats = msg.Has(Dicom_Tag(0x7FE0, 0x0008)) || msg.Has(Dicom_Tag(0x7FE0, 0x0009));
    if (floats) return LeaveAlone(msg, "its pixels are floating point numbers");
    DISK_LOG(7, "Dicom_Compressor: object <%s> has no pixels\n", UidOf(msg).c_str());
    return 0;
  }
  if (pixels->IsEncapsulated()) {
    DISK_LOG(7, "Dicom_Compressor: object <%s> is compressed already\n", UidOf(msg).c_str());
    return 0;
  }
  Dicom_ImagePixel const image(msg);
  if (char const* const why = WhyUnsuitable(image, *pixels)) return LeaveAlone(msg, why);
  std::shared_ptr<Util_Buffer> const items = Util_Buffer::Make(std::size_t(Capacity(image)));
  if (!items) return Fail(msg, "compress", {Dicom_DecodingFailure::NoMemory, "out of memory"});
  std::string error;
  int const result = EncodeFrames(image, pixels->Bytes(), *items, &error);
  if (result == -1) return Fail(msg, "compress", {Dicom_DecodingFailure::Damaged, error});
  if (result == 1) return LeaveAlone(msg, "it would become too long");
  if (!IsProportionate(pixels->Bytes().size(), items->size()))
    return LeaveAlone(msg, "it is too large for the little that its pixels hold");
  Dicom_ME compressed(Dicom_Tag(kPixelDataTag), std::make_unique<Dicom_OB>(items->data(), items->size(), 1, nullptr,
                                                                           Dicom_UIDic::JPEG_LS_LOSSLESS.GetText()));
  // the standard wants 0 whatever the order in the stream, which alone tells it from now on
  if (image.by_plane) msg.Set(kPlanarConfiguration, Dicom_US(0));
  return msg.Add(std::move(compressed));
}

using Failure = Dicom_DecodingFailure;

/// The streams of compressed pixels, of which all is known that their headers tell.
struct Streams {
  Dicom_ImagePixel const image;
  std::vector<std::string_view> frames;
  bool by_plane = false;
};

Failure InFrame(std::size_t frame, Failure failure) {
  failure.text = "frame " + std::to_string(frame + 1) + ": " + failure.text;
  return failure;
}

/// Looks at all there is to know before anything of the pixels' size is allocated.
Failure FindStreams(Dicom_OtherType const& pixels, Streams* streams) {
  std::string const& syntax = pixels.EncapsulatedSyntax();
  if (!Dicom_IsJpegLs(syntax)) return {Failure::NoCodec, "no codec for transfer syntax " + syntax};
  Dicom_ImagePixel const& image = streams->image;
  if (char const* const why = WhyUnsuitable(image)) return {Failure::NoCodec, why};
  std::string_view const items = pixels.Bytes();
  streams->frames = Dicom_FindFrames(items, std::uint64_t(image.frames));
  std::size_t const count = streams->frames.size();
  if (count == 0) return {Failure::Damaged, "its fragments can't be told apart into frames"};
  std::uint64_t const frame = image.FrameBytes();
  if (frame > kLongestValue / count) return {Failure::NoCodec, "its pixels are too many for an object"};
  if (!IsProportionate(frame * count, items.size()))
    return {Failure::Damaged, "its fragments can't hold that many pixels"};
  std::string storage;
  for (std::size_t i = 0; i < count; ++i) {
    bool planes = false;
    Failure failure;
    if (!Dicom_CheckJpegLs(image, Dicom_FrameBytes(streams->frames[i], storage), &planes, &failure))
      return InFrame(i, std::move(failure));
    if (i > 0 && planes != streams->by_plane)
      return {Failure::Damaged, "its frames differ in the order of their samples"};
    streams->by_plane = planes;
  }
  return {};
}

/// Decodes each frame to where `place` puts it.
template <class Place>
Failure Decode(Streams const& streams, Place place) {
  std::string storage;
  Failure failure;
  for (std::size_t i = 0; i < streams.frames.size(); ++i) {
    std::string_view const stream = Dicom_FrameBytes(streams.frames[i], storage);
    if (!Dicom_DecodeJpegLs(streams.image, stream, place(i), &failure)) return InFrame(i, std::move(failure));
  }
  return {};
}

Failure OutOfMemory() {
  KlbGError.SetSystem(ENOMEM);
  return {Failure::NoMemory, "out of memory"};
}

Failure TryPixels(Dicom_Msg const& msg) {
  Dicom_OtherType const* const value = Dicom_PixelData(msg);
  if (!value || !value->IsEncapsulated()) return {};
  Streams streams{Dicom_ImagePixel(msg), {}};
  Failure failure = FindStreams(*value, &streams);
  if (failure.kind != Failure::None) return failure;
  std::shared_ptr<Util_Buffer> const frame = Util_Buffer::Make(std::size_t(streams.image.FrameBytes()));
  return frame ? Decode(streams, [&](std::size_t) { return frame->data(); }) : OutOfMemory();
}

Failure DecompressPixels(Dicom_Msg& msg) {
  Dicom_OtherType const* const value = Dicom_PixelData(msg);
  if (!value || !value->IsEncapsulated()) return {};
  Streams streams{Dicom_ImagePixel(msg), {}};
  Failure failure = FindStreams(*value, &streams);
  if (failure.kind != Failure::None) return failure;
  Dicom_ImagePixel const& image = streams.image;
  std::size_t const frame = std::size_t(image.FrameBytes()), length = frame * streams.frames.size();
  std::shared_ptr<Util_Buffer> const pixels = Util_Buffer::Make(length + (length & 1));
  if (!pixels) return OutOfMemory();
  failure = Decode(streams, [&](std::size_t i) { return pixels->data() + i * frame; });
  if (failure.kind != Failure::None) return failure;
  if (length & 1) pixels->data()[length] = '\0';
  Dicom_ME native(Dicom_Tag(kPixelDataTag), Dicom_MakePixelData(image, {pixels->data(), pixels->size()}, true));
  if (streams.by_plane != image.by_plane) msg.Set(kPlanarConfiguration, Dicom_US(streams.by_plane));
  msg.Remove(Dicom_Tag(0x7FE0, 0x0001)); // the extended offset table and its lengths
  msg.Remove(Dicom_Tag(0x7FE0, 0x0002));
  msg.Add(std::move(native));
  return {};
}

/// The icon of an object whose pixels are native by now. Where it stays compressed no transfer syntax is true of both.
void DecompressIcon(Dicom_Msg& msg) {
  constexpr Dicom_Tag kIcon{0x0088, std::uint16_t(0x0200)};
  auto const* const icon = dynamic_cast<Dicom_SQ const*>(msg.Get(kIcon));
  for (int i = 0; icon && i < icon->GetNValues(); ++i) {
    Dicom_Msg& item = *icon->GetSequence()->Get(i);
    if (item.GetEncapsulatedSyntax() == UI_NULL || DecompressPixels(item).kind == Failure::None) continue;
    DISK_LOG(5, "Dicom_Compressor: the icon of object <%s> can't be decompressed and is left out\n",
             UidOf(msg).c_str());
    msg.Remove(kIcon);
    return;
  }
}

Failure DecompressAll(Dicom_Msg& msg) {
  bool const compressed = Dicom_Compressor().GetKolbaCompressionVersion(msg, nullptr) == 1;
  Failure failure = DecompressPixels(msg);
  if (compressed && failure.kind == Failure::None) DecompressIcon(msg);
  return failure;
}

/// Runs work of the codec; what it throws becomes a failure.
template <class Work>
Failure Guarded(Work work) {
  try {
    return work();
  } catch (std::bad_alloc const&) {
    return OutOfMemory();
  } catch (std::exception const& error) {
    return {Failure::Damaged, error.what()};
  }
}

int Result(Failure failure, Failure* told) {
  int const result = failure.kind == Failure::None ? 0 : -1;
  if (told) *told = std::move(failure);
  return result;
}

} // namespace

int Dicom_Compressor::GetKolbaCompressionVersion(Dicom_Msg const& msg, int* flag) const {
  Dicom_ME const* const pixels = msg.Find(Dicom_Tag(kPixelDataTag));
  int const version = pixels && pixels->IsEncapsulated() ? 1 : 0;
  if (flag) *flag = version;
  return version;
}

int Dicom_Compressor::Compress(Dicom_Msg* msg, int type) const {
  if (!msg || type != 0)
    return DISK_FAIL(KLB_FAILURE_ARGUMENT, "Dicom_Compressor: there is no compression of type %d\n", type);
  int result = -1;
  Failure const failure = Guarded([&]() -> Failure {
    result = CompressPixels(*msg);
    return {};
  });
  return failure.kind == Failure::None ? result : Fail(*msg, "compress", failure);
}

int Dicom_Compressor::Decompress(Dicom_Msg* msg, Dicom_DecodingFailure* failure) const {
  if (!msg) return -1;
  Failure found = Guarded([&] { return DecompressAll(*msg); });
  if (found.kind != Failure::None) Fail(*msg, "decompress", found);
  return Result(std::move(found), failure);
}

int Dicom_Compressor::TryDecompress(Dicom_Msg const& msg, Dicom_DecodingFailure* failure) const {
  return Result(Guarded([&] { return TryPixels(msg); }), failure);
}
