#pragma once

#include "Command.h"

// A cache honours no protection.
Command AddDelete(CLI::App& app, bool is_cache = false);
