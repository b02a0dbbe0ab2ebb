#include "commands/DeleteRequests.h"

#include "output/Report.h"
#include "sets/Cause.h"
#include "sets/Leftovers.h"

#include <Disk/Disk_Check.h>
#include <algorithm>
#include <map>
#include <set>

namespace {

using namespace Attributes;

using Failures = std::vector<std::pair<std::string, std::string>>;

bool Contains(std::vector<std::string> const& list, std::string const& text) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

// Finds what an interrupted delete left within the choice. It leaves out records of objects whose files are gone: a
// query finds those.
std::vector<Disk_Finding> FindRests(DeleteChoice const& choice, FileSet const& set, Report& report) {
  if (set.structure != Structure::Private) return {}; // in the standard structure all records go together
  Disk_CheckResult result;
  if (Disk_Check(set.directory.c_str(), {}, {}, &result) == -1) report.Fail(set.directory, LastCause());
  std::erase_if(result.findings, [&choice](Disk_Finding const& finding) {
    bool const of_series = !finding.series_uid.empty();
    bool const elsewhere =
        (!choice.studies.empty() && !Contains(choice.studies, finding.study_uid)) ||
        (of_series && choice.GetLevel() == Level::SERIES) || // the series that was named has no record
        (of_series && !choice.series.empty() && finding.series_uid != choice.series);
    return finding.cause != Disk_Finding::InterruptedDelete || !finding.instance_uid.empty() ||
           finding.study_uid.empty() || elsewhere;
  });
  return std::move(result.findings);
}

class Finder {
public:
  Finder(DeleteChoice const& choice, FileSet& set, Report& report)
      : choice_(choice), level_(choice.GetLevel()), set_(set), report_(report) {}

  int Run(DeleteRequests* requests) {
    if (find_studies() == -1 || (level_ != Level::STUDY && find_below() == -1)) return -1;
    for (auto const& [study, cause] : unreadable_)
      report_.Fail(study, cause);
    for (auto& [uids, request] : found_)
      requests->push_back(std::move(request));
    return 0;
  }

private:
  int find_studies() {
    Search::Rows rows;
    std::vector<Key> const keys = {{kStudyInstanceUid, JoinedUids(choice_.studies)}, {kReferencedFileId, ""}};
    if (Search(set_, report_).Run(Level::STUDY, keys, &rows) == -1) return -1;
    std::set<std::string> uids;
    for (auto const& row : rows)
      uids.insert(row->Text(kStudyInstanceUid));
    FailMissing(choice_.studies, uids, "study", report_);
    if (level_ != Level::STUDY) return 0;
    for (auto const& row : rows)
      at(row->Text(kStudyInstanceUid), "").folder = FolderOf(*row, set_.directory);
    return 0;
  }

  int find_below() {
    Search::Rows rows;
    Search search(set_, report_);
    search.PassOverDamage().CollectUnreadable(&unreadable_);
    std::vector<Key> keys = {{kStudyInstanceUid, JoinedUids(choice_.studies)},
                             {kSeriesInstanceUid, choice_.series},
                             {kReferencedFileId, ""}};
    if (level_ == Level::IMAGE) keys.push_back({kSopInstanceUid, JoinedUids(choice_.images)});
    if (search.Run(level_, keys, &rows) == -1) return -1;
    std::vector<std::string> missing = level_ == Level::IMAGE ? choice_.images : std::vector{choice_.series};
    for (auto const& row : rows) {
      DeleteRequest& request = at(row->Text(kStudyInstanceUid), row->Text(kSeriesInstanceUid));
      if (level_ == Level::SERIES) {
        request.folder = FolderOf(*row, set_.directory);
        missing.clear();
        continue;
      }
      request.images.push_back(row->Text(kSopInstanceUid));
      request.files.push_back(PathOf(*row, set_.directory));
      std::erase(missing, request.images.back());
    }
    if (!missing.empty()) find_rests(missing);
    return 0;
  }

  void find_rests(std::vector<std::string> const& missing) {
    std::vector<Disk_Finding> const rests = FindRests(choice_, set_, report_);
    // deleting a series without a record makes the library update the record of the study
    std::string const no_series = choice_.series.empty() ? missing.front() : choice_.series;
    for (Disk_Finding const& rest : rests) {
      DeleteRequest& request = at(rest.study_uid, rest.series_uid.empty() ? no_series : rest.series_uid);
      request.is_rest = request.files.empty();
      if (level_ == Level::IMAGE && request.missing == 0) {
        request.images.insert(request.images.end(), missing.begin(), missing.end());
        request.missing = missing.size();
      }
      std::erase_if(unreadable_, [&rest](auto const& study) { return study.first == "study " + rest.study_uid; });
    }
    char const* const what = level_ == Level::IMAGE ? "image" : "series";
    if (rests.empty() && unreadable_.empty()) return FailMissing(missing, {}, what, report_);
    if (rests.empty()) {
      for (std::string const& uid : missing)
        report_.Fail(uid, std::string("no such ") + what + " in what can be read");
      return;
    }
    for (std::string const& uid : missing)
      report_.Warn(uid, std::string("this ") + what +
                            " has no record; what an interrupted delete left in the file-set is completed");
  }

  DeleteRequest& at(std::string const& study, std::string const& series) {
    DeleteRequest& request = found_[{study, series}];
    request.level = level_;
    request.study = study;
    request.series = series;
    return request;
  }

  DeleteChoice const& choice_;
  Level level_;
  FileSet& set_;
  Report& report_;
  std::map<std::pair<std::string, std::string>, DeleteRequest> found_;
  Failures unreadable_;
};

} // namespace

int FindDeleteRequests(DeleteChoice const& choice, FileSet& set, Report& report, DeleteRequests* requests) {
  return Finder(choice, set, report).Run(requests);
}

void ListFiles(DeleteRequest& request, FileSet& set, Report& report) {
  if (request.level == Level::IMAGE || request.is_rest) return;
  Search::Rows rows;
  Failures unreadable; // the delete tells them
  Search search(set, report);
  search.CollectUnreadable(&unreadable);
  std::vector<Key> const keys = {
      {kStudyInstanceUid, request.study}, {kSeriesInstanceUid, request.series}, {kReferencedFileId, ""}};
  if (search.Run(Level::IMAGE, keys, &rows) == -1) return;
  for (auto const& row : rows)
    request.files.push_back(PathOf(*row, set.directory));
}

void CheckRests(DeleteChoice const& choice, DeleteRequests const& requests, FileSet& set, Report& report) {
  bool const any = std::any_of(requests.begin(), requests.end(),
                               [](DeleteRequest const& request) { return request.is_rest || request.missing > 0; });
  if (!any) return;
  for (Disk_Finding const& rest : FindRests(choice, set, report))
    report.Fail(rest.path, rest.kind + ", which an interrupted delete left, isn't mended: " + rest.text);
}

std::string NameOf(DeleteRequest const& request) {
  if (request.is_rest) return "what an interrupted delete left in study " + request.study;
  if (request.level == Level::STUDY) return "study " + request.study;
  return (request.level == Level::SERIES ? "series " : "images of series ") + request.series;
}
