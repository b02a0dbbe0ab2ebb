#pragma once
#include "Command.h"

Command AddCache(CLI::App& app);
