#include "Oracle.h"

#include "support/DicomdirWalk.h"
#include "support/Files.h"
#include "support/TestImage.h"

#include <Disk/Disk_Access.h>
#include <dicom/Dicom_Compressor.h>

namespace fs = std::filesystem;

namespace {

/// Nothing if its pixels can't be decompressed.
std::optional<Content> TryContentOf(IOD_Msg const& object) {
  IOD_Msg plain(object);
  if (Dicom_Compressor().Decompress(&plain) == -1) return {};
  return Content{object.GetStudyInstanceUID().GetText(), object.GetSeriesInstanceUID().GetText(),
                 object.GetPatientID().GetText(), object.GetPatientsName().GetText(), PixelsOf(plain)};
}

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
  std::set<std::string> uids;
  for (auto const* image : walk.Level(3))
    uids.insert(image->Text(0x00041511));
  for (auto const& [uid, content] : model.objects)
    Require(uids.count(uid) == 1, "DICOMDIR: it has no record of " + uid);
  Require(uids.size() == model.objects.size() + model.unfetched.size(), "DICOMDIR: it has other records");
}

/// What may be found of one thing when some operations had returned.
template <class Value>
struct Allowed {
  std::vector<Value const*> values; // null: nothing
  bool unsynced = false;            // a relaxed operation was about it
  bool HasNone() const { return std::count(values.begin(), values.end(), nullptr) != 0; }
  /// A delete may have taken the object, and not its record.
  bool MayGo() const {
    auto const there = std::find_if(values.begin(), values.end(), [](Value const* value) { return value != nullptr; });
    return std::find(there, values.end(), nullptr) != values.end();
  }
};

template <class Value>
Allowed<Value> AllowedOf(Play const& play, std::size_t acked, std::map<std::string, Value> Model::*map,
                         std::string const& key) {
  auto const value = [&](std::size_t i) { return Find(play.models[i].*map, key); };
  auto const touched = [&](std::size_t i) { return !Same(value(i - 1), value(i)); };
  std::size_t first = 0, last = play.meeting != 0 ? play.acts.size() : std::min(acked + 1, play.acts.size());
  for (std::size_t i = 1; i <= acked; ++i)
    if (play.acts[i - 1].durability == kDurable && touched(i)) first = i;
  Allowed<Value> allowed{{value(first)}, false};
  for (std::size_t i = first + 1; i <= last; ++i) {
    allowed.values.push_back(value(i));
    Play::Act const& act = play.acts[i - 1];
    bool const is_unsynced = act.durability == kRelaxed || act.operation->is_synced_late;
    allowed.unsynced = allowed.unsynced || (touched(i) && is_unsynced);
  }
  return allowed;
}

template <class Value>
void CompareAll(Play const& play, std::size_t acked, Model const& found, std::map<std::string, Value> Model::*map) {
  constexpr bool is_object = std::is_same_v<Value, Content>;
  std::set<std::string> keys;
  for (Model const& model : play.models)
    for (auto const& [key, value] : model.*map)
      keys.insert(key);
  for (auto const& [key, value] : found.*map)
    Require(keys.count(key) != 0, "found, and never stored: " + key);
  if (is_object) keys.insert(found.unfetched.begin(), found.unfetched.end());
  for (std::string const& key : keys) {
    if (is_object && play.MayBeAnything(acked, key)) continue;
    Allowed<Value> const allowed = AllowedOf(play, acked, map, key);
    Value const* const there = Find(found.*map, key);
    bool const fits = std::any_of(allowed.values.begin(), allowed.values.end(),
                                  [&](Value const* value) { return Same(there, value); });
    Require(fits, key + (there ? " isn't what was acknowledged" : " is lost"));
    bool const is_unfetched = found.unfetched.count(key) != 0;
    bool const may_be = play.has_lost_power ? allowed.values.size() > 1 : allowed.MayGo();
    Require(!is_unfetched || may_be || play.models[0].unfetched.count(key) != 0, "found and not fetched: " + key);
  }
}

Model AskNew(Site const& site, unsigned flags) {
  auto const root = OpenForAll(site.Set(), flags | site.Structure());
  Require(root != nullptr, "it can't be opened");
  return Ask(*root, site.standard);
}

void Compare(Case const& c, Model const& found, Outcome outcome) {
  Play play(c, {{c.operation, kDurable}});
  play.models.back() = c.after;
  play.has_lost_power = false;
  play.Compare(std::size_t(outcome), found);
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

Content ContentOf(IOD_Msg const& object) {
  std::optional<Content> const content = TryContentOf(object);
  Require(content.has_value(), "an object can't be decompressed");
  return *content;
}

void Model::Add(IOD_Msg const& object, bool standard) {
  Content const content = ContentOf(object);
  objects[object.GetSOPInstanceUID().GetText()] = content;
  studies.try_emplace(content.study, Study{content.patient_id, content.patient_name, standard ? "" : "N", ""});
}

std::unique_ptr<IOD_Msg> MakeObject(Phantom::Object object) {
  object.size = 16;
  return Phantom::Make(object);
}

std::unique_ptr<Disk_RootDirectoryFile> OpenForAll(std::string const& path, unsigned flags) {
  auto root = OpenSet(path, flags);
  if (!root) return nullptr;
  root->SetSupportPar({1, 1, 0});
  constexpr std::int32_t kMoreThanAnyDisk = 1 << 30;
  root->SetAutoDeletePar({kMoreThanAnyDisk, 1});
  return root;
}

Disk_CheckResult CheckAll(std::string const& path, bool standard) {
  Disk_CheckResult result;
  Require(CheckSet(path, standard ? Disk_StoreParams::STANDARD_STRUCTURE : 0u, true, &result) == 0,
          "it can't be checked");
  return result;
}

Answers AllStudies(Disk_RootDirectoryFile& root, std::vector<Dicom_Tag> const& tags) {
  Keys keys{{kStudyUid, ""}};
  for (Dicom_Tag const& tag : tags)
    keys.push_back({tag, ""});
  int result = 0;
  Answers answers = AnswersOf(root, Asking(STUDY, keys), &result);
  Require(result == 0, "a query fails");
  return answers;
}

Model Ask(Disk_RootDirectoryFile& root, bool standard) {
  Model model;
  std::vector<Dicom_Tag> tags{kPatientId, kPatientName};
  if (!standard)
    tags.insert(tags.end(),
                {Dicom_Dictionary::KOLBA_PROTECTION_FLAG, Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_LOAD_COMPLETED});
  for (auto const& study : AllStudies(root, tags)) {
    std::string const uid = study->Text(kStudyUid);
    model.studies[uid] = {study->Text(kPatientId), study->Text(kPatientName), study->GetProtectionFlag().GetText(),
                          study->Text(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_LOAD_COMPLETED)};
    Disk_Access access(root);
    if (access.OpenQuery(Asking(STUDY, {{kStudyUid, uid}}), 1) == -1) continue; // its folder is gone
    while (access.HasMore()) {
      std::string const object_uid = access.GetNextUID().GetText();
      IOD_Msg* fetched = nullptr;
      int const result = access.FetchNext(&fetched);
      std::unique_ptr<IOD_Msg> const object(fetched);
      std::optional<Content> const content = result == -1 || !object ? std::nullopt : TryContentOf(*object);
      if (content)
        Require(model.objects.emplace(object_uid, *content).second, "found twice: " + object_uid);
      else
        model.unfetched.insert(object_uid);
    }
  }
  return model;
}

Play::Play(Case const& first, std::vector<Act> wanted, bool one_root_for_all)
    : c(&first), acts(std::move(wanted)), one_root(one_root_for_all), models{first.before} {
  for (Act const& act : acts) {
    models.push_back(models.back());
    act.operation->effect(models.back(), c->standard);
  }
}

bool Play::MayBeAnything(std::size_t acked, std::string const& uid) const {
  Allowed<Content> const allowed = AllowedOf(*this, acked, &Model::objects, uid);
  return has_lost_power && allowed.HasNone() && allowed.unsynced;
}

void Play::Compare(std::size_t acked, Model const& found) const {
  CompareAll(*this, acked, found, &Model::objects);
  CompareAll(*this, acked, found, &Model::studies);
}

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

std::unique_ptr<IOD_Msg> DoAgain(Case const& c, Session& again, Session& other) {
  c.Again(again);
  auto further = MakeObject({.patient = 5});
  Require(Store(other, *further) == 0, "a further store fails");
  return further;
}

void Judge(Case const& c, Site const& site, Outcome outcome, Session* again) {
  Model const found = JudgeState(c, site, outcome);
  auto const files = ReadFiles(site.Set());
  AskNew(site, 0);
  Require(files == ReadFiles(site.Set()), "opening it once more changes it");
  if (site.standard) WholeDicomdir(site, found);

  c.BringBack(site);
  Session session(site, c.operation->flags);
  Case last(c);
  last.after.Add(*DoAgain(c, again ? *again : session, session), site.standard);
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
