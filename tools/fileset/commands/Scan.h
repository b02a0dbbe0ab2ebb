#pragma once

#include "Command.h"

Command AddScan(CLI::App& app);
