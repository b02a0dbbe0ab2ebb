#pragma once

#include "Command.h"

Command AddDelete(CLI::App& app);
