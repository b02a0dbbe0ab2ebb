// The power goes after each step of an operation, and of a few one after the other, durable and relaxed ones mixed.
// Then the machine starts anew. Besides, each sync is left out: some state must show that.
#include "Campaign.h"
#include "Oracle.h"
#include "PowerLog.h"

#include <Disk/Disk_Check.h>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <infra/Klb_LogFile.h>
#include <infra/Util_FileSystem.h>
#include <unordered_set>

namespace fs = std::filesystem;

namespace {

constexpr auto kDurable = Util_Durability::Full, kRelaxed = Util_Durability::Relaxed;

/// Operations one after the other, on the file-set of a case.
struct Play {
  Case const* c;
  struct Act {
    Operation const* operation;
    Util_Durability durability;
  };
  std::vector<Act> acts;
  std::vector<Model> models; // what the file-set holds before the first one, and after each

  Play(Case const& first, std::vector<Act> wanted) : c(&first), acts(std::move(wanted)), models{first.before} {
    for (Act const& act : acts) {
      models.push_back(models.back());
      act.operation->effect(models.back(), c->standard);
    }
  }
  /// Whether the first operations are, and what they found was sound.
  bool IsDurable(std::size_t first) const {
    return (c->state == "one object" || c->state == "several studies") &&
           std::all_of(acts.begin(), acts.begin() + std::ptrdiff_t(first),
                       [](Act const& act) { return act.durability == kDurable; });
  }
  std::string Name() const {
    std::string name = std::string(c->standard ? "standard, " : "private, ") + c->state;
    for (Act const& act : acts)
      name += std::string(act.durability == kRelaxed ? ", relaxed " : ", durable ") + act.operation->name;
    return name;
  }
};

/// What was done to the file system, and how many steps that were when each operation returned 0.
struct Recording {
  Tree start;
  std::vector<Step> steps;
  std::vector<std::size_t> done;
};

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

Recording Record(Play const& play, std::string const& place) {
  Site const site = play.c->Copy(place);
  Recording recording{Tree::Load(place), {}, {}};
  Recorder recorder(place, recording.start);
  for (Play::Act const& act : play.acts) {
    Util_FileSystem::SetDurability(act.durability);
    Session session(site, act.operation->flags);
    Require(act.operation->act(session) == 0, "it fails");
    recording.done.push_back(recorder.steps.size());
  }
  Util_FileSystem::SetDurability(kDurable);
  recording.steps = std::move(recorder.steps);
  Unsync(recording, {"set", "STUDY", "SERIES", "OBJECT"});
  return recording;
}

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
  auto const value = [&](std::size_t i) {
    auto const found = (play.models[i].*map).find(key);
    return found == (play.models[i].*map).end() ? nullptr : &found->second;
  };
  auto const touched = [&](std::size_t i) {
    Value const *const before = value(i - 1), *const after = value(i);
    return before && after ? !(*before == *after) : before != after;
  };
  std::size_t first = 0, last = std::min(acked + 1, play.acts.size());
  for (std::size_t i = 1; i <= acked; ++i)
    if (play.acts[i - 1].durability == kDurable && touched(i)) first = i;
  Allowed<Value> allowed{{value(first)}, false};
  for (std::size_t i = first + 1; i <= last; ++i) {
    allowed.values.push_back(value(i));
    allowed.unsynced = allowed.unsynced || (touched(i) && play.acts[i - 1].durability == kRelaxed);
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
    auto const it = (found.*map).find(key);
    if (anything(allowed)) continue;
    bool const is_unfetched = found.unfetched.count(key) != 0;
    bool const fits = std::any_of(allowed.values.begin(), allowed.values.end(), [&](Value const* value) {
      return value ? it != (found.*map).end() && it->second == *value : it == (found.*map).end();
    });
    Require(fits, key + (it == (found.*map).end() ? " is lost" : " isn't what was acknowledged"));
    bool const may_be_unfetched = allowed.values.size() > 1 || play.models[0].unfetched.count(key) != 0;
    Require(!is_unfetched || may_be_unfetched, "found and not fetched: " + key);
  }
}

void CompareAll(Play const& play, std::size_t acked, Model const& found) {
  Compare<Content>(play, acked, found, &Model::objects, MayBeAnything);
  Compare<Study>(play, acked, found, &Model::studies, [](Allowed<Study> const&) { return false; });
}

/// Nothing is damaged but what may be; when all that was done is acknowledged and durable, everything is `sound`.
void Check(Play const& play, std::size_t acked, std::string const& set, bool standard, bool sound) {
  Disk_CheckResult result;
  Disk_CheckOptions options;
  options.deep = true;
  Disk_StoreParams const params(standard ? unsigned(Disk_StoreParams::STANDARD_STRUCTURE) : 0);
  Require(Disk_Check(set.c_str(), params, options, &result) == 0, "it can't be checked");
  for (Disk_Finding const& finding : result.findings) {
    bool const may_be = finding.kind.starts_with("object-") &&
                        MayBeAnything(AllowedOf(play, acked, &Model::objects, finding.instance_uid));
    bool const is_harmless = finding.cause != Disk_Finding::Damage && (!sound || finding.kind == "version-missing");
    Require(is_harmless || may_be, finding.kind + ": " + finding.path + ": " + finding.text);
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

/// What the disk holds when the power goes.
struct State {
  Disk::Image image;
  std::size_t position, acked; // steps, and operations that had returned
  bool sound;                  // nothing else is under way, and all was durable
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

/// The first line of the engine's log that tells an error.
class FirstLine {
public:
  FirstLine() {
    KlbGLog.SetSink([this](int level, std::string const& line) {
      if (text.empty() && level <= 3) text = line;
    });
  }
  ~FirstLine() { KlbGLog.SetSink(nullptr); }
  std::string text;
};

void Judge(Play const& play, State const& cut, std::string const& place, bool thorough) {
  NextBoot const boot(place + ".boot");
  Case const& c = *play.c;
  Site const site{place, c.standard};
  bool const has_source = fs::exists(site.Source());
  if (has_source) {
    Require(OpenSet(site.Source(), 0) != nullptr, "the source can't be opened");
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
  if (fs::exists(c.prepared + "/incoming") && !fs::exists(site.Incoming()))
    fs::copy(c.prepared + "/incoming", site.Incoming());
  Session session(site, c.operation->flags);
  Require(c.operation->act(session) == 0 || c.operation->again == -1, "done again it fails");
  Phantom::Object const further{.patient = 5};
  Require(Store(session, *MakeObject(further)) == 0, "a further store fails");
  Model end = Ask(*OpenSet(site.Set(), site.Structure()), c.standard);
  Require(end.objects.erase(MakeObject(further)->GetSOPInstanceUID().GetText()) == 1, "the further store is lost");
  end.studies.erase(MakeObject(further)->GetStudyInstanceUID().GetText());
  CompareAll(play, cut.acked, end);
}

/// Throws what is wrong with the state that the machine finds when it starts.
void JudgeCut(Play const& play, State const& cut, std::string const& place, bool thorough) {
  FirstLine const log;
  try {
    Judge(play, cut, place, thorough);
  } catch (Complaint const& complaint) {
    KlbGLog.Flush();
    throw Complaint(complaint.what() + (log.text.empty() ? "" : " (" + log.text.substr(0, log.text.size() - 1) + ")"));
  }
}

// States

using Fates = std::vector<Disk::Fate>;
constexpr std::size_t kNoStep = SIZE_MAX;

/// What may become of the pending things: all alike, each alone otherwise than the rest, and some at random.
std::vector<Fates> Corners(Disk const& disk, std::size_t at_random, std::mt19937& random) {
  std::size_t const n = disk.Choices();
  auto const fates = [&](Disk::Fate entries, Disk::Fate bytes) {
    Fates all(n, bytes);
    for (std::size_t i = 0; i < n && disk.IsEntry(i); ++i)
      all[i] = entries;
    return all;
  };
  std::vector<Fates> corners{fates(Disk::Lost, Disk::Lost), fates(Disk::Kept, Disk::Kept),
                             fates(Disk::Lost, Disk::Kept)};
  for (int bytes = Disk::Lost; bytes < Disk::kFates; ++bytes)
    corners.push_back(fates(Disk::Kept, Disk::Fate(bytes)));
  for (std::size_t i = 0; i < n; ++i)
    for (int fate = Disk::Lost; fate < (disk.IsEntry(i) ? Disk::Zeros : Disk::kFates); ++fate) {
      corners.push_back(fates(Disk::Kept, Disk::Kept));
      corners.back()[i] = Disk::Fate(fate);
      corners.push_back(fates(Disk::Lost, Disk::Lost));
      corners.back()[i] = disk.IsEntry(i) ? Disk::Kept : Disk::Fate((fate + 1) % Disk::kFates);
    }
  for (std::size_t i = 0; i < at_random; ++i) {
    Fates some(n);
    for (std::size_t k = 0; k < n; ++k)
      some[k] = disk.IsEntry(k) ? Disk::Fate(random() % 2) : Disk::Fate(random() % Disk::kFates);
    corners.push_back(some);
  }
  return corners;
}

/// How thoroughly the states of a play are gone through.
struct Extent {
  std::size_t states;           // at most
  std::size_t positions;        // each so manieth, and those at which an operation returned
  std::size_t at_random;        // states of one position, besides the corners
  std::size_t of_one = kNoStep; // states of one position, in all
};

/// Hands the distinct states after the steps to `judge` until that gives false; `skipped` is a step that is left out.
template <class Judge>
void ForEachState(Play const& play, Recording const& recording, std::size_t skipped, Extent extent, unsigned seed,
                  Judge judge) {
  std::mt19937 random(seed);
  std::unordered_set<std::size_t> seen;
  Disk disk(recording.start);
  for (std::size_t position = 0; position <= recording.steps.size(); ++position) {
    if (position > 0 && position - 1 != skipped) disk.Apply(recording.steps[position - 1]);
    bool const returned = std::count(recording.done.begin(), recording.done.end(), position) != 0;
    bool const is_changed = skipped == kNoStep || position > skipped;
    if (!is_changed || !(returned || (position + seed) % extent.positions == 0)) continue;
    auto const acked = std::size_t(std::count_if(recording.done.begin(), recording.done.end(),
                                                 [&](std::size_t done) { return done <= position; }));
    bool const sound = returned && play.IsDurable(acked);
    std::vector<Fates> corners = Corners(disk, extent.at_random, random);
    if (corners.size() > extent.of_one) {
      std::shuffle(corners.begin() + 8, corners.end(), random); // the first ones are all alike
      corners.resize(extent.of_one);
    }
    for (Fates const& fates : corners) {
      State state{disk.Build(fates, random), position, acked, sound};
      std::string all = std::to_string(acked);
      for (auto const& [name, content] : state.image)
        (all += name).append(content).push_back('\n');
      if (seen.insert(std::hash<std::string>()(all)).second && !judge(std::move(state))) return;
    }
  }
}

void RunStates(Play const& play, Extent extent, unsigned seed, std::string const& place, Share& share) {
  Recording recording;
  share.Run(play.Name() + ", no fault", [&] { recording = Record(play, place); });
  std::vector<State> states;
  ForEachState(play, recording, kNoStep, extent, seed, [&](State state) {
    states.push_back(std::move(state));
    return true;
  });
  std::mt19937 random(seed);
  std::shuffle(states.begin(), states.end(), random);
  if (states.size() > extent.states) states.resize(extent.states);
  std::size_t number = 0;
  for (State const& state : states)
    share.Run(play.Name() + ", cut after step " + std::to_string(state.position) + ", state " +
                  std::to_string(number++),
              [&] {
                ++share.counts.first;
                WriteImage(state.image, place);
                JudgeCut(play, state, place, number % 4 == 0);
              });
}

// Syncs

/// Whether a state shows that a step is left out.
bool IsNoticed(Play const& play, Recording const& recording, std::size_t step, Extent extent, unsigned seed,
               std::string const& place) {
  bool noticed = false;
  ForEachState(play, recording, step, extent, seed, [&](State const& state) {
    WriteImage(state.image, place);
    try {
      JudgeCut(play, state, place, true);
    } catch (Complaint const&) {
      noticed = true;
    }
    return !noticed;
  });
  return noticed;
}

/// Each sync of the engine, told by the calls that lead to it, is left out of the plays that make it, until one of them
/// shows it.
void LeaveSyncsOut(std::vector<Play> const& plays, unsigned seed, std::string const& place, Share& share) {
  Extent const after{kNoStep, kNoStep, 10, 60}, all{kNoStep, 4, 2, 25};
  constexpr std::size_t kMostPlays = 12;
  struct Use {
    Play const* play;
    Recording const* recording;
    std::size_t step;
  };
  std::vector<std::unique_ptr<Recording>> recordings;
  std::vector<std::vector<Use>> syncs; // in the order in which they were met: the same in all processes
  std::map<std::size_t, std::size_t> known;
  for (Play const& play : plays) {
    recordings.push_back(std::make_unique<Recording>(Record(play, place)));
    auto const& steps = recordings.back()->steps;
    for (std::size_t at = 0; at < steps.size(); ++at) {
      if (!IsSync(steps[at])) continue;
      auto const [sync, is_new] = known.emplace(steps[at].caller, syncs.size());
      if (is_new) syncs.emplace_back();
      if (syncs[sync->second].size() < kMostPlays) syncs[sync->second].push_back({&play, recordings.back().get(), at});
    }
  }
  for (std::vector<Use> const& uses : syncs) {
    if (!share.IsMine()) continue;
    ++share.counts.second;
    share.Run(uses[0].play->Name() + ", without the sync at step " + std::to_string(uses[0].step + 1), [&] {
      for (Extent const& extent : {after, all})
        for (Use const& use : uses)
          if (IsNoticed(*use.play, *use.recording, use.step, extent, seed, place)) return;
      ++share.counts.third;
      throw Complaint("nothing shows that it is missing, " + std::to_string(uses.size()) + " times");
    });
  }
}

std::vector<Play> Mixed(std::vector<Case> const& cases) {
  std::vector<Play> plays;
  std::set<std::string> const names{"store new study",   "store new series", "store image",
                                    "store known image", "delete series",    "protect"};
  for (Case const& first : cases) {
    if (first.state != "several studies" || names.count(first.operation->name) == 0) continue;
    for (Operation const& second : Operations()) {
      bool const served = first.standard ? second.is_standard : second.is_private;
      bool const undone = first.operation->name == "delete series" || second.name == first.operation->name;
      if (!served || undone || names.count(second.name) == 0) continue;
      plays.push_back({first, {{first.operation, kRelaxed}, {&second, kDurable}}});
      plays.push_back({first, {{first.operation, kDurable}, {&second, kRelaxed}}});
      for (Operation const& third : Operations())
        if (third.name == "store new patient")
          plays.push_back({first, {{first.operation, kRelaxed}, {&second, kDurable}, {&third, kRelaxed}}});
    }
  }
  return plays;
}

} // namespace

Result RunPower(Options const& options) {
  TempDirectory const prepared;
  std::vector<Case> const cases = Cases(options.selection, prepared.Path());
  std::vector<Play> plays;
  for (Case const& c : cases)
    for (Util_Durability const durability : {kDurable, kRelaxed})
      plays.push_back({c, {{c.operation, durability}}});
  std::vector<Play> const mixed = Mixed(cases);
  plays.insert(plays.end(), mixed.begin(), mixed.end());
  Extent const extent = options.full ? Extent{140, 1, 12} : Extent{3, 9, 1};
  Counts const counts = InShares(options, [&](Share& share, std::string const& place) {
    if (options.full) LeaveSyncsOut(plays, options.seed, place, share);
    for (Play const& play : plays)
      if (share.IsMine()) RunStates(play, extent, options.seed, place, share);
  });
  return {std::to_string(counts.first) + " states, " + std::to_string(counts.second) + " syncs left out, " +
              std::to_string(counts.third) + " of them unnoticed",
          counts.failures};
}
