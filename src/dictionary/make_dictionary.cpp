// Build-time program: turns a dictionary file in DCMTK's format into the tables of Dicom_DataDictionary.
//
//   make_dictionary dicom.dic Dicom_DataDictionary_table.cpp
//
// A line is tag, VR, keyword, number of values and origin, with tabs between:
//   (0010,0010) PN PatientName 1 DICOM
// A group or element may be a range: "6000-60FF" (even numbers), "0009-o-FFFF" (odd), "0010-u-00FF" (all). Of
// several lines with one tag the first counts; lines of another origin than DICOM (catch-alls, private) are
// passed over.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <dicom/Dicom_VR.h>

namespace {

struct Span {
  unsigned first, last, step;
};

struct Line {
  Span group, element;
  std::string vr;
  unsigned vm_min, vm_max;
  std::string keyword;

  uint32_t tag() const { return group.first << 16 | element.first; }
  uint32_t last_tag() const { return group.last << 16 | element.last; }
  bool is_range() const { return tag() != last_tag(); }
};

std::vector<std::string> split(std::string const& text, char separator) {
  std::vector<std::string> parts(1);
  for (char c : text) {
    if (c == separator)
      parts.emplace_back();
    else
      parts.back() += c;
  }
  return parts;
}

unsigned hex(std::string const& text) {
  if (text.size() != 4 || text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
    throw std::runtime_error("not a tag");
  return static_cast<unsigned>(std::stoul(text, nullptr, 16));
}

Span parse_span(std::string const& text) {
  std::vector<std::string> parts = split(text, '-');
  Span span{hex(parts.front()), hex(parts.back()), 1};
  if (parts.size() == 1) return span;
  std::string parity = parts.size() == 3 ? parts[1] : "e";
  if (parts.size() > 3 || (parity != "e" && parity != "o" && parity != "u") || span.first > span.last)
    throw std::runtime_error("not a range");
  if (parity == "u") return span;
  unsigned odd = parity == "o" ? 1 : 0;
  span.first += (span.first & 1) != odd ? 1 : 0;
  span.last -= (span.last & 1) != odd ? 1 : 0;
  span.step = 2;
  return span;
}

std::string parse_vr(std::string const& text) {
  if (text == "up") return "UL";   // an offset within a directory file
  if (text == "na") return "None"; // items and delimiters
  if (text == "xs" || text == "lt" || text == "ox" || text == "px") return text;
  if (text.size() != 2 || !Dicom_IsKnownVR(static_cast<Dicom_VR>(text[0] | text[1] << 8)))
    throw std::runtime_error("unknown VR");
  return text;
}

// "1", "2-4", "1-n", "2-2n"
void parse_vm(std::string const& text, Line& line) {
  std::vector<std::string> parts = split(text, '-');
  line.vm_min = static_cast<unsigned>(std::stoul(parts.front()));
  line.vm_max = text.back() == 'n' ? 0 : static_cast<unsigned>(std::stoul(parts.back()));
  if (parts.size() > 2 || line.vm_min > 255 || line.vm_max > 255) throw std::runtime_error("not a number of values");
}

std::string parse_keyword(std::string text) {
  std::string const retired = "RETIRED_";
  if (text.compare(0, retired.size(), retired) == 0) text.erase(0, retired.size());
  bool plain = std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isalnum(c) != 0; });
  if (text.empty() || !plain) throw std::runtime_error("not a keyword");
  return text;
}

// False: not a line for us.
bool parse_line(std::string const& text, Line& line) {
  if (text.empty() || text[0] == '#') return false;
  std::vector<std::string> fields = split(text, '\t');
  if (fields.size() != 5) throw std::runtime_error("not five fields");
  if (split(fields[4], '/').front() != "DICOM") return false;
  std::string const& tag = fields[0];
  size_t comma = tag.find(',');
  if (comma == std::string::npos || tag.front() != '(' || tag.back() != ')') throw std::runtime_error("not a tag");
  line.group = parse_span(tag.substr(1, comma - 1));
  line.element = parse_span(tag.substr(comma + 1, tag.size() - comma - 2));
  line.vr = parse_vr(fields[1]);
  line.keyword = parse_keyword(fields[2]);
  parse_vm(fields[3], line);
  return true;
}

std::vector<Line> read(std::string const& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("can't be opened");
  std::vector<Line> lines;
  std::string text;
  for (int number = 1; std::getline(file, text); ++number) {
    if (!text.empty() && text.back() == '\r') text.pop_back();
    Line line{};
    try {
      if (parse_line(text, line)) lines.push_back(line);
    } catch (std::exception const& e) {
      throw std::runtime_error("line " + std::to_string(number) + ": " + e.what());
    }
  }
  return lines;
}

// Ascending tags, single ones before ranges; the first of equals stays.
void sort_and_unite(std::vector<Line>& lines) {
  auto key = [](Line const& line) { return std::tuple(line.is_range(), line.tag(), line.last_tag()); };
  std::stable_sort(lines.begin(), lines.end(), [&](auto const& a, auto const& b) { return key(a) < key(b); });
  auto end = std::unique(lines.begin(), lines.end(), [&](auto const& a, auto const& b) { return key(a) == key(b); });
  lines.erase(end, lines.end());
}

std::string entry_text(Line const& line) {
  char tag[16];
  std::snprintf(tag, sizeof tag, "0x%08Xu", static_cast<unsigned>(line.tag()));
  return std::string("{") + tag + ", Dicom_VR::" + line.vr + ", " + std::to_string(line.vm_min) + ", " +
         std::to_string(line.vm_max) + ", \"" + line.keyword + "\"}";
}

void write(std::vector<Line> const& lines, std::ostream& out) {
  auto first_range = std::find_if(lines.begin(), lines.end(), [](auto const& l) { return l.is_range(); });
  out << "// Made at build time by make_dictionary.\n#include <dicom/Dicom_DataDictionary.h>\n\n"
      << "constexpr Dicom_DataDictionary::Entry Dicom_DataDictionary::s_entries[] = {\n";
  for (auto line = lines.begin(); line != first_range; ++line)
    out << "    " << entry_text(*line) << ",\n";
  out << "};\nconstexpr size_t Dicom_DataDictionary::s_entry_count = " << first_range - lines.begin() << ";\n\n"
      << "constexpr Dicom_DataDictionary::Range Dicom_DataDictionary::s_ranges[] = {\n";
  for (auto line = first_range; line != lines.end(); ++line)
    out << "    {" << entry_text(*line) << ", " << line->last_tag() << "u, " << line->group.step << ", "
        << line->element.step << "},\n";
  out << "};\nconstexpr size_t Dicom_DataDictionary::s_range_count = " << lines.end() - first_range << ";\n\n";

  std::vector<size_t> order(lines.size());
  for (size_t i = 0; i < order.size(); ++i)
    order[i] = i;
  std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return lines[a].keyword < lines[b].keyword; });
  out << "constexpr uint16_t Dicom_DataDictionary::s_by_keyword[] = {\n";
  for (size_t index : order)
    out << "    " << index << ",\n";
  out << "};\nconstexpr size_t Dicom_DataDictionary::s_keyword_count = " << order.size() << ";\n";
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: make_dictionary DICTIONARY OUTPUT\n";
    return 2;
  }
  try {
    std::vector<Line> lines = read(argv[1]);
    sort_and_unite(lines);
    bool has_range = !lines.empty() && lines.back().is_range();
    if (!has_range || lines.front().is_range() || lines.size() > 0xFFFF)
      throw std::runtime_error("not a dictionary of DICOM");
    std::ofstream out(argv[2]);
    write(lines, out);
    if (!out.flush()) throw std::runtime_error(std::string("can't write ") + argv[2]);
  } catch (std::exception const& e) {
    std::cerr << argv[1] << ": " << e.what() << '\n';
    return 1;
  }
  return 0;
}
