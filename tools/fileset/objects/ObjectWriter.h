// Writes objects into files of one folder. A file appears whole or not at all, and is never written outside of the
// folder, whatever the UIDs say.
#pragma once

#include <dicom/IOD_Msg.h>
#include <map>
#include <string>
#include <string_view>

class Report;

// Decompresses the pixels, if they are compressed. Returns whether it did; if it failed, `*problem` says why.
bool Decompress(IOD_Msg& object, std::string* problem);

class ObjectWriter {
public:
  // With `force` existing files are replaced.
  ObjectWriter(std::string folder, bool force) : folder_(std::move(folder)), force_(force) {}

  // Makes the folder, and those above it, if they don't exist. 0, or -1 with errno.
  int MakeFolder() const;
  // Writes a file. `*path` becomes UID.dcm in the folder, or UID-2.dcm and so on for another object of that UID. 0, or
  // -1 with errno: EEXIST if the file existed.
  int Write(std::string_view uid, std::string_view bytes, std::string* path);
  // Writes the object as it was read, or decompressed. Returns the path; empty after a failure, which is reported for
  // `name`. Pixels that can't be decompressed are reported and copied as they are.
  std::string Copy(IOD_Msg& object, std::string const& name, bool decompress, Report& report);
  // Whether a copy failed because the disk or the user's quota is full. Further copies will fail too.
  bool IsFull() const { return is_full_; }

private:
  std::string folder_;
  bool force_;
  bool is_full_ = false;
  std::map<std::string, int> names_; // how often each was given
};
