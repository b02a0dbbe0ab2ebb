// Stores DICOM files in a bounded cache, which gives up studies to make room: cache CONFIGURATION DIRECTORY FILE...
#include <Disk/Disk_CacheRepository.h>
#include <dicom/Util_File.h>
#include <infra/I18n.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_Cfg.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  KlbGLog.SetSink([](int level, std::string const& line) { // errors and warnings
    if (level <= 4) std::fputs(line.c_str(), stderr);
  });
  if (Util_Cfg::Load(argv[1]) == -1) std::fprintf(stderr, "%s isn't read; the defaults stand\n", argv[1]);
  Disk_CacheRepository cache;
  cache.SetPath(FromUTF8(argv[2]));
  if (cache.Construct() == -1) return 3;
  int stored = 0;
  for (int i = 3; i < argc; ++i) {
    Util_File file;
    file.GetFile(argv[i], 0, nullptr);
    std::unique_ptr<IOD_Msg> const object(file);
    if (object && cache.Store(object.get(), false) == 0) ++stored;
  }
  std::printf("%d of %d stored, %ld KB left\n", stored, argc - 3, cache.FreeSpaceKB());
  return stored == argc - 3 ? 0 : 1;
}
