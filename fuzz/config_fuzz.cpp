// Configuration files: what is taken from one has a form that callers can walk. Grades come from it too; as what was
// loaded stays for the life of the process, only some inputs are.
#include "Fail.h"
#include "infra/CfgReader.h"
#include "infra/CfgRules.h"
#include "support/TempDirectory.h"

#include <Disk/Disk_CacheRepository_GradeTable.h>
#include <infra/Util_Cfg.h>

#include <functional>
#include <memory>
#include <string_view>

namespace {

void Walk(Tree_Node const& node) {
  std::unique_ptr<Tree_PathAndValueArray> const values(node.GetPathAndValues(""));
  for (int i = 0; i < values->GetCount(); ++i) {
    std::unique_ptr<int> const number(node.GetInteger(values->GetPV(i)->GetPath().str().c_str()));
    std::unique_ptr<RWCString> const text(node.GetString(values->GetPV(i)->GetPath().str().c_str()));
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  static TempDirectory const directory;
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  CfgItem top;
  CfgRefusal refusal;
  bool const read = ReadCfg(text, top, refusal) == 0;
  int reported = 0;
  if (read) {
    Tree_Node root;
    CopyByRules(top, root, [&](int, std::string const& problem) { reported += !problem.empty(); });
    Walk(root);
  }
  if (std::hash<std::string_view>()(text) % 256 != 0) return 0;
  std::vector<std::string> problems;
  std::string const path = directory.Write("cfg.yaml", std::string(text));
  int const result = Util_Cfg::Load(path.c_str(), &problems);
  FailIf((result == 0) == read ? "" : "Load disagrees with the reader");
  FailIf(int(problems.size()) == reported || !read ? "" : "a problem isn't told");
  if (read) Walk(*Util_Cfg::GetHandle()->GetRoot());
  Disk_CacheRepository_GradeTable table("velquant\\system\\applications\\loader\\pull_client\\store_grader");
  for (int const days : {-1, 0, 7, 1 << 30})
    table.GetGrade(days);
  return 0;
}
