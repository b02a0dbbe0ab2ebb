#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Encapsulated pixel data as Dicom_OtherType keeps it: the item of the offset table, then the fragments,
/// each an item.

/// The frames, each the part of `items` that holds its fragments with their item headers. Where a frame
/// begins is told by their number, by the offset table, or by the marker with which streams of the JPEG
/// family begin. Empty when all that fails, or when `items` aren't whole items. Never more frames than there
/// are fragments.
std::vector<std::string_view> Dicom_FindFrames(std::string_view items, std::uint64_t frames);

/// The bytes of a frame without the item headers; joined in `storage` when there is more than one fragment.
std::string_view Dicom_FrameBytes(std::string_view frame, std::string& storage);
