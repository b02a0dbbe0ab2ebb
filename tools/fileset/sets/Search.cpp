#include "sets/Search.h"

#include "output/Report.h"
#include "sets/Cause.h"

#include <algorithm>
#include <unordered_map>

namespace {

using Attributes::kSeriesInstanceUid;
using Attributes::kStudyInstanceUid;

// A longer list of UIDs isn't compared with every record: all are asked for, and the others dropped afterwards.
constexpr std::size_t kLongestList = 64;

// The UIDs that identify a study or series.
std::string Identity(Dicom_Msg const& row, Level level) {
  std::string const study = row.Text(kStudyInstanceUid);
  return level == Level::STUDY ? study : study + "|" + row.Text(kSeriesInstanceUid);
}

// The UIDs of the rows as a key; `any` if there are more than kLongestList.
Dicom_UI UidList(Search::Rows const& rows, Dicom_Tag const& tag, char const* any) {
  std::set<std::string> uids;
  for (auto const& row : rows) {
    uids.insert(row->Text(tag));
    if (uids.size() > kLongestList) return Dicom_UI(any);
  }
  std::string list;
  for (std::string const& uid : uids)
    list += (list.empty() ? "" : "\\") + uid;
  return Dicom_UI(list);
}

// Adds the attributes that only the upper row has.
void AddFrom(Dicom_Msg const& upper, Dicom_Msg& row) {
  for (int i = 0; i < upper.GetNElements(); ++i) {
    Dicom_ME const& element = *upper.GetElement(i);
    Dicom_Tag tag = element.GetTag();
    if (tag.IsPrivateCreator()) continue;
    tag.Unresolve(upper); // the two may have different private blocks
    if (!row.Has(tag)) row.Set(tag, element.GetValue());
  }
}

int Ask(Disk_RootDirectoryFile& root, SCL_QueryIdentifier const& identifier, Search::Rows* rows) {
  Dicom_Sequence results;
  if (root.Query(identifier, 1, &results) == -1) return -1;
  rows->reserve(rows->size() + std::size_t(results.GetNItems()));
  while (results.GetNItems() > 0) {
    rows->emplace_back(results.Get(0));
    results.Remove(0, 0);
  }
  return 0;
}

} // namespace

int Search::Run(Level level, std::vector<Key> const& keys, Rows* rows) {
  level_ = level;
  keys_ = keys;
  if (!set_.has_records) return 0;
  SCL_QueryIdentifier const studies = identifier(Level::STUDY, Level::STUDY, Level::STUDY);
  if (ask(studies, rows) == -1) {
    if (ask_damaged(studies, set_.directory, rows) == -1) return -1;
    root_is_damaged_ = true;
  }
  if (level == Level::STUDY) return 0;
  bool const asks_series = level == Level::SERIES || std::any_of(keys_.begin(), keys_.end(), [](Key const& key) {
                             return Attributes::LevelOf(key.tag) == Level::SERIES && key.tag != kSeriesInstanceUid;
                           });
  if (asks_series) *rows = below(*rows, identifier(Level::SERIES, Level::SERIES, Level::SERIES), Level::STUDY);
  if (level == Level::SERIES) return 0;
  *rows = asks_series ? below(*rows, identifier(Level::IMAGE, Level::IMAGE, Level::IMAGE), Level::SERIES)
                      : below(*rows, identifier(Level::IMAGE, Level::SERIES, Level::IMAGE), Level::STUDY);
  return 0;
}

SCL_QueryIdentifier Search::identifier(Level level, Level from, Level to) const {
  SCL_QueryIdentifier result(level);
  result.SetStudyInstanceUID(UI_NULL);
  if (level >= Level::SERIES) result.SetSeriesInstanceUID(UI_NULL);
  if (level == Level::IMAGE) result.SetSOPInstanceUID(UI_NULL);
  for (Key const& key : keys_) {
    // of several levels that have an attribute the lowest is asked
    Level const of = std::min(Attributes::LevelOf(key.tag), level_);
    if (of >= from && of <= to) result.Set(key.tag, Dicom_UC(key.value));
  }
  return result;
}

int Search::ask(SCL_QueryIdentifier const& identifier, Rows* rows) {
  if (root_is_damaged_) return ask_lenient(identifier, set_.directory, {}, rows);
  return Ask(*set_.root, identifier, rows);
}

Disk_RootDirectoryFile* Search::Lenient() {
  if (!lenient_) {
    int status = 0;
    Disk_StoreParams params(Disk_StoreParams::READ_ONLY | Disk_StoreParams::PASS_OVER_DAMAGE);
    params.standard_structure = set_.structure == Structure::Standard;
    lenient_ = std::make_unique<Disk_RootDirectoryFile>(set_.directory.c_str(), params, 0, &status, nullptr);
    if (status == -1) lenient_.reset();
  }
  return lenient_.get();
}

// Tells a failure under `name`, then finds what can be read all the same. 0, or -1.
int Search::ask_damaged(SCL_QueryIdentifier const& identifier, std::string const& name, Rows* rows) {
  std::string const cause = LastCause();
  tell(name, cause);
  return passes_over_damage_ && Lenient() ? ask_lenient(identifier, name, cause, rows) : -1;
}

// Reports each damaged place, except the one that was `told` already.
int Search::ask_lenient(SCL_QueryIdentifier const& identifier, std::string const& name, std::string const& told,
                        Rows* rows) {
  Disk_PassedOver passed;
  int const result = Ask(*lenient_, identifier, rows);
  for (std::string const& place : CausesOf(passed))
    if (place != told) tell(name, place);
  return result;
}

void Search::tell(std::string const& name, std::string const& cause) {
  if (unreadable_)
    unreadable_->emplace_back(name, cause);
  else
    report_.Fail(name, cause);
}

Search::Rows Search::below(Rows const& parents, SCL_QueryIdentifier identifier, Level parent_level) {
  Rows found, kept;
  if (parents.empty()) return kept;
  identifier.SetStudyInstanceUID(UidList(parents, kStudyInstanceUid, "*"));
  if (parent_level == Level::SERIES) identifier.SetSeriesInstanceUID(UidList(parents, kSeriesInstanceUid, ""));
  if (ask(identifier, &found) == -1) {
    found.clear();
    ask_each_study(parents, identifier, &found);
  }
  std::unordered_map<std::string, Dicom_Msg const*> index;
  for (auto const& parent : parents)
    index.emplace(Identity(*parent, parent_level), parent.get());
  for (auto& row : found) {
    auto const parent = index.find(Identity(*row, parent_level));
    if (parent == index.end()) continue;
    AddFrom(*parent->second, *row);
    kept.push_back(std::move(row));
  }
  return kept;
}

// Asks each study by itself, because one damaged study fails a query over all of them.
void Search::ask_each_study(Rows const& parents, SCL_QueryIdentifier identifier, Rows* rows) {
  std::set<std::string> asked;
  for (auto const& parent : parents) {
    std::string const uid = parent->Text(kStudyInstanceUid);
    if (!asked.insert(uid).second) continue;
    identifier.SetStudyInstanceUID(Dicom_UI(uid));
    if (ask(identifier, rows) == -1) ask_damaged(identifier, "study " + uid, rows);
  }
}

std::string JoinedUids(std::vector<std::string> const& uids) {
  std::string text;
  for (std::string const& uid : uids)
    text += (text.empty() ? "" : "\\") + uid;
  return text;
}

void FailMissing(std::vector<std::string> const& wanted, std::set<std::string> const& found, char const* what,
                 Report& report) {
  for (std::string const& uid : wanted)
    if (!uid.empty() && found.count(uid) == 0) report.Fail(uid, std::string("no such ") + what + " in the file-set");
}
