// What we write is read by tools that aren't ours, without error or warning. Skipped where they aren't installed.
#include "support/FileSetFixture.h"

#include <array>
#include <cstdio>
#include <sys/wait.h>

namespace {

struct Outcome {
  int code;
  std::string output;
};

Outcome RunTool(std::string const& command) {
  Outcome outcome{-1, {}};
  FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return outcome;
  std::array<char, 4096> chunk;
  while (std::size_t const n = std::fread(chunk.data(), 1, chunk.size(), pipe))
    outcome.output.append(chunk.data(), n);
  int const status = pclose(pipe);
  outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}

using JudgesTest = BothStructuresTest;
INSTANTIATE_TEST_SUITE_P(Structures, JudgesTest, kBothStructures, StructureName);

} // namespace

TEST_P(JudgesTest, DirectoryFilesAndObjectsAreReadWithoutErrorOrWarning) {
  if (RunTool("dcmdump --version").code != 0 || RunTool("gdcmdump --version").code != 0)
    GTEST_SKIP() << "dcmdump (dcmtk) and gdcmdump (libgdcm-tools) aren't installed";
  int patient = 0;
  for (auto const kind : {Phantom::Kind::CT, Phantom::Kind::MR, Phantom::Kind::US, Phantom::Kind::MultiFrame,
                          Phantom::Kind::PR, Phantom::Kind::SR})
    for (unsigned flags : {0u, unsigned(Disk_StoreParams::STORE_NATIVE)}) {
      auto msg = Phantom::Make(
          {.kind = kind, .patient = ++patient, .size = 16, .charset = Phantom::Charset::Japanese, .key_image = "Y"});
      ASSERT_EQ(Store(*Open(flags), *msg, false, true), 0);
    }
  int directories = 0;
  for (auto const& [name, size] : Files()) {
    std::string const base = name.substr(name.rfind('/') + 1);
    if (base == "LOCKFILE" || base == "VERSION") continue;
    directories += base == "DIRFILE" || base == "DICOMDIR";
    Outcome const toolkit = RunTool("dcmdump " + At(name));
    EXPECT_EQ(toolkit.code, 0) << name;
    EXPECT_TRUE(!toolkit.output.starts_with("W:") && toolkit.output.find("\nW:") == std::string::npos &&
                toolkit.output.find("E:") == std::string::npos)
        << name << "\n"
        << toolkit.output.substr(0, 400);
    Outcome const other = RunTool("gdcmdump " + At(name));
    EXPECT_EQ(other.code, 0) << name;
    EXPECT_EQ(other.output.find("Warning"), std::string::npos) << name << "\n" << other.output.substr(0, 400);
    EXPECT_EQ(other.output.find("rror"), std::string::npos) << name;
  }
  EXPECT_EQ(directories, structure ? 1 : 1 + 2 * patient);
}
