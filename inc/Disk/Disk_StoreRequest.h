#pragma once
#include <dicom/IOD_Msg.h>

/// What a store is asked for. Only `msg` has to be set. The request owns nothing: everything that it points to stays
/// the caller's, and must last until the store returns.
///
///     root.Store({.msg = &object, .add_icon = true});
struct Disk_StoreRequest {
  /// The object. A store stamps it, may add its record's icon to it, and may compress its pixels.
  IOD_Msg* msg = nullptr;
  /// A new image gets an icon that is made from its pixels.
  bool add_icon = false;
  /// 0 refuses an object whose Patient's Name, Patient ID, Study ID or Series Number contradicts its study or series.
  /// Otherwise the contradiction is only logged, and the study keeps its own values.
  int store_unmatching_images = 0;

  /// Not 0: the object's file stands inside the file-set already, as `existing_file`. Nothing is written for it and no
  /// name is made up.
  int in_place = 0;
  /// The full path of that file, below the prefix.
  char const* existing_file = nullptr;

  /// Not 0: instead of writing `msg`, `file_to_move` is renamed to the object's place.
  int move_store = 0;
  /// The path of that file. It must be on the file-set's file system.
  char const* file_to_move = nullptr;
  /// Where a move store copies the object's final path to: a buffer of `Disk_FileID::kPathSize` bytes, or null.
  char* stored_file_name = nullptr;

  /// The transfer syntax of `existing_file`, for its record in the standard structure. If null, the file is read to
  /// find it.
  Dicom_UI const* syntax_in_file = nullptr;
};
