// A query whose keys may belong to any level.
//
// The records of a level hold the attributes of that level only, so a search asks the study records first,
// with the keys that they know, and goes down with the UIDs of what it found. What it found above, an image's
// patient say, is added to the responses below.
#pragma once

#include "sets/Attribute.h"
#include "sets/FileSet.h"

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

class Search {
public:
  using Rows = std::vector<std::unique_ptr<Dicom_Msg>>;

  // All three are the caller's and must outlive the search.
  Search(FileSet& set, EngineLog& log, Report& report) : set_(set), log_(log), report_(report) {}

  // What can be read of a study that can't be read whole is found too. For who only shows or copies.
  Search& PassOverDamage() {
    passes_over_damage_ = true;
    return *this;
  }

  // The file-set opened so that damage is passed over; null when it can't be.
  Disk_RootDirectoryFile* Lenient();

  // From now on, what can't be read ("study UID") is put there, with the cause, instead of being reported.
  void CollectUnreadable(std::vector<std::pair<std::string, std::string>>* studies) { unreadable_ = studies; }

  // Every row holds the UIDs down to its level. 0, or -1 (reported) when the file-set can't be read. A study
  // that can't be read whole is reported, and left out unless damage is passed over.
  int Run(Level level, std::vector<Key> const& keys, Rows* rows);

private:
  // The keys of the levels from `from` to `to`.
  SCL_QueryIdentifier identifier(Level level, Level from, Level to) const;
  int ask(SCL_QueryIdentifier const& identifier, Rows* rows);
  int ask_damaged(SCL_QueryIdentifier const& identifier, std::string const& name, Rows* rows);
  int ask_lenient(SCL_QueryIdentifier const& identifier, std::string const& name, std::string const& told, Rows* rows);
  void tell(std::string const& name, std::string const& cause);
  Rows below(Rows const& parents, SCL_QueryIdentifier identifier, Level parent_level);
  void ask_each_study(Rows const& parents, SCL_QueryIdentifier identifier, Rows* rows);

  FileSet& set_;
  EngineLog& log_;
  Report& report_;
  bool passes_over_damage_ = false;
  std::unique_ptr<Disk_RootDirectoryFile> lenient_; // made when it is needed
  bool root_is_damaged_ = false;                    // so only the lenient one can be asked
  std::vector<std::pair<std::string, std::string>>* unreadable_ = nullptr;
  Level level_ = Level::STUDY;
  std::vector<Key> keys_;
};

// A list of UIDs as a key's value.
std::string JoinedUids(std::vector<std::string> const& uids);
// Reports the wanted UIDs that weren't found; `what` is a study, say.
void FailMissing(std::vector<std::string> const& wanted, std::set<std::string> const& found, char const* what,
                 Report& report);
