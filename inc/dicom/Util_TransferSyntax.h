#pragma once
#include <dicom/Dicom_TransferSyntax.h>
#include <infra/Disk_Export.h>

#include <string>

/// Finds out how the data set of an open DICOM file is encoded.
class DISK_EXPORT Util_TransferSyntax {
public:
  /// Reads the beginning of the file. On 0 the file's position is at the start of the data set and
  /// GetTransferSyntax tells the syntax; -1 when this is no DICOM file or it can't be read.
  [[nodiscard]] int GetDetails(int fd);
  /// The UID of the syntax; where the file has no meta information, the one that its data set shows.
  Dicom_UI const& GetTransferSyntax() const { return syntax_; }

private:
  Dicom_UI syntax_;
};
