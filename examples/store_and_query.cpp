// Stores DICOM files in a file-set and lists its studies: store_and_query DIRECTORY [FILE...]
//
// Ends with 0; 1 if a file isn't stored or the query fails, 2 for a wrong call, 3 if the file-set can't be opened.
// Every failure is told on standard error.
#include <Disk/Disk_RootDirectoryFile.h>
#include <dicom/Util_File.h>
#include <infra/Klb_GError.h>
#include <infra/Klb_LogFile.h>

#include <cstdio>
#include <memory>

namespace {

/// Reads one file into a new message. Null if that fails, and the cause is told.
std::unique_ptr<IOD_Msg> Read(char const* path) {
  Util_File file;
  std::unique_ptr<IOD_Msg> object;
  if (file.GetFile(path, 0, nullptr) == 0) object.reset(file.operator IOD_Msg*());
  if (!object) std::fprintf(stderr, "%s: %s\n", path, file.GetError().c_str());
  return object;
}

/// Stores one file. Returns whether it is stored.
bool Store(Disk_RootDirectoryFile& root, char const* path) {
  std::unique_ptr<IOD_Msg> const object = Read(path);
  if (!object) return false;
  KlbGError.Set(0); // a code stays until the next failure that has one
  if (root.Store({.msg = object.get()}) == 0) return true;
  std::fprintf(stderr, "%s isn't stored: the lines above tell why (code %d of Disk_Error.h)\n", path, KlbGError.Get());
  return false;
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: store_and_query DIRECTORY [FILE...]\n");
    return 2;
  }
  KlbGLog.SetSink([](int level, std::string const& line) { // 3: errors, 4: warnings. A line comes without its newline.
    if (level <= 4) std::fprintf(stderr, "%s\n", line.c_str());
  });

  int status = 0;
  Disk_RootDirectoryFile root(argv[1], Disk_StoreParams(), 0, &status, nullptr);
  if (status == -1) {
    std::fprintf(stderr, "%s can't be opened as a file-set\n", argv[1]);
    return 3;
  }
  int failed = 0;
  for (int i = 2; i < argc; ++i)
    failed += !Store(root, argv[i]);

  SCL_QueryIdentifier studies(SCL_QueryRetrieveLevel::STUDY);
  studies.SetStudyInstanceUID(UI_NULL); // a null value asks for the attribute and restricts nothing
  Dicom_Sequence answers;
  if (root.Query(studies, 1, &answers) == -1) {
    std::fprintf(stderr, "the studies can't be listed\n");
    return 1;
  }
  for (int i = 0; i < answers.GetNItems(); ++i)
    std::printf("%s\n", IOD_Msg(*answers.Get(i)).GetStudyInstanceUID().GetText().c_str());
  return failed ? 1 : 0;
}
