#pragma once
#include <Disk/Disk_DirectoryRecord.h>

/// The record of a series.
class Disk_SeriesDirectoryRecord : public Disk_DirectoryRecord {
public:
  Disk_SeriesDirectoryRecord() = default;
  /// Keeps a copy of `msg`. `error` is -1 when it is no directory record.
  Disk_SeriesDirectoryRecord(Dicom_Msg const* msg, int& error);

  /// Fills an empty record from an object. 0, or -1; the record then keeps what it has so far.
  int FillSeriesRecord(IOD_Msg const& msg, bool standard);
};
