// Writers, readers, deleters and a cleaner work on one file-set in processes of their own, while they are killed and
// stopped at random. What they may rely on stands on a board in memory that outlives them: an object's owner says there
// what it is about to do and what has been acknowledged, and everybody else holds the file-set to that.
#include "Campaign.h"
#include "support/FileSet.h"

#include <Disk/Disk_CacheRepository.h>
#include <atomic>
#include <csignal>
#include <infra/I18n.h>
#include <infra/Util_Clock.h>
#include <infra/Util_FileSystem.h>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

enum class Role { Writer, Deleter, Cleaner, Reader };
constexpr Role kPrivateRoles[] = {Role::Writer, Role::Writer,  Role::Writer, Role::Deleter,
                                  Role::Reader, Role::Cleaner, Role::Reader, Role::Deleter};
constexpr int kWorkers = std::size(kPrivateRoles), kObjects = 24, kImages = 4, kSeries = 3; // of an owner

// Absent and Stored are acknowledged, and stay until the owner says otherwise.
enum State : std::uint32_t { Absent, Stored, Storing, Deleting };

struct Worker {
  std::atomic<std::uint32_t> objects[kObjects]; // a State, and above it a number that each change raises
  std::atomic<std::uint64_t> operations;
};

struct Board {
  Worker workers[kWorkers];
  std::atomic<std::uint64_t> violations, waited_us; // the latter: the longest operation
  std::atomic<bool> stop;
};

// Two studies of an owner's objects; those of writers stand in studies that writers share.
Phantom::Object Place(Role role, int worker, int index) {
  int const study = index / (kImages * kSeries);
  bool const shared = role == Role::Writer;
  return {.patient = shared ? 1 : worker + 2,
          .study = study + 1,
          .series = index / kImages % kSeries + 1 + (shared ? worker * kSeries : 0),
          .image = index % kImages + 1,
          .size = 16};
}

class Round {
public:
  Round(std::string path, bool standard, unsigned seed, Board& board)
      : path_(std::move(path)), standard_(standard), seed_(seed), board_(board) {}

  /// What worker `number` does until it is told to stop, or killed.
  void Work(int number, unsigned life) {
    std::minstd_rand random(seed_ * 1000 + life * kWorkers + unsigned(number));
    auto root = OpenForAll(path_, Flags() | (number % 2 ? unsigned(Disk_StoreParams::STORE_NATIVE) : 0));
    if (!root) return Violation("worker " + std::to_string(number) + " can't open the file-set");
    Role const role = RoleOf(number);
    if (IsBulk(number)) Util_FileSystem::SetDurability(Util_Durability::Relaxed);
    if (role == Role::Cleaner) Util_Clock::SetNow(std::time(nullptr) - 400 * 86400); // its studies are old
    try {
      if (role != Role::Reader) Resume(*root, number);
      while (!board_.stop) {
        auto const start = Clock::now();
        Step(*root, role, number, random);
        auto const took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
        if (std::uint64_t(took) > board_.waited_us) board_.waited_us = std::uint64_t(took);
        ++board_.workers[number].operations;
      }
    } catch (Complaint const& complaint) {
      Violation("worker " + std::to_string(number) + ": " + complaint.what());
    }
  }

  /// When all have ended; `calm`: by themselves, so that nothing is left half done.
  void Verify(bool calm) {
    try {
      Disk_CheckResult const result = CheckAll(path_, standard_);
      for (Disk_Finding const& finding : result.findings)
        Require(!calm && finding.cause != Disk_Finding::Damage,
                finding.kind + ": " + finding.path + ": " + finding.text);
      if (calm) Require(result.instances == Acknowledged(), "it holds more than is acknowledged, or less");
      auto const root = OpenForAll(path_, Flags());
      Require(root != nullptr, "it can't be opened");
      for (int owner = 0; owner < kWorkers; ++owner)
        for (int index = 0; index < kObjects; ++index)
          FetchOne(*root, owner, index);
      for (int owner = 0; owner < kWorkers; ++owner)
        if (RoleOf(owner) != Role::Reader) Resume(*root, owner);
    } catch (Complaint const& complaint) {
      Violation(std::string("at the end: ") + complaint.what());
    }
  }

  void Violation(std::string const& text) {
    ++board_.violations;
    std::printf("  %s, seed %u: %s\n", standard_ ? "standard" : "private", seed_, text.c_str());
    std::fflush(stdout);
  }

private:
  std::uint64_t Acknowledged() const {
    std::uint64_t count = 0;
    for (int owner = 0; owner < kWorkers; ++owner)
      for (int index = 0; index < kObjects; ++index)
        count += (Load(owner, index) & 3) == Stored;
    return count;
  }
  unsigned Flags() const { return standard_ ? unsigned(Disk_StoreParams::STANDARD_STRUCTURE) : 0; }
  // A cache has the private structure.
  Role RoleOf(int number) const {
    Role const role = kPrivateRoles[number];
    return standard_ && role == Role::Cleaner ? Role::Deleter : role;
  }
  /// Whether it loads in bulk: its operations are relaxed, and synced now and then.
  static bool IsBulk(int number) { return kPrivateRoles[number] == Role::Writer && number > 0; }
  Phantom::Object At(int owner, int index) const { return Place(RoleOf(owner), owner, index); }
  std::uint32_t Load(int owner, int index) const { return board_.workers[owner].objects[index]; }
  void Set(int owner, int index, State state) {
    auto& word = board_.workers[owner].objects[index];
    word = ((word >> 2) + 1) << 2 | state;
  }

  void Step(Disk_RootDirectoryFile& root, Role role, int number, std::minstd_rand& random) {
    int const index = int(random() % kObjects), other = int(random() % kWorkers);
    unsigned const what = random() % 8;
    if (role == Role::Reader) // what is fetched isn't old any more, and the cleaning would keep it
      return what < 6 && RoleOf(other) != Role::Cleaner ? FetchOne(root, other, index)
                                                        : QuerySeries(root, other, index);
    if (IsBulk(number) && what == 6) return Require(root.Sync() == 0, "a sync fails");
    if (what < (role == Role::Writer ? 7 : 6)) return Put(root, number, index);
    if (role == Role::Cleaner) return Clean(root, number);
    if (!standard_ && role == Role::Deleter && what == 7 && index < 4) return CorrectMaker(root);
    auto const level = QueryLevel(role == Role::Writer ? 2 : random() % 3);
    Delete(root, number, index, level);
  }

  void Put(Disk_RootDirectoryFile& root, int owner, int index) {
    Set(owner, index, Storing);
    auto const object = Phantom::Make(At(owner, index));
    Require(StoreObject(root, object.get()) == 0, "a store fails");
    Set(owner, index, Stored);
  }

  void Delete(Disk_RootDirectoryFile& root, int owner, int index, QueryLevel level) {
    int const size = level == STUDY ? kImages * kSeries : level == SERIES ? kImages : 1;
    int const first = index / size * size;
    bool any = false;
    for (int i = first; i < first + size; ++i) {
      any = any || (Load(owner, i) & 3) == Stored;
      Set(owner, i, Deleting);
    }
    Require(DeleteObjects(root, Named(level, At(owner, index))).result == 0 || !any, "a delete fails");
    for (int i = first; i < first + size; ++i)
      Set(owner, i, Absent);
  }

  /// Of the writers' patient, whose objects are stored meanwhile; there may be none yet, which fails.
  void CorrectMaker(Disk_RootDirectoryFile& root) {
    auto const object = Phantom::Make(Place(Role::Writer, 0, 0));
    std::ignore = root.ChangeManufacturerParms(object->GetPatientID(), object->GetIssuerOfPatientID(),
                                               Dicom_LO("Maker"), LO_NULL);
  }

  /// The owner's studies are older than any other, and all that may go.
  void Clean(Disk_RootDirectoryFile& root, int owner) {
    for (int first = 0; first < kObjects; first += kImages * kSeries)
      // long ago; what was never read is wanted. It fails for a study that isn't there any more.
      std::ignore = root.SetStudyAccessed(Phantom::StudyUid(At(owner, first)));
    for (int i = 0; i < kObjects; ++i)
      Set(owner, i, Deleting);
    Util_Clock::SetNow(0);
    Disk_CacheRepository cache;
    cache.SetPath(FromUTF8(path_.c_str()));
    Require(cache.Construct() == 0, "the cache can't be opened");
    std::ignore = cache.AutoCleanNStudies(kObjects); // more than there are: -1
    Util_Clock::SetNow(std::time(nullptr) - 400 * 86400);
    for (int i = 0; i < kObjects; ++i)
      Set(owner, i, Absent);
  }

  /// Completes what an earlier life of the owner was about.
  void Resume(Disk_RootDirectoryFile& root, int owner) {
    for (int index = 0; index < kObjects; ++index) {
      auto const state = State(Load(owner, index) & 3);
      if (state == Storing) Put(root, owner, index);
      if (state == Deleting) Delete(root, owner, index, IMAGE);
    }
  }

  void FetchOne(Disk_RootDirectoryFile& root, int owner, int index) {
    std::uint32_t const before = Load(owner, index);
    auto const wanted = Phantom::Make(At(owner, index));
    auto const object = FetchObject(root, Named(IMAGE, At(owner, index)));
    std::string const uid = wanted->GetSOPInstanceUID().GetText();
    if (object)
      Require(object->GetSOPInstanceUID() == wanted->GetSOPInstanceUID() && ContentOf(*object) == ContentOf(*wanted),
              "fetched is another object than " + uid);
    if (before != Load(owner, index)) return;
    if ((before & 3) == Stored) Require(object != nullptr, "an acknowledged object is lost: " + uid);
    if ((before & 3) == Absent) Require(!object, "a deleted object is back: " + uid);
  }

  void QuerySeries(Disk_RootDirectoryFile& root, int owner, int index) {
    int const first = index / kImages * kImages;
    std::uint32_t before[kImages];
    for (int i = 0; i < kImages; ++i)
      before[i] = Load(owner, first + i);
    Phantom::Object const place = At(owner, first);
    auto const identifier = Asking(IMAGE, {{kStudyUid, StudyOf(place)}, {kSeriesUid, SeriesOf(place)}, {kSopUid, ""}});
    int result = 0; // not 0 when the study goes meanwhile
    std::set<std::string> found;
    for (auto const& answer : AnswersOf(root, identifier, &result))
      found.insert(answer->Text(kSopUid));
    for (int i = 0; i < kImages; ++i) {
      if (before[i] != Load(owner, first + i)) continue;
      std::string const uid = ImageOf(At(owner, first + i));
      if ((before[i] & 3) == Stored) Require(result == 0 && found.count(uid) == 1, "a query misses " + uid);
      if ((before[i] & 3) == Absent) Require(found.count(uid) == 0, "a query finds the deleted " + uid);
    }
  }

  std::string path_;
  bool standard_;
  unsigned seed_;
  Board& board_;
};

/// Keeps the workers of a round alive, and kills and stops them.
class Keeper {
public:
  Keeper(Round& round, Board& board, unsigned seed) : round_(round), board_(board), random_(seed) {
    for (int number = 0; number < kWorkers; ++number)
      Start(number);
  }

  /// Until the workers have done so many operations. The number of kills; none when it is `calm`.
  int Run(std::uint64_t operations, bool calm) {
    int kills = 0;
    for (std::uint64_t next_kill = 0; Done() < operations && board_.violations == 0;) {
      std::this_thread::sleep_for(1ms);
      Watch();
      if (calm) continue;
      int const number = int(random_() % kWorkers);
      if (Done() >= next_kill) {
        next_kill = Done() + random_() % 2000;
        End(number, SIGKILL);
        Start(number);
        ++kills;
      } else if (random_() % 64 == 0) { // where it is; it may hold a lock
        kill(children_[number], SIGSTOP);
        std::this_thread::sleep_for(std::chrono::milliseconds(random_() % 20));
        kill(children_[number], SIGCONT);
      }
    }
    board_.stop = true;
    auto const end = Clock::now() + kPatience;
    for (int number = 0; number < kWorkers; ++number) {
      while (waitpid(children_[number], nullptr, WNOHANG) == 0) {
        if (Clock::now() > end) {
          round_.Violation("worker " + std::to_string(number) + " doesn't end");
          End(number, SIGKILL);
          break;
        }
        std::this_thread::sleep_for(1ms);
      }
    }
    return kills;
  }

  std::uint64_t Done() const {
    std::uint64_t sum = 0;
    for (Worker const& worker : board_.workers)
      sum += worker.operations;
    return sum;
  }

private:
  static constexpr auto kPatience = 30s;

  void Start(int number) {
    unsigned const life = ++lives_;
    pid_t const child = fork();
    if (child == 0) {
      round_.Work(number, life);
      _exit(0);
    }
    children_[number] = child;
    moved_[number] = {board_.workers[number].operations, Clock::now()};
  }
  void End(int number, int signal) {
    kill(children_[number], signal);
    waitpid(children_[number], nullptr, 0);
  }
  /// A worker that gets no further is in a deadlock.
  void Watch() {
    for (int number = 0; number < kWorkers; ++number) {
      std::uint64_t const now = board_.workers[number].operations;
      if (now != moved_[number].first) moved_[number] = {now, Clock::now()};
      if (Clock::now() - moved_[number].second > kPatience)
        round_.Violation("worker " + std::to_string(number) + " is stuck");
    }
  }

  Round& round_;
  Board& board_;
  std::minstd_rand random_;
  unsigned lives_ = 0;
  pid_t children_[kWorkers] = {};
  std::pair<std::uint64_t, Clock::time_point> moved_[kWorkers];
};

} // namespace

Result RunProcesses(Options const& options) {
  std::uint64_t const wanted = options.full ? 1'000'000 : 20'000, a_round = options.full ? 25'000 : 10'000;
  std::uint64_t operations = 0, kills = 0, violations = 0, longest = 0;
  for (unsigned seed = options.seed; operations < wanted && violations == 0; ++seed) {
    bool const calm = seed < options.seed + 2; // one round in each structure
    bool const standard =
        options.selection.structure.empty() ? seed % 2 == 0 : options.selection.structure == "standard";
    TempDirectory const directory;
    void* const shared = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) return {"no memory", 1};
    Board& board = *new (shared) Board{};
    Round round(directory.Path(), standard, seed, board);
    Keeper keeper(round, board, seed);
    kills += std::uint64_t(keeper.Run(calm ? a_round / 10 : a_round, calm));
    operations += keeper.Done();
    if (board.violations == 0) round.Verify(calm);
    violations += board.violations;
    longest = std::max(longest, board.waited_us.load());
    munmap(shared, sizeof(Board));
  }
  return {std::to_string(operations) + " operations, " + std::to_string(kills) + " kills, the longest wait " +
              std::to_string(longest / 1000) + " ms",
          violations};
}
