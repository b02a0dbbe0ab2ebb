// What the library offers to its callers; everything else is hidden in it.
#pragma once

#define DISK_EXPORT [[gnu::visibility("default")]]
