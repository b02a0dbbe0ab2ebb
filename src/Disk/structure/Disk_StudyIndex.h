#pragma once
#include <Disk/Disk_PatientDirectoryRecord.h>

#include "Disk/files/Disk_Tags.h"

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

  bool IsEmpty() const { return size_ == 0; }
  /// The number of studies.
  std::size_t Size() const { return size_; }
  void Clear() {
    entries_.clear();
    size_ = without_plain_uid_ = 0;
  }
  void Add(Disk_PatientDirectoryRecord* patient, Disk_StudyDirectoryRecord* study) {
    std::string const uid = study->GetRecordMsg()->Text(kStudyInstanceUid);
    entries_[uid].push_back({patient, study});
    ++size_;
    without_plain_uid_ += !IsPlainUid(uid);
  }
  /// Those under this UID, in their order, when it can be told that no other study has to do with it: `uid` is one
  /// plain UID, and all studies have one. Null otherwise.
  std::vector<Entry> const* AllOf(std::string_view uid) const {
    static std::vector<Entry> const s_none;
    if (without_plain_uid_ > 0 || !IsPlainUid(uid)) return nullptr;
    auto const place = entries_.find(std::string(uid));
    return place == entries_.end() ? &s_none : &place->second;
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
  static bool IsPlainUid(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789.") == text.npos;
  }

  std::size_t size_ = 0, without_plain_uid_ = 0;
  std::unordered_map<std::string, std::vector<Entry>> entries_;
};
