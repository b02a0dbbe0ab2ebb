#include "Bench.h"

#include <cstring>

// Usage: disk_bench FOLDER [directory|fileset|standard|cache]...; everything without a name. FOLDER lies on a disk.
int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: disk_bench FOLDER [directory|fileset|standard|cache]...\n");
    return 2;
  }
  auto const wanted = [&](char const* name) {
    return argc == 2 || std::any_of(argv + 2, argv + argc, [&](char* arg) { return std::strcmp(arg, name) == 0; });
  };
  if (wanted("directory")) Bench::DirectoryFiles(argv[1]);
  if (wanted("fileset")) Bench::FileSets(argv[1]);
  if (wanted("standard")) Bench::Standard(argv[1]);
  if (wanted("cache")) Bench::Caches(argv[1]);
  return 0;
}
