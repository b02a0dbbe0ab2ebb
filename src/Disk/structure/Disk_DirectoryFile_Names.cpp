#include "Disk/files/Disk_Guard.h"

#include <Disk/Disk_Bits.h>
#include <Disk/Disk_DirectoryFile.h>
#include <Disk/Disk_Error.h>
#include <infra/Klb_GError.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <tuple>
#include <unordered_set>

namespace {

constexpr std::size_t kNameLength = 8;
constexpr std::size_t kCounterLength = 3;

/// Counts the last three characters of `name` up in base 36, last one first; when all were `Z` they are at `Z00` and
/// the first character of the component goes up. False when that is `Z` already, or the name isn't in a folder.
bool CountUp(std::string& name, std::size_t component) {
  std::size_t const end = name.size();
  for (std::size_t i = end; i-- > end - kCounterLength;) {
    char& digit = name[i];
    if (digit != 'Z') {
      digit = digit == '9' ? 'A' : char(digit + 1);
      return true;
    }
    if (i == end - kCounterLength) break; // the third from the end stays at Z
    digit = '0';
  }
  if (component == 0 || name[component] >= 'Z') return false;
  ++name[component];
  return true;
}

/// Tells which names of a directory are taken: by a call for each name at first, and when many are, from a list of
/// all. A series whose images all have one number would otherwise cost a call per image that it holds.
class TakenNames {
public:
  /// Of paths whose name begins at `component`.
  TakenNames(std::string const& path, std::size_t component)
      : folder_(component == 0 ? "." : path.substr(0, component)), component_(component) {}

  bool Has(std::string const& path) {
    if (++asked_ == kMostCalls && Util_FileSystemInterface::Current().List(folder_.c_str(), entries_) == 0)
      for (Util_FileSystemInterface::Entry const& entry : entries_)
        names_.insert(entry.name);
    if (names_.count(std::string_view(path).substr(component_)) != 0) return true;
    // one of which nothing is known is as good as taken: what stands there would be written over
    return Util_FileSystem::MayExist(path.c_str());
  }

private:
  static constexpr int kMostCalls = 16;
  std::string folder_;
  std::size_t component_;
  int asked_ = 0;
  std::vector<Util_FileSystemInterface::Entry> entries_;
  std::unordered_set<std::string_view> names_;
};

/// Whether a name that was made from an object's values is one component. It begins with a letter, so it's no `.`.
bool IsComponent(std::string_view name) { return name.find_first_of(std::string_view("/\\\0", 3)) == name.npos; }

/// A code string holds ASCII alone, and no control characters.
std::string AsCode(std::string name) {
  std::replace_if(
      name.begin(), name.end(), [](char c) { return c < ' ' || c > '~'; }, '_');
  return name;
}

} // namespace

char* Disk_DirectoryFile::FindUniqueFileName(char* path) const {
  std::unique_ptr<char[]> const owner(path);
  std::string const unique = path ? unique_path(path) : std::string();
  if (unique.empty()) return nullptr;
  char* const copy = new (std::nothrow) char[std::max(unique.size() + 1, Disk_FileID::kPathSize)];
  if (copy) std::memcpy(copy, unique.c_str(), unique.size() + 1);
  return copy;
}

std::string Disk_DirectoryFile::unique_path(std::string path) const {
  DISK_LOG(7, "In FindUniqueFileName\n");
  std::size_t const separator = path.rfind('/');
  std::size_t const component = separator == std::string::npos ? 0 : separator + 1;
  if (path.size() == component) path += '0';
  if (path.size() - component < kNameLength) {
    path.back() = '0';
    path.resize(component + kNameLength, '0');
  }
  std::fill(path.end() - kCounterLength, path.end(), '0');
  TakenNames taken(path, component);
  std::string const folder = std::string(GetFileSetPrefix() ? GetFileSetPrefix() : "") + "/";
  auto const has_record = [&](std::string const& name) {
    if (!name.starts_with(folder)) return false; // no record can name it
    int status = 0;
    return is_named(Disk_FileID(GetFileSetPrefix(), name.c_str(), &status, 0).GetID().GetText());
  };
  while (taken.Has(path) || has_record(path)) {
    if (!CountUp(path, component)) {
      DISK_FAIL(Klb_Cause(DISK_ERROR_OUT_OF_NAMES).At(path).Because("no name like this is free"),
                "FindUniqueFileName(): Out of resources.\n");
      return {};
    }
  }
  return path;
}

Disk_FileID Disk_DirectoryFile::GenerateFileID(Dicom_UI const& uid) const {
  DISK_LOG(7, "GenerateFileID:\n");
  auto const number = [](char c) -> unsigned char {
    if (c >= '1' && c <= '9') return static_cast<unsigned char>(c - '0');
    return c == '0' ? 10 : c == '.' ? 11 : c == ' ' ? 12 : c == '_' ? 13 : 0;
  };
  // two characters a byte, the pairs from the end of the buffer backwards
  std::string_view const s = uid.View();
  std::size_t const packed = (s.size() + 1) / 2;
  std::vector<unsigned char> buffer(packed + 64);
  for (std::size_t i = 0; i < s.size(); ++i)
    buffer[packed - 1 - i / 2] |= static_cast<unsigned char>(number(s[i]) << (i % 2 == 0 ? 4 : 0));

  constexpr int kBytes = 5, kRotation = 7, kCharacterBits = 5;
  Disk_Bits bits(buffer.data(), kBytes * 8);
  std::size_t const whole = packed / kBytes, rest = packed % kBytes;
  for (std::size_t k = 1; k < whole; ++k) {
    bits.RotateRight(kRotation);
    bits ^= buffer.data() + kBytes * k;
  }
  bits.RotateRight(kRotation);
  for (std::size_t i = 0; i < rest; ++i)
    bits[int(i)] ^= buffer[kBytes * whole + i];

  static char const s_alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  std::string name;
  for (std::size_t i = 0; i < kNameLength; ++i) {
    name += s_alphabet[bits[0] >> (8 - kCharacterBits)];
    bits <<= kCharacterBits;
  }
  Disk_FileID id = directory();
  std::ignore = id.AddComponent(name.c_str()); // two short names always make a file ID
  return id;
}

Disk_FileID Disk_DirectoryFile::directory() const {
  Disk_FileID id = file_id;
  id.RemoveLastComponent();
  return id;
}

int Disk_DirectoryFile::refuse_read_only(char const* operation) const {
  if (!params.read_only) return 0;
  return DISK_FAIL(Klb_Cause(DISK_ERROR_SYSTEM + EROFS).Because("the file-set is open for reading only"),
                   "%s: the file-set is open for reading only.\n", operation);
}

int Disk_DirectoryFile::RefuseLink() const {
  std::string const folder = directory().FolderPath();
  struct stat status {};
  if (Util_FileSystemInterface::Current().Lstat(folder.c_str(), &status) == -1) {
    if (errno == ENOENT) return 0; // there is nothing that it could lead to
    int const cause = errno;
    return DISK_FAIL(Klb_System(cause, "look at", folder), "%s can't be looked at (errno=%d).\n", folder.c_str(),
                     cause);
  }
  if (!S_ISLNK(status.st_mode)) return 0;
  return DISK_FAIL(Klb_Cause(DISK_ERROR_FILE_NAME).At(folder), "%s is a link: what it leads to isn't changed.\n",
                   folder.c_str());
}

std::string Disk_DirectoryFile::sanitized(std::string_view text) {
  std::string result(text);
  for (char& c : result)
    if (!(c >= '0' && c <= '9') && !(c >= 'A' && c <= 'Z')) c = '_';
  return result;
}

std::string Disk_DirectoryFile::name_part(std::string_view text, std::size_t most) {
  if (text.empty()) return "U";
  return std::string(text.substr(text.size() - std::min(text.size(), most)));
}

Disk_FileID Disk_DirectoryFile::unique_file_id(std::string const& name, int* status, int cant_remove_level) const {
  *status = -1;
  std::string const folder = directory().FolderPath();
  if (folder.empty())
    DISK_LOG(cant_remove_level, "GenerateReferencedFileID(): Can't remove last component from file id.\n");
  if (folder.empty() || !IsComponent(name)) {
    DISK_FAIL(DISK_ERROR_FILE_NAME, "Disk_FileID(): Illegal file name (%s).\n", name.c_str());
    return {};
  }
  constexpr char kNoName[] = "GenerateReferencedFileID(): Can't create a unique file name.\n";
  std::string path;
  auto const find = [&] {
    path = unique_path(folder + "/" + AsCode(name));
    if (path.empty()) DISK_FAIL_TEXT(kNoName);
    return path.empty() ? -1 : 0;
  };
  if (Disk_Allocating(kNoName, find) == -1) return {};
  if (path.size() >= Disk_FileID::kPathSize) {
    DISK_FAIL(DISK_ERROR_FILE_NAME, "Disk_FileID(): Illegal file name (%s).\n", path.c_str());
    return {};
  }
  return Disk_FileID(GetFileSetPrefix(), path.c_str(), status, 0);
}

/// Media that other software has written can have lower-case names for upper-case IDs; what is stored here doesn't.
Disk_FileID Disk_DirectoryFile::object_id(Dicom_CS const& referenced_file_id) const {
  Disk_FileID exact(GetFileSetPrefix(), referenced_file_id, 0);
  if (!Lowercase() || Util_FileSystemInterface::Current().Access(exact.Path().c_str(), 0) == 0) return exact;
  Disk_FileID lower(GetFileSetPrefix(), referenced_file_id, 1);
  return Util_FileSystemInterface::Current().Access(lower.Path().c_str(), 0) == 0 ? lower : exact;
}

int Disk_DirectoryFile::make_directory(std::string const& path) {
  if (Util_FileSystemInterface::Current().Mkdir(path.c_str(), 0775) == -1) return -1;
  // the entry must last before a record above names what is below it
  int const result = sync_directory_of(path);
  if (result == -1) errno = EIO;
  return result;
}
