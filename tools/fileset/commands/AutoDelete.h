#pragma once

#include "Command.h"

Command AddAutoDelete(CLI::App& app);
