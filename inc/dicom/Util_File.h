#pragma once
#include <dicom/IOD_Msg.h>
#include <infra/Disk_Export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class Disk_StorageStrategy;
class Util_Buffer;
class Util_FileSystemInterface;

/// A DICOM file in memory: either a message dumped for writing, or the bytes of a file that was read, to be decoded.
///
///     int status = 0;
///     Util_File file(msg, &status, Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, 2, nullptr);
///     if (status == -1 || file.Write("/data/a.dcm", nullptr) == -1) ...
class DISK_EXPORT Util_File {
public:
  Util_File();
  /// Dumps `msg` as a DICOM file in `syntax`. Pixels that are encapsulated stay so, and the file then bears their
  /// syntax. `mode` has no effect. `*status` is 0, or -1 on failure, and `*text`, which may be null, then tells why.
  Util_File(Dicom_Msg& msg, int* status, Dicom_UI const& syntax, int mode, std::string* text);
  ~Util_File();
  Util_File(Util_File const&) = delete;
  Util_File& operator=(Util_File const&) = delete;

  /// Writes the bytes to a new file and syncs it unless durability is relaxed. An old one of that name is unlinked
  /// first: other hard links to it keep the old bytes, and a write that fails may have lost it. `fs` is null or the
  /// current file system. 0, or -1 with errno; a partial file may stay behind.
  [[nodiscard]] int Write(char const* path, Util_FileSystemInterface* fs);
  /// Writes the bytes at the descriptor's position. 0, or -1 with errno.
  [[nodiscard]] int Write(int fd);
  /// The same through a strategy, at its position. 0, or -1.
  [[nodiscard]] int Write(Disk_StorageStrategy* strategy);
  /// The bytes as they would be written, and those of the data set in them.
  std::string_view Bytes() const;
  std::string_view DataSetBytes() const { return Bytes().substr(data_set_start_); }

  /// Reads a file. 0, also when it is no DICOM file, which GetError and the decoding tell; or -1 with errno, ENOENT
  /// when there is no such file, EFBIG from 4 GiB on. `flags` has no effect; `fs` is null or the current file system.
  [[nodiscard]] int GetFile(char const* path, int flags, Util_FileSystemInterface* fs);
  /// Takes the bytes of a file from memory; they are copied. 0, also when they are none of a DICOM file; or -1 without
  /// memory, or when they are more than 4 GiB less two.
  int GetBytes(std::string_view bytes);
  /// The same for a data set without preamble and meta information, in `syntax`.
  int GetDataSetBytes(std::string_view bytes, Dicom_UI const& syntax);
  /// The syntax of the file that was read; null when it isn't a DICOM file.
  Dicom_UI GetTransferSyntax() const { return syntax_; }
  /// A new message decoded from what was read, for the caller to own; null when the bytes are no DICOM file, and
  /// GetError tells why.
  operator IOD_Msg*();
  /// Why the last operation failed: the place in the file and what is wrong there.
  std::string const& GetError() const { return error_; }
  /// Binds the file's bytes to a message that was decoded from them (Dicom_Msg::GetOriginalBuffer).
  void SetOriginalBuffer(Dicom_Msg* msg) const;
  /// The file meta information: a message of group 2, its length element included, for the caller to own. A null
  /// `sop_instance` leaves that element empty.
  static Dicom_Msg* BuildMetaInformation(Dicom_UI const& syntax, Dicom_UI const& sop_class,
                                         Dicom_UI const& sop_instance);
  /// The syntax in which a compressed object is to be saved: that of its pixels, or the native one.
  static Dicom_UI GetRecomendedCommpressedTxForSave(Dicom_Msg const* msg);

  /// Without effect, kept for callers: it is SetOriginalBuffer that binds the bytes to a message.
  int no_original_buffer = 0;

private:
  int fail(std::string text);
  int join(std::vector<std::string_view> const& parts);
  int find_data_set();
  int take_data_set(std::size_t start);

  std::shared_ptr<Util_Buffer const> file_;
  std::shared_ptr<Util_Buffer const> data_set_; // differs from file_ for a deflated one
  std::size_t data_set_start_ = 0;
  Dicom_UI syntax_;
  std::string error_;
};
