// The real file system with a fence around one directory, current for its scope: notes each call that changes
// something outside of it, whichever links lead there, and each whose path names something outside.
#pragma once

#include "support/FaultyFileSystem.h"

#include <cstdlib>
#include <fcntl.h>
#include <set>
#include <vector>

class FencedFileSystem : public FaultyFileSystem {
  using Base = FaultyFileSystem;

public:
  explicit FencedFileSystem(std::string const& directory)
      : FaultyFileSystem([this](std::string_view call, char const* path) { return Pass(call, path), 0; }),
        inside_(Real(directory)) {}

  std::vector<std::string> escapes;

  int Open(char const* path, int flags, mode_t mode) override {
    if ((flags & (O_ACCMODE | O_CREAT | O_TRUNC)) == O_RDONLY)
      Look("Open", path);
    else
      Change("Open", path, !(flags & O_NOFOLLOW));
    return Base::Open(path, flags, mode);
  }
  int Rename(char const* from, char const* to) override { return Change("Rename", from), Base::Rename(from, to); }
  int Exchange(char const* a, char const* b) override { return Change("Exchange", a), Base::Exchange(a, b); }
  int Link(char const* from, char const* to) override { return Change("Link", from), Base::Link(from, to); }

private:
  static std::string Real(std::string const& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) ? resolved : "";
  }
  bool Holds(std::string_view path) const {
    return path.starts_with(inside_) && (path.size() == inside_.size() || path[inside_.size()] == '/');
  }
  void Note(std::string_view call, std::string const& path) { escapes.push_back(std::string(call) + " " + path); }

  void Pass(std::string_view call, char const* path) {
    static std::set<std::string_view> const s_looks{"Stat", "Lstat", "Access", "List"},
        s_changes{"Rename", "Exchange", "Link", "Unlink", "Mkdir", "Rmdir"};
    if (s_looks.count(call) != 0) Look(call, path);
    if (s_changes.count(call) != 0) Change(call, path);
  }
  void Look(std::string_view call, std::string const& path) {
    if (path.empty() || path == "/proc/sys/kernel/random/boot_id") return; // names nothing, or the machine
    if (!Holds(path) || (path + "/").find("/../") != std::string::npos) Note(call, path);
  }
  void Change(std::string_view call, std::string const& path, bool follows = false) {
    if (path.empty()) return;
    Look(call, path);
    std::size_t const cut = path.rfind('/');
    std::string const parent = Real(path.substr(0, cut));
    if (!parent.empty() && !Holds(parent)) Note(call, path + " in " + parent);
    struct stat status {};
    if (!follows || Util_FileSystemInterface::Lstat(path.c_str(), &status) == -1 || !S_ISLNK(status.st_mode)) return;
    std::string const target = Real(path); // empty when it is to be made
    if (!Holds(target)) Note(call, path + " to " + target);
  }

  std::string const inside_;
};
