#pragma once
#include <dicom/IOD_Msg.h>

/// What a store is given, handed down from the root to the series. Nothing in it is owned.
struct Disk_StoreRequest {
  IOD_Msg* msg;                ///< the object
  bool add_icon;               ///< a new image gets an icon made from its pixels
  int store_unmatching_images; ///< an object that doesn't match its study or series is stored all the same
  int in_place;                ///< the object file stands inside the file-set already, as existing_file
  char const* existing_file;   ///< its full path
  int move_store;              ///< file_to_move is moved to its place instead of writing msg
  char const* file_to_move;
  char* stored_file_name;         ///< a move store copies the object's final path into it; at least 512 bytes
  Dicom_UI const* syntax_in_file; ///< of existing_file, for a standard record; may be null
};
