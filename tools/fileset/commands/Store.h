#pragma once

#include "Command.h"

Command AddStore(CLI::App& app);
