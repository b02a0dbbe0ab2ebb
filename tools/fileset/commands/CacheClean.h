#pragma once

#include "Choice.h"

#include <string>
#include <vector>

struct CacheCleanOptions {
  std::string directory;
  int mb = -1, percent = -1, studies = -1; // -1: not wanted
  std::vector<std::string> for_study;      // a number of images, and a modality
  Choice::All all;
  bool dry_run = false, json = false;
};

int RunCacheClean(CacheCleanOptions const& options);
