#include <fcntl.h>
#include <infra/I18n.h>
#include <infra/Klb_FileSystemUtils.h>
#include <infra/Util_FileSystem.h>
#include <limits>
#include <support/FaultyFileSystem.h>
#include <support/TempDirectory.h>

#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>
#include <tuple>

namespace {

using Parts = std::vector<std::string_view>;

int write_file(std::string const& path, Parts const& parts, bool sync = true) {
  return Util_FileSystem::WriteNewFile(path.c_str(), parts, sync);
}

std::string content(std::string const& path) {
  std::shared_ptr<Util_Buffer const> const buffer = Util_FileSystem::ReadWholeFile(path.c_str());
  return buffer ? std::string(buffer->data(), buffer->size()) : "errno " + std::to_string(errno);
}

// Besides what the campaign `errors` does to every call: more parts than one gathered write may take.
TEST(FileSystem, WholeFilesAreWrittenWithTheSyncsThatAreWanted) {
  TempDirectory const directory;
  std::string const path = directory / "file";
  Parts parts(3000, "abcde");
  parts[7] = "";
  std::string expected;
  for (std::string_view const part : parts)
    expected += part;
  FaultyFileSystem faulty;
  faulty.most = 3;
  ASSERT_EQ(write_file(path, parts), 0);
  EXPECT_EQ(content(path), expected);
  ASSERT_EQ(write_file(path, {"short"}, false), 0);
  EXPECT_EQ(faulty.calls["Fdatasync"], 1); // none where it isn't asked for, nor with relaxed durability
  Util_FileSystem::SetDurability(Util_Durability::Relaxed);
  EXPECT_EQ(write_file(path, {"short"}) | Util_FileSystem::SyncDirectory(directory.Path().c_str()), 0);
  Util_FileSystem::SetDurability(Util_Durability::Full);
  EXPECT_EQ(faulty.calls["Fdatasync"] + faulty.calls["Fsync"], 1);
  EXPECT_TRUE(fcntl(Util_FileSystem::Open(path.c_str(), O_RDWR).Get(), F_GETFD) & FD_CLOEXEC);
}

TEST(FileSystem, BuffersAreAllThereOrNull) {
  for (size_t const size : {size_t(1) << 20, size_t(0), size_t(1)})
    std::memset(Util_Buffer::Make(size)->data(), 'x', size);
  for (size_t const size : {SIZE_MAX, SIZE_MAX - 8191})
    EXPECT_FALSE(Util_Buffer::Make(size)); // not a small one, its room having wrapped around
}

TEST(FileSystem, FailuresAreToldOnceAndKeepTheirCause) {
  TempDirectory const directory;
  using Case = std::pair<std::string_view, int>;
  for (auto const& [name, error] :
       {Case("Open", EMFILE), {"Writev", ENOSPC}, {"Fdatasync", EINTR}, {"Close", EDQUOT}}) {
    // A close that fails in the clean-up hides nothing.
    FaultyFileSystem faulty([name = name, error = error](std::string_view call, char const*) {
      return call == name ? error : call == "Close" ? EIO : 0;
    });
    EXPECT_EQ(write_file(directory / "file", {"abc"}), -1);
    EXPECT_EQ(errno, error);
    EXPECT_EQ(faulty.calls[name], 1); // above all a sync is never asked for again
  }
  FaultyFileSystem faulty;
  faulty.most = 0; // nothing taken and no cause given
  Util_FileDescriptor const file = Util_FileSystem::Open((directory / "file").c_str(), O_RDWR);
  EXPECT_EQ(Util_FileSystem::WriteAll(file.Get(), "x", 1), -1);
  EXPECT_EQ(write_file(directory / "file", {"x"}), -1);
  EXPECT_EQ(errno, EIO);
}

TEST(FileSystem, WhatCannotBeBegunIsLeftToTheSync) {
  TempDirectory const directory;
  Util_FileDescriptor const file = Util_FileSystem::Open(directory.Write("file", "x").c_str(), O_RDWR);
  for (auto const& [error, result] : {std::pair(0, 0), {ENOSYS, 0}, {ESPIPE, 0}, {EIO, -1}, {ENOSPC, -1}}) {
    FaultyFileSystem const faulty([error = error](std::string_view, char const*) { return error; });
    EXPECT_EQ(Util_FileSystem::StartSync(file.Get()), result) << error;
  }
}

TEST(FileSystem, ReplacedAndShrunkFilesAreRead) {
  TempDirectory const directory;
  std::string const path = directory.Write("file", "12345");
  for (auto const& [times, error, expected] :
       {std::tuple(3, ESTALE, "12345"), {99, ESTALE, "errno 116"}, {1, EIO, "errno 5"}}) {
    FaultyFileSystem const faulty([left = times, error = error](std::string_view call, char const*) mutable {
      return call == "Read" && left-- > 0 ? error : 0;
    });
    EXPECT_EQ(content(path), expected);
  }
  FaultyFileSystem const shrinks(
      [&](std::string_view call, char const*) { return call == "Read" ? truncate(path.c_str(), 2) : 0; });
  EXPECT_EQ(content(path), "12");
}

TEST(FileSystem, OnlyRegularFilesAreReadAndReplaced) {
  TempDirectory const directory;
  std::string const fifo = directory / "fifo", link = directory / "link";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::filesystem::create_symlink(directory.Write("target", "kept"), link);
  for (auto const& [path, error] : {std::pair(fifo, EINVAL), {"/dev/null", EINVAL}, {directory.Path(), EISDIR}})
    EXPECT_EQ(content(path), "errno " + std::to_string(error)) << path;
  EXPECT_EQ(content(link), "kept");
  EXPECT_EQ(Util_FileSystem::ReadWholeFile(link.c_str(), 3), nullptr);
  EXPECT_EQ(errno, EFBIG);
  std::filesystem::create_hard_link(directory / "target", directory / "other");
  for (std::string const& path : {fifo, link, directory / "other"}) {
    EXPECT_EQ(write_file(path, {"x"}), 0);
    EXPECT_EQ(content(path), "x");
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(path)));
  }
  EXPECT_EQ(directory.Read("target"), "kept");
  EXPECT_EQ(Util_FileSystem::MakeDirectory(fifo.c_str()), -1);
  EXPECT_EQ(Util_FileSystem::MakeDirectory(directory.Path().c_str()), 0);
}

TEST(FileSystemUtils, DirSizeCountsFilesOnce) {
  TempDirectory const directory;
  auto const size = [&] { return Klb_FileSystemUtils::GetDirSize(FromUTF8(directory.Path().c_str())); };
  std::filesystem::create_directories(directory / "a/b/c");
  EXPECT_EQ(size(), 0);
  directory.Write("one", std::string(1, 'x'));
  directory.Write("a/b/c/two", std::string(1023, 'x'));
  EXPECT_EQ(size(), 1); // rounded once, over all
  directory.Write("a/three", std::string(1, 'x'));
  std::filesystem::create_symlink("../..", directory / "a/b/up");
  std::filesystem::create_symlink("one", directory / "again");
  EXPECT_EQ(size(), 2);
  EXPECT_EQ(Klb_FileSystemUtils::GetDirSize((directory / "none").c_str()), -1);
}

// A file system whose times have steps of two seconds.
class SteppedFileSystem : public FaultyFileSystem {
public:
  int Stat(char const* path, struct stat* s) override { return stepped(FaultyFileSystem::Stat(path, s), s); }
  int Lstat(char const* path, struct stat* s) override { return stepped(FaultyFileSystem::Lstat(path, s), s); }

private:
  static int stepped(int result, struct stat* s) {
    for (timespec* time : {&s->st_mtim, &s->st_ctim})
      *time = {time->tv_sec & ~1L, 0};
    return result;
  }
};

TEST(FileSystemUtils, DirSizeIsRememberedAndNeverStale) {
  TempDirectory const directory;
  auto const size = [&] { return Klb_FileSystemUtils::GetDirSize(directory.Path().c_str()); };
  auto const wait = [](int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); };
  std::filesystem::create_directories(directory / "a/b");
  std::filesystem::create_directories(directory / "c");
  SteppedFileSystem system;
  std::string const kb(1024, 'x');
  int files = 0;
  for (; files < 40; ++files) { // several in each step
    EXPECT_EQ(size(), files);
    directory.Write((files % 3 ? "a/b/" : "c/") + std::to_string(files), kb);
    wait(75);
  }
  for (int calls = 0; calls < 2; ++calls, wait(2600))
    EXPECT_EQ(size(), files);
  EXPECT_EQ(size(), files); // the second one after a quiet step is believed
  system.calls.clear();
  EXPECT_EQ(size(), files);
  EXPECT_EQ(system.calls["List"], 0);
  std::filesystem::rename(directory / "a/b/1", directory / "a/b/2"); // one replaces another
  EXPECT_EQ(size(), files - 1);
  EXPECT_EQ(system.calls["List"], 1);
  std::filesystem::remove_all(directory / "a");
  directory.Write("DICOMDIR", kb);
  long const left = size();
  EXPECT_EQ(left, 15);
  wait(2600);
  size();
  system.calls.clear();
  directory.Write("DICOMDIR", kb + kb); // in its place
  EXPECT_EQ(size(), left + 1);
  EXPECT_EQ(system.calls["List"], 0);
}

} // namespace
