// Stores DICOM files in a file-set, and lists its studies: store_and_query DIRECTORY [FILE...]
#include <Disk/Disk_RootDirectoryFile.h>
#include <dicom/Util_File.h>

#include <cstdio>
#include <memory>

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  int status = 0, failed = 0;
  Disk_RootDirectoryFile root(argv[1], Disk_StoreParams(), 0, &status, nullptr);
  if (status == -1) return 3;
  for (int i = 2; i < argc; ++i) {
    Util_File file;
    file.GetFile(argv[i], 0, nullptr);
    std::unique_ptr<IOD_Msg> const object(file);
    if (object && root.Store(object.get(), false, false, 0, nullptr, 0, nullptr, nullptr, nullptr) == 0) continue;
    std::fprintf(stderr, "%s isn't stored: %s\n", argv[i], file.GetError().c_str());
    ++failed;
  }
  SCL_QueryIdentifier studies(SCL_QueryRetrieveLevel::STUDY);
  studies.SetStudyInstanceUID(UI_NULL); // a null key asks for the value
  Dicom_Sequence answers;
  if (root.Query(studies, 1, &answers) == -1) return 1;
  for (int i = 0; i < answers.GetNItems(); ++i)
    std::printf("%s\n", IOD_Msg(*answers.Get(i)).GetStudyInstanceUID().GetText().c_str());
  return failed ? 1 : 0;
}
