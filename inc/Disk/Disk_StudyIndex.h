#pragma once
#include <Disk/Disk_PatientDirectoryRecord.h>

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// Finds a study, and its patient, by the Study Instance UID, however many there are.
class Disk_StudyIndex {
public:
  struct Entry {
    Disk_PatientDirectoryRecord* patient = nullptr;
    Disk_StudyDirectoryRecord* study = nullptr;
  };

  bool IsEmpty() const { return entries_.empty(); }
  void Clear() { entries_.clear(); }
  void Add(Disk_PatientDirectoryRecord* patient, Disk_StudyDirectoryRecord* study) {
    entries_[study->GetRecordMsg()->GetStudyInstanceUID().GetText()].push_back({patient, study});
  }
  /// The first one added under this UID for which `wanted` holds; empty otherwise.
  template <class Wanted>
  Entry Find(std::string_view uid, Wanted wanted) const {
    auto const place = entries_.find(std::string(uid));
    if (place == entries_.end()) return {};
    for (Entry const& entry : place->second)
      if (wanted(entry)) return entry;
    return {};
  }

private:
  std::unordered_map<std::string, std::vector<Entry>> entries_;
};
