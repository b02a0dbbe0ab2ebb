#pragma once

#include "Command.h"

Command AddQuery(CLI::App& app);
