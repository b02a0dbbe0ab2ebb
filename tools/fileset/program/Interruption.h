// Ctrl-C and the like end a long command between two objects or studies. The command then says how far it came, and
// ends with 1. A second Ctrl-C ends it at once; a file-set survives that too.
#pragma once

// Begins to watch. From then on, writing to a pipe that nobody reads doesn't end the process either.
void WatchForInterruption();
bool IsInterrupted();
