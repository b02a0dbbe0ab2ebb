#pragma once

#include "Command.h"

Command AddProtect(CLI::App& app);
Command AddUnprotect(CLI::App& app);
Command AddComplete(CLI::App& app);
