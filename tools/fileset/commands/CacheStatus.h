#pragma once

#include <string>

struct CacheStatusOptions {
  std::string directory;
  bool json = false;
};

// What an operator looks at: how full the cache is, and who would go next.
int RunCacheStatus(CacheStatusOptions const& options);
