#pragma once
#include "dicom/encoding/Dicom_Pieces.h"

#include <dicom/Dicom_Msg.h>

/// A message as a DICOM file that is about to be written. The message must stay as it is meanwhile: its bytes are
/// written from where they stand.
struct Util_EncodedFile {
  /// Pixels that are encapsulated stay so, and the file then bears their syntax.
  Util_EncodedFile(Dicom_Msg const& msg, Dicom_UI const& syntax);

  Dicom_Pieces pieces; // the first one holds what stands before the data set
  Dicom_UI syntax;
  std::size_t data_set_start = 0;
  std::string error; // empty: it can be written

private:
  std::unique_ptr<Dicom_Msg> cleaned_; // what is written instead of a message that has elements of file groups
};
