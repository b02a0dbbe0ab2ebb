// What the library offers to its callers; everything else is hidden in it.
#pragma once

#define DISK_EXPORT [[gnu::visibility("default")]]
/// Of what an offered class keeps to itself.
#define DISK_LOCAL [[gnu::visibility("hidden")]]
