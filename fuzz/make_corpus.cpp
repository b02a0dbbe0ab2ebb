// Writes the seeds of the fuzzers: make_corpus fuzz/corpus
#include "support/DataSetBytes.h"

#include <filesystem>
#include <fstream>

namespace {

std::filesystem::path s_directory;

void write(std::string const& name, std::string const& bytes) {
  std::filesystem::create_directories((s_directory / name).parent_path());
  std::ofstream(s_directory / name, std::ios::binary) << bytes;
}

// The last byte is the fuzzer's choice of how to read the rest.
void write_data_sets() {
  DataSetBytes const forms[] = {{true, false}, {false, false}, {true, true}};
  char const* const names[] = {"explicit", "implicit", "big_endian"};
  DataSetBytes const& implicit = forms[1];
  for (int i = 0; i < 3; ++i) {
    DataSetBytes const& form = forms[i];
    std::string const path = std::string("dataset/") + names[i], selector(1, static_cast<char>(4 + i));
    std::string const id = form.Text(0x00100020, "LO", "ID");
    write(path + "_all", form.AllVRs() + selector);
    write(path + "_nested", form.Nested(3, false, id) + form.Nested(3, true, id) + selector);
    write(path + "_items", form.OpenSequence(0x00081115, form.OpenItem(id) + form.Item("") + form.Item(id)) + selector);
    write(path + "_text",
          form.Text(0x00080005, "CS", "\\ISO 2022 IR 87") + form.Text(0x00100010, "PN", "\33$B;3ED\33(B") +
              form.Text(0x00080005, "CS", "ISO_IR 100") + form.Element(0x00280010, "US", "123") + selector);
    if (form.explicit_vr)
      write(path + "_unknown", form.Claiming(0x00091001, "UN", DataSetBytes::undefined, implicit.OpenItem("")) +
                                   implicit.SequenceEnd() + form.Element(0x00100010, "UN", "A") +
                                   form.Element(0x00091002, "ZZ", "1234") + selector);
    if (!form.big_endian)
      write(path + "_fragments", form.OpenSequence(0x7FE00010, form.Item("") + form.Item("\xFF\xD8"), "OB") + selector);
  }
  write("dataset/file", DataSetBytes::File("1.2.840.10008.1.2.1", forms[0].Text(0x00080060, "CS", "CT")) + '\0');
  // deflated without compression: a block of 10 bytes as they are
  write("dataset/deflated_file",
        DataSetBytes::File("1.2.840.10008.1.2.1.99",
                           std::string("\1\x0A\0\xF5\xFF", 5) + forms[0].Text(0x00080060, "CS", "CT")) +
            '\0');
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  s_directory = argv[1];
  write_data_sets();
  return 0;
}
