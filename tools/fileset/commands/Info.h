#pragma once

#include "Command.h"

Command AddInfo(CLI::App& app);
