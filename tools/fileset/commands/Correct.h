#pragma once

#include "Command.h"

Command AddCorrect(CLI::App& app);
