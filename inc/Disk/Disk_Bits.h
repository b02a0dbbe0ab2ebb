#pragma once
#include <infra/Disk_Export.h>

#include <cstdio>
#include <vector>

/// A string of bits. Bit 0 is the highest bit of byte 0; right means toward higher indexes.
///
/// Strings are of whole bytes: of a length that isn't a multiple of 8 the last, partial byte counts as a full one,
/// and the constructor from data leaves it 0.
class DISK_EXPORT Disk_Bits {
public:
  explicit Disk_Bits(int bits = 0);
  Disk_Bits(unsigned char const* data, int bits);
  Disk_Bits(Disk_Bits const&) = default;
  Disk_Bits& operator=(Disk_Bits const&) = default;
  virtual ~Disk_Bits() = default;

  int NBits() const { return whole_bytes * 8 + extra_bits; }
  /// Byte `i`, which must be one of the string's.
  unsigned char& operator[](int i) { return bytes[std::size_t(i)]; }
  unsigned char operator[](int i) const { return bytes[std::size_t(i)]; }

  /// Byte by byte over the shorter of the two strings.
  Disk_Bits& operator|=(Disk_Bits const& other);
  Disk_Bits& operator^=(Disk_Bits const& other);
  /// As many bytes as the string has whole ones.
  Disk_Bits& operator^=(unsigned char const* data);

  /// Shifts by 0 to NBits() - 1 bits; what becomes vacant is 0.
  Disk_Bits& operator>>=(int n);
  Disk_Bits& operator<<=(int n);
  Disk_Bits operator>>(int n) const { return Disk_Bits(*this) >>= n; }
  Disk_Bits operator<<(int n) const { return Disk_Bits(*this) <<= n; }
  /// Rotations by 1 to NBits() - 1 bits.
  void RotateRight(int n);
  void RotateLeft(int n) { RotateRight(NBits() - n); }

  /// Writes the bytes in binary digits, and a newline, to `file`, or to the log when that is null.
  void Print(std::FILE* file) const;

private:
  std::vector<unsigned char> bytes;
  int whole_bytes = 0;
  int extra_bits = 0;
};
