// Images made from a line of a table, and the bytes of encapsulated pixels.
#pragma once

#include <cstdint>
#include <dicom/IOD_Msg.h>
#include <random>
#include <string>

inline Dicom_Tag const kPixelData(0x7FE0, uint16_t(0x0010));

struct TestImage {
  unsigned rows = 16, columns = 24, samples = 1, bits_allocated = 16, bits_stored = 12;
  bool by_plane = false;
  unsigned frames = 1;
  char const* photometric = "MONOCHROME2";

  size_t Length() const { return size_t(rows) * columns * samples * (bits_allocated / 8) * frames; }

  // A slope with some noise in the bits stored, or all bits allocated at random; the same at every call.
  std::string MakePixels(bool noise = false) const {
    std::mt19937 random(7);
    unsigned const highest = (1u << (noise ? bits_allocated : bits_stored)) - 1;
    std::string pixels;
    for (unsigned i = 0; pixels.size() < Length(); ++i) {
      unsigned const slope = noise ? 0 : i % columns * highest / columns;
      unsigned const value = (slope + unsigned(random() % (noise ? 65536 : 3))) & highest;
      pixels += char(value);
      if (bits_allocated == 16) pixels += char(value >> 8);
    }
    return pixels;
  }

  // With these pixels, padded: OW for 16 bits, else OB.
  IOD_Msg Make(std::string pixels) const {
    IOD_Msg msg;
    msg.SetSOPClassUID(Dicom_UI("1.2.840.10008.5.1.4.1.1.7"));
    msg.SetSOPInstanceUID(Dicom_UI("2.25.4711"));
    msg.SetPhotometricInterpretation(Dicom_CS(samples == 3 ? "RGB" : photometric));
    if (samples == 3) msg.SetPlanarConfiguration(Dicom_US(by_plane));
    if (frames > 1) msg.SetNumberOfFrames(Dicom_IS(int(frames)));
    unsigned const numbers[][2] = {
        {0x0002, samples},         {0x0010, rows}, {0x0011, columns}, {0x0100, bits_allocated}, {0x0101, bits_stored},
        {0x0102, bits_stored - 1}, {0x0103, 0}};
    for (auto const& [element, number] : numbers)
      msg.Set(Dicom_Tag(0x0028, uint16_t(element)), Dicom_US(uint16_t(number)));
    if (pixels.size() & 1) pixels += '\0';
    if (bits_allocated > 8)
      msg.Set(kPixelData, Dicom_OW(pixels.data(), pixels.size(), 1, nullptr));
    else
      msg.Set(kPixelData, Dicom_OB(pixels.data(), pixels.size(), 1, nullptr));
    return msg;
  }
  IOD_Msg Make() const { return Make(MakePixels()); }
};

inline std::string PixelsOf(IOD_Msg const& msg) {
  auto const* value = dynamic_cast<Dicom_OtherType const*>(msg.Get(kPixelData));
  return value ? std::string(value->Bytes()) : std::string();
}

inline std::string Little32(size_t number) {
  std::string bytes;
  for (int i = 0; i < 4; ++i)
    bytes += char(number >> 8 * i);
  return bytes;
}

// The offset table, or a fragment.
inline std::string Item(std::string const& bytes) {
  return std::string("\xFE\xFF\x00\xE0", 4) + Little32(bytes.size()) + bytes;
}

inline void SetItems(IOD_Msg& msg, std::string const& items, char const* syntax = "1.2.840.10008.1.2.4.80") {
  msg.Set(kPixelData, Dicom_OB(items.data(), items.size(), 1, nullptr, syntax));
}
