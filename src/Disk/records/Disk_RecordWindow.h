#pragma once
#include <Disk/Disk_RecordSource.h>
#include <dicom/Dicom_Msg.h>

#include <cstdint>
#include <memory>

class Util_Buffer;

/// Reads the records of a chain. Those that stand behind one another are read several at a time, and their messages
/// share the bytes and what is known of them. No more is read ahead than such records have taken before, so that what
/// the messages keep alive stays below twice their bytes.
class Disk_RecordWindow {
public:
  explicit Disk_RecordWindow(Disk_RecordSource const& source) : source_(source) {}

  /// The data set of the item at `offset`, which is among the records of the source; `*length` becomes that of the item
  /// with its header. -1, logged, when no whole one stands there.
  int Read(unsigned offset, Dicom_Msg* record, unsigned* length);

private:
  bool covers(unsigned offset, std::uint64_t length) const;
  void read_ahead(unsigned offset);
  int read_header(unsigned offset, std::uint32_t* length) const;
  std::shared_ptr<Util_Buffer const> read_alone(unsigned offset, std::uint32_t length) const;

  Disk_RecordSource const& source_;
  std::shared_ptr<Util_Buffer const> bytes_; // of the file, from begin_ on; null before there are any
  unsigned begin_ = 0;
  Dicom_Msg neighbour_; // the first that was made of them
  bool has_neighbour_ = false;
  unsigned next_ = 0; // behind the record that was read last; 0: unknown
  unsigned run_ = 0;  // bytes of the records that stood behind one another up to there
};
