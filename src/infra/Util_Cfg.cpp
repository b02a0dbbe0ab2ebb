#include "CfgReader.h"
#include "CfgRules.h"
#include "NeverDestroyed.h"
#include <atomic>
#include <cerrno>
#include <infra/Klb_LogFile.h>
#include <infra/Util_Cfg.h>
#include <infra/Util_FileSystem.h>
#include <memory>
#include <mutex>
#include <new>

namespace {

constexpr uint64_t max_file_size = 1 << 20;

// Configurations stay to the end of the process, for callers that still hold a part of one.
struct Loaded {
  std::mutex mutex;
  std::vector<std::unique_ptr<Util_CfgHandle const>> all;
  std::atomic<Util_CfgHandle const*> current{nullptr};
  std::atomic<bool> failed{false};
};

Loaded& loaded() {
  static NeverDestroyed<Loaded> instance;
  return *instance;
}

void install(Tree_Node root) {
  Tree_Node const* const durability = root.GetChild("durability");
  bool const relaxed = durability && durability->GetValue() == "relaxed";
  auto handle = std::make_unique<Util_CfgHandle const>(std::move(root));
  std::lock_guard hold(loaded().mutex);
  loaded().current = loaded().all.emplace_back(std::move(handle)).get();
  loaded().failed = false;
  Util_FileSystem::SetDurability(relaxed ? Util_Durability::Relaxed : Util_Durability::Full);
}

int load(char const* path, CfgReport const& report) {
  std::shared_ptr<Util_Buffer const> const file = Util_FileSystem::ReadWholeFile(path, max_file_size);
  if (!file) {
    report(0, errno == EFBIG ? "larger than 1 MiB" : "can't be read, errno " + std::to_string(errno));
    return -1;
  }
  CfgItem top;
  CfgRefusal refusal;
  if (ReadCfg({file->data(), file->size()}, top, refusal) == -1) {
    report(refusal.line, refusal.text);
    return -1;
  }
  Tree_Node root;
  CopyByRules(top, root, report);
  install(std::move(root));
  return 0;
}

} // namespace

int Util_Cfg::Load(char const* path, std::vector<std::string>* problems) noexcept {
  if (!path) path = "";
  auto const report = [path, problems](int line, std::string const& problem) {
    DISK_LOG(4, "%s:%d: %s\n", path, line, problem.c_str());
    if (problems) problems->push_back(path + (":" + std::to_string(line)) + ": " + problem);
  };
  try {
    if (load(path, report) == 0) return 0;
  } catch (std::bad_alloc const&) {
    DISK_LOG(3, "No memory to read the configuration %s\n", path);
  }
  loaded().failed = loaded().current == nullptr;
  return -1;
}

void Util_Cfg::Clear() noexcept {
  std::lock_guard hold(loaded().mutex);
  loaded().current = nullptr;
  loaded().failed = false;
  Util_FileSystem::SetDurability(Util_Durability::Full);
}

Util_CfgHandle const* Util_Cfg::GetHandle() noexcept { return loaded().current; }

bool Util_Cfg::HasFailed() noexcept { return loaded().failed; }
