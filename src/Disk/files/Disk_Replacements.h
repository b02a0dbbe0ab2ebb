// Files that take their places one after the other, when the new contents of all of them are on the disk. What a disk
// is given together it is done with sooner than what it is given piece by piece, each when the one before has arrived.
#pragma once

#include <infra/Util_FileSystem.h>

#include <functional>
#include <string>
#include <vector>

class Disk_Replacements {
public:
  /// `content` is what `path` is going to hold, and stands at `temporary`. `sync_entry`: when it has got its name, that
  /// is brought to the disk before anything else is done.
  void Add(Util_FileDescriptor content, std::string temporary, std::string path, bool sync_entry);
  /// What is to be done when the file that was added last is in its place; 0, or -1, which ends Finish.
  void Then(std::function<int()> done) { files_.back().done = std::move(done); }
  /// Syncs all contents, and brings them to their names in the order in which they came. 0, or -1 (logged): when a
  /// content couldn't be synced, all files are the old ones; otherwise those in front of the failure are new.
  int Finish();

private:
  struct File {
    Util_FileDescriptor content;
    std::string temporary, path;
    bool sync_entry;
    std::function<int()> done;
  };
  std::vector<File> files_;
};
