#pragma once
#include <Disk/Disk_DirectoryRecord.h>
#include <infra/Disk_Export.h>

/// The record of a study.
///
/// One of the standard shape keeps its size for life: its counters are as wide as any, and Modalities In Study, which
/// grows, shares 100 bytes with a dummy element.
class DISK_EXPORT Disk_StudyDirectoryRecord : public Disk_DirectoryRecord {
public:
  static constexpr int kReservoirSize = 100;
  /// What the dummy element is cut from: the first byte 0xB4, the others 0.
  static unsigned char const dummy_data_reservoir[kReservoirSize];

  static constexpr int kLevel = 1;
  Disk_StudyDirectoryRecord() = default;
  /// Keeps a copy of `msg`. `error` is -1 when it is no directory record.
  Disk_StudyDirectoryRecord(Dicom_Msg const* msg, int& error);
  /// Reads the next `length` bytes of the file. `*error` is -1 on failure.
  Disk_StudyDirectoryRecord(int fd, unsigned length, unsigned* read_length, Dicom_TransferSyntax const& syntax,
                            int* error)
      : Disk_DirectoryRecord(fd, length, read_length, syntax, error) {}

  /// Fills an empty record from an object. 0, or -1; the record then keeps what it has so far.
  [[nodiscard]] int FillStudyRecord(IOD_Msg const& msg, bool standard);
  /// Whether the Protection Flag lets it be deleted; a study without one is protected.
  bool IsDeletable() const;
  /// Copies name, ID, birth date and issuer of the patient, whatever they hold. 0, or -1.
  [[nodiscard]] int UpdatePatientDetails(IOD_Msg const& msg);

private:
  int fill_counters(bool standard);
  int fill_faked_dates(IOD_Msg const& msg);
};
