// The program, driven as a user does: command lines in; exit codes, text and files out.
#pragma once

#include "support/FileSet.h"
#include "support/Objects.h"
#include "support/TempDirectory.h"

#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <sys/wait.h>

namespace fs = std::filesystem;

using nlohmann::json;

struct Result {
  int code = -1;
  std::string out, err;
};

inline std::string Quoted(std::string const& argument) {
  std::string text = "'";
  for (char const c : argument)
    text += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return text + "'";
}

inline Phantom::Object Small(Phantom::Kind kind, int patient = 1, int series = 1, int image = 1) {
  return {.kind = kind,
          .patient = patient,
          .series = series,
          .image = image,
          .size = 16,
          .charset = Phantom::Charset::Utf8,
          .references = {}};
}

// A folder `in` with two patients of a CT series of 3 images and a report each, and a file-set `set` of them.
class ProgramTest : public testing::Test {
protected:
  // In the test's directory, behind a beginning of the shell's command line: "ulimit -f 100 && ".
  Result Run(std::vector<std::string> const& arguments, std::string const& before = "") const {
    std::string command = "cd " + Quoted(temp.Path()) + " && " + before + Quoted(FILESET_PROGRAM);
    for (std::string const& argument : arguments)
      command += " " + Quoted(argument);
    int const status = std::system((command + " >stdout 2>stderr </dev/null").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, temp.Read("stdout"), temp.Read("stderr")};
  }

  // A command line whose arguments hold no blanks.
  Result Line(std::string const& line, std::string const& before = "") const {
    std::istringstream words(line);
    return Run({std::istream_iterator<std::string>(words), {}}, before);
  }
  // It ends so, and what it prints holds these texts.
  Result Expect(std::string const& line, int code, std::string const& out = "", std::string const& err = "") const {
    Result result = Line(line);
    EXPECT_EQ(result.code, code) << line << "\n" << result.err;
    EXPECT_NE(result.out.find(out), std::string::npos) << line << "\n" << out << "\n" << result.out << result.err;
    EXPECT_NE(result.err.find(err), std::string::npos) << line << "\n" << err << "\n" << result.err;
    return result;
  }
  void ExpectFailure(std::string const& line, int code, std::string const& cause) const {
    Expect(line, code, "", "fileset: " + cause);
  }

  json RunJson(std::vector<std::string> arguments) const {
    arguments.push_back("--json");
    Result const result = Run(arguments);
    EXPECT_EQ(result.code, 0) << result.err;
    return json::parse(result.out, nullptr, false);
  }

  void WriteObject(Phantom::Object const& object) const {
    fs::path const path = temp / ("in/" + Phantom::FileName(object));
    fs::create_directories(path.parent_path());
    ASSERT_EQ(Phantom::Write(object, path), 0);
  }

  // An object with so many KB more.
  void WriteLarge(std::string const& name, Phantom::Object const& object, std::size_t kb) const {
    std::string const bytes(kb << 10, 'x');
    auto const msg = Phantom::Make(object);
    msg->Set(Dicom_Tag(0x0009, 0x0010), Dicom_LO("TEST"));
    msg->Set(Dicom_Tag(0x0009, 0x1000), Dicom_OB(bytes.data(), bytes.size(), 1, nullptr));
    SaveObject(*msg, temp.Write(name, ""));
  }

  // The folder of a study or the file of an object in `set`, relative to the test's directory.
  std::string PathOf(char const* level, std::string const& key) const {
    std::string path = "set";
    json const rows = RunJson({"query", "set", "--level", level, "--key", key, "--key", "ReferencedFileID"});
    for (json const& part : rows.at(0).at("00041500").at("Value"))
      path += "/" + part.get<std::string>();
    return path.ends_with("/DIRFILE") ? fs::path(path).parent_path().string() : path;
  }

  // An object of the first study with one thing changed.
  void WriteChanged(std::string const& name, std::function<void(IOD_Msg&)> const& change) const {
    auto const msg = Phantom::Make(Small(Phantom::Kind::CT, 1, 1, 9));
    change(*msg);
    SaveObject(*msg, temp / name);
  }

  void SetUp() override {
    for (int patient : {1, 2}) {
      for (int image : {1, 2, 3})
        WriteObject(Small(Phantom::Kind::CT, patient, 1, image));
      WriteObject(Small(Phantom::Kind::SR, patient, 2));
    }
    Result const stored = Run({"store", "set", "in", "--icon"});
    ASSERT_EQ(stored.code, 0) << stored.err;
    ASSERT_EQ(stored.out.substr(0, 20), "8 stored, 0 refused ");
  }

  static std::set<std::string> Values(json const& rows, char const* tag) {
    std::set<std::string> values;
    for (json const& row : rows)
      values.insert(row.at(tag).at("Value").at(0));
    return values;
  }

  std::string first_study = StudyOf(Small(Phantom::Kind::CT));
  TempDirectory temp;
};
