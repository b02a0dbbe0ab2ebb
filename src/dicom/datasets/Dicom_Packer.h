#pragma once
#include <dicom/Dicom_Msg.h>

#include <memory>
#include <string>
#include <string_view>

/// Makes many small messages of elements of others. Their bytes stand together in a few blocks of memory, each of which
/// lives as long as one of its messages.
class Dicom_Packer {
public:
  /// Whether an element's bytes can be taken as they are: text in ASCII or UTF-8 of a message whose bytes are in order.
  bool Takes(Dicom_ME const& element);
  /// Adds the element that was just found to be such a one to the message that is being made. The tags ascend, from
  /// (0008,0006) on.
  void Add(Dicom_ME const& element);
  /// The same for one that is added to many messages, as Encoded gave it.
  void Add(std::string_view encoded) { elements_.append(encoded); }
  /// The bytes of an element; empty for a UID that can't be taken as it is.
  static std::string Encoded(Dicom_Tag const& tag, Dicom_UI const& uid);
  void Drop();
  /// The message that was made, which declares UTF-8 where it holds more than ASCII; the next one begins.
  Dicom_Msg Finish();

private:
  std::string elements_;
  bool is_plain_ = true;
  bool next_is_plain_ = true; // of the element that Takes was asked about last
  std::shared_ptr<Util_Buffer> block_;
  std::shared_ptr<Dicom_Origin const> origin_; // of what stands in the block
  std::size_t used_ = 0, block_size_ = 512;
};
