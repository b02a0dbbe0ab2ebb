#include <infra/Klb_LockFile.h>
#include <support/Kill.h>
#include <support/LogCapture.h>
#include <support/TempDirectory.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

class LockFile : public testing::Test {
protected:
  LockFile() {
    std::filesystem::create_directory(set_);
    EXPECT_EQ(init(lock_), 0);
  }
  int init(Klb_LockFile& lock, int read_only = 0) { return lock.Init((set_ + "/").c_str(), path_.c_str(), read_only); }

  // What somebody else gets who asks for the lock now.
  int ask() {
    Klb_LockFile other;
    EXPECT_EQ(init(other), 0);
    return other.TryLockExclusive();
  }

  // Runs `action` in front of the first `times` requests for a lock.
  static FaultyFileSystem::Before before_lock(int times, std::function<int()> const& action) {
    return [=](std::string_view call, char const*) mutable { return call == "Flock" && times-- > 0 ? action() : 0; };
  }

  TempDirectory directory_;
  std::string set_ = directory_ / "set";
  std::string path_ = set_ + "/LOCKFILE";
  Klb_LockFile lock_;
};

TEST_F(LockFile, ExcludesObjectsOfOneProcess) {
  Klb_LockFile b, c;
  ASSERT_EQ(init(b) | init(c), 0);
  EXPECT_EQ(lock_.LockShared() | b.LockShared(), 0);
  EXPECT_EQ(c.TryLockExclusive(), 1);
  EXPECT_EQ(lock_.UnlockShared(), 0);
  EXPECT_EQ(c.TryLockExclusive(), 1);
  EXPECT_EQ(b.UnlockShared(), 0);
  EXPECT_EQ(c.TryLockExclusive(), 0);
  EXPECT_EQ(b.TryLockExclusive(), 1);
  EXPECT_EQ(init(c), 0); // a second Init ends the hold of the first
  {
    Klb_LockGuard guard;
    {
      Klb_LockGuard inner(b, Klb_LockGuard::Exclusive);
      guard = std::move(inner);
    }
    EXPECT_EQ(ask(), 1);
  }
  EXPECT_EQ(ask(), 0);
}

TEST_F(LockFile, ExcludesProcessesAndEndsWithThem) {
  EXPECT_EQ(InChild([this] { return lock_.LockExclusive(); }), 0);
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(lock_.LockExclusive(), 0);
  EXPECT_EQ(InChild([this] { return lock_.TryLockExclusive(); }), 1) << "the open file is the parent's";
}

TEST_F(LockFile, IsTakenAgainByWhoOpenedItAlone) {
  EXPECT_EQ(lock_.RelockShared(), 0);
  EXPECT_EQ(ask(), 1);
  EXPECT_EQ(InChild([this] { return lock_.RelockShared() == -1 && errno == ESTALE; }), 1);
  EXPECT_EQ(lock_.UnlockShared(), 0);
  EXPECT_EQ(ask(), 0);
  Klb_LockFile unopened;
  EXPECT_EQ(unopened.RelockShared(), -1);
}

TEST_F(LockFile, FollowsTheFileThatStandsAtThePath) {
  for (bool const recreated : {false, true}) {
    FaultyFileSystem const faulty(before_lock(2, [&] {
      std::filesystem::remove(path_);
      if (recreated) directory_.Write("set/LOCKFILE", "");
      return 0;
    }));
    EXPECT_EQ(lock_.LockExclusive(), 0);
    EXPECT_EQ(ask(), 1);
  }
  FaultyFileSystem const never_stays(before_lock(INT_MAX, [this] { return unlink(path_.c_str()); }));
  EXPECT_EQ(lock_.LockShared(), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(LockFile, FailsWhenTheDirectoryIsDeleted) {
  for (int const read_only : {0, 1}) {
    std::filesystem::create_directory(set_);
    directory_.Write("set/LOCKFILE", "");
    ASSERT_EQ(init(lock_, read_only), 0);
    FaultyFileSystem const deletes(before_lock(1, [this] { return std::filesystem::remove_all(set_) ? 0 : EIO; }));
    LogCapture log;
    EXPECT_EQ(lock_.LockShared(), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(log.Count(3, path_ + ": errno 2"), 1);
    EXPECT_EQ(init(lock_, read_only), -1);
    EXPECT_FALSE(std::filesystem::exists(set_));
  }
}

TEST_F(LockFile, ReaderNeedsNeitherLockFileNorPermission) {
  Klb_LockFile reader;
  unlink(path_.c_str());
  ASSERT_EQ(init(reader, 1), 0);
  EXPECT_EQ(reader.LockShared() | reader.UnlockShared() | reader.LockExclusive(), 0);
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_EQ(ask(), 0); // makes the file, which the reader honours from now on
  EXPECT_EQ(reader.LockShared(), 0);
  EXPECT_EQ(ask(), 1);
  FaultyFileSystem const forbids([](std::string_view call, char const*) { return call == "Open" ? EACCES : 0; });
  EXPECT_EQ(init(reader, 1) | reader.LockShared() | reader.UnlockShared(), 0);
  EXPECT_EQ(init(reader, 0), -1);
  EXPECT_EQ(errno, EACCES);
}

} // namespace
