// The way to the configuration for callers that name things by path: `velquant\system\applications\loader`.
#pragma once

#include <infra/Disk_Export.h>
#include <infra/Tree.h>

class DISK_EXPORT CFG_RepositoryServices {
public:
  /// The node at `path`, or null. It belongs to the configuration and needs no release.
  Tree_Node const* GetNode(char const* path) const;
};

class DISK_EXPORT CFG_Factory {
public:
  /// Services on the configuration in force; without one they know no node, so that the defaults stand. Null
  /// only when a configuration was asked for and none could be loaded.
  static CFG_RepositoryServices const* GetRepositoryServices() noexcept;
};
