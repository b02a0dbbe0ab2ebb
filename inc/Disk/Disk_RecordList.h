#pragma once
#include <dicom/Dicom_NumberTypes.h>
#include <infra/RWSlistCollectables.h>

/// The records of one level in the order of their file. The list owns them.
///
///     for (Disk_SeriesDirectoryRecord* record : series_records) ...
template <class T>
class Disk_RecordList : public RWSlistCollectables {
public:
  Disk_RecordList() = default;
  ~Disk_RecordList() override { clearAndDestroy(); }

  /// The number of records whose Record In-use Flag isn't 0.
  int CountRecordsInUse() const {
    int count = 0;
    for (T* record : *this)
      if (record->GetRecordInUseFlag() != Dicom_US(0)) ++count;
    return count;
  }

  class Iterator : public RWSlistCollectables::const_iterator {
  public:
    explicit Iterator(RWSlistCollectables::const_iterator i) : RWSlistCollectables::const_iterator(i) {}
    T* operator*() const { return static_cast<T*>(RWSlistCollectables::const_iterator::operator*()); }
  };
  Iterator begin() const { return Iterator(RWSlistCollectables::begin()); }
  Iterator end() const { return Iterator(RWSlistCollectables::end()); }
};
