// The file-sets and data sets of somebody who means harm. What is expected of each: an error that is told, or right
// handling, in time and in little memory; nothing that leads out of the file-set; nothing changed by reading.
#include "Campaign.h"

#include "dicom/files/Util_Inflate.h"
#include "support/DataSetProperty.h"
#include "support/Deflated.h"
#include "support/DicomdirWalk.h"
#include "support/FileSetExercise.h"

#include <ctime>
#include <dicom/Dicom_UIDic.h>
#include <dicom/Util_File.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <sstream>

#include <tuple>

namespace {

/// What one piece of work costs, told by a process of its own.
struct Cost {
  bool ended = false;    // by itself
  bool result = false;   // what the work gave
  double seconds = 0;    // of processor time
  std::size_t bytes = 0; // by which the memory in use was greater than before, at its peak
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMeasuresMemory = false; // that of the sanitizer would be measured
constexpr double kSlower = 10;
#else
constexpr bool kMeasuresMemory = true;
constexpr double kSlower = 1;
#endif

std::size_t StatusBytes(std::string const& field) {
  std::ifstream status("/proc/self/status");
  for (std::string name, rest; status >> name && std::getline(status, rest);)
    if (name == field) return std::stoul(rest) * 1024;
  return 0;
}

Cost Measure(std::function<bool()> const& work) {
  Cost cost;
  int ends[2];
  if (pipe(ends) == -1) return cost;
  pid_t const child = fork();
  if (child == 0) {
    std::ofstream("/proc/self/clear_refs") << 5; // the peak is what is used now
    std::size_t const before = StatusBytes("VmRSS:");
    std::clock_t const start = std::clock();
    cost.result = work();
    cost.seconds = double(std::clock() - start) / CLOCKS_PER_SEC;
    std::size_t const peak = StatusBytes("VmHWM:");
    cost.bytes = peak > before ? peak - before : 0;
    cost.ended = true;
    _exit(write(ends[1], &cost, sizeof cost) == sizeof cost ? 0 : 1);
  }
  close(ends[1]);
  if (read(ends[0], &cost, sizeof cost) != sizeof cost) cost = {};
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (status != 0) cost.ended = false;
  return cost;
}

namespace fs = std::filesystem;

constexpr unsigned kStandard = Disk_StoreParams::STANDARD_STRUCTURE;
DataSetBytes const b;
constexpr std::size_t kFindings = Disk_CheckResult::kMostFindings * 512; // what a check may hold of what it found

class Hostile {
public:
  Hostile(bool full, unsigned seed) : full_(full), random_(seed) {}

  Result Run() {
    Links();
    for (unsigned const structure : {0u, kStandard}) {
      Names(structure);
      Kinds(structure);
    }
    Siblings();
    DataSets();
    Megabytes();
    char text[200];
    std::snprintf(text, sizeof text,
                  "%d links, %d names, %d links and kinds of files, %d sizes, the slowest MB %.2f s, "
                  "memory beyond the file %ld MB, %zu escapes",
                  counts_[0], counts_[1], counts_[2], counts_[3], slowest_, largest_, escapes_);
    return {text, std::uint64_t(failures_) + escapes_};
  }

private:
  enum Part { Link, Name, Kind, Size };

  void Expect(Part part, std::string const& what, std::string const& problem) {
    ++counts_[part];
    if (problem.empty()) return;
    ++failures_;
    std::printf("  %s: %s\n", what.c_str(), problem.c_str());
  }
  static void Put(std::string& text, std::size_t at, std::uint32_t number) { text.replace(at, 4, b.Number(number, 4)); }

  /// Every link of a DICOMDIR gets every number that may do harm; then several at random.
  void Links() {
    FileSetExercise set(kStandard);
    std::string const sound = set.files["DICOMDIR"];
    DicomdirWalk const walk(set.At("DICOMDIR"));
    std::vector<std::size_t> links{sound.find(b.Claiming(0x00041200, "UL", 4)) + 8,
                                   sound.find(b.Claiming(0x00041202, "UL", 4)) + 8};
    auto const size = std::uint32_t(sound.size());
    std::vector<std::uint32_t> numbers{0,        1,    walk.begin - 1, walk.begin + 2, size - 8,
                                       size - 1, size, size + 1,       1u << 31,       ~0u};
    for (int level = 0; level < 4; ++level)
      for (auto const* record : walk.Level(level)) {
        numbers.push_back(record->place); // itself, behind, before, with another parent, of another level
        numbers.push_back(record->place + 8);
        links.push_back(record->place + 16); // next
        links.push_back(record->place + 38); // below
      }
    auto const run = [&](std::string const& what, std::string const& bytes) {
      Expect(Link, what, set.RunWith("DICOMDIR", bytes));
    };
    for (std::size_t const link : links)
      for (std::uint32_t const number : numbers) {
        std::string bytes = sound;
        Put(bytes, link, number);
        run("link at " + std::to_string(link) + " to " + std::to_string(number), bytes);
      }
    for (int const shift : {-12, -8, -2, -1, 1, 2, 8, 12}) {
      std::string bytes = sound;
      for (std::size_t const link : links)
        if (std::uint32_t const old = DicomdirWalk::Load(sound, link, 4)) Put(bytes, link, old + std::uint32_t(shift));
      run("all offsets off by " + std::to_string(shift), bytes);
    }
    std::string inconsistent = sound;
    inconsistent.replace(sound.find(b.Claiming(0x00041212, "US", 2)) + 8, 2, "\xFF\xFF");
    run("consistency flag", inconsistent);
    for (int i = 0; i < (full_ ? 5000 : 100); ++i) {
      std::string bytes = sound;
      for (int changes = 2 + int(random_() % 4); changes > 0; --changes)
        Put(bytes, links[random_() % links.size()], numbers[random_() % numbers.size()]);
      run("links at random, " + std::to_string(i), bytes);
    }
    escapes_ += set.escapes;
  }

  /// UIDs and names of objects, and file IDs of records, that a path can't be made of, or must not.
  void Names(unsigned structure) {
    FileSetExercise set(structure);
    std::vector<std::string> names = {"", std::string("a\0b", 3), std::string("..\0", 3), std::string(65, '1'),
                                      std::string(600, 'A')};
    std::istringstream others("..|.| |...|..\\..\\etc|/etc|/|a/b|../../outside/file|..\\outside\\file|1.2.3   |abc|"
                              "\xC3\xA4\xC3\xB6|\xFF\xFE|CON|NUL.txt|*|?|1.2.*|A\nB|\x1B[2J|%s%n|DICOMDIR|LOCKFILE|"
                              "VERSION|~|$HOME|-rf|1.2.\\1.3");
    for (std::string name; std::getline(others, name, '|');)
      names.push_back(name);
    Dicom_Tag const tags[] = {kStudyUid,        kSeriesUid,       kSopUid,   {0x0020, 0x0010},
                              {0x0020, 0x0011}, {0x0020, 0x0013}, kPatientId};
    for (std::string const& name : names) {
      for (Dicom_Tag const& tag : tags) {
        std::unique_ptr<IOD_Msg> const object = Phantom::Make({.patient = 7, .size = 4});
        object->Set(tag, Dicom_UC(name));
        object->Set(Dicom_Tag(0x0009, 0x1003), Dicom_UC(name));
        Expect(Name, "object with '" + name + "'", set.RunWith(*object));
      }
      for (auto const& [file, bytes] : set.files)
        for (std::size_t at = 0; (at = bytes.find(b.Tag(0x00041500) + "CS", at)) != std::string::npos; ++at) {
          std::size_t const length = static_cast<unsigned char>(bytes[at + 6]);
          std::string changed = bytes, value = name.substr(0, length);
          changed.replace(at + 8, length, value + std::string(length - value.size(), ' '));
          Expect(Name, file + ": a file ID of '" + name + "'", set.RunWith(file, changed));
        }
    }
    escapes_ += set.escapes;
  }

  /// Something else stands in the place of each file and folder.
  void Kinds(unsigned structure) {
    FileSetExercise set(structure);
    std::string const outside = set.Outside() + "/file", folder = set.Outside() + "/folder";
    fs::create_directories(folder);
    using Path = std::string const&;
    std::pair<char const*, std::function<void(Path)>> const kinds[] = {
        {"link to a file outside", [&](Path path) { fs::create_symlink(outside, path); }},
        {"link to nothing", [&](Path path) { fs::create_symlink(set.Outside() + "/new", path); }},
        {"link to a folder outside", [&](Path path) { fs::create_symlink(folder, path); }},
        {"link to itself", [&](Path path) { fs::create_symlink(path, path); }},
        {"hard link", [&](Path path) { fs::create_hard_link(outside, path); }},
        {"pipe", [](Path path) { mkfifo(path.c_str(), 0600); }},
        {"folder", [](Path path) { fs::create_directories(path + "/below"); }},
    };
    std::set<std::string> places;
    for (auto const& [name, bytes] : set.files)
      for (fs::path path = name; !path.empty(); path = path.parent_path())
        places.insert(path.string());
    places.insert({"DICOMDIR.tmp", "DICOMDIR.redo", "VERSION.tmp"});
    for (std::string const& place : places)
      for (auto const& [kind, make] : kinds) {
        set.MarkDirty();
        set.Restore();
        bool const was_folder = fs::is_directory(set.At(place));
        if (was_folder && std::string(kind) == "hard link") continue;
        // what stands outside looks like what belongs there
        WriteFile(outside, set.files.count(place) ? set.files[place] : "text");
        fs::remove_all(folder);
        if (was_folder)
          fs::copy(set.At(place), folder, fs::copy_options::recursive);
        else
          fs::create_directories(folder);
        fs::remove_all(set.At(place));
        auto const before = ReadFiles(set.Outside()); // the fence sees what else is made
        make(set.At(place));
        std::string problem = set.Run();
        // a hard link is the file itself, and these are written in place
        bool const in_place =
            std::string(kind) == "hard link" &&
            (place.ends_with("VERSION") || place.ends_with(".tmp") || (structure && place == "DICOMDIR"));
        if (ReadFiles(set.Outside()) != before && !in_place) problem += "what stands outside has changed";
        Expect(Kind, place + " is a " + kind, problem);
      }
    escapes_ += set.escapes;
  }

  /// Memory and time of one operation on a file of so many bytes, which may use `cap` beside it, and `slow` times as
  /// long.
  void Limited(std::string const& what, std::size_t bytes, std::size_t cap, std::function<bool()> const& work,
               double slow = 1) {
    Cost const cost = Measure(work);
    double const seconds = std::max(1.0, double(bytes) / (1 << 20)) * kSlower * slow;
    if (bytes <= 1 << 20 && slow == 1) slowest_ = std::max(slowest_, cost.seconds);
    largest_ = std::max(largest_, (long(cost.bytes) - long(bytes + cap)) / (1 << 20));
    std::string problem = !cost.ended ? "the process didn't end by itself" : !cost.result ? "a wrong result; " : "";
    if (cost.seconds > seconds) problem += std::to_string(cost.seconds) + " s; ";
    if (kMeasuresMemory && cost.bytes > bytes + cap + (64 << 20))
      problem += std::to_string(cost.bytes >> 20) + " MB for " + std::to_string(bytes >> 20);
    Expect(Size, what, problem);
  }

  static std::string Record(std::uint32_t next, std::uint32_t below, char const* type, std::string const& rest = {}) {
    return b.Item(b.Record(next, below, type, rest));
  }
  void Siblings();
  void DataSets();
  void Megabytes();

  bool const full_;
  std::minstd_rand random_;
  int counts_[4] = {}, failures_ = 0;
  std::size_t escapes_ = 0;
  double slowest_ = 0;
  long largest_ = 0;
};

/// Directories of very many records, and of records inside of one another.
void Hostile::Siblings() {
  using Make = std::string(std::uint32_t at, bool last);
  constexpr std::size_t kNext = 16, kBelow = 38; // in a record
  auto const chained = [](std::string const& record) {
    return [record](std::uint32_t at, bool last) {
      std::string linked = record;
      Put(linked, kNext, last ? 0 : at + std::uint32_t(record.size()));
      return linked;
    };
  };
  std::string elements;
  for (unsigned i = 0; i < 100; ++i)
    elements += b.Element(0x00091000 + i, "LO");
  std::string const uid = b.Text(0x0020000D, "UI", "1.2"), patient = Record(0, 0, "PATIENT"),
                    study = Record(0, 0, "STUDY", uid);
  std::pair<char const*, std::function<Make>> const kinds[] = {
      {"of nothing", [nothing = b.Item("")](std::uint32_t, bool) { return nothing; }},
      {"of a link", chained(b.Item(b.Element(0x00041400, "UL", b.Number(0, 4))))},
      {"of an unknown type", chained(Record(0, 0, "ANOTHER"))},
      {"of another level", chained(study)},
      {"of 500 bytes", chained(Record(0, 0, "STUDY", b.Text(0x00081030, "LO", std::string(430, 'x')) + uid))},
      {"out of order", chained(Record(0, 0, "STUDY", elements + uid + b.Text(0x00081030, "LO", "x")))},
      {"of many elements", chained(Record(0, 0, "ANOTHER", elements))},
      {"with a study each",
       [both = chained(patient + study), below = std::uint32_t(patient.size())](std::uint32_t at, bool last) {
         std::string records = both(at, last);
         Put(records, kBelow, at + below);
         return records;
       }},
  };
  for (unsigned const structure : {0u, kStandard}) {
    FileSetExercise set(structure);
    std::string const sound = set.files["DICOMDIR"];
    std::size_t const begin = sound.find(b.Tag(0x00041220) + "SQ") + 12;
    auto const run = [&](std::string const& kind, std::string const& records, std::size_t count = 0) {
      constexpr std::size_t kMany = 1 << 17, kOfEach = 600; // with more of them each may take so much beside its bytes
      std::size_t const cap = count > kMany ? count * kOfEach : 0;
      std::string const what = std::string(structure ? "standard, " : "private, ") + std::to_string(records.size()) +
                               " bytes of records " + kind;
      WriteFile(set.At("DICOMDIR"), sound.substr(0, begin - 4) + b.Number(records.size(), 4) + records);
      Limited(what + ", query", records.size(), cap, [&] { return set.Query() != 1; });
      Limited(what + ", check", records.size(), cap + kFindings, [&] { return set.Check(false) != 1; });
      bool const unchanged = fs::file_size(set.At("DICOMDIR")) == begin + records.size();
      Expect(Size, what, unchanged ? "" : "reading changed it");
    };
    std::size_t const siblings = full_ ? 1000000 : 100000;
    for (bool const megabyte : {true, false})
      for (auto const& [kind, make] : kinds) {
        std::string records;
        std::size_t const longest = make(0, false).size(), count = megabyte ? (1 << 20) / longest : siblings;
        records.reserve(count * longest);
        for (std::size_t i = 1; i <= count; ++i)
          records += make(std::uint32_t(begin + records.size()), i == count);
        run(kind, records, count);
      }
    // all patients lead to the same studies
    constexpr std::size_t kOfEach = 4000;
    std::string shared;
    auto const studies = std::uint32_t(begin + kOfEach * patient.size());
    for (std::size_t i = 1; i <= kOfEach; ++i)
      shared += Record(i < kOfEach ? std::uint32_t(begin + i * patient.size()) : 0, studies, "PATIENT");
    for (std::size_t i = 1; i <= kOfEach; ++i)
      shared += Record(i < kOfEach ? std::uint32_t(studies + i * study.size()) : 0, 0, "STUDY", uid);
    run("of patients with the same studies", shared);
    // each holds all that follow it in a value
    std::string records;
    std::string const head = Record(0, 0, "ANOTHER").substr(8);
    std::size_t const all = 1 << 20, each = 8 + head.size() + 12;
    while (records.size() + 2 * each < all) {
      std::uint32_t const at = std::uint32_t(begin + records.size()), left = std::uint32_t(all - records.size() - each);
      records += b.Claiming(0xFFFEE000, "", left + std::uint32_t(each) - 8) +
                 Record(at + std::uint32_t(each), 0, "ANOTHER").substr(8) + b.Claiming(0x00091001, "OB", left);
    }
    run("in one another", records + std::string(all - records.size(), '\0'));
  }
}

bool Reads(std::string const& bytes) {
  Util_File file;
  if (file.GetBytes(bytes) == -1) return false;
  std::unique_ptr<IOD_Msg> const msg(file.operator IOD_Msg*());
  return msg && msg->GetNElements() > 0;
}

/// Nesting, lengths, and what inflates.
void Hostile::DataSets() {
  std::string const id = b.Text(0x00100020, "LO", "ID");
  std::vector<std::tuple<std::string, std::string, bool>> cases; // what, data set, whether it can be read
  for (int const depth : {63, 64, 65, 1000, full_ ? 1000000 : 100000})
    for (bool const defined : {false, true})
      if (!defined || depth <= 100000)
        cases.emplace_back("nested " + std::to_string(depth) + (defined ? " defined" : ""),
                           b.Nested(depth, defined, id), depth <= 64);
  std::string mixed = id;
  for (int i = 0; i < 64; ++i)
    mixed = i % 2 ? b.OpenSequence(0x00081115, b.Item(mixed)) : b.Sequence(0x00081115, b.OpenItem(mixed));
  cases.emplace_back("nested 64 mixed", mixed, true);
  cases.emplace_back("nested 65 mixed", b.Sequence(0x00081115, b.Item(mixed)), false);
  for (std::uint32_t const length : {1u, 3u, 5u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    std::string const end = " of " + std::to_string(length), x(16, 'x');
    cases.emplace_back("OB" + end, b.Claiming(0x7FE00010, "OB", length, "12"), false);
    cases.emplace_back("SQ" + end, b.Claiming(0x00081115, "SQ", length, b.Item("")), false);
    cases.emplace_back("item" + end, b.OpenSequence(0x00081115, b.Claiming(0xFFFEE000, "", length, id)), false);
    cases.emplace_back("sums beyond 2^32 with one" + end,
                       b.Element(0x00091001, "OB", x) + b.Claiming(0x00091002, "OB", length, id), false);
    cases.emplace_back("group length" + end, b.Element(0x00100000, "UL", b.Number(length, 4)) + id, true);
  }
  cases.emplace_back("length 0", b.Element(0x7FE00010, "OW"), true);
  for (std::uint32_t const length : {6u, 40u}) // ends in the next element
    cases.emplace_back("an element longer than its item, of " + std::to_string(length),
                       b.Sequence(0x00081115, b.Item(b.Claiming(0x00081155, "UI", length, "1.2 "))) +
                           b.Text(0x00100020, "LO", std::string(62, 'x')),
                       false);
  for (auto const& [what, bytes, readable] : cases) {
    std::string const file = DataSetBytes::File("1.2.840.10008.1.2.1", bytes);
    bool const wanted = readable;
    Limited(what, file.size(), 0, [&file, wanted] { return Reads(file) == wanted; });
  }
  for (int const mb : {250, 260}) {
    std::string const padding((std::size_t(mb) << 20) - id.size(), '\0');
    std::string const file = DataSetBytes::File("1.2.840.10008.1.2.1.99", Deflated(id + padding));
    Limited("deflated, of " + std::to_string(mb) + " MB", file.size(), kMaximalInflated,
            [&] { return Reads(file) == (mb < 256); });
  }
}

/// However a megabyte is made, twenty readings and dumps of it take no more than three seconds, and a few times itself.
void Hostile::Megabytes() {
  DataSetBytes const implicit{false};
  auto const repeated = [](auto part) {
    std::string text;
    for (unsigned i = 0; text.size() < 1 << 20; ++i)
      text += part(i);
    return text;
  };
  auto const tag = [](unsigned i) { return 0x7FDF1000 + i % 60000; };
  std::string const wide = repeated([&](unsigned i) { return implicit.Element(tag(i), ""); }),
                    wide_explicit = repeated([&](unsigned i) { return b.Element(tag(i), "LO"); }),
                    open_items = repeated([&](unsigned) { return implicit.OpenItem(""); }),
                    fragments = repeated([](unsigned) { return b.Item(""); }), zeros(1 << 20, '\0');
  std::string const items_with_sets = repeated([](unsigned i) {
    return b.OpenItem(b.Text(0x00080005, "CS", "ISO_IR " + std::to_string(i)) + b.Text(0x00100010, "PN", "\xC4"));
  });
  std::tuple<char const*, DataSetBytes const&, std::string> const cases[] = {
      {"deep, wide at the bottom", implicit, implicit.Nested(64, false, wide)},
      {"deep, of defined length", b, b.Nested(64, true, wide_explicit)},
      {"items without end", implicit, implicit.OpenSequence(0x00081115, open_items)},
      {"towers", implicit, repeated([&](unsigned) { return implicit.Nested(60, false); })},
      {"fragments", b, b.OpenSequence(0x7FE00010, fragments, "OB")},
      {"descending", b, repeated([](unsigned i) { return b.Element(0x7FDF1000 - i, "LO"); })},
      {"character sets", b, b.OpenSequence(0x00081115, items_with_sets)},
      {"zeros", b, b.Text(0x00080060, "CS", "CT") + zeros},
      {"zeros and a one", b, zeros + "1"},
      {"one text", implicit, implicit.Element(0x00080005, "", repeated([](unsigned) { return "ISO 2022 IR 87\\"; }))},
  };
  for (auto const& [what, form, data_set] : cases) {
    std::string const file =
        DataSetBytes::File(form.explicit_vr ? "1.2.840.10008.1.2.1" : "1.2.840.10008.1.2", data_set);
    constexpr std::size_t kCap = 190 << 20; // and 64 MB, and the file
    Limited(
        what, file.size(), kCap, [&file] { return DataSetProperty::Broken(file).empty(); }, 3);
  }
}

} // namespace

Result RunHostile(Options const& options) { return Hostile(options.full, options.seed).Run(); }
