// What a power cut can leave of the calls that were made to the file system. The recorder passes every call on and logs
// those that change something; from the log, states of the disk are built: a file's bytes since its last sync are
// there, or not, or in part; an entry of a directory since its last sync is there or not, whatever its file holds.
#pragma once

#include "support/FaultyFileSystem.h"

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

using Inode = int; // a file or directory; a number is never used again
constexpr Inode kRoot = 0, kNone = -1;

/// One change, or one sync.
struct Step {
  enum Kind { Write, Truncate, Entries, SyncFile, SyncDirectory, SyncAll } kind;
  Inode inode = kNone; // the file, or the directory that is synced
  std::size_t offset = 0;
  std::string data = {}; // of a sync: the path; Truncate: `offset` is the size
  struct Entry {         // of a directory: what its name stands for from now on
    Inode directory;
    std::string name;
    Inode inode;
    bool is_directory = false; // that is made with its entry
  };
  std::vector<Entry> entries = {}; // of one call, which takes effect as a whole
  std::size_t caller = 0;          // of a sync: from where in the engine
};

inline bool IsSync(Step const& step) { return step.kind >= Step::SyncFile; }

/// The directories and files below a place, by their inodes.
struct Tree {
  std::map<Inode, std::map<std::string, Inode>> directories{{kRoot, {}}};
  std::map<Inode, std::string> files;
  Inode next = kRoot + 1;

  static Tree Load(std::string const& place);
};

/// Current for its scope.
class Recorder : public FaultyFileSystem {
  using Faulty = FaultyFileSystem;

public:
  /// Of what happens below `place`, which is as `start`.
  Recorder(std::string place, Tree start, Before before = {})
      : Faulty(std::move(before)), place_(std::move(place)), tree_(std::move(start)) {}

  std::vector<Step> steps;

  int Open(char const* path, int flags, mode_t mode) override;
  int Close(int fd) override { return open_.erase(fd), Faulty::Close(fd); }
  ssize_t Write(int fd, void const* data, size_t size) override {
    off_t const offset = Faulty::Lseek(fd, 0, SEEK_CUR);
    return wrote(fd, data, Faulty::Write(fd, data, size), offset);
  }
  ssize_t Pwrite(int fd, void const* data, size_t size, off_t offset) override {
    return wrote(fd, data, Faulty::Pwrite(fd, data, size, offset), offset);
  }
  ssize_t Writev(int fd, iovec const* parts, int count) override;
  int Rename(char const* from, char const* to) override;
  int Exchange(char const* a, char const* b) override;
  int Link(char const* from, char const* to) override { return entered(Faulty::Link(from, to), to, find(from).inode); }
  int Unlink(char const* path) override { return entered(Faulty::Unlink(path), path, kNone); }
  int Rmdir(char const* path) override { return entered(Faulty::Rmdir(path), path, kNone); }
  int Mkdir(char const* path, mode_t mode) override {
    return entered(Faulty::Mkdir(path, mode), path, tree_.next++, true);
  }
  int Ftruncate(int fd, off_t size) override {
    return changed(fd, Faulty::Ftruncate(fd, size), {.kind = Step::Truncate, .offset = std::size_t(size)});
  }
  // What is on a disk in memory needs no sync itself.
  int Fsync(int fd) override { return synced(fd, Step::SyncFile); }
  int Fdatasync(int fd) override { return synced(fd, Step::SyncFile); }
  int Syncfs(int fd) override { return synced(fd, Step::SyncAll); }

private:
  /// The directory and the name of a path; a directory of kNone is outside.
  Step::Entry find(std::string const& path) const;
  void enter(std::vector<Step::Entry> entries);
  int entered(int result, char const* path, Inode inode, bool is_directory = false);
  ssize_t wrote(int fd, void const* data, ssize_t count, off_t offset);
  int changed(int fd, int result, Step step);
  int synced(int fd, Step::Kind kind);

  std::string place_;
  Tree tree_; // as it is for who doesn't lose power
  std::map<int, Inode> open_;
};

/// What is on the disk for certain after some steps, and what may be. Steps that are left out are as if never made.
class Disk {
public:
  Disk(Tree start) : synced_(std::move(start)) {}
  void Apply(Step const& step);
  /// How many things can be there or not: pending entries, one each, and files with pending bytes.
  std::size_t Choices() const { return entries_.size() + pending_.size(); }

  /// What becomes of one pending thing. An entry is there unless the bytes are lost; those of a file are lost, zeros in
  /// the right length, cut at some place, or there in some blocks of either size.
  enum Fate { Kept, Lost, Zeros, Cut, Sectors, Pages, kFates };
  bool IsEntry(std::size_t choice) const { return choice < entries_.size(); }
  using Image = std::map<std::string, std::string>; // paths to contents; directories end in a slash
  Image Build(std::vector<Fate> const& fates, std::mt19937& random) const;

private:
  static std::string torn(std::string const& before, std::string const& after, Fate fate, std::mt19937& random);
  static void collect(Tree const& tree, Inode directory, std::string const& path, Image* image);

  Tree synced_;
  std::vector<Step> entries_;            // in their order
  std::map<Inode, std::string> pending_; // the files as they would be
};
