#pragma once
#include <dicom/Dicom_TransferSyntax.h>
#include <infra/Disk_Export.h>

#include <cstddef>
#include <cstdint>
#include <unordered_map>

/// Where the records of a standard DICOMDIR are read from: a file, with what isn't in it yet.
class DISK_EXPORT Disk_RecordSource {
public:
  virtual ~Disk_RecordSource() = default;
  /// The number of bytes read, which is below `size` only at the end; -1 with errno.
  virtual long ReadAt(void* data, unsigned size, unsigned offset) const = 0;
  virtual Dicom_TransferSyntax const& Syntax() const = 0;
  /// Records stand from here on, and before RecordsEnd.
  virtual unsigned RecordsBegin() const = 0;
  virtual unsigned RecordsEnd() const = 0;
  /// Notes that the record at `offset`, of `length` bytes, belongs to the chain that starts at `chain`; false where
  /// Disk_RecordClaims refuses it.
  virtual bool Claim(unsigned offset, unsigned length, unsigned chain) const = 0;
};

/// Which chains have which records. What it refuses would make reading take far more memory or time than the file has
/// bytes: a record of another chain, records that stand in one another (all of them take more room than there is), and
/// very many that hold next to nothing.
class Disk_RecordClaims {
public:
  bool Add(unsigned offset, unsigned length, unsigned chain, unsigned room) {
    constexpr std::size_t kMany = 1 << 16, kLeastMean = 64; // a record with its links, its type and a key is longer
    auto const [owner, is_new] = owners_.emplace(offset, chain);
    if (!is_new) return owner->second == chain;
    taken_ += length;
    return taken_ <= room && (owners_.size() <= kMany || taken_ >= kLeastMean * owners_.size());
  }
  void Clear() {
    owners_.clear();
    taken_ = 0;
  }

private:
  std::unordered_map<unsigned, unsigned> owners_; // offset of a record, start of its chain
  std::uint64_t taken_ = 0;
};
