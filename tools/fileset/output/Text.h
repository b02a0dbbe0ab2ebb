// Text for people: UTF-8 that a terminal can be given, and tables of it.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

// Shows control characters, bytes that are no UTF-8, and marks that turn the writing direction around in the form \x1B.
// So text from an object can't move the cursor, forge a line or hide what it says.
std::string Printable(std::string_view text);

// The columns of a terminal that printable text takes; Chinese, Japanese and Korean characters take two.
std::size_t DisplayWidth(std::string_view printable);

// At most `width` columns of it, the last of which is `…` where something is missing.
std::string CutToWidth(std::string_view printable, std::size_t width);

class Table {
public:
  explicit Table(std::vector<std::string> headers) : rows_{std::move(headers)} {}
  void AddRow(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  // Columns aligned, two blanks between them. Cells go through Printable, and are cut where their column is
  // wider than `widest`; 0 cuts nothing.
  void Print(std::FILE* out, std::size_t widest) const;

private:
  std::vector<std::vector<std::string>> rows_; // the headers first
};
