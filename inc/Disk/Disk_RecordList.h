#pragma once
#include <Disk/Disk_RecordChain.h>
#include <infra/Disk_Export.h>

/// The records of one level in the order of their file. The list owns them.
///
///     for (Disk_SeriesDirectoryRecord* record : series_records) ...
template <class T>
class DISK_EXPORT Disk_RecordList : public Disk_RecordChain {
public:
  Disk_RecordList() = default;

  /// Appends a filled record that is to stand at `offset` and links it to the last one. 0, and the list owns it; -1
  /// (logged) otherwise.
  int AddNewRecord(T* record, unsigned offset) { return add_new_record(record, offset); }

  /// The first record with this text of `tag` for which `wanted` holds, or null.
  template <class Wanted>
  T* Find(Dicom_Tag const& tag, std::string_view text, Wanted wanted) const {
    for (Disk_DirectoryRecord* record : find(tag, text))
      if (wanted(static_cast<T&>(*record))) return static_cast<T*>(record);
    return nullptr;
  }

  class Iterator : public RWSlistCollectables::const_iterator {
  public:
    explicit Iterator(RWSlistCollectables::const_iterator i) : RWSlistCollectables::const_iterator(i) {}
    T* operator*() const { return static_cast<T*>(RWSlistCollectables::const_iterator::operator*()); }
  };
  Iterator begin() const { return Iterator(RWSlistCollectables::begin()); }
  Iterator end() const { return Iterator(RWSlistCollectables::end()); }

protected:
  std::unique_ptr<Disk_DirectoryRecord> make() const override { return std::make_unique<T>(); }
  int level() const override { return T::kLevel; }
  int read_below(Disk_DirectoryRecord& record, Disk_RecordSource const& source, unsigned place) override {
    if constexpr (requires(T & t) { t.ReadStudies(source, place); })
      return static_cast<T&>(record).ReadStudies(source, place);
    return 0;
  }
};
