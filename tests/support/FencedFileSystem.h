// The real file system with a fence around one directory, current for its scope: notes each call that changes
// something outside of it, whichever links lead there, and each whose path names something outside.
#pragma once

#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <infra/Util_FileSystemInterface.h>
#include <string>
#include <string_view>
#include <vector>

class FencedFileSystem : public Util_FileSystemInterface {
  using Base = Util_FileSystemInterface;

public:
  explicit FencedFileSystem(std::string const& directory) : inside_(Real(directory)) { SetCurrent(this); }
  ~FencedFileSystem() override { SetCurrent(nullptr); }

  std::vector<std::string> escapes;

  int Open(char const* path, int flags, mode_t mode) override {
    if ((flags & (O_ACCMODE | O_CREAT | O_TRUNC)) == O_RDONLY)
      Look("Open", path);
    else
      Change("Open", path, !(flags & O_NOFOLLOW));
    return Base::Open(path, flags, mode);
  }
  int Rename(char const* from, char const* to) override {
    Change("Rename", from);
    Change("Rename", to);
    return Base::Rename(from, to);
  }
  int Exchange(char const* a, char const* b) override {
    Change("Exchange", a);
    Change("Exchange", b);
    return Base::Exchange(a, b);
  }
  int Link(char const* from, char const* to) override {
    Change("Link", from);
    Change("Link", to);
    return Base::Link(from, to);
  }
  int Unlink(char const* path) override { return Change("Unlink", path), Base::Unlink(path); }
  int Mkdir(char const* path, mode_t mode) override { return Change("Mkdir", path), Base::Mkdir(path, mode); }
  int Rmdir(char const* path) override { return Change("Rmdir", path), Base::Rmdir(path); }
  int Stat(char const* path, struct stat* s) override { return Look("Stat", path), Base::Stat(path, s); }
  int Lstat(char const* path, struct stat* s) override { return Look("Lstat", path), Base::Lstat(path, s); }
  int Access(char const* path, int mode) override { return Look("Access", path), Base::Access(path, mode); }
  int List(char const* path, std::vector<Entry>& entries) override {
    return Look("List", path), Base::List(path, entries);
  }

private:
  static std::string Real(std::string const& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) ? resolved : "";
  }
  bool Holds(std::string_view path) const {
    return path.starts_with(inside_) && (path.size() == inside_.size() || path[inside_.size()] == '/');
  }
  void Note(char const* call, std::string const& path) { escapes.push_back(std::string(call) + " " + path); }

  void Look(char const* call, std::string const& path) {
    if (path.empty() || path == "/proc/sys/kernel/random/boot_id") return; // names nothing, or the machine
    if (!Holds(path) || (path + "/").find("/../") != std::string::npos) Note(call, path);
  }
  void Change(char const* call, std::string const& path, bool follows = false) {
    if (path.empty()) return;
    Look(call, path);
    std::size_t const cut = path.rfind('/');
    std::string const parent = Real(path.substr(0, cut));
    if (!parent.empty() && !Holds(parent)) Note(call, path + " in " + parent);
    struct stat status {};
    if (!follows || Base::Lstat(path.c_str(), &status) == -1 || !S_ISLNK(status.st_mode)) return;
    std::string const target = Real(path); // empty when it is to be made
    if (!Holds(target)) Note(call, path + " to " + target);
  }

  std::string const inside_;
};
