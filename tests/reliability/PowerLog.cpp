#include "PowerLog.h"

#include "Caller.h"
#include "support/Files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace fs = std::filesystem;

namespace {

using Faulty = FaultyFileSystem;

void LoadInto(Tree& tree, Inode directory, fs::path const& place) {
  for (auto const& entry : fs::directory_iterator(place)) {
    Inode const inode = tree.next++;
    tree.directories[directory][entry.path().filename().string()] = inode;
    if (entry.is_directory()) {
      tree.directories[inode];
      LoadInto(tree, inode, entry.path());
      continue;
    }
    tree.files[inode] = ReadFile(entry.path());
  }
}

void SetEntry(Tree& tree, Step::Entry const& entry) {
  auto& names = tree.directories[entry.directory];
  if (entry.is_directory) tree.directories[entry.inode];
  if (entry.inode == kNone)
    names.erase(entry.name);
  else
    names[entry.name] = entry.inode;
}

void Change(std::string& content, Step const& step) {
  if (step.kind == Step::Truncate) return content.resize(step.offset);
  content.resize(std::max(content.size(), step.offset + step.data.size()));
  content.replace(step.offset, step.data.size(), step.data);
}

} // namespace

Tree Tree::Load(std::string const& place) {
  Tree tree;
  LoadInto(tree, kRoot, place);
  return tree;
}

Step::Entry Recorder::find(std::string const& path) const {
  if (!path.starts_with(place_ + "/")) return {kNone, {}, kNone};
  Inode directory = kRoot;
  std::string name;
  for (fs::path const& part : fs::path(path.substr(place_.size() + 1))) {
    if (part.empty() || part == ".") continue;
    if (!name.empty()) {
      auto const& above = tree_.directories.at(directory);
      auto const next = above.find(name);
      if (next == above.end() || tree_.directories.count(next->second) == 0) return {kNone, {}, kNone};
      directory = next->second;
    }
    name = part.string();
  }
  auto const& names = tree_.directories.at(directory);
  auto const found = names.find(name);
  return {directory, name, found == names.end() ? kNone : found->second};
}

void Recorder::enter(std::vector<Step::Entry> entries) {
  for (Step::Entry const& entry : entries)
    SetEntry(tree_, entry);
  steps.push_back({.kind = Step::Entries, .entries = std::move(entries)});
}

int Recorder::Open(char const* path, int flags, mode_t mode) {
  int const fd = Faulty::Open(path, flags, mode);
  if (fd == -1 || !std::string(path).starts_with(place_)) return fd;
  if (path == place_) return open_[fd] = kRoot, fd;
  Step::Entry entry = find(path);
  if (entry.inode == kNone) {
    entry.inode = tree_.next++;
    tree_.files[entry.inode];
    enter({entry});
  } else if (flags & O_TRUNC && !tree_.files[entry.inode].empty()) {
    steps.push_back({.kind = Step::Truncate, .inode = entry.inode});
    Change(tree_.files[entry.inode], steps.back());
  }
  open_[fd] = entry.inode;
  return fd;
}

/// Of a file that is open: `step`, if it was made.
int Recorder::changed(int fd, int result, Step step) {
  auto const file = open_.find(fd);
  if (result == -1 || file == open_.end()) return result;
  step.inode = file->second;
  steps.push_back(std::move(step));
  Change(tree_.files[file->second], steps.back());
  return result;
}

ssize_t Recorder::wrote(int fd, void const* data, ssize_t count, off_t offset) {
  if (count > 0)
    changed(fd, 0,
            {.kind = Step::Write,
             .offset = std::size_t(offset),
             .data = {static_cast<char const*>(data), std::size_t(count)}});
  return count;
}

ssize_t Recorder::Writev(int fd, iovec const* parts, int count) {
  std::string data;
  for (int i = 0; i < count; ++i)
    data.append(static_cast<char const*>(parts[i].iov_base), parts[i].iov_len);
  return Write(fd, data.data(), data.size());
}

int Recorder::Rename(char const* from, char const* to) {
  Step::Entry const old = find(from);
  Step::Entry now = find(to);
  int const result = Faulty::Rename(from, to);
  if (result == -1 || old.inode == now.inode) return result;
  now.inode = old.inode;
  std::vector<Step::Entry> entries;
  if (old.directory != kNone) entries.push_back({old.directory, old.name, kNone});
  entries.push_back(now);
  return enter(std::move(entries)), result;
}

int Recorder::Exchange(char const* a, char const* b) {
  Step::Entry first = find(a), second = find(b);
  int const result = Faulty::Exchange(a, b);
  if (result == -1) return result;
  std::swap(first.inode, second.inode);
  return enter({first, second}), result;
}

int Recorder::entered(int result, char const* path, Inode inode, bool is_directory) {
  if (result == -1) return result;
  Step::Entry entry = find(path);
  entry.inode = inode;
  entry.is_directory = is_directory;
  return enter({entry}), result;
}

int Recorder::synced(int fd, Step::Kind kind) {
  auto const file = open_.find(fd);
  if (file == open_.end()) return 0;
  bool const is_directory = kind != Step::SyncAll && tree_.directories.count(file->second) != 0;
  steps.push_back({.kind = is_directory ? Step::SyncDirectory : kind,
                   .inode = file->second,
                   .data = fs::read_symlink("/proc/self/fd/" + std::to_string(fd)).string().substr(place_.size()),
                   .caller = Caller()});
  return 0;
}

// The disk

void Disk::Apply(Step const& step) {
  auto const settle = [this](auto which) {
    for (auto step = entries_.begin(); step != entries_.end(); ++step)
      if (which(*step))
        for (Step::Entry const& entry : step->entries) {
          SetEntry(synced_, entry);
          // what the name stood for before, in a directory that isn't synced, doesn't come back
          for (auto older = entries_.begin(); older != step; ++older)
            std::erase_if(older->entries, [&](Step::Entry const& other) {
              return other.directory == entry.directory && other.name == entry.name;
            });
        }
    std::erase_if(entries_, which);
  };
  switch (step.kind) {
  case Step::Write:
  case Step::Truncate: {
    auto const pending = pending_.try_emplace(step.inode, synced_.files[step.inode]).first;
    Change(pending->second, step);
    break;
  }
  case Step::Entries:
    entries_.push_back(step);
    break;
  case Step::SyncFile:
    if (auto const pending = pending_.extract(step.inode)) synced_.files[step.inode] = pending.mapped();
    break;
  case Step::SyncDirectory:
    settle([&](Step const& entries) {
      return std::any_of(entries.entries.begin(), entries.entries.end(),
                         [&](Step::Entry const& entry) { return entry.directory == step.inode; });
    });
    break;
  case Step::SyncAll:
    settle([](Step const&) { return true; });
    for (auto& [inode, content] : pending_)
      synced_.files[inode] = std::move(content);
    pending_.clear();
  }
}

std::string Disk::torn(std::string const& before, std::string const& after, Fate fate, std::mt19937& random) {
  if (fate == Kept) return after;
  constexpr std::size_t kAtomic = 8; // so few bytes of one sector are written together
  if (fate == Lost || (fate == Cut && after.size() <= kAtomic)) return before;
  std::string content(before);
  if (fate == Cut) {
    std::size_t const cut = after.empty() ? 0 : random() % after.size();
    content.resize(std::max(content.size(), cut));
    return content.replace(0, cut, after, 0, cut);
  }
  content.resize(after.size());
  if (fate == Zeros) return content;
  std::size_t const block = fate == Sectors ? 512 : 4096;
  for (std::size_t at = 0; at < after.size(); at += block)
    if (random() % 2 == 0) content.replace(at, std::min(block, after.size() - at), after, at, block);
  return content;
}

Disk::Image Disk::Build(std::vector<Fate> const& fates, std::mt19937& random) const {
  Tree tree(synced_);
  std::size_t choice = 0;
  for (Step const& step : entries_)
    if (fates[choice++] == Kept)
      for (Step::Entry const& entry : step.entries)
        SetEntry(tree, entry);
  for (auto const& [inode, content] : pending_)
    tree.files[inode] = torn(tree.files[inode], content, fates[choice++], random);
  Image image;
  collect(tree, kRoot, "", &image);
  return image;
}

void Disk::collect(Tree const& tree, Inode directory, std::string const& path, Image* image) {
  for (auto const& [name, inode] : tree.directories.at(directory)) {
    if (tree.directories.count(inode) != 0) {
      (*image)[path + name + "/"];
      collect(tree, inode, path + name + "/", image);
      continue;
    }
    auto const file = tree.files.find(inode); // none: nothing was ever written to it
    (*image)[path + name] = file == tree.files.end() ? std::string() : file->second;
  }
}
