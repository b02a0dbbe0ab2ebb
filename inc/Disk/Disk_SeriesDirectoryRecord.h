#pragma once
#include <Disk/Disk_DirectoryRecord.h>
#include <infra/Disk_Export.h>

/// The record of a series.
class DISK_EXPORT Disk_SeriesDirectoryRecord : public Disk_DirectoryRecord {
public:
  static constexpr int kLevel = 2;
  Disk_SeriesDirectoryRecord() = default;
  /// Keeps a copy of `msg`. `error` is -1 when it is no directory record.
  Disk_SeriesDirectoryRecord(Dicom_Msg const* msg, int& error);
  /// Reads the next `length` bytes of the file. `*error` is -1 on failure.
  Disk_SeriesDirectoryRecord(int fd, unsigned length, unsigned* read_length, Dicom_TransferSyntax const& syntax,
                             int* error)
      : Disk_DirectoryRecord(fd, length, read_length, syntax, error) {}

  /// Fills an empty record from an object. 0, or -1; the record then keeps what it has so far.
  [[nodiscard]] int FillSeriesRecord(IOD_Msg const& msg, bool standard);
};
