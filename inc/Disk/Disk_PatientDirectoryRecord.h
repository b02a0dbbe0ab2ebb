#pragma once
#include <Disk/Disk_RecordList.h>
#include <Disk/Disk_StudyDirectoryRecord.h>
#include <infra/Disk_Export.h>

/// The record of a patient; owns the records of the patient's studies.
class DISK_EXPORT Disk_PatientDirectoryRecord : public Disk_DirectoryRecord {
public:
  static constexpr int kLevel = 0;
  Disk_PatientDirectoryRecord() = default;
  /// Keeps a copy of `msg`. `error` is -1 when it is no directory record.
  Disk_PatientDirectoryRecord(Dicom_Msg const* msg, int& error);
  /// Reads the next `length` bytes of the file, and then the patient's studies. `*error` is -1 on failure.
  Disk_PatientDirectoryRecord(int fd, unsigned length, unsigned* read_length, Dicom_TransferSyntax const& syntax,
                              int* error);

  /// Fills an empty record from an object. 0, or -1; the record then keeps what it has so far.
  [[nodiscard]] int FillPatientRecord(IOD_Msg const& msg, bool standard);
  Disk_RecordList<Disk_StudyDirectoryRecord>& GetStudyRecords() const;
  /// Reads the studies of the patient, whose own record stands at `place`. 0, or -1 (logged), also when a patient in
  /// use has none, and when another patient has them.
  [[nodiscard]] int ReadStudies(Disk_RecordSource const& source, unsigned place);

private:
  mutable std::unique_ptr<Disk_RecordList<Disk_StudyDirectoryRecord>> study_records_; // from when it is asked for
};
