#pragma once
#include <Disk/Disk_DirectoryRecord.h>
#include <infra/Disk_Export.h>

/// The record of one stored object: an image, a presentation state or a structured report, told by its Modality.
class DISK_EXPORT Disk_InstanceDirectoryRecord : public Disk_DirectoryRecord {
public:
  static constexpr int kLevel = 3;
  Disk_InstanceDirectoryRecord() = default;
  /// Keeps a copy of `msg`. `error` is -1 when it is no directory record.
  Disk_InstanceDirectoryRecord(Dicom_Msg const* msg, int& error);
  /// Reads the next `length` bytes of the file. `*error` is -1 on failure.
  Disk_InstanceDirectoryRecord(int fd, unsigned length, unsigned* read_length, Dicom_TransferSyntax const& syntax,
                               int* error)
      : Disk_DirectoryRecord(fd, length, read_length, syntax, error) {}

  /// Fills an empty record from an object; with `add_icon` an image gets an icon, whose failure is only a warning.
  /// 0, or -1; the record then keeps what it has so far.
  [[nodiscard]] int FillInstanceRecord(IOD_Msg const& msg, bool standard, bool add_icon);
  /// Gives the record of an image an icon made from the pixels of `msg`, or the one that `msg` brings along.
  [[nodiscard]] int AddIconImage(IOD_Msg const* msg);

  DISK_FILE_SET_ELEMENT(ReferencedSOPClassUIDInFile, Dicom_UI, 0x1510)
  DISK_FILE_SET_ELEMENT(ReferencedSOPInstanceUIDInFile, Dicom_UI, 0x1511)
  DISK_FILE_SET_ELEMENT(ReferencedTransferSyntaxInFile, Dicom_UI, 0x1512)

private:
  int AddGeneralAttributes(IOD_Msg const& msg, bool standard);
  int set_references(IOD_Msg const& msg);
  int AddImageAttributes(IOD_Msg const& msg, bool standard, bool add_icon);
  int AddPresentationAttributes(IOD_Msg const& msg);
  int AddStructureReportingAttributes(IOD_Msg const& msg);
  int AddReferencedSeriesSequence(IOD_Msg const* msg);
  int AddVerificationDateTime(IOD_Msg const* msg);
  int AddContentSequence(IOD_Msg const* msg);
  int add_concept_name(IOD_Msg const& msg);
  int copy_icon(IOD_Msg const& msg);
  static Dicom_Sequence* CreateReferencedImageSequence(Dicom_Sequence const* source);
};
