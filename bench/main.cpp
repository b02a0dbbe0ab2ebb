#include "Bench.h"

#include <cstring>

// Usage: disk_bench FOLDER [directory|fileset|standard|cache]... FOLDER lies on a disk. Without a name everything is
// measured but the cache, whose 210,000 objects take minutes to be stored.
int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: disk_bench FOLDER [directory|fileset|standard|cache]...\n");
    return 2;
  }
  auto const wanted = [&](char const* name, bool by_itself = true) {
    return (argc == 2 && by_itself) ||
           std::any_of(argv + 2, argv + argc, [&](char* arg) { return std::strcmp(arg, name) == 0; });
  };
  if (wanted("directory")) Bench::DirectoryFiles(argv[1]);
  if (wanted("fileset")) Bench::FileSets(argv[1]);
  if (wanted("standard")) Bench::Standard(argv[1]);
  if (wanted("cache", false)) Bench::Caches(argv[1]);
  return 0;
}
