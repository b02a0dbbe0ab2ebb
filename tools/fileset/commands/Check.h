#pragma once
#include "Command.h"

Command AddCheck(CLI::App& app);
