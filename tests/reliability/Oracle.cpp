#include "Oracle.h"

#include "support/DicomdirWalk.h"
#include "support/Files.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace {

void NoDamage(std::string const& directory, bool standard, bool is_mended = false) {
  for (Disk_Finding const& finding : CheckAll(directory, standard).findings)
    Require(finding.cause == Disk_Finding::InterruptedStore || (!is_mended && finding.cause != Disk_Finding::Damage),
            finding.kind + ": " + finding.path + ": " + finding.text);
}

// The DICOMDIR by a reader that shares nothing with the engine.
void WholeDicomdir(Site const& site, Model const& model) {
  DicomdirWalk const walk(site.Set() + "/DICOMDIR");
  for (std::string const& problem : walk.problems)
    throw Complaint("DICOMDIR: " + problem);
  std::set<std::string> uids, files;
  for (auto const* study : walk.Level(1)) {
    std::size_t images = 0;
    for (auto const& series : study->children)
      if (series.in_use != 0) {
        std::size_t own = 0;
        for (auto const& image : series.children)
          own += image.in_use != 0;
        Require(series.Number(0x00201209) == int(own), "DICOMDIR: a series counts its images wrong");
        images += own;
      }
    Require(study->Number(0x00201208) == int(images), "DICOMDIR: a study counts its images wrong");
  }
  for (auto const* image : walk.Level(3)) {
    Require(uids.insert(image->Text(0x00041511)).second, "DICOMDIR: an object stands twice in it");
    Require(files.insert(image->Text(0x00041500)).second, "DICOMDIR: two records name one file");
  }
  for (auto const& [uid, content] : model.objects)
    Require(uids.count(uid) == 1, "DICOMDIR: it has no record of " + uid);
  Require(uids.size() == model.objects.size() + model.unfetched.size(), "DICOMDIR: it has other records");
}

// Each thing is as it was or as it was to be.
template <class Map>
void Between(Map const& found, Map const& before, Map const& after, std::string const& what) {
  Map all(found);
  all.insert(before.begin(), before.end());
  all.insert(after.begin(), after.end());
  for (auto const& [key, value] : all) {
    auto const* const there = Find(found, key);
    bool const fits = Same(there, Find(after, key)) || Same(there, Find(before, key));
    Require(fits, what + " " + key + (there ? " isn't what was acknowledged" : " is lost"));
  }
}

Model AskNew(Site const& site, unsigned flags) {
  auto const root = OpenSet(site.Set(), flags | site.Structure());
  Require(root != nullptr, "it can't be opened");
  return Ask(*root, site.standard);
}

void Compare(Case const& c, Model const& found, Outcome outcome) {
  Model const& before = outcome == Outcome::Done ? c.after : c.before;
  Between(found.objects, before.objects, c.after.objects, "object");
  Between(found.studies, before.studies, c.after.studies, "study");
  for (std::string const& uid : found.unfetched) { // what an earlier delete left, or this one is removing
    bool const goes = outcome != Outcome::Done && c.before.objects.count(uid) != 0 && c.after.objects.count(uid) == 0;
    Require(goes || c.before.unfetched.count(uid) != 0, "found and not fetched: " + uid);
  }
}

// A file that was to be moved is still where it was, or in the file-set.
void NothingMovedAway(Case const& c, Site const& site, Model const& found) {
  std::string const original = c.prepared + "/incoming";
  if (!fs::exists(original) || fs::exists(site.Incoming()) || found.objects.size() > c.before.objects.size()) return;
  for (auto const& [name, content] : ReadFiles(site.Set()))
    if (content == ReadFile(original)) return;
  throw Complaint("the file that was to be moved is nowhere");
}

} // namespace

Model JudgeState(Case const& c, Site const& site, Outcome outcome) {
  if (fs::exists(site.Set() + "/DICOMDIR")) {
    NoDamage(site.Set(), site.standard);
    Compare(c, AskNew(site, Disk_StoreParams::READ_ONLY), outcome);
  }
  if (fs::exists(site.Source())) NoDamage(site.Source(), false);
  Model const found = AskNew(site, 0);
  Compare(c, found, outcome);
  NothingMovedAway(c, site, found);
  return found;
}

void Judge(Case const& c, Site const& site, Outcome outcome, Session* again) {
  Model const found = JudgeState(c, site, outcome);
  auto const files = ReadFiles(site.Set());
  AskNew(site, 0);
  Require(files == ReadFiles(site.Set()), "opening it once more changes it");
  if (site.standard) WholeDicomdir(site, found);

  c.BringBack(site);
  Session session(site, c.operation->flags);
  c.Again(again ? *again : session);
  Phantom::Object const further{.patient = 5};
  Require(Store(session, *MakeObject(further)) == 0, "a further store fails");
  Case last(c);
  last.after.Add(*MakeObject(further), site.standard);
  for (Operation const& beside : Operations())
    if (beside.name == c.operation->beside) {
      std::size_t const before = last.after.objects.size();
      beside.effect(last.after, site.standard);
      bool const has_effect = last.after.objects.size() != before; // else a killed delete has taken it already
      Require(beside.act(session) == 0 || !has_effect, "a delete beside it fails");
    }
  Model const end = AskNew(site, 0);
  Compare(last, end, Outcome::Done);
  if (site.standard) WholeDicomdir(site, end);
  // a delete that is done again mends what it left itself
  bool const is_mended = c.operation->name.starts_with("delete") && c.state != "a delete was killed";
  if (fs::exists(site.Set() + "/DICOMDIR")) NoDamage(site.Set(), site.standard, is_mended);
}
