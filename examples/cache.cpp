// Stores DICOM files in a bounded cache, which gives up studies to make room: cache CONFIGURATION DIRECTORY FILE...
//
// Ends with 0; 1 if a file isn't stored, 2 for a wrong call or configuration, 3 if the cache can't be opened. Every
// failure is told on standard error.
#include <Disk/Disk_CacheRepository.h>
#include <dicom/Util_File.h>
#include <infra/I18n.h>
#include <infra/Klb_GError.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_Cfg.h>

#include <cstdio>
#include <memory>

namespace {

/// Stores one file. Returns whether it is stored; if not, the cause is told.
bool Store(Disk_CacheRepository& cache, char const* path) {
  Util_File file;
  std::unique_ptr<IOD_Msg> object;
  if (file.GetFile(path, 0, nullptr) == 0) object.reset(file.operator IOD_Msg*());
  if (!object) {
    std::fprintf(stderr, "%s: %s\n", path, file.GetError().c_str());
    return false;
  }
  KlbGError.Set(0); // a code stays until the next failure that has one
  if (cache.Store(object.get(), false) == 0) return true;
  std::fprintf(stderr, "%s isn't stored: the lines above tell why (code %d of Disk_Error.h)\n", path, KlbGError.Get());
  return false;
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: cache CONFIGURATION DIRECTORY FILE...\n");
    return 2;
  }
  KlbGLog.SetSink([](int level, std::string const& line) { // 3: errors, 4: warnings. A line comes without its newline.
    if (level <= 4) std::fprintf(stderr, "%s\n", line.c_str());
  });
  if (Util_Cfg::Load(argv[1]) == -1) {
    std::fprintf(stderr, "%s isn't a configuration: the lines above tell why\n", argv[1]);
    return 2;
  }

  Disk_CacheRepository cache;
  cache.SetPath(FromUTF8(argv[2]));
  if (cache.Construct() == -1) {
    std::fprintf(stderr, "%s can't be opened as a cache\n", argv[2]);
    return 3;
  }
  int stored = 0;
  for (int i = 3; i < argc; ++i)
    stored += Store(cache, argv[i]);
  std::printf("%d of %d stored, %ld KB left\n", stored, argc - 3, cache.FreeSpaceKB());
  return stored == argc - 3 ? 0 : 1;
}
