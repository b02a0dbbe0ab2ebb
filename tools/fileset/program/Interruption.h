// Ctrl-C and the like end a long command between two objects or studies, so that it still says how far it came, and
// ends with 1. A second one ends it at once, which a file-set survives too.
#pragma once

// From here on; writing to a pipe that nobody reads doesn't end the process any more either.
void WatchForInterruption();
bool IsInterrupted();
