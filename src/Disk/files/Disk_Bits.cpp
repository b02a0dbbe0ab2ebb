// A bit string of a fixed length. It exists for the hash that makes a folder's name from a UID.
#include <Disk/Disk_Bits.h>
#include <infra/Klb_LogFile.h>

#include <algorithm>
#include <string>

Disk_Bits::Disk_Bits(int bits)
    : bytes(std::size_t(bits / 8 + (bits % 8 ? 1 : 0))), whole_bytes(bits / 8), extra_bits(bits % 8) {}

Disk_Bits::Disk_Bits(unsigned char const* data, int bits) : Disk_Bits(bits) {
  std::copy(data, data + whole_bytes, bytes.begin());
}

Disk_Bits& Disk_Bits::operator|=(Disk_Bits const& other) {
  std::size_t const n = std::min(bytes.size(), other.bytes.size());
  for (std::size_t i = 0; i < n; ++i)
    bytes[i] |= other.bytes[i];
  return *this;
}

Disk_Bits& Disk_Bits::operator^=(Disk_Bits const& other) {
  std::size_t const n = std::min(bytes.size(), other.bytes.size());
  for (std::size_t i = 0; i < n; ++i)
    bytes[i] ^= other.bytes[i];
  return *this;
}

Disk_Bits& Disk_Bits::operator^=(unsigned char const* data) {
  for (std::size_t i = 0; i < std::size_t(whole_bytes); ++i)
    bytes[i] ^= data[i];
  return *this;
}

Disk_Bits& Disk_Bits::operator>>=(int n) {
  std::size_t const k = std::size_t(n / 8);
  int const s = n % 8;
  for (std::size_t i = bytes.size(); i-- > 0;) {
    unsigned const high = i > k ? bytes[i - k - 1] : 0u, low = i >= k ? bytes[i - k] : 0u;
    bytes[i] = static_cast<unsigned char>((high << 8 | low) >> s);
  }
  return *this;
}

Disk_Bits& Disk_Bits::operator<<=(int n) {
  std::size_t const k = std::size_t(n / 8), size = bytes.size();
  int const s = n % 8;
  for (std::size_t i = 0; i < size; ++i) {
    unsigned const high = i + k < size ? bytes[i + k] : 0u, low = i + k + 1 < size ? bytes[i + k + 1] : 0u;
    bytes[i] = static_cast<unsigned char>((high << 8 | low) << s >> 8);
  }
  return *this;
}

void Disk_Bits::RotateRight(int n) {
  Disk_Bits const shifted = *this >> n;
  *this <<= NBits() - n;
  *this |= shifted;
}

void Disk_Bits::Print(std::FILE* file) const {
  std::string digits;
  for (unsigned char const byte : bytes)
    for (int bit = 7; bit >= 0; --bit)
      digits += byte >> bit & 1 ? '1' : '0';
  Klb_LogFile::PrintOrLog(file, "%s\n", digits.c_str());
}
