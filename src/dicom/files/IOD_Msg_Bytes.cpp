#include <dicom/IOD_Msg.h>
#include <dicom/Util_File.h>

namespace {

std::unique_ptr<IOD_Msg> Decode(Util_File& file, std::string* error) {
  std::unique_ptr<IOD_Msg> msg(file.operator IOD_Msg*());
  if (!msg && error) *error = file.GetError();
  return msg;
}

/// Dumping only asks a message.
Dicom_Msg& Asked(IOD_Msg const& msg) { return const_cast<IOD_Msg&>(msg); }

} // namespace

std::unique_ptr<IOD_Msg> IOD_Msg::FromFileBytes(std::string_view bytes, std::string* error) {
  Util_File file;
  file.GetBytes(bytes);
  return Decode(file, error);
}

std::unique_ptr<IOD_Msg> IOD_Msg::FromDataSetBytes(std::string_view bytes, Dicom_UI const& syntax, std::string* error) {
  Util_File file;
  file.GetDataSetBytes(bytes, syntax);
  return Decode(file, error);
}

int IOD_Msg::ToFileBytes(std::string* bytes, Dicom_UI const& syntax, std::string* error) const {
  int status = 0;
  Util_File const file(Asked(*this), &status, syntax, 2, error);
  if (status == 0) bytes->assign(file.Bytes());
  return status;
}

int IOD_Msg::ToDataSetBytes(std::string* bytes, Dicom_UI const& syntax, std::string* error) const {
  int status = 0;
  Util_File const file(Asked(*this), &status, syntax, 2, error);
  if (status == 0 && file.GetTransferSyntax() != syntax) {
    if (error) *error = "the pixels are encapsulated in " + file.GetTransferSyntax().GetText();
    status = -1;
  }
  if (status == 0) bytes->assign(file.DataSetBytes());
  return status;
}
