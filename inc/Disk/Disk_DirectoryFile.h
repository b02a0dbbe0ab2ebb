#pragma once
#include <Disk/Disk_DirectoryRecord.h>
#include <Disk/Disk_File.h>
#include <Disk/Disk_StoreParams.h>
#include <dicom/Dicom_UIDGenerator.h>
#include <infra/Disk_Export.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>

class Disk_DicomDir;
class Disk_RecordChain;
class Disk_StorageStrategy;
class Disk_Structure;
struct Disk_ReadTexts;
struct Disk_WriteTexts;

/// What tells one content of a private directory file, which is replaced whole, from another.
struct Disk_FileState {
  std::uint64_t inode = 0;
  std::int64_t size = 0, written_s = 0, written_ns = 0;
  friend bool operator==(Disk_FileState const&, Disk_FileState const&) = default;
};

/// What the root, study and series directory files have in common: the format of a private directory file, the
/// VERSION file beside it, unique names, names made from UIDs, and the clock.
///
/// VERSION holds the number of writes of its directory file. It is compared each time that records in memory are about
/// to be used; a reader whose records have another number reads them again. It is read before the records and written
/// after them, so a reader can only think its records older than they are. In the private structure the file must be
/// the same one besides, as a writer can end before it has written VERSION. Nothing here locks: the caller holds the
/// lock of the level.
class DISK_EXPORT Disk_DirectoryFile : public Disk_File {
public:
  /// `dicomdir` is null in the private structure; otherwise borrowed.
  Disk_DirectoryFile(Disk_FileID const& id, Disk_StoreParams params, Disk_DicomDir* dicomdir);
  virtual ~Disk_DirectoryFile() = default;

  /// Of a new file, before its first write: it is written again before a record names it, so the first needn't last.
  void MarkUnnamed() { is_unnamed = true; }
  /// The strategy stays the caller's; it may be null.
  void SetWritingStrategy(Disk_StorageStrategy* strategy) { writing_strategy = strategy; }
  Disk_StorageStrategy* GetWritingStrategy() const { return writing_strategy; }
  /// Makes VERSION count again after a read-only file-set was found to have none.
  void ResetVersionFileStatus() { version_file_in_use = 1; }
  /// 1 when the standard DICOMDIR is called "dicomdir".
  int Lowercase() const;

  /// Reads a private directory file. On 0 `*found` tells whether it exists; then `*msg` is the caller's to delete
  /// and owns `*sequence`, the records. -1 when the file can't be read; nothing is to be deleted then.
  [[nodiscard]] int Read(Dicom_Sequence** sequence, int* found, IOD_Msg** msg);
  /// Replaces the file by one with these records and moves VERSION. 0, or -1; the file is the old or the new one. With
  /// `together` a durable write is done, VERSION and all, when those replacements finish.
  [[nodiscard]] int Write(Dicom_Sequence& sequence) { return Write(sequence, nullptr); }
  [[nodiscard]] int Write(Dicom_Sequence& sequence, Disk_Replacements* together);

  /// Before something below the directory is written or removed: 0, or -1 (logged) when it is a link, which may lead
  /// anywhere.
  [[nodiscard]] int RefuseLink() const;

protected:
  /// Before an operation changes anything: 0, or -1 with error 210000 + EROFS and a line when READ_ONLY is set.
  int refuse_read_only(char const* operation) const;
  /// From here on the records in memory may differ from the file: the next Read loads them.
  void MarkDirty() {
    file_version = 0;
    is_loaded = false;
  }
  /// Whether the records in memory are those that the file has now or has had.
  bool has_records() const { return file_version != 0 || is_loaded; }
  /// Whether the file holds nothing newer than what file_version stands for, or a strategy holds what is newer than the
  /// file. That there are records in memory is another matter.
  int IsUpToDate() const;
  /// The same, whatever a strategy holds. Private directory files are written without one.
  int is_current() const;
  /// Whether the records in memory can be used as they are.
  bool may_keep_records() const;
  void ReadFileVersion();
  /// Counts VERSION up, from what stands there now.
  int UpdateFileVersion();
  /// A path that doesn't exist and that no record names, made from `path`: its last component is brought to 8
  /// characters and its last three count up. Null, with error 211005, when all are taken. The name is free only while
  /// the level's lock is held. Takes `path` over, which was made by new[], as Disk_FileID gives it; the result is the
  /// caller's to free with delete[].
  char* FindUniqueFileName(char* path) const;
  /// The same; empty when all are taken.
  std::string unique_path(std::string path) const;
  /// Whether a record names the file or directory with this ID. A delete that was interrupted leaves records of what is
  /// gone; done again, it would take along what got their names meanwhile.
  virtual bool is_named(std::string const& /*id*/) const { return false; }
  /// The directory that the standard structure gives to a UID: always the same name for one UID.
  Disk_FileID GenerateFileID(Dicom_UI const& uid) const;
  /// The directory of this file.
  Disk_FileID directory() const;
  /// A new file or directory beside this file, whose name begins with `name`. `*status` is -1, with error 211004
  /// when `name` can't be one, and the ID empty.
  Disk_FileID unique_file_id(std::string const& name, int* status, int cant_remove_level = 3) const;
  /// A part of the name of a new directory or file: the end of `text`, of at most `most` characters, "U" for an empty
  /// text.
  static std::string name_part(std::string_view text, std::size_t most);
  /// `text` with everything but digits and upper-case letters replaced by `_`.
  static std::string sanitized(std::string_view text);
  /// Makes the directory of a new study or series and syncs the entry. 0, or -1 with errno.
  static int make_directory(std::string const& path);
  bool passes_over_damage() const { return params.read_only && params.pass_over_damage; }
  /// The file of an object that a record names.
  Disk_FileID object_id(Dicom_CS const& referenced_file_id) const;
  struct FolderComparison;
  /// Brings the records of a lower level up to date, from this directory file or from the chain that starts at
  /// `first`; and writes them, with VERSION. 0, or -1 (logged).
  int read_level(Disk_RecordChain& records, unsigned first, Disk_ReadTexts const& texts);
  int write_level(Disk_RecordChain& records, unsigned first, Disk_WriteTexts const& texts,
                  Disk_Replacements* together = nullptr);
  /// Makes `file` the directory file below a record of this one, whose UID, under `uid_tag`, names its directory in the
  /// standard structure. One that is kept from an earlier call stays if it is the right one.
  template <class File>
  void open_below(std::unique_ptr<File>& file, Disk_DirectoryRecord const& record, Dicom_Tag const& uid_tag) {
    unsigned first = 0;
    Disk_FileID const id = file_below(record, uid_tag, &first);
    // without records below, all of them have the first at 0: the names tell them apart
    if (!file || !(file->GetFileID() == id) || file->GetOffset() != first)
      file = std::make_unique<File>(id, params, standard_dicomdir, first);
    file->SetWritingStrategy(writing_strategy);
    file->deletes_cine_files = deletes_cine_files;
  }

  Disk_FileID file_below(Disk_DirectoryRecord const& record, Dicom_Tag const& uid_tag, unsigned* first) const;

  static Dicom_DA GetCurrentDate();
  static Dicom_TM GetTickCount();

  Dicom_UIDGenerator uid_generator;
  mutable long file_version = 0; ///< of the records in memory; 0: not read, or dirty
  mutable int version_file_in_use = 1;
  Disk_DicomDir* standard_dicomdir; // null in the private structure
  std::shared_ptr<Disk_Structure> structure;
  Disk_StorageStrategy* writing_strategy = nullptr;
  Disk_StoreParams params;
  std::optional<bool> deletes_cine_files; ///< with their images, if the root says so
  bool is_unnamed = false;
  bool is_loaded = false; ///< all records were read, and nothing was changed since that isn't written
  std::string const own_path, own_version_path;
  std::string dropped_id;      ///< that a record named which was dropped: until that lasts nothing new may have it
  bool is_folder_gone = false; ///< as the last Read found, when the file wasn't there
  std::string lasting_folder;  ///< below this one, whose entry was synced since the records were read

private:
  friend class Disk_PrivateStructure;
  friend class Disk_StandardStructure;
  Disk_FileState file_state() const;
  int read_file(IOD_Msg** msg, int* found, bool is_expected);
  bool holds_content() const;
  /// Brings a new content to the file, as durable as the operation is.
  int rewrite(IOD_Msg* msg, Disk_Replacements* together);
  int forget_copy() const;
  int take_written();
  long GetFileVersion() const;
  void take_version(long version);

  Disk_FileState read_state{}; // of the file that the records in memory are those of
  int writes_since_read = 0;
};
