#pragma once
#include "dicom/encoding/Dicom_DataSetReader.h"

#include <memory>

/// Reading from what a caller has: memory, or an open file from its position on. Nothing is allocated beyond what the
/// file holds.

/// The caller's bytes, or with `copy` a copy of them in `*own`. Null for none, and without memory.
char const* Dicom_TakeBytes(char const* buffer, std::size_t length, int copy, std::shared_ptr<Util_Buffer const>* own);
/// `length` bytes from the position on; null when the file ends before.
std::shared_ptr<Util_Buffer const> Dicom_ReadBytesFrom(int fd, std::size_t length);
/// All bytes from the position to the end of the file; null on an error.
std::shared_ptr<Util_Buffer const> Dicom_ReadRestFrom(int fd);
/// One element. `*bytes` holds what was read, `*element` points into it, and the position is behind the element.
/// 0, or -1.
int Dicom_ReadElementFrom(int fd, Dicom_Encoding encoding, std::string* bytes, Dicom_RawElement* element);
