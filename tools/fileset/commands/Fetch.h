#pragma once

#include "Command.h"

Command AddFetch(CLI::App& app);
