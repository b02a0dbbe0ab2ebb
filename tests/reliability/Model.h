// What a file-set is believed to hold, and what it turns out to hold when it is asked.
#pragma once

#include "support/FileSet.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>

/// What is wrong, in one line.
struct Complaint : std::runtime_error {
  using std::runtime_error::runtime_error;
};

inline void Require(bool holds, std::string const& complaint) {
  if (!holds) throw Complaint(complaint);
}

struct Content {
  std::string study, series, patient_id, patient_name, pixels;
  friend bool operator==(Content const&, Content const&) = default;
};

struct Study {
  std::string patient_id, patient_name, is_protected, is_completed;
  friend bool operator==(Study const&, Study const&) = default;
};

struct Model {
  std::map<std::string, Content> objects; // by SOP Instance UID
  std::map<std::string, Study> studies;   // by Study Instance UID
  std::set<std::string> unfetched;        // found by a query, and not fetched: only what a delete was removing

  void Add(IOD_Msg const& object, bool standard);
  /// Objects, and the studies whose last ones they are.
  template <class Which>
  void Remove(Which which) {
    std::set<std::string> emptied, left;
    for (auto const& object : objects)
      (which(object) ? emptied : left).insert(object.second.study);
    std::erase_if(objects, which);
    std::erase_if(studies, [&](auto const& s) { return emptied.count(s.first) != 0 && left.count(s.first) == 0; });
  }
};

/// Null when it isn't there.
template <class Value>
Value const* Find(std::map<std::string, Value> const& map, std::string const& key) {
  auto const found = map.find(key);
  return found == map.end() ? nullptr : &found->second;
}
template <class Value>
bool Same(Value const* a, Value const* b) {
  return a && b ? *a == *b : a == b;
}

/// Of an object, its pixels decompressed.
Content ContentOf(IOD_Msg const& object);

/// The objects of all operations: small ones.
std::unique_ptr<IOD_Msg> MakeObject(Phantom::Object object);

/// For operations of all kinds; null when it can't be opened.
std::unique_ptr<Disk_RootDirectoryFile> OpenForAll(std::string const& path, unsigned flags);

/// What the check finds, objects included.
Disk_CheckResult CheckAll(std::string const& path, bool standard);

/// The studies, with these attributes. Throws when it can't be asked.
Answers AllStudies(Disk_RootDirectoryFile& root, std::vector<Dicom_Tag> const& tags);

/// Asks for everything in the file-set: each study, each object of it by a query, and fetches that.
Model Ask(Disk_RootDirectoryFile& root, bool standard);
