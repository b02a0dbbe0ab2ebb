#pragma once

#include <cstddef>

/// From where in the engine this was called: a number for the last calls in it that led here, the same for the same
/// ones in one process and in those that it forks.
std::size_t Caller();
