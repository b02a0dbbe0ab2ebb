// The delete of a study, beside the unlinking of its files.
#include "FileSet.h"

namespace fs = std::filesystem;

void Bench::Deletes(Scope const& scope) {
  constexpr int kObjects = kSeries * kImages, kRuns = 7;
  Progress("deletes of studies of " + std::to_string(kObjects) + " objects");
  Folder const folder(scope.base);
  std::string const set = folder.Path() + "/set", copies = folder.Path() + "/copies";
  fs::create_directory(set);
  fs::create_directory(copies);
  auto const root = Open(set);
  Disk_SupportPar support;
  support.delete_supported = 1;
  root->SetSupportPar(support);
  Fill(*root, (kRuns + 2) * kObjects, Usual);
  fs::copy(fs::path(PathOf(*root, Usual(0))).parent_path().parent_path(), copies + "/0", fs::copy_options::recursive);
  for (int i = 1; i <= kRuns; ++i)
    fs::copy(copies + "/0", copies + "/" + std::to_string(i), fs::copy_options::recursive);
  Util_FileSystem::SetDurability(Util_Durability::Relaxed); // unlinking syncs nothing either
  Settle();
  int deleted = 0, unlinked = 0;
  Pair const took = MedianOfTurns(
      kRuns,
      [&] {
        int error = 0;
        SCL_MoveIdentifier study(SCL_QueryRetrieveLevel::STUDY, &error);
        study.SetStudyInstanceUID(Phantom::StudyUid(Usual(kObjects * deleted++)));
        MXL_SubOperationsReport report;
        SCL_ResponseStatus status;
        Require(root->Delete(study, 1, &report, status) == 0 &&
                    unsigned(report.Get(MXL_SubOperationsReport::Completed)) == unsigned(kObjects),
                "deleting");
      },
      [&] {
        std::string const copy = copies + "/" + std::to_string(unlinked++);
        for (auto const& entry : fs::recursive_directory_iterator(copy))
          if (entry.is_regular_file()) Require(unlink(entry.path().c_str()) == 0, "unlinking");
        fs::remove_all(copy); // the folders
      });
  Report("delete", "a study of 200", "ours", kObjects, took.first);
  Report("delete", "a study of 200", "bare", kObjects, took.second);
}
