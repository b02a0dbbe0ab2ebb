// Readers of DICOM files that aren't ours.
#pragma once

#include <array>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>

struct Told {
  int code = -1;
  std::string text; // of both streams
};

inline Told RunTool(std::string const& command) {
  Told told;
  FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return told;
  std::array<char, 4096> chunk;
  while (std::size_t const n = std::fread(chunk.data(), 1, chunk.size(), pipe))
    told.text.append(chunk.data(), n);
  int const status = pclose(pipe);
  told.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return told;
}

/// Whether there are any: dcmdump of dcmtk, and gdcmdump of libgdcm-tools.
inline bool HasReaders() { return RunTool("dcmdump --version").code == 0 && RunTool("gdcmdump --version").code == 0; }

/// They read a file without error or warning.
inline void ExpectReadersTake(std::string const& path) {
  for (char const* reader : {"dcmdump", "gdcmdump"}) {
    Told const told = RunTool(std::string(reader) + " '" + path + "'");
    EXPECT_EQ(told.code, 0) << reader << " " << path;
    for (char const* word : {"\nW:", "E:", "F:", "Warning", "rror"})
      EXPECT_EQ(("\n" + told.text).find(word), std::string::npos) << reader << " " << path << "\n"
                                                                  << told.text.substr(0, 400);
  }
}
