// The configuration of the process: one YAML file, which the program names. Without one, and for each key
// that it doesn't hold, the built-in defaults stand.
//
//   push:
//     max_cached_studies: 500          # also max_repository_size_mb, max_repository_hd_percentage,
//     modality_image_size: {ct: 520}   # repository_hd_percentage_spare
//   durability: full                   # or relaxed
//   log: {file: fileset.log, level: 5}
//   velquant: {system: {applications: {loader: {pull_client: {store_grader: {0: 95, default: 20},
//   access_grader: {}}}}}}
//
// Whatever Load gave to callers stays good until the process ends, also after another Load.
#pragma once

#include <infra/Disk_Export.h>
#include <infra/Tree.h>
#include <string>
#include <vector>

class DISK_EXPORT Util_CfgHandle {
public:
  explicit Util_CfgHandle(Tree_Node root) : root_(std::move(root)) {}

  /// Null where the file has no such part.
  Tree_Node const* GetPush() const { return root_.GetChild("push"); }
  Tree_Node const* GetLog() const { return root_.GetChild("log"); }
  Tree_Node const* GetRoot() const { return &root_; }

private:
  Tree_Node root_;
};

class DISK_EXPORT Util_Cfg {
public:
  /// Reads a configuration, which takes the place of the one before, and sets the durability (full unless the
  /// file says otherwise). The log is the program's business: it finds its wishes in GetLog. 0 or -1; -1 (no
  /// regular file, over 1 MiB, no YAML, nested more than 64 deep) leaves everything as it was. A key that
  /// nobody knows and a value of the wrong type are left out and are no failure. Each trouble is logged at
  /// level 4 and, unless `problems` is null, added to it as "FILE:LINE: text". After a first one that failed the grade
  /// tables of caches give 100 to every age, until one succeeds or Clear is called. Never throws.
  static int Load(char const* path, std::vector<std::string>* problems = nullptr) noexcept;

  /// Back to the defaults, full durability included.
  static void Clear() noexcept;

  /// Null when no configuration is loaded.
  static Util_CfgHandle const* GetHandle() noexcept;
  /// Whether none is loaded though Load was called.
  static bool HasFailed() noexcept;
};
