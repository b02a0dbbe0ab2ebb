// Writes the seeds of the fuzzers: make_corpus fuzz/corpus
#include "support/DataSetBytes.h"
#include "support/FileSetExercise.h"

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
    std::string const path = std::string("dataset/") + names[i], selector(1, static_cast<char>(2 + i));
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
  write("dataset/stored", forms[0].AllVRs() + '\7');
}

/// What stands behind the header of the record sequence.
std::string records(std::string const& file) { return file.substr(file.find("\x04\0\x20\x12SQ", 0, 6) + 12); }

void write_directories() {
  FileSetExercise const standard(Disk_StoreParams::STANDARD_STRUCTURE);
  std::string const dicomdir = standard.files.at("DICOMDIR");
  write("dicomdir/file", dicomdir + '\0');
  write("dicomdir/records", records(dicomdir) + '\1');
  DataSetBytes const b;
  auto const number = [&b](std::size_t n) { return b.Number(n, 4); };
  write("dicomdir/redo", "DISKREDO" + number(1) + number(2) + number(1) + number(320) + number(4) + number(1) +
                             number(dicomdir.size()) + number(8) + b.Item("") + number(0) + number(9) + '\3');
  FileSetExercise const own(0);
  for (auto const& [name, bytes] : own.files) {
    bool const root = name == "DICOMDIR", series = std::count(name.begin(), name.end(), '/') == 2;
    if (!root && !name.ends_with("DIRFILE")) continue;
    char const selector = root ? '\0' : series ? '\2' : '\1';
    std::string const kind = root ? "root" : series ? "series" : "study";
    write("private/" + kind, bytes + selector);
    write("private/" + kind + "_records", records(bytes) + char(selector + 4));
  }
  write("private/version", number(7) + '\3');
}

void write_texts() {
  write("config/all", "push: {max_cached_studies: 500, max_repository_size_mb: 9, repository_hd_percentage_spare: 5,\n"
                      "  modality_image_size: {ct: 520, mr: 130}}\n"
                      "durability: relaxed\nlog: {file: a.log, level: 5}\n"
                      "velquant: {system: {applications: {loader: {pull_client: {\n"
                      "  store_grader: {7: 65, 3: 80, default: 20}, access_grader: {}}}}}}\n");
  write("config/odd", "push:\n  - 1\n  max_cached_studies: &a '7'\n  x: *a\n? [k, v]\n: !!int 07\n--- |\n  text\n");
  write("config/block", "# a comment\npush:\n  max_cached_studies: 0x10\n  push:\nlog:\n  level: \"5\\x41\"\n");
  write("identifier/study",
        "0PatientName=G*^?j*rn\nStudyDate=20200101-20251231\nPatientID\nStudyInstanceUID=1.2\\1.3\n");
  write("identifier/series", "1Modality=CT\\MR\nSeriesNumber=1\n0010,0010=*\nSeriesTime=-120000.5\nStudyStoreDate\n");
  write("identifier/image", "2InstanceNumber=2\nRows\nSOPInstanceUID=\nReferencedFileID=S*\nIconImageSequence\n");
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  s_directory = argv[1];
  write_data_sets();
  write_directories();
  write_texts();
  return 0;
}
