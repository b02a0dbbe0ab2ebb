#include "Power.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <set>
#include <sys/file.h>
#include <thread>
#include <utility>

Play::Play(Case const& first, std::vector<Act> wanted, bool one_root_for_all)
    : c(&first), acts(std::move(wanted)), one_root(one_root_for_all), models{first.before} {
  for (Act const& act : acts) {
    models.push_back(models.back());
    act.operation->effect(models.back(), c->standard);
  }
}

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

std::vector<Play> Mixed(std::vector<Case> const& cases) {
  std::vector<Play> plays;
  std::set<std::string> const names{"store new study",   "store new series", "store image",
                                    "store known image", "delete series",    "protect"};
  for (Case const& first : cases) {
    if (first.state != "several studies") continue;
    if (first.operation->name == "store in place")
      plays.push_back({first, {{first.operation, kDurable}, {&StoreOverInPlace(), kDurable}}});
    for (Operation const& second : Operations()) // what is protected stays
      if (first.operation->name == "protect" && second.name == "auto-delete")
        for (Util_Durability const durability : {kDurable, kRelaxed})
          plays.push_back({first, {{first.operation, kDurable}, {&second, durability}}});
    if (names.count(first.operation->name) == 0) continue;
    for (Operation const& second : Operations()) {
      bool const served = first.standard ? second.is_standard : second.is_private;
      bool const undone = first.operation->name == "delete series" || second.name == first.operation->name;
      if (!served || undone || names.count(second.name) == 0) continue;
      plays.push_back({first, {{first.operation, kRelaxed}, {&second, kDurable}}});
      plays.push_back({first, {{first.operation, kDurable}, {&second, kRelaxed}}});
      for (Util_Durability const durability : {kDurable, kRelaxed})
        plays.push_back({first, {{first.operation, durability}, {&second, kDurable}}, true});
      for (Operation const& third : Operations())
        if (third.name == "store new patient")
          plays.push_back({first, {{first.operation, kRelaxed}, {&second, kDurable}, {&third, kRelaxed}}});
    }
  }
  return plays;
}

/// Two bulk loads at once: another writer begins and ends his while the epoch is begun or ended. At other calls he
/// would have to wait.
std::vector<Play> Meetings(std::vector<Case> const& cases) {
  static Operation const s_other = SyncedStore(11);
  std::vector<Play> plays;
  for (Case const& c : cases)
    if (c.state == "several studies" && c.operation->is_synced_late)
      for (int const call : {1, 2, 3, 7, 8, 9, c.standard ? 14 : 16}) {
        plays.push_back({c, {{&s_other, kDurable}, {c.operation, kDurable}}});
        plays.back().meeting = call;
      }
  return plays;
}

/// Lets another writer, in a thread and with a root object of its own, do all of its work in front of one call.
class MeetingRecorder : public Recorder {
public:
  MeetingRecorder(std::string place, Tree start, int at, std::function<void()> other)
      : Recorder(std::move(place), std::move(start)), left_(at), other_(std::move(other)) {}

  bool HaveMet() const { return left_ <= 0 && !is_kept_waiting_; }
  int Open(char const* path, int flags, mode_t mode) override {
    Meet(path);
    int const fd = Recorder::Open(path, flags, mode);
    if (std::string_view(path).ends_with("/BOOT")) epoch_ = fd;
    return fd;
  }
  int Lstat(char const* path, struct stat* status) override {
    Meet(path);
    return Recorder::Lstat(path, status);
  }
  int List(char const* path, std::vector<Entry>& entries) override {
    Meet(path);
    return Recorder::List(path, entries);
  }
  int Unlink(char const* path) override {
    Meet(path);
    return Recorder::Unlink(path);
  }
  int Rmdir(char const* path) override {
    Meet(path);
    return Recorder::Rmdir(path);
  }
  int Syncfs(int fd) override {
    Meet(kEpoch);
    return Recorder::Syncfs(fd);
  }
  int Flock(int fd, int operation) override {
    if (fd == epoch_ && operation == LOCK_EX) Meet(kEpoch);
    bool const waits = is_meeting_ && (operation & LOCK_NB) == 0;
    int const result = Recorder::Flock(fd, waits ? operation | LOCK_NB : operation);
    if (result == -1 && waits && errno == EWOULDBLOCK) is_kept_waiting_ = true, errno = EDEADLK;
    return result;
  }

private:
  static constexpr char kEpoch[] = "RELAXED";

  void Meet(std::string_view path) {
    if (is_meeting_ || path.find(kEpoch) == path.npos || --left_ != 0) return;
    is_meeting_ = true;
    std::thread(other_).join();
    is_meeting_ = false;
  }

  int left_, epoch_ = -1;
  std::function<void()> other_;
  bool is_meeting_ = false, is_kept_waiting_ = false;
};

Recording RecordMeeting(Play const& play, std::string const& place) {
  Site const site = play.c->Copy(place);
  Recording recording{Tree::Load(place), {}, {}};
  std::unique_ptr<MeetingRecorder> recorder;
  auto const act = [&](Play::Act const& one) {
    Session session(site, one.operation->flags);
    if (one.operation->act(session) == 0) recording.done.push_back(recorder->steps.size());
  };
  recorder = std::make_unique<MeetingRecorder>(place, recording.start, play.meeting, [&] { act(play.acts[0]); });
  act(play.acts[1]);
  Require(recorder->HaveMet(), "they don't meet");
  Require(recording.done.size() == 2, "it fails");
  recording.steps = std::move(recorder->steps);
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
