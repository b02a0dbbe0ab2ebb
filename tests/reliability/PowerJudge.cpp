#include "Power.h"
#include "support/LogCapture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

// What must be found

/// What may be found of one thing when `acked` operations had returned.
template <class Value>
struct Allowed {
  std::vector<Value const*> values; // null: nothing
  bool unsynced = false;            // a relaxed operation was about it
  bool HasNone() const { return std::count(values.begin(), values.end(), nullptr) != 0; }
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

/// Of an object that no durable operation has acknowledged a power cut may leave anything.
bool MayBeAnything(Allowed<Content> const& allowed) { return allowed.HasNone() && allowed.unsynced; }

template <class Value>
void Compare(Play const& play, std::size_t acked, Model const& found, std::map<std::string, Value> Model::*map,
             bool (*anything)(Allowed<Value> const&)) {
  std::set<std::string> keys;
  for (Model const& model : play.models)
    for (auto const& [key, value] : model.*map)
      keys.insert(key);
  for (auto const& [key, value] : found.*map)
    Require(keys.count(key) != 0, "found, and never stored: " + key);
  for (std::string const& key : keys) {
    Allowed<Value> const allowed = AllowedOf(play, acked, map, key);
    Value const* const there = Find(found.*map, key);
    if (anything(allowed)) continue;
    bool const is_unfetched = found.unfetched.count(key) != 0;
    bool const fits = std::any_of(allowed.values.begin(), allowed.values.end(),
                                  [&](Value const* value) { return Same(there, value); });
    Require(fits, key + (there ? " isn't what was acknowledged" : " is lost"));
    bool const may_be_unfetched = allowed.values.size() > 1 || play.models[0].unfetched.count(key) != 0;
    Require(!is_unfetched || may_be_unfetched, "found and not fetched: " + key);
  }
}

void CompareAll(Play const& play, std::size_t acked, Model const& found) {
  Compare<Content>(play, acked, found, &Model::objects, MayBeAnything);
  Compare<Study>(play, acked, found, &Model::studies, [](Allowed<Study> const&) { return false; });
}

/// Whether a folder may be missing that a record names: only a delete removes it before the record.
bool MayLackFolder(Play const& play, std::string const& path) {
  auto const deletes = [](Play::Act const& act) {
    return act.operation->name.find("delete") != std::string::npos || act.operation->name == "cache clean";
  };
  if (play.c->state == "a delete was killed" || std::any_of(play.acts.begin(), play.acts.end(), deletes)) return true;
  return play.c->state.ends_with("no folder") && path.ends_with("/S1000000"); // what is made anew has another name
}

/// Nothing is damaged but what may be; when all that was done is acknowledged and durable, everything is `sound`.
void Check(Play const& play, std::size_t acked, std::string const& set, bool standard, bool sound) {
  for (Disk_Finding const& finding : CheckAll(set, standard).findings) {
    bool const may_be = finding.kind.starts_with("object-") &&
                        MayBeAnything(AllowedOf(play, acked, &Model::objects, finding.instance_uid));
    bool const is_harmless = finding.cause != Disk_Finding::Damage && (!sound || finding.kind == "version-missing");
    bool const is_explained = finding.kind != "folder-missing" || MayLackFolder(play, finding.path);
    Require((is_harmless && is_explained) || may_be,
            finding.kind + " " + finding.instance_uid + ": " + finding.path + ": " + finding.text);
  }
}

// The next start of the machine

class NextBoot : public Util_FileSystemInterface {
public:
  explicit NextBoot(std::string id) : id_(std::move(id)) { SetCurrent(this); }
  ~NextBoot() override { SetCurrent(nullptr); }
  int Open(char const* path, int flags, mode_t mode) override {
    bool const asks = std::string_view(path) == "/proc/sys/kernel/random/boot_id";
    return Util_FileSystemInterface::Open(asks ? id_.c_str() : path, flags, mode);
  }
  int Fsync(int) override { return 0; }
  int Fdatasync(int) override { return 0; }
  int Syncfs(int) override { return 0; }

private:
  std::string id_; // a file
};

void WriteImage(Disk::Image const& image, std::string const& place) {
  fs::remove_all(place);
  fs::create_directories(place);
  for (auto const& [name, content] : image) {
    if (name.ends_with('/'))
      fs::create_directories(place + "/" + name);
    else
      std::ofstream(place + "/" + name, std::ios::binary) << content;
  }
  std::ofstream(place + ".boot") << "00000000-0000-0000-0000-000000000000\n";
}

bool IsAccessed(Disk_RootDirectoryFile& root) {
  Dicom_Tag const date = Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE;
  SCL_QueryIdentifier all(SCL_QueryRetrieveLevel::STUDY);
  all.SetStudyInstanceUID(UI_NULL);
  all.Set(date, DT_NULL);
  Dicom_Sequence answers;
  return root.Query(all, 1, &answers) == 0 && answers.GetNItems() == 1 &&
         IOD_Msg(*answers.Get(0)).Value<Dicom_DT>(date) != DT_NULL;
}

void Judge(Play const& play, State const& cut, std::string const& place, bool thorough) {
  NextBoot const boot(place + ".boot");
  Case const& c = *play.c;
  Site const site{place, c.standard};
  bool const has_source = fs::exists(site.Source());
  if (has_source) {
    auto const source = OpenSet(site.Source(), 0);
    Require(source != nullptr, "the source can't be opened");
    bool const told = cut.acked == 1 && play.acts[0].durability == kDurable;
    Require(!told || IsAccessed(*source), "the source doesn't tell that its study was fetched");
    Check(play, cut.acked, site.Source(), false, false);
  }
  {
    auto const root = OpenSet(site.Set(), site.Structure());
    Require(root != nullptr, "it can't be opened");
    CompareAll(play, cut.acked, Ask(*root, c.standard));
    Require(!fs::exists(site.Set() + "/RELAXED") || fs::is_empty(site.Set() + "/RELAXED"), "RELAXED stays");
  }
  if (fs::exists(site.Set() + "/DICOMDIR")) Check(play, cut.acked, site.Set(), c.standard, cut.sound);
  if (!thorough || play.acts.size() > 1) return;
  if (!has_source) c.operation->bring(site);
  Session session(site, c.operation->flags);
  c.Again(session);
  Phantom::Object const further{.patient = 5};
  Require(Store(session, *MakeObject(further)) == 0, "a further store fails");
  Model end = Ask(*OpenSet(site.Set(), site.Structure()), c.standard);
  Require(end.objects.erase(MakeObject(further)->GetSOPInstanceUID().GetText()) == 1, "the further store is lost");
  end.studies.erase(MakeObject(further)->GetStudyInstanceUID().GetText());
  CompareAll(play, cut.acked, end);
}

} // namespace

void JudgeCut(Play const& play, State const& cut, std::string const& place, bool thorough) {
  WriteImage(cut.image, place);
  LogCapture log(3);
  try {
    Judge(play, cut, place, thorough);
  } catch (Complaint const& complaint) {
    std::string text = complaint.what();
    for (auto const& [level, line] : log.Lines())
      text += "\n    " + line;
    throw Complaint(text);
  }
}
