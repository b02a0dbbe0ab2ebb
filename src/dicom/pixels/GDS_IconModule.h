#pragma once
#include <infra/Disk_Export.h>

/// What the icon module exports: renders frame `frame` (from 0) of the DICOM file in memory into at most
/// `size` × `size` pixels of 8 bits grey, row by row, black low. 0, or -1 when it can't be decoded. Never
/// throws, writes nothing anywhere, and may be called by several threads.
///
/// The caller has compared the image's dimensions with its bytes, and asks for native pixels or those of the
/// JPEG family.
extern "C" DISK_EXPORT int GDS_RenderIcon(char const* file, unsigned long length, int frame, int size,
                                          unsigned char* pixels, int* columns, int* rows);
