#pragma once
#include <Disk/Disk_RecordSource.h>
#include <dicom/IOD_Msg.h>
#include <infra/Disk_Export.h>

#include <memory>
#include <string>

class Disk_Extents;
class Disk_RecordChain;
class Disk_Redo;
class Disk_RedoFile;
class Disk_StorageStrategy;
class Disk_WriteGather;

/// The standard DICOMDIR: one Part 10 file that holds the records of all levels in one sequence.
///
/// This class owns the file and what stands in it before the records; the record lists read and write the records.
/// The bytes before the records are kept as they were read: only the two offsets and the length of the sequence ever
/// change in them. The file-set's lock guards the object, its descriptor included.
///
/// An operation on the file-set gathers what it writes, between Begin and Commit, so that a killed process leaves
/// all of it or nothing (docs/durability.md). Used without Begin, Write and the record lists write at once.
class DISK_EXPORT Disk_DicomDir : public IOD_Msg, public Disk_RecordSource {
public:
  Disk_DicomDir();
  ~Disk_DicomDir() override;

  /// Whether a strategy may keep what it is given: its owner decides then when the file gets it.
  static bool KeepsImage(Disk_StorageStrategy* strategy);

  /// Opens the DICOMDIR of a directory, or "dicomdir" if there is only that; where there is none, makes one, unless
  /// `read_only`. `strategy`, which may be null, stays the caller's, who keeps it alive until GoBy has another one. 0,
  /// or -1 (logged).
  int Init(char const* file_set_prefix, bool read_only, Disk_StorageStrategy* strategy);
  /// Uses `strategy` from here on; the one before isn't touched any more. 1 if it is another one: it has been given the
  /// file, and the caller has to read all records again. 0 if it is the same one. -1 (logged) if it holds pending data
  /// that this object didn't write: its Flush has to come first.
  int GoBy(Disk_StorageStrategy* strategy);
  bool GoesBy(Disk_StorageStrategy* strategy) const;
  /// Writes everything before the records: through `strategy`, or to the file when that is null. While writes gather,
  /// it goes to these instead. 0, or -1 (logged).
  int Write(Disk_StorageStrategy* strategy);
  /// Reads again from the file what another process may have changed: where the records end, and the two offsets. 0,
  /// or -1 (logged).
  int RefreshOffsetEnd();
  /// Where the file-set was moved or restored, another file stands at the path by now: opens that, unless `strategy`
  /// keeps what belongs to the former. 1 if so, 0 if the file is the one that is open, or -1 (logged).
  int FollowPath(bool read_only, Disk_StorageStrategy* strategy);
  /// Whether the file still says of the records' end what it said when that was read.
  bool IsCurrent() const;

  int IsLowercase() const { return lowercase_name; }
  bool IsReadOnly() const { return read_only; }
  bool PassesOverDamage() const override { return passes_over_damage; }
  void PassOverDamage(bool on) { passes_over_damage = on; }
  int GetFd() const { return file_descriptor; }
  Dicom_TransferSyntax GetTransferSyntax() const { return transfer_syntax; }
  /// The place of the next new record.
  unsigned GetOffsetEnd() const { return offset_end; }
  /// Reserves the place of a record. 0, or -1 (logged) when offsets can't tell a place behind it.
  int Reserve(Dicom_Msg const& record);
  /// The four numbers and texts before the records. Write brings them to the file, where each has the room that it was
  /// made with: -1 (logged) for what doesn't fit, an ID in a file of ours among them, or has no place there.
  int SetFileSetID(Dicom_CS const& id);
  Dicom_UL GetOffsetOfTheFirstDirectoryRecord() const;
  int SetOffsetOfTheFirstDirectoryRecord(Dicom_UL const& offset);
  int SetOffsetOfTheLastDirectoryRecord(Dicom_UL const& offset);
  int SetFileSetConsistencyFlag(Dicom_US const& flag);

  // Operations

  /// From here on writes gather. 0, or -1 (logged) when this file can't be appended to; the file is as it was then.
  int Begin();
  bool IsGathering() const { return is_gathering; }
  /// Writes the records of a chain that starts at `first`: to what gathers, or by `strategy`. 0, or -1 (logged).
  int WriteRecords(Disk_RecordChain& records, unsigned first, Disk_StorageStrategy* strategy);
  /// The VERSION of a directory, given by its ID, moves with the commit.
  void MoveVersion(std::string_view directory, std::int32_t version);
  /// Brings all that was gathered to the file, or to `strategy` if that keeps an image. 0, or -1 (logged): then
  /// nothing of it is in the file, or the next one who takes the file-set's lock completes it.
  int Commit(Disk_StorageStrategy* strategy);
  /// Forgets what was gathered. The records in memory have to be read again.
  void Discard();

  // Recovery from a killed process

  /// Whether a process was killed while it committed.
  bool HasRedo() const;
  /// At the end: removes the file that records for recovery went to, if none is in it. The caller holds the file-set's
  /// lock exclusively.
  void RemoveRedoFile();
  bool UsesRedoFile() const;
  /// Completes what a killed process had begun to commit in the file-set of that directory. The caller holds the
  /// lock exclusively. 0, also when there is nothing to do, or -1 (logged).
  static int Replay(char const* file_set_prefix);
  /// The same for a reader who writes nothing: it is laid over the file in memory. 1 when that changes what is read,
  /// 0, or -1 (logged).
  int LayRedoOver();

  // The source of the records

  long ReadAt(void* data, unsigned size, unsigned offset) const override;
  Dicom_TransferSyntax const& Syntax() const override { return transfer_syntax; }
  unsigned RecordsBegin() const override { return records_begin; }
  unsigned RecordsEnd() const override { return offset_end; }
  bool Claim(unsigned offset, unsigned length, unsigned owner) const override;
  /// Before all records are read again.
  void ForgetClaims() { claims.Clear(); }

private:
  int open(char const* file_set_prefix, bool* is_new);
  int create(Disk_StorageStrategy* strategy);
  int take_file(int descriptor);
  int cant_open(int cause) const;
  int new_dicomdir();
  int make_prefix();
  Dicom_Msg* meta_information() const;
  int read_until_records();
  int read_prefix();
  int is_record_sequence();
  int refresh_offset_end();
  int init(char const* file_set_prefix, bool for_reading, Disk_StorageStrategy* strategy);
  int write_prefix(Disk_StorageStrategy* strategy);
  int take_strategy(Disk_StorageStrategy* strategy);
  bool is_behind() const;
  int read_tag(std::uint32_t* tag);
  int find_end_offset();
  int FindSequenceOffset(unsigned* offset);
  int parse_sequence();
  int read_offset(unsigned place, unsigned element);
  void locate_offsets();
  char* place_of(Dicom_Tag const& tag, std::size_t* length);
  static int no_room(char const* what);
  void patch_prefix();
  char const* unfit_for_writing();
  unsigned header_length() const;

  int lowercase_name = 0;
  bool passes_over_damage = false;
  std::string file_name;
  int file_descriptor = -1;
  std::uint64_t device = 0, inode = 0; // of the open file
  Dicom_TransferSyntax transfer_syntax;
  unsigned offset_end = 0;
  bool read_only = false;

  std::string prefix;          // the bytes before the records, the header of their sequence included
  unsigned data_set_begin = 0; // in it
  unsigned records_begin = 0;  // its length
  unsigned first_at = 0;       // places of the two offsets in it; 0: the file lacks them
  unsigned last_at = 0;
  unsigned stated_length = 0; // of the sequence, as the file has it
  Disk_StorageStrategy* current_strategy = nullptr;
  bool holds_more = false;                      // the strategy, than what came to it from here
  std::unique_ptr<Disk_Extents> pending_writes; // what the strategy was given since it had nothing pending
  std::unique_ptr<Disk_WriteGather> gather;
  bool is_gathering = false;
  std::unique_ptr<Disk_Redo> overlay;
  std::unique_ptr<Disk_RedoFile> redo_file;
  mutable Disk_RecordClaims claims;
};
