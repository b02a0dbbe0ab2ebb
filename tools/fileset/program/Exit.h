// How the program ends.
#pragma once

enum Exit {
  kDone = 0,
  kFailed = 1,   // something failed; each failure has a line on standard error
  kUsage = 2,    // the command line makes no sense; nothing was done
  kNotOpened = 3 // the file-set can't be opened
};
