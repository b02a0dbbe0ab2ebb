#pragma once
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Bytes that are about to be written, as a list of pieces. A piece holds what was encoded anew, or refers to a long
/// run of bytes that stays where it is and isn't copied.
class Dicom_Pieces {
public:
  void Copy(void const* bytes, std::size_t length) {
    if (length == 0) return;
    own_.append(static_cast<char const*>(bytes), length);
    add(nullptr, length);
  }
  /// Bytes that stay where they are for as long as the pieces are used. A few that stand alone are copied all the same.
  void Refer(char const* bytes, std::size_t length) {
    constexpr std::size_t kFew = 256;
    if (length < kFew && !follows(bytes)) return Copy(bytes, length);
    add(bytes, length);
  }
  /// The bytes that were copied, by their place among them.
  std::size_t CopiedLength() const { return own_.size(); }
  char* Copied(std::size_t place) { return own_.data() + place; }

  std::size_t Count() const { return pieces_.size(); }
  /// All in their order; good until something is added.
  std::vector<std::string_view> Views() const {
    std::vector<std::string_view> views;
    views.reserve(pieces_.size());
    char const* own = own_.data();
    for (Piece const& piece : pieces_) {
      views.emplace_back(piece.bytes ? piece.bytes : own, piece.length);
      if (!piece.bytes) own += piece.length;
    }
    return views;
  }

private:
  struct Piece {
    char const* bytes; // null: the next ones of those that were copied
    std::size_t length;
  };
  bool follows(char const* bytes) const {
    return !pieces_.empty() && pieces_.back().bytes && pieces_.back().bytes + pieces_.back().length == bytes;
  }
  void add(char const* bytes, std::size_t length) {
    bool const goes_on = bytes ? follows(bytes) : !pieces_.empty() && !pieces_.back().bytes;
    if (goes_on) {
      pieces_.back().length += length;
    } else {
      pieces_.push_back({bytes, length});
    }
  }

  std::string own_;
  std::vector<Piece> pieces_;
};
