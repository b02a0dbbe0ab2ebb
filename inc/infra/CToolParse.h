// Listing of folders: what stands in one is handed, entry by entry, to a derived class.
#pragma once

#include <infra/Disk_Export.h>
#include <infra/RWCString.h>
#include <vector>

class DISK_EXPORT Klb_ParseDirectory {
public:
  virtual ~Klb_ParseDirectory();

  /// A file: anything but a folder, a symbolic link included. -1 when it can't be processed.
  virtual int ProcessFile(RWCString path) = 0;
  virtual int ProcessFolder(RWCString path) = 0;

  /// Hands over what stands in `folder`, in the order of the names, `depth` levels deep; what is in a folder
  /// before the folder. Links are not followed. 0, or -1 when a folder can't be listed or an entry was refused
  /// with -1; the other entries have been handed over then.
  [[nodiscard]] int ParseDirectory(RWCString folder, int depth);
};

/// Lists one folder into `m_paths`.
class DISK_EXPORT CToolParse : public Klb_ParseDirectory {
public:
  explicit CToolParse(int /*unused*/) {}

  int ProcessFile(RWCString path) override;
  int ProcessFolder(RWCString path) override;
  void BackslashToSlash();

  std::vector<RWCString> m_paths; ///< full paths
  bool m_listFolders = false;     ///< whether folders are among them
};

/// What becomes of files and folders that nothing in a file-set refers to. The scan calls it while it holds
/// locks: it must not call the file-set.
class DISK_EXPORT CToolParseDICOMReport : public Klb_ParseDirectory {
public:
  /// ProcessFile: a file that no record names. -1 when it can't be processed: that is logged for a file of a series;
  /// for one in a folder that no record names it ends the scan of that level, in the file-set's own folder all of it
  /// with -1, as soon as the rest of that folder has been handed over.
  /// ProcessFolder: a folder that no record names, after ParseDirectory on it; the result isn't looked at. A folder in
  /// such a one comes alone, and its -1 counts like that of a file there.
};
