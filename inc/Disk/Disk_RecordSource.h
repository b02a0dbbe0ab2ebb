#pragma once
#include <dicom/Dicom_TransferSyntax.h>
#include <infra/Disk_Export.h>

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
  /// Notes that the record at `offset` belongs to the chain that starts at `chain`; false if it belongs to another.
  virtual bool Claim(unsigned offset, unsigned chain) const = 0;
};
