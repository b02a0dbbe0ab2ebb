#pragma once

/// What a level logs when its records can't be read or written.
struct Disk_ReadTexts {
  char const *cant_read_chain, *cant_read_file, *cant_create_record;
};
struct Disk_WriteTexts {
  char const *no_offset, *bad_record;
};
