#include <algorithm>
#include <infra/CToolParse.h>
#include <infra/Util_FileSystemInterface.h>

Klb_ParseDirectory::~Klb_ParseDirectory() = default;

int Klb_ParseDirectory::ParseDirectory(RWCString folder, int depth) {
  using Entry = Util_FileSystemInterface::Entry;
  std::vector<Entry> entries;
  if (Util_FileSystemInterface::Current().List(folder.data(), entries) == -1) return -1;
  std::sort(entries.begin(), entries.end(), [](Entry const& a, Entry const& b) { return a.name < b.name; });
  int result = 0;
  for (Entry const& entry : entries) {
    RWCString const path(folder.str() + "/" + entry.name);
    bool const is_folder = entry.type == Entry::Directory;
    if (is_folder && depth > 1 && ParseDirectory(path, depth - 1) == -1) result = -1;
    if ((is_folder ? ProcessFolder(path) : ProcessFile(path)) == -1) result = -1;
  }
  return result;
}

int CToolParse::ProcessFile(RWCString path) {
  m_paths.push_back(std::move(path));
  return 0;
}

int CToolParse::ProcessFolder(RWCString path) { return m_listFolders ? ProcessFile(std::move(path)) : 0; }

void CToolParse::BackslashToSlash() {
  for (RWCString& path : m_paths) {
    std::string text = path.str();
    std::replace(text.begin(), text.end(), '\\', '/');
    path = RWCString(std::move(text));
  }
}
