// Every call of every operation fails: with each errno, once, and from there on; reads and writes move few bytes; and
// allocations fail.
#include "Allocations.h"
#include "Caller.h"
#include "Campaign.h"
#include "Oracle.h"
#include "support/FaultyFileSystem.h"

#include <Disk/Disk_Failure.h>
#include <fcntl.h>
#include <infra/Klb_GError.h>
#include <sys/file.h>

#include <cstring>

namespace fs = std::filesystem;

namespace {

/// What fails in a run.
struct Fault {
  enum Kind { Calls, ShortCounts, Allocations };
  Kind kind = Calls;
  int ordinal = 1; // the first one that fails
  int error = 0;   // with this errno
  bool once = true;
  /// Afterwards the operation is done again through the same root object, and not through a new one.
  bool same_root = false;
  /// Everything is asked of what is left; else only that the operation, done again, leaves what it should.
  bool thorough = false;
  std::string Name() const;
};

// Calls that can be interrupted by a signal, and are then made again.
bool IsRetried(std::string_view call) {
  constexpr std::string_view kCalls = "Open Close Read Write Pread Pwrite Writev Flock Unlock";
  return kCalls.find(call) != kCalls.npos;
}

// A failure that an operation gets over: it gives 0 and has done all of its work.
struct Forgiven {
  std::string_view calls, path, operation; // a part of the path, the beginning of the name; empty: any
  char const* why;
  int error = 0;               // this one only
  std::string_view state = {}; // and in this one only
};

constexpr Forgiven kForgiven[] = {
    {"Close", "", "", "what was written is synced before, and what was read needs no close"},
    {"Open Read", "/VERSION", "", "a version that can't be read: the records are read again; counted up it isn't"},
    {"Stat", "/LOCKFILE", "", "the lock file counts as replaced, and the lock is taken anew"},
    {"Open", "/DICOMDIR.redo", "", "another user's is removed, and made anew", EACCES},
    {"Ftruncate Unlink", "/DICOMDIR.redo", "", "if it stays, whoever comes next writes the same again"},
    {"Stat", "/DICOMDIR.redo", "", "a redo record counts as pending"},
    {"Access", "", "", "a name counts as taken, a redo record as pending"},
    {"Exchange", "", "", "the file is renamed instead"},
    {"Unlink", ".tmp", "", "a file that was replaced stays, and has no meaning"},
    {"Unlock", "", "", "the lock ends with its descriptor"},
    {"Open Read", "/boot_id", "", "an epoch counts as one of an earlier boot: all directory files are looked at"},
    {"Open Fstat Read", "/BOOT", "", "the same"},
    {"Pread", "/DICOMDIR", "", "the records count as outdated, and are read again"},
    {"Stat", "/DIRFILE", "", "the same"},
    {"Stat", "/DICOMDIR", "", "it counts as one that isn't empty; reading tells"},
    {"", "/RELAXED", "store and sync", "what can't be relaxed is durable"},
    {"Fsync Open", "", "store and sync", "the same"},
    {"Read", "/DICOMDIR", "store and sync", "the same"},
    {"Lstat", "/RELAXED", "export", "an epoch counts as one that is there, and is ended"},
    {"Lseek", "/DICOMDIR", "", "the limit of what stands before the records isn't asked for once"},
    {"Open Fstat", "/LOCKFILE", "store", "a new study's file is made with a lock that nobody takes"},
    {"Lstat", "", "store", "the same; before the folder of a known study is changed, it is looked at once more"},
    {"Unlink Rmdir", "", "delete", "what can't be removed is logged and left, and its record goes"},
    {"Lstat", "/RELAXED", "delete", "the copy of a file that went stays"},
    {"Stat", "/.", "delete", "a series counts as there, and is deleted as one that is"},
    {"Open", "/DIRFILE", "delete", "the same, or its directory file can't be read"},
    {"Lstat Open", "/S1000000", "delete", "its folder is looked for again, and is gone", 0, "a study has no folder"},
    {"", "", "auto-delete", "a study that can't be deleted is passed over, and asked for afterwards"},
    {"", "", "cache clean", "the same"},
    {"", "/source", "export", "the date of a fetch"},
};

bool IsForgiven(Case const& c, std::string_view call, std::string_view path, int error) {
  return std::any_of(std::begin(kForgiven), std::end(kForgiven), [&](Forgiven const& f) {
    return (f.calls.empty() || f.calls.find(call) != path.npos) && path.find(f.path) != path.npos &&
           c.operation->name.starts_with(f.operation) && (f.error == 0 || error == f.error) &&
           (f.state.empty() || c.state == f.state);
  });
}

class Seam : public FaultyFileSystem {
public:
  Seam(Case const& c, Fault const& fault)
      : FaultyFileSystem([this](std::string_view call, char const* path) { return Before(call, path ? path : ""); }),
        case_(c), fault_(fault) {
    if (fault.kind == Fault::ShortCounts) most = std::size_t(fault.ordinal);
  }
  int Close(int fd) override {
    failed_syncs_.erase(fd);
    return FaultyFileSystem::Close(fd);
  }
  int Flock(int fd, int operation) override {
    unlocking_ = (operation & LOCK_UN) != 0;
    return FaultyFileSystem::Flock(fd, operation);
  }
  int Fsync(int fd) override { return Synced(fd, FaultyFileSystem::Fsync(fd)); }
  int Fdatasync(int fd) override { return Synced(fd, FaultyFileSystem::Fdatasync(fd)); }

  int count = 0;                    // of calls
  std::vector<std::size_t> callers; // of each, without a fault
  std::string first, unforgiven;    // the first that failed, and the first that the operation must not get over
  bool synced_again = false, only_retried = true;

private:
  int Before(std::string_view call, std::string_view path) {
    ++count;
    if (fault_.ordinal == 0) callers.push_back(Caller());
    if (call == "Flock" && unlocking_) call = "Unlock";
    if (fault_.kind != Fault::Calls || (fault_.once ? count != fault_.ordinal : count < fault_.ordinal)) return 0;
    if (fault_.error == EINTR && !fault_.once && (!IsRetried(call) || ++interrupts_ % 4 == 0)) return 0;
    std::string const name = std::string(call) + " " + std::string(path.substr(path.rfind('/') + 1));
    if (first.empty()) first = name;
    only_retried = only_retried && IsRetried(call);
    bool const may = fault_.error == ENOENT || IsForgiven(case_, call, path, fault_.error) ||
                     (fault_.error == EINTR && IsRetried(call));
    if (unforgiven.empty() && !may) unforgiven = name;
    return fault_.error;
  }
  int Synced(int fd, int result) {
    synced_again = synced_again || failed_syncs_.count(fd) != 0;
    if (result == -1) failed_syncs_.insert(fd);
    return result;
  }

  Case const& case_;
  Fault const& fault_;
  int interrupts_ = 0;
  bool unlocking_ = false;
  std::set<int> failed_syncs_;
};

int Descriptors() { return int(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator())); }

void RequireNoLocks(Site const& site) {
  for (auto const& entry : fs::recursive_directory_iterator(site.directory)) {
    std::string const name = entry.path().filename().string();
    if (name != "LOCKFILE" && name != "VERSION") continue;
    int const fd = open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
    int const result = flock(fd, LOCK_EX | LOCK_NB);
    close(fd);
    Require(result == 0, "it leaves a lock on " + entry.path().string());
  }
}

struct Told {
  int result = -1, code = 0;
  bool cause = false;       // its text names a file of the site, or says what the system did
  bool is_missing = false;  // that an object isn't there is an answer, without a code or a cause
  bool for_reading = false; // a DICOMDIR that may not be written is opened for reading, and stays so for its root
};

Told Act(Case const& c, Session& session, Fault const& fault, std::string const& failed = "memory") {
  Told told;
  Disk_PassedOver passed; // what a cleaning went on past is told so
  KlbGError.Set(0);
  try {
    told.result = c.operation->act(session);
  } catch (std::exception const& e) {
    throw Complaint(failed + ": an exception leaves it: " + e.what());
  }
  told.code = KlbGError.Get();
  Disk_Failure const failure = Disk_LastFailure();
  Require(told.result == 0 || failure.code != 0 || !passed.Entries().empty(), failed + ": no failure is noted");
  auto const tells = [&](std::string_view text) {
    return text.find(session.site.directory) != text.npos || text.find(std::strerror(fault.error)) != text.npos;
  };
  told.cause = tells(failure.text) || std::any_of(passed.Entries().begin(), passed.Entries().end(),
                                                  [&](auto const& entry) { return tells(entry.text); });
  return told;
}

Told ActWithoutMemory(Case const& c, Session& session, Fault const& fault) {
  session.Root();
  session.around = ArmAllocations;
  FailAllocations(fault.ordinal, fault.once);
  Told told = Act(c, session, fault);
  session.around = nullptr;
  return told;
}

Told ActWithFaults(Case const& c, Session& session, Fault const& fault) {
  Seam seam(c, fault);
  Told told = Act(c, session, fault, seam.first);
  Require(!seam.synced_again, seam.first + ": a failed sync is made again");
  bool const must_succeed = seam.only_retried && (fault.error == EINTR || fault.kind == Fault::ShortCounts);
  Require(told.result == 0 || !must_succeed, seam.first + ": isn't got over");
  Require(told.result == -1 || seam.unforgiven.empty(), seam.unforgiven + ": goes unnoticed");
  told.for_reading = seam.first == "Access DICOMDIR" && (fault.error == EACCES || fault.error == EROFS);
  std::string const failed = seam.unforgiven.empty() ? seam.first : seam.unforgiven;
  told.is_missing = fault.error == ENOENT;
  Require(told.result == 0 || told.code != 0 || told.is_missing, failed + ": no error code");
  Require(told.result == 0 || told.cause || told.is_missing,
          failed + ": neither a file nor a cause is told: " + std::string(Disk_LastFailure().text));
  return told;
}

std::string Fault::Name() const {
  std::string const what = kind == Calls ? "call " : kind == ShortCounts ? "bytes at a time " : "allocation ";
  return what + std::to_string(ordinal) + (error != 0 ? std::string(" ") + std::strerror(error) : "") +
         (once ? "" : " and all from there") + (same_root ? ", same root" : ", new root");
}

/// Of an operation without a fault: from where in the engine each call was made, and the number of allocations.
std::vector<std::size_t> CallersOf(Case const& c, std::string const& place) {
  Site const site = c.Copy(place);
  Session session(site, c.operation->flags);
  Fault const none{.ordinal = 0};
  Seam const seam(c, none);
  Require(c.operation->act(session) == 0, "it fails by itself");
  return seam.callers;
}

int CountAllocations(Case const& c, std::string const& place) {
  Site const site = c.Copy(place);
  Session session(site, c.operation->flags);
  Require(ActWithoutMemory(c, session, {.kind = Fault::Allocations, .ordinal = 0}).result == 0, "it fails by itself");
  return CountedAllocations();
}

/// Throws a Complaint unless the operation fails as it should, and leaves what it should.
void Attempt(Case const& c, Fault const& fault, std::string const& place) {
  Site const site = c.Copy(place);
  int const descriptors = Descriptors();
  {
    Session session(site, c.operation->flags);
    Told const told =
        fault.kind == Fault::Allocations ? ActWithoutMemory(c, session, fault) : ActWithFaults(c, session, fault);
    Require(told.result == 0 || told.code != 0 || told.is_missing, "no error code");
    RequireNoLocks(site);
    if (told.result == -1) c.BringBack(site);
    Outcome const outcome = told.result == 0 ? Outcome::Done : Outcome::Unknown;
    Session fresh(site, c.operation->flags);
    Session& next = fault.same_root && session.IsOpen() && !told.for_reading ? session : fresh;
    if (fault.thorough) {
      Judge(c, site, outcome, &next);
    } else {
      if (outcome != Outcome::Done) c.Again(next); // then it leaves what it should
      JudgeState(c, site, Outcome::Done);
    }
  }
  Require(Descriptors() == descriptors, "it leaves descriptors open");
}

// ENOENT comes once: that it is false is found out, or what is told to fail does; nothing is lost by it.
constexpr std::array kErrors{ENOSPC, EIO, EDQUOT, EMFILE, EACCES, EROFS, EINTR, ENFILE, ENOENT};

struct Sample {
  int calls, allocations; // every so manieth call; at most so many allocations of a case
};

// In a sample each place in the engine that calls the file system meets a failure at least once, whichever operation
// comes by.
void Calls(Case const& c, Sample const& sample, unsigned offset, std::set<std::size_t>& known, std::string const& place,
           Share& share) {
  for (int const few : {1, 7}) {
    Fault const fault{.kind = Fault::ShortCounts, .ordinal = few, .thorough = true};
    if (share.IsMine()) share.Run(c.Name() + ", " + fault.Name(), [&] { Attempt(c, fault, place); });
  }
  std::vector<std::size_t> callers;
  share.Run(c.Name() + ", no fault", [&] { callers = CallersOf(c, place); });
  for (int ordinal = 1; ordinal <= int(callers.size()); ++ordinal) {
    bool const is_new = known.insert(callers[std::size_t(ordinal) - 1]).second;
    for (std::size_t which = 0; which < kErrors.size() * 2; ++which) {
      Fault fault{.ordinal = ordinal, .error = kErrors[which / 2], .once = which % 2 == 0};
      unsigned const turn = unsigned(ordinal) + unsigned(which) + offset;
      fault.same_root = turn % 3 == 0;
      fault.thorough = turn % unsigned(kErrors.size() * 2 + 1) == 0;
      if (fault.error == ENOENT && !fault.once) continue;
      bool const is_first =
          is_new && (fault.error == ENOENT || which / 2 == (unsigned(ordinal) + offset) % (kErrors.size() - 1));
      bool const wanted = is_first || turn % unsigned(sample.calls) == 0;
      share.counts.third += !wanted && share.IsFirst();
      if (!wanted || !share.IsMine()) continue;
      ++share.counts.first;
      share.Run(c.Name() + ", " + fault.Name(), [&] { Attempt(c, fault, place); });
    }
  }
}

void Allocations(Case const& c, Sample const& sample, unsigned offset, std::string const& place, Share& share) {
  int allocations = 0;
  share.Run(c.Name() + ", no fault", [&] { allocations = CountAllocations(c, place); });
  int const step = allocations / sample.allocations + 1;
  for (int ordinal = int(offset % unsigned(step)) + 1; ordinal <= allocations; ordinal += step) {
    if (!share.IsMine()) continue;
    ++share.counts.second;
    Fault const fault{.kind = Fault::Allocations,
                      .ordinal = ordinal,
                      .once = ordinal / step % 4 != 0,
                      .same_root = ordinal / step % 2 == 0};
    share.Run(c.Name() + ", " + fault.Name(), [&] { Attempt(c, fault, place); });
  }
}

} // namespace

Result RunErrors(Options const& options) {
  Sample const sample = !options.point.empty() ? Sample{1, 1 << 30} : options.full ? Sample{1, 400} : Sample{149, 3};
  Counts const counts = InShares(options, [&](Share& share, std::vector<Case> const& cases, std::string const& place) {
    unsigned offset = options.seed; // samples of different cases, and of different runs, meet different calls
    std::set<std::size_t> known;
    for (Case const& c : cases) {
      Calls(c, sample, offset, known, place, share);
      Allocations(c, sample, offset, place, share);
      offset += 7;
    }
  });
  return {std::to_string(counts.first) + " calls x errnos, " + std::to_string(counts.third) + " not in the sample, " +
              std::to_string(counts.second) + " allocations",
          counts.failures};
}
