#pragma once
#include "dicom/encoding/Dicom_Origin.h"
#include "dicom/encoding/Dicom_Pieces.h"

#include <dicom/Dicom_Msg.h>

/// Encodes data sets. With a place to write to it writes the bytes; without one it only counts them. It can also gather
/// them as pieces, which refer to the messages' own bytes.
///
/// Bytes that were read and not changed are copied as they are, whole messages at once where nothing about them
/// differs from what is asked for. What is written anew has even lengths, sequences and items of defined length and
/// no group lengths.
class Dicom_DataSetWriter {
public:
  explicit Dicom_DataSetWriter(Dicom_Encoding encoding, char* out = nullptr, std::size_t capacity = 0)
      : encoding_(encoding), out_(out), capacity_(capacity) {}
  Dicom_DataSetWriter(Dicom_Encoding encoding, Dicom_Pieces& pieces)
      : encoding_(encoding), out_(nullptr), capacity_(0), pieces_(&pieces) {}

  void Message(Dicom_Msg const& msg) { message(msg, *Dicom_UndeclaredSet()); }
  /// The items of a sequence, without its header.
  void Items(Dicom_Sequence const& sequence, Dicom_CharacterSet const& surrounding);
  std::size_t Length() const { return length_; }
  /// False when the place to write to was too small (nothing was written beyond it), or when there was something that
  /// no reader would take: nesting beyond the limit, a value too long for its length field, or what the encoding has
  /// no form for, such as fragments in big endian.
  bool Ok() const { return !failed_ && fits(); }

private:
  bool fits() const { return !out_ || length_ <= capacity_; }
  void message(Dicom_Msg const& msg, Dicom_CharacterSet const& surrounding);
  /// The bytes of a message, if they can be copied as they are.
  Dicom_PackedElements const* whole(Dicom_Msg const& msg, Dicom_CharacterSet const& set) const;
  bool copy_with_header(Dicom_Msg const& item, Dicom_CharacterSet const& surrounding);
  void element(Dicom_ME const& element, Dicom_CharacterSet const& set);
  void raw(Dicom_ME const& element, Dicom_CharacterSet const& set);
  void typed(Dicom_ME const& element, Dicom_Type const& value, Dicom_CharacterSet const& set);
  void sequence(Dicom_ME const& element, Dicom_CharacterSet const& set);
  void leaf(std::uint32_t tag, Dicom_VR vr, std::string_view bytes, std::size_t width, bool big_endian,
            bool stays = false);
  void fragments(std::uint32_t tag, Dicom_VR vr, std::string_view bytes);
  void with_delimiter(std::uint32_t tag, Dicom_VR vr, std::string_view bytes);
  void delimiter(bool big_endian);

  struct Header {
    char bytes[12];
    std::size_t length; // 8 or 12
    Dicom_VR vr;
  };
  Header header_of(std::uint32_t tag, Dicom_VR vr, std::size_t length);
  void put_header(std::uint32_t tag, Dicom_VR vr, std::size_t length);
  void append(void const* bytes, std::size_t length);
  void refer(char const* bytes, std::size_t length);
  struct Place {
    std::size_t behind; // the bytes up to its end
    std::size_t field;  // among those that are encoded
  };
  std::size_t next_place() const;
  char* at(std::size_t place);
  Place last_length() const;
  void patch_length(Place const& place);
  bool can_copy(Dicom_Origin const& origin, Dicom_CharacterSet const& set) const;
  /// Whether nothing in the origin's bytes can be nested too deep where it is being written.
  bool is_shallow(Dicom_Origin const& origin) const;

  Dicom_Encoding encoding_;
  char* out_;
  std::size_t capacity_;
  Dicom_Pieces* pieces_ = nullptr;
  std::size_t length_ = 0;
  int depth_ = 1; // data sets around what is being written
  bool failed_ = false;
  bool as_read_ = false; // nothing changed in the sequence that is being written, so nobody has to look again
};

/// Whether two sets decode and encode alike.
bool Dicom_SameSet(Dicom_CharacterSet const& a, Dicom_CharacterSet const& b);

/// `text` in a character set; what isn't in it becomes `?`. Where no set is declared text stays in UTF-8, which is
/// how directory records keep it. The result is `text` itself or stands in `storage`.
///
/// The set holds for all text but its own declaration. By the standard a code or a UID is ASCII; some writers don't
/// keep to that, and mean their set.
std::string_view Dicom_EncodeText(std::string_view text, Dicom_VR vr, Dicom_CharacterSet const& set,
                                  std::string& storage);
bool Dicom_CanEncodeText(std::string_view text, Dicom_VR vr, Dicom_CharacterSet const& set);
std::string Dicom_DecodeText(std::string_view bytes, Dicom_VR vr, Dicom_CharacterSet const& set);
