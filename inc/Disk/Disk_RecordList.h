#pragma once
#include <Disk/Disk_DirectoryRecord.h>
#include <Disk/Disk_RecordSource.h>
#include <infra/Disk_Export.h>
#include <infra/RWSlistCollectables.h>

#include <memory>
#include <string_view>
#include <vector>

class Disk_RecordWindow;
class Disk_StorageStrategy;

/// The records of one level, whatever their class: a list that owns them, and in the standard structure a chain of
/// items in the DICOMDIR, linked by offsets that the records hold.
///
/// New records go to the end of the file and old ones are rewritten in place, in their length; nothing is moved.
/// An operation that writes what changed costs no more however long the chain is, and so does finding a record by a
/// text.
class DISK_EXPORT Disk_RecordChain : public RWSlistCollectables {
public:
  ~Disk_RecordChain() override;

  /// Replaces the content by the chain that starts at `offset`; 0 stands for an empty one. 0, or -1 (logged); the
  /// records read so far stay. A chain that loops, leaves the file or holds a record of an upper level fails.
  int ReadRecords(int fd, Dicom_TransferSyntax const& syntax, unsigned offset);
  int ReadRecords(Disk_RecordSource const& source, unsigned offset) { return ReadRecords(source, offset, offset); }
  /// `owner` is the place of the record above the chain: no other may have it too.
  int ReadRecords(Disk_RecordSource const& source, unsigned offset, unsigned owner);
  /// Writes the new and changed records, the first of which stands at `offset`, through `strategy` or, when that is
  /// null, to `fd`. They stay new and changed: each call writes them again. 0, or -1 (logged): before anything is
  /// written when a record would not fit its place, otherwise in the middle.
  int WriteRecords(int fd, Dicom_TransferSyntax const& syntax, unsigned offset, Disk_StorageStrategy* strategy);
  /// For an operation on a DICOMDIR, which has the records from there: writes those that are new or have changed since
  /// the last call, each to its place, and no others.
  int WriteUnwritten(Dicom_TransferSyntax const& syntax, Disk_StorageStrategy& gather);
  /// Appends a record of the list's class that consists of `msg`. 0, or -1 when that is no directory record.
  int Take(std::unique_ptr<Dicom_Msg> msg);
  /// The number of records whose Record In-use Flag isn't 0.
  int CountRecordsInUse() const;

  void clearAndDestroy();
  RWCollectable* remove(RWCollectable const* item);

protected:
  Disk_RecordChain();
  int add_new_record(Disk_DirectoryRecord* record, unsigned offset);
  /// The records whose `tag` has this text, in the order of the list. It is one by which a record is named: an index
  /// keeps the text that a record had when it came to the list.
  std::vector<Disk_DirectoryRecord*> find(Dicom_Tag const& tag, std::string_view text) const;

  /// Makes an empty record of the list's class.
  virtual std::unique_ptr<Disk_DirectoryRecord> make() const = 0;
  /// 0 patient, 1 study, 2 series, 3 instance.
  virtual int level() const = 0;
  /// Reads what a record of the list, which stands at that place, owns. 0, or -1.
  virtual int read_below(Disk_DirectoryRecord&, Disk_RecordSource const&, unsigned) { return 0; }

private:
  struct Output;
  struct Index;
  Index* index_of(Dicom_Tag const& tag) const;
  int read_chain(Disk_RecordSource const& source, unsigned offset, unsigned owner);
  int write_chain(int fd, Dicom_TransferSyntax const& syntax, unsigned offset, Disk_StorageStrategy* strategy);
  int read_record(Disk_RecordSource const& source, Disk_RecordWindow& window, unsigned offset, unsigned owner);
  int write_record(Output& output, Dicom_TransferSyntax const& syntax, Disk_DirectoryRecord const& record,
                   unsigned offset) const;
  bool fits(Disk_DirectoryRecord const& record, Dicom_TransferSyntax const& syntax) const;
  /// Records that have changed since they were written; they enlist themselves.
  std::vector<Disk_DirectoryRecord*> unwritten_;
  mutable std::vector<std::unique_ptr<Index>> indexes_; // one per tag that a long list is searched by
};

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
