// The keys that a configuration may have, and what their values must be.
#pragma once

#include "CfgReader.h"
#include <functional>
#include <infra/Tree.h>

using CfgReport = std::function<void(int line, std::string const& problem)>;

// Copies what is right from `top` to `root` and reports the rest.
void CopyByRules(CfgItem const& top, Tree_Node& root, CfgReport const& report);
