#pragma once
#include <dicom/IOD_Msg.h>
#include <infra/Disk_Export.h>
#include <infra/RWCollectable.h>

#include <cstdint>
#include <memory>
#include <vector>

/// One directory record: the owner of a message that holds the record's attributes, and the two flags that tell what
/// has to be written in a standard DICOMDIR.
///
/// A record of the private shape stands in a private directory file; its place in the hierarchy follows from the
/// file. One of the standard shape also has its links and its in-use flag.
class DISK_EXPORT Disk_DirectoryRecord : public RWCollectable {
public:
  Disk_DirectoryRecord() = default;
  /// Keeps a copy of `msg`; without a message when that is null.
  explicit Disk_DirectoryRecord(Dicom_Msg const* msg);
  /// Reads the next `length` bytes of the file. `*error` is -1 on failure.
  Disk_DirectoryRecord(int fd, unsigned length, unsigned* read_length, Dicom_TransferSyntax const& syntax, int* error);
  ~Disk_DirectoryRecord() override = default;
  Disk_DirectoryRecord(Disk_DirectoryRecord const&) = delete;
  Disk_DirectoryRecord& operator=(Disk_DirectoryRecord const&) = delete;

  /// The message, which stays the record's; null before the record is filled. The accessors below need it.
  IOD_Msg* GetRecordMsg() const { return record_msg.get(); }
  /// Item tag and length are still to be written.
  bool IsNew() const { return is_new; }
  void SetNew(bool value) {
    is_new = value;
    if (value) enqueue();
  }
  /// The body differs from what stands in the file.
  bool Changed() const { return changed; }
  void SetChanged(bool value) {
    changed = value;
    if (value) enqueue();
  }

  /// Deletes a record of the standard shape, which stays in its chain. 0, or -1.
  int SetOutOfUse() {
    SetChanged(true);
    return SetRecordInUseFlag(Dicom_US(0));
  }

  /// Get gives a copy of the value, the null constant when the attribute is absent. Set stores a copy: 0, or -1.
  /// Remove takes the attribute out: 0, also when it was absent.
#define DISK_FILE_SET_ELEMENT(Name, Class, Element)                                                                    \
  Class Get##Name() const { return record_msg->Value<Class>(Dicom_Tag(0x0004, Element)); }                             \
  int Set##Name(Class const& value) { return record_msg->Set(Dicom_Tag(0x0004, Element), value); }                     \
  int Remove##Name() { return record_msg->Remove(Dicom_Tag(0x0004, Element)); }

  DISK_FILE_SET_ELEMENT(OffsetOfTheNextDirectoryRecord, Dicom_UL, 0x1400)
  DISK_FILE_SET_ELEMENT(RecordInUseFlag, Dicom_US, 0x1410)
  DISK_FILE_SET_ELEMENT(OffsetOfReferencedLowerLevelDirectoryEntity, Dicom_UL, 0x1420)
  DISK_FILE_SET_ELEMENT(DirectoryRecordType, Dicom_CS, 0x1430)
  DISK_FILE_SET_ELEMENT(ReferencedFileID, Dicom_CS, 0x1500)

protected:
  /// 0 when the record's type is one that this library keeps; it needn't be that of the record's class.
  [[nodiscard]] int ValidateDirectoryRecord() const;

  /// The start of a filling: a new message. -1, with one of the lines, for a record that has one, or without memory.
  int start_filling(char const* has_data, char const* cant_allocate);
  /// The same for a record whose type is known: it gets that, and is new.
  int start_filling(char const* has_data, char const* cant_allocate, Dicom_CS const& type, char const* cant_set_type);
  /// The end of one: the links that a record of the standard shape has. -1, with the line, on the first that can't be
  /// set.
  int set_chain_elements(bool standard, char const* cant_set);

  std::unique_ptr<IOD_Msg> record_msg;
  bool is_new = false;
  bool changed = false;

private:
  // what the record's chain knows of its place in a standard DICOMDIR
  friend class Disk_RecordChain;
  static constexpr unsigned kUnknownLength = 0xFFFFFFFF;
  unsigned place() const { return place_; }
  /// Of the record's bytes in its place; unknown until it has been read.
  unsigned length() const { return length_; }
  void place_at(unsigned offset, unsigned length) {
    place_ = offset;
    length_ = length;
  }
  /// From here on the record puts itself into `queue` when it changes.
  void enlist_in(std::vector<Disk_DirectoryRecord*>* queue) {
    queue_ = queue;
    if (is_new || changed) enqueue();
  }
  void enqueue() {
    if (!queue_ || queued_) return;
    queue_->push_back(this);
    queued_ = true;
  }
  void has_been_written() { queued_ = false; }
  /// Gives a record that names its object only as the DICOMDIR does the element by which it is looked up. It isn't
  /// dumped: the record has no room for it.
  void keep_lookup_uid();
  unsigned dump_length(Dicom_TransferSyntax const& syntax) const;
  int dump(char* buffer, unsigned length, Dicom_TransferSyntax const& syntax) const;

  std::vector<Disk_DirectoryRecord*>* queue_ = nullptr;
  bool queued_ = false;
  bool added_uid_ = false;
  unsigned place_ = 0;
  unsigned length_ = kUnknownLength;
};
