// A query whose keys may belong to any level.
//
// The records of a level hold the attributes of that level only. So a search asks the study records first, with the
// keys that they know, and goes down with the UIDs that it found. What it found above, such as an image's patient, is
// added to the responses below.
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
  Search(FileSet& set, Report& report) : set_(set), report_(report) {}

  // Finds also what can be read of a damaged study. For commands that only show or copy.
  Search& PassOverDamage() {
    passes_over_damage_ = true;
    return *this;
  }

  // The file-set, opened so that damage is passed over; null if it can't be opened.
  Disk_RootDirectoryFile* Lenient();

  // From now on, studies that can't be read ("study UID") are put there with the cause, and not reported.
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
// Reports the wanted UIDs that weren't found. `what` names their kind: "study".
void FailMissing(std::vector<std::string> const& wanted, std::set<std::string> const& found, char const* what,
                 Report& report);
