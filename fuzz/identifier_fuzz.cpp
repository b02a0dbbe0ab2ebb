// Attributes as people write them for the tool, a line each, asked of a file-set at the level that the first byte
// tells; what is found is printed, and the first of it fetched.
#include "Fail.h"
#include "output/Json.h"
#include "output/Report.h"
#include "sets/Search.h"
#include "support/FileSetExercise.h"

#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  static FileSetExercise exercise(0);
  static FileSet set{exercise.prefix, Structure::Private, true, nullptr};
  if (size == 0) return 0;
  FencedFileSystem fence(exercise.prefix);
  if (!set.root) set.root = exercise.Open(Disk_StoreParams::READ_ONLY);
  Report report;
  std::vector<Key> keys;
  std::istringstream text(std::string(reinterpret_cast<char const*>(data) + 1, size - 1));
  for (std::string line, problem; std::getline(text, line);) {
    Key key;
    if (Attributes::ParseKey(line, &key, &problem) == -1) continue;
    Key again;
    FailIf(Attributes::ParseKey(Attributes::Name(key.tag), &again, &problem) == 0 && again.tag == key.tag
               ? ""
               : Attributes::Name(key.tag) + " isn't the name of what it names");
    keys.push_back(std::move(key));
  }
  Level const levels[] = {Level::STUDY, Level::SERIES, Level::IMAGE};
  Search::Rows rows;
  Search(set, report).Run(levels[data[0] % 3], keys, &rows);
  for (auto const& row : rows)
    FailIf(JsonText(DicomJson(*row)).empty() ? "a row without text" : "");
  IOD_Msg* object = nullptr;
  if (!rows.empty() && set.root->GetOne(SCL_MoveIdentifier(*rows[0]), 1, &object, nullptr) == 0) delete object;
  FailIf(fence.escapes.empty() ? "" : fence.escapes[0]);
  return 0;
}
