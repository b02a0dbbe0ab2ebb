#include "Power.h"

#include <thread>

bool Play::IsDurable(std::size_t first) const {
  return (c->state == "one object" || c->state == "several studies") &&
         std::all_of(acts.begin(), acts.begin() + std::ptrdiff_t(first),
                     [](Act const& act) { return act.durability == kDurable; });
}

std::string Play::Name() const {
  std::string name = std::string(c->standard ? "standard, " : "private, ") + c->state;
  for (Act const& act : acts)
    name += std::string(act.durability == kRelaxed ? ", relaxed " : ", durable ") + act.operation->name;
  if (meeting != 0) name += ", meeting at call " + std::to_string(meeting);
  return one_root ? name + ", by one root" : name;
}

namespace {

/// Stores the object again that "store in place" has stored: it stands in another folder than its series' directory
/// file.
Operation const& StoreOverInPlace() {
  Phantom::Object const object{.patient = 7, .bits = 10};
  static Operation const s_store{.name = "store over that",
                                 .act = [object](Session& session) { return Store(session, *MakeObject(object)); },
                                 .effect = [object](Model& m, bool standard) { m.Add(*MakeObject(object), standard); }};
  return s_store;
}

Operation const& Known(std::string_view name) {
  return *std::find_if(Operations().begin(), Operations().end(), [&](Operation const& o) { return o.name == name; });
}

std::vector<Play> Mixed(std::vector<Case> const& cases) {
  std::vector<Play> plays;
  std::set<std::string> const names{"store new study",   "store new series", "store image",
                                    "store known image", "delete series",    "protect"};
  for (Case const& first : cases) {
    if (first.state != "several studies") continue;
    if (first.operation->name == "store in place")
      plays.push_back({first, {{first.operation, kDurable}, {&StoreOverInPlace(), kDurable}}});
    if (names.count(first.operation->name) == 0) continue;
    for (Util_Durability const durability : {kDurable, kRelaxed}) // what is protected stays
      if (first.operation->name == "protect")
        plays.push_back({first, {{first.operation, kDurable}, {&Known("auto-delete"), durability}}});
    for (Operation const& second : Operations()) {
      bool const served = first.standard ? second.is_standard : second.is_private;
      bool const undone = first.operation->name == "delete series" || second.name == first.operation->name;
      if (!served || undone || names.count(second.name) == 0) continue;
      plays.push_back({first, {{first.operation, kRelaxed}, {&second, kDurable}}});
      plays.push_back({first, {{first.operation, kDurable}, {&second, kRelaxed}}});
      for (Util_Durability const durability : {kDurable, kRelaxed})
        plays.push_back({first, {{first.operation, durability}, {&second, kDurable}}, true});
      Play::Act const third{&Known("store new patient"), kRelaxed};
      plays.push_back({first, {{first.operation, kRelaxed}, {&second, kDurable}, third}});
    }
  }
  return plays;
}

/// Two bulk loads at once: another writer begins and ends his while the epoch is begun or ended. At other calls he
/// would have to wait.
std::vector<Play> Meetings(std::vector<Case> const& cases) {
  static Operation const s_other = SyncedStore(11);
  std::vector<Play> plays;
  for (Case const& c : cases) {
    if (c.state != "several studies" || !c.operation->is_synced_late) continue;
    int const ends = c.standard ? 22 : 28, removes = c.standard ? 30 : 38;
    for (int const call : {1, 3, 4, 6, ends, ends + 1, ends + 3, removes}) {
      plays.push_back({c, {{&s_other, kDurable}, {c.operation, kDurable}}});
      plays.back().meeting = call;
    }
  }
  return plays;
}

/// The other writer has a thread and a root object of his own, which the locks hold apart as they do processes.
Recording RecordMeeting(Play const& play, std::string const& place) {
  Site const site = play.c->Copy(place);
  Recording recording{Tree::Load(place), {}, {}};
  Recorder* recorder = nullptr;
  auto const act = [&](Play::Act const& one) {
    Session session(site, one.operation->flags);
    if (one.operation->act(session) == 0) recording.done.push_back(recorder->steps.size());
  };
  int left = play.meeting;
  Recorder meeting(place, recording.start, [&](std::string_view, char const* path) {
    if (!path || std::string_view(path).find("/RELAXED") == std::string_view::npos || --left != 0) return 0;
    recorder->waits = false;
    std::thread(act, play.acts[0]).join();
    recorder->waits = true;
    return 0;
  });
  recorder = &meeting;
  act(play.acts[1]);
  Require(recording.done.size() == 2, "they can't meet, or one fails");
  recording.steps = std::move(meeting.steps);
  return recording;
}

/// A file that its writer hasn't synced, if there is one at the path.
void Unsync(Recording& recording, std::vector<std::string> const& path) {
  Inode directory = kRoot, inode = kRoot;
  for (std::string const& name : path) {
    auto const& names = recording.start.directories[directory = inode];
    auto const found = names.find(name);
    if (found == names.end()) return;
    inode = found->second;
  }
  std::vector<Step> const steps{
      {.kind = Step::Entries, .entries = {{directory, path.back(), inode}}},
      {.kind = Step::Write, .inode = inode, .data = std::exchange(recording.start.files[inode], {})}};
  recording.start.directories[directory].erase(path.back());
  recording.steps.insert(recording.steps.begin(), steps.begin(), steps.end());
  for (std::size_t& done : recording.done)
    done += steps.size();
}

} // namespace

std::vector<Play> Plays(std::vector<Case> const& cases) {
  std::vector<Play> plays;
  for (Case const& c : cases)
    for (Util_Durability const durability : {kDurable, kRelaxed})
      plays.push_back({c, {{c.operation, durability}}});
  for (std::vector<Play> const& more : {Mixed(cases), Meetings(cases)})
    plays.insert(plays.end(), more.begin(), more.end());
  return plays;
}

Recording Record(Play const& play, std::string const& place) {
  if (play.meeting != 0) return RecordMeeting(play, place);
  Site const site = play.c->Copy(place);
  Recording recording{Tree::Load(place), {}, {}};
  Recorder recorder(place, recording.start);
  std::optional<Session> session;
  for (Play::Act const& act : play.acts) {
    if (!play.one_root) session.reset();
    Util_FileSystem::SetDurability(act.durability);
    if (!session) session.emplace(site, act.operation->flags);
    Require(act.operation->act(*session) == 0, "it fails");
    recording.done.push_back(recorder.steps.size());
  }
  session.reset();
  Util_FileSystem::SetDurability(kDurable);
  recording.steps = std::move(recorder.steps);
  // what callers bring they may not have synced
  Unsync(recording, {"incoming"});
  Unsync(recording, {"set", "STUDY", "SERIES", "OBJECT"});
  return recording;
}
