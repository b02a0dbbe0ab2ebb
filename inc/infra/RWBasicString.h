// The common body of RWCString and RWWString: a string with value semantics.
#pragma once

#include <infra/Disk_Export.h>

#include <compare>
#include <cstddef>
#include <string>
#include <utility>

template <class Char>
class DISK_EXPORT RWBasicString {
public:
  RWBasicString() = default;
  RWBasicString(Char const* text) { // null gives the empty string
    if (text) text_ = text;
  }
  RWBasicString(Char const* text, size_t length) : text_(text, length) {}
  RWBasicString(std::basic_string<Char> text) : text_(std::move(text)) {}

  Char const* data() const { return text_.c_str(); } // with a terminating null
  size_t length() const { return text_.length(); }
  bool isNull() const { return text_.empty(); } // no character in it
  std::basic_string<Char> const& str() const { return text_; }

  Char operator[](size_t i) const { return text_[i]; }
  /// The part from `start` on, of at most `length` characters; empty when `start` lies behind the end.
  RWBasicString operator()(size_t start, size_t length) const {
    return start < text_.length() ? RWBasicString(text_.substr(start, length)) : RWBasicString();
  }

  RWBasicString& append(RWBasicString const& other) {
    text_ += other.text_;
    return *this;
  }
  RWBasicString& operator+=(RWBasicString const& other) { return append(other); }

  friend RWBasicString operator+(RWBasicString a, RWBasicString const& b) { return std::move(a.append(b)); }
  friend bool operator==(RWBasicString const& a, RWBasicString const& b) { return a.text_ == b.text_; }
  friend auto operator<=>(RWBasicString const& a, RWBasicString const& b) { return a.text_ <=> b.text_; }

private:
  std::basic_string<Char> text_;
};
