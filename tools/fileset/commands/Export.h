#pragma once

#include "Command.h"

Command AddExport(CLI::App& app);
