#include <Disk/Disk_FileID.h>

#include "Disk/files/Disk_Guard.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <span>

namespace {

/// Whether a component can be a name below the prefix.
bool IsSafe(std::string_view component) {
  return component != "." && component != ".." && component.find('/') == std::string_view::npos &&
         component.find('\0') == std::string_view::npos;
}

} // namespace

Disk_FileID::Disk_FileID(char const* prefix, Dicom_CS const& value, int lower)
    : id(value), lowercase(lower), file_set_prefix(prefix ? prefix : "") {}

Disk_FileID::Disk_FileID(char const* prefix, char const* file_name, int* status, int lower)
    : Disk_FileID(prefix, CS_NULL, lower) {
  if (Disk_RefuseNull("Disk_FileID()", status) == -1) return;
  std::string_view const path = file_name ? file_name : "";
  std::size_t const cut = prefix ? file_set_prefix->size() + 1 : 0; // the prefix and its separator
  *status = 0;
  if (path.size() <= cut) {
    DISK_FAIL(DISK_ERROR_FILE_NAME, "Disk_FileID(): Illegal file name (%s).\n", file_name ? file_name : "");
    *status = -1;
    return;
  }
  std::string components(path.substr(cut));
  std::replace(components.begin(), components.end(), '/', '\\');
  id = Dicom_CS(components.data(), int(components.size()), 1, status);
}

std::string Disk_FileID::Path() const {
  std::string path = FolderPath();
  if (path.size() <= (file_set_prefix ? file_set_prefix->size() : 0)) path.clear();
  return path;
}

std::string Disk_FileID::FolderPath() const {
  std::size_t const prefix = file_set_prefix ? file_set_prefix->size() : 0;
  std::string path;
  path.reserve(prefix + 1 + id.View().size());
  if (file_set_prefix) path = *file_set_prefix;
  for (std::string_view rest = id.View(); !rest.empty();) {
    std::string_view component = rest.substr(0, rest.find('\\'));
    rest.remove_prefix(std::min(rest.size(), component.size() + 1));
    if (component.ends_with(' ')) component.remove_suffix(1);
    if (component.empty()) continue;
    if (!IsSafe(component)) return {};
    path += '/';
    path += component;
  }
  if (lowercase)
    for (char& c : std::span(path).subspan(prefix))
      c = char(std::tolower(static_cast<unsigned char>(c)));
  return path.size() < kPathSize ? path : std::string();
}

Disk_FileID::operator char*() const {
  char* copy = nullptr;
  Disk_Allocating("Disk_FileID: out of memory.\n", [&] {
    std::string const path = FolderPath();
    bool const is_of_nothing = id.IsEmpty() && file_set_prefix && file_set_prefix->empty();
    if (path.empty() && !is_of_nothing) return -1;
    copy = new char[kPathSize];
    std::memcpy(copy, path.c_str(), path.size() + 1);
    return 0;
  });
  return copy;
}

int Disk_FileID::AddComponent(char const* component) {
  int status = component ? 0 : -1;
  if (status == -1) return -1;
  std::string const text = (id.IsEmpty() ? std::string() : id.GetText() + '\\') + component;
  if (text.size() >= kPathSize) return -1;
  Dicom_CS const longer(text.c_str(), &status);
  if (status != -1) id = longer;
  return status;
}

int Disk_FileID::RemoveLastComponent() {
  std::string_view const text = id.View();
  std::size_t const last = text.rfind('\\');
  id = last == std::string_view::npos ? CS_NULL : Dicom_CS(std::string(text.substr(0, last)));
  return 0;
}
