#pragma once
#include <dicom/IOD_Msg.h>
#include <infra/Disk_Export.h>

/// Makes the icon of an image: 64 × 64 pixels at most, 8 bits of grey.
///
/// The work is done by a module of its own, which is loaded when the first icon is asked for, so that programs
/// without icons don't carry it. Where the module isn't installed there are no icons.
class DISK_EXPORT GDS_Icon {
public:
  explicit GDS_Icon(IOD_Msg const* msg) : msg_(msg) {}
  /// The Image Pixel attributes of the icon of frame `frame`, counted from 1: a new message for the caller to own,
  /// or null when no icon can be made.
  IOD_Msg* GetImagePixelModule(int frame) const;

private:
  IOD_Msg const* msg_;
};
