#pragma once
#include <dicom/Dicom_OtherTypes.h>
#include <infra/Disk_Export.h>
#include <infra/Util_OnDemand.h>

#include <memory>
#include <vector>

struct Dicom_Origin;
class Dicom_Msg;
class Dicom_TransferSyntax;

/// An ordered list of items, each a data set.
///
/// A sequence that came from a file knows where its items lie and makes the message of one when it is asked for, as
/// an IOD_Msg. Taking items off the front costs the same however many there are.
///
/// Any number of threads may read one sequence and its items at once: call const functions, and of an item those of a
/// const message.
class DISK_EXPORT Dicom_Sequence {
public:
  Dicom_Sequence();
  /// Parses a sequence's items from the descriptor's position; `length` is their length in bytes, -1 or FFFFFFFF for
  /// an undefined one. `*parsed_length` is the number of bytes of the items, without a delimitation item that ends
  /// them. `*error` is -1 on failure, and the sequence then is empty.
  Dicom_Sequence(int fd, long length, unsigned* parsed_length, Dicom_TransferSyntax const& syntax, int* error);
  /// Items in native transfer syntax that fill `length` bytes, as the dump of a sequence gives them. `*consumed`, which
  /// may be null, becomes their length, `*error` -1 when they can't be parsed. `copy` 0 borrows the bytes.
  Dicom_Sequence(char const* buffer, unsigned length, int copy, unsigned* consumed, int* error);
  /// For the sources of this library: the items in checked bytes of `origin`.
  Dicom_Sequence(std::shared_ptr<Dicom_Origin const> origin, char const* begin, char const* end);
  Dicom_Sequence(Dicom_Sequence const&) = delete;
  Dicom_Sequence& operator=(Dicom_Sequence const&) = delete;
  ~Dicom_Sequence();

  int GetNItems() const { return int(items_.size() - head_); }
  /// Item `i`, or null beyond the last. It stays the sequence's, unless it was appended without ownership.
  Dicom_Msg* Get(int i) const;
  /// Takes item `i` out. With `destroy` 0 the item lives on, and whoever called Get owns it if the sequence did.
  /// 0, or -1 when there is no such item.
  int Remove(int i, int destroy);
  /// Makes room for `count` items, so that appending them doesn't take it bit by bit.
  void Reserve(std::size_t count);
  /// Appends `msg`; with `own` the sequence is its owner from now on. 0, or -1 for a null message.
  int Append(Dicom_Msg* msg, bool own);
  /// Takes out and destroys all items for which `unwanted` holds, in one pass.
  template <class Unwanted>
  void RemoveIf(Unwanted unwanted) {
    int kept = 0;
    for (int i = 0; i < GetNItems(); ++i) {
      if (unwanted(*Get(i))) continue;
      swap(kept++, i);
    }
    changed_ = changed_ || kept < GetNItems();
    truncate(kept);
  }
  /// A copy that shares nothing with this sequence.
  std::unique_ptr<Dicom_Sequence> Clone() const;
  /// Whether items were appended, removed or changed since the sequence was made or read.
  bool HasChanged() const;

private:
  friend class Dicom_DataSetWriter;
  struct Item {
    Dicom_Msg* Msg() const { return borrowed ? borrowed : own.Get(); } // null: not made yet

    Util_OnDemand<Dicom_Msg> own; // made when it is asked for where the item came from a file
    Dicom_Msg* borrowed = nullptr;
    char const* bytes = nullptr;
    std::size_t length = 0;
  };
  Dicom_Sequence& operator=(Dicom_Sequence&& other) noexcept;
  Item const& item(int i) const { return items_[head_ + std::size_t(i)]; }
  void swap(int i, int j);
  void truncate(int count);

  std::shared_ptr<Dicom_Origin const> origin_;
  std::vector<Item> items_;
  std::size_t head_ = 0; // items before it were taken off the front
  bool changed_ = false;
};

/// The value that wraps a sequence.
class DISK_EXPORT Dicom_SQ : public Dicom_Type {
public:
  static constexpr Dicom_VR kVR = Dicom_VR::SQ;
  Dicom_SQ();
  /// Takes `sequence` over.
  explicit Dicom_SQ(Dicom_Sequence* sequence);
  /// `sequence` stays the caller's: with `copy` the value keeps a copy, otherwise it refers to the caller's, who
  /// keeps it alive for as long as the value.
  Dicom_SQ(Dicom_Sequence* sequence, int copy);
  /// The two constructors of a sequence of the same arguments.
  Dicom_SQ(int fd, unsigned length, unsigned* parsed_length, Dicom_TransferSyntax const& syntax, int* error);
  Dicom_SQ(char const* buffer, unsigned length, int copy, unsigned* consumed, int* error);
  Dicom_SQ(Dicom_SQ const& other);
  Dicom_SQ(Dicom_SQ&&) noexcept = default;
  Dicom_SQ& operator=(Dicom_SQ const& other);
  Dicom_SQ& operator=(Dicom_SQ&&) noexcept = default;
  ~Dicom_SQ() override;

  Dicom_VR GetVR() const override { return Dicom_VR::SQ; }
  /// Without sequence or without items.
  bool IsEmpty() const override { return GetNValues() == 0; }
  int GetNValues() const override { return sequence_ ? sequence_->GetNItems() : 0; }
  std::string GetText() const override { return {}; }
  std::size_t GetLength() const override { return GetDumpLen(); }
  void AppendBytes(std::string&) const override {}
  std::unique_ptr<Dicom_Type> Clone() const override { return std::make_unique<Dicom_SQ>(*this); }
  Dicom_SQ Duplicate() const { return *this; }
  bool operator==(Dicom_Type const& other) const override;
  bool operator==(Dicom_SQ const& other) const { return *this == static_cast<Dicom_Type const&>(other); }
  bool operator!=(Dicom_SQ const& other) const { return !(*this == other); }
  /// Sequence matching: one item of this value satisfies all elements of the key's first item.
  int Match(Dicom_Type const& key) const override;

  /// The wrapped sequence, or null.
  Dicom_Sequence* GetSequence() const { return sequence_; }
  /// The items' bytes in native transfer syntax, without the header of the sequence.
  unsigned GetDumpLen() const;
  /// Writes exactly GetDumpLen() bytes; the number written, or -1 when `length` differs from that.
  int Dump(char* buffer, unsigned length) const;

private:
  std::unique_ptr<Dicom_Sequence> owned_;
  Dicom_Sequence* sequence_ = nullptr;
};

DISK_EXPORT extern Dicom_SQ const SQ_NULL;
