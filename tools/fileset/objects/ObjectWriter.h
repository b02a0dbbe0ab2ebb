// Writes objects into files of one folder. A file is there whole or not at all, and none is ever written
// outside of the folder, whatever the UIDs say.
#pragma once

#include <dicom/IOD_Msg.h>
#include <map>
#include <string>
#include <string_view>

class Report;

// Decompresses the pixels, if they are compressed. Whether it did; else `*problem` tells why it couldn't.
bool Decompress(IOD_Msg& object, std::string* problem);

class ObjectWriter {
public:
  // With `force` files that are there are written over.
  ObjectWriter(std::string folder, bool force) : folder_(std::move(folder)), force_(force) {}

  // Makes the folder, and those above it, if need be. 0, or -1 with errno.
  int MakeFolder() const;
  // `*path` becomes the file's: UID.dcm, or UID-2.dcm and so on for another object of that UID. 0, or -1 with
  // errno, EEXIST for a file that was there before.
  int Write(std::string_view uid, std::string_view bytes, std::string* path);
  // Writes a file of the object as it was read, or decompressed. The path; empty, reported for `name`, when there is
  // none. What can't be decompressed is reported and copied as it is.
  std::string Copy(IOD_Msg& object, std::string const& name, bool decompress, Report& report);
  // Whether a copy failed as the disk is full, or what the user may have of it; so will others.
  bool IsFull() const { return is_full_; }

private:
  std::string folder_;
  bool force_;
  bool is_full_ = false;
  std::map<std::string, int> names_; // how often each was given
};
