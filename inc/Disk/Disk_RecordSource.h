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
  /// Whether a place can be read at; -1 with errno. Sources that can be read anywhere don't ask.
  virtual int Seek(unsigned /*offset*/) const { return 0; }
  /// The number of bytes read, which is below `size` only at the end; -1 with errno.
  virtual long ReadAt(void* data, unsigned size, unsigned offset) const = 0;
  virtual Dicom_TransferSyntax const& Syntax() const = 0;
  /// Records stand from here on, and before RecordsEnd.
  virtual unsigned RecordsBegin() const = 0;
  virtual unsigned RecordsEnd() const = 0;
  /// Notes that the record at `offset`, of `length` bytes, belongs to `owner`, the place of the record above it, or of
  /// the first one of its chain; false where Disk_RecordClaims refuses it.
  virtual bool Claim(unsigned offset, unsigned length, unsigned owner) const = 0;
  /// Whether a chain ends where it can't be read on, instead of failing.
  virtual bool PassesOverDamage() const { return false; }
};

/// Who has which records. What it refuses would make reading take far more memory or time than the file has bytes: a
/// record of another, records that stand in one another (all of them take more room than there is), and
/// too many for their bytes.
class Disk_RecordClaims {
public:
  /// Whether so many records of so many bytes in all are what a file-set may hold: the mean record with its links, its
  /// type, a key and a file ID is longer, and each takes memory beside its bytes.
  static bool AreMeaningful(std::size_t records, std::uint64_t bytes) {
    constexpr std::size_t kMany = 1 << 17, kLeastMean = 128;
    return records <= kMany || bytes >= kLeastMean * records;
  }

  bool Add(unsigned offset, unsigned length, unsigned owner, unsigned room) {
    auto const [known, is_new] = owners_.emplace(offset, owner);
    if (!is_new) return known->second == owner;
    taken_ += length;
    return taken_ <= room && AreMeaningful(owners_.size(), taken_);
  }
  void Clear() {
    owners_.clear();
    taken_ = 0;
  }

private:
  std::unordered_map<unsigned, unsigned> owners_; // by the offset of a record
  std::uint64_t taken_ = 0;
};
