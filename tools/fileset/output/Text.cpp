#include "output/Text.h"

#include <algorithm>
#include <cwchar>

namespace {

bool TurnsDirection(wchar_t c) { return (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069); }

// Calls `use(bytes, width)` for each character; width is -1 for what can't be printed. The locale is UTF-8.
template <class Use>
void ForEachCharacter(std::string_view text, Use use) {
  while (!text.empty()) {
    wchar_t c = 0;
    std::mbstate_t state{};
    std::size_t length = std::mbrtowc(&c, text.data(), text.size(), &state);
    bool const valid = length > 0 && length <= text.size();
    if (!valid) length = 1;
    use(text.substr(0, length), valid && !TurnsDirection(c) ? wcwidth(c) : -1);
    text.remove_prefix(length);
  }
}

std::string Hexadecimal(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (char const c : bytes) {
    auto const byte = static_cast<unsigned char>(c);
    text.append("\\x").append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15]);
  }
  return text;
}

} // namespace

std::string Printable(std::string_view text) {
  std::string result;
  ForEachCharacter(text, [&](std::string_view bytes, int width) {
    if (width < 0)
      result += Hexadecimal(bytes);
    else
      result += bytes;
  });
  return result;
}

std::size_t DisplayWidth(std::string_view printable) {
  std::size_t total = 0;
  ForEachCharacter(printable, [&](std::string_view, int width) { total += std::size_t(std::max(width, 0)); });
  return total;
}

std::string CutToWidth(std::string_view printable, std::size_t width) {
  if (DisplayWidth(printable) <= width) return std::string(printable);
  std::string result;
  std::size_t used = 1; // by the …
  ForEachCharacter(printable, [&](std::string_view bytes, int columns) {
    used += std::size_t(std::max(columns, 0));
    if (used <= width) result += bytes;
  });
  return result + "…";
}

void Table::Print(std::FILE* out, std::size_t widest) const {
  std::vector<std::vector<std::string>> rows = rows_;
  std::vector<std::size_t> widths(rows[0].size());
  for (auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      row[i] = Printable(row[i]);
      if (widest > 0) row[i] = CutToWidth(row[i], widest);
      widths[i] = std::max(widths[i], DisplayWidth(row[i]));
    }
  }
  for (auto const& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      line.append(widths[i] - DisplayWidth(row[i]) + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    std::fprintf(out, "%s\n", line.c_str());
  }
}
