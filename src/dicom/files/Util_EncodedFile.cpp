#include "dicom/files/Util_EncodedFile.h"

#include "dicom/datasets/Dicom_DataSetWriter.h"
#include "dicom/encoding/Dicom_DataSetReader.h"

#include <dicom/Dicom_UIDGenerator.h>
#include <dicom/Dicom_UIDic.h>
#include <dicom/Util_File.h>

namespace {

constexpr std::size_t kPreamble = 128;
constexpr std::uint32_t kDirectoryRecordSequence = 0x00041220;

std::unique_ptr<Dicom_Msg> MetaFor(Dicom_Msg const& msg, Dicom_UI const& syntax) {
  Dicom_UI sop_class = msg.Value<Dicom_UI>(Dicom_Tag(0x0008, 0x0016));
  Dicom_UI sop_instance = msg.Value<Dicom_UI>(Dicom_Tag(0x0008, 0x0018));
  if (msg.Has(Dicom_Tag(kDirectoryRecordSequence))) {
    sop_class = Dicom_UIDic::BASIC_DIRECTORY_STORAGE;
    sop_instance = Dicom_UIDGenerator().Generate();
  }
  return std::unique_ptr<Dicom_Msg>(Util_File::BuildMetaInformation(syntax, sop_class, sop_instance));
}

/// A copy without elements of commands and of meta information, which would be taken for the file's own; null when
/// the message has none, as is right.
std::unique_ptr<Dicom_Msg> WithoutFileGroups(Dicom_Msg const& msg) {
  constexpr unsigned kLast = 0x0002;
  Dicom_ME const* first = msg.GetElement(0);
  if (!first || first->GetTag().Group() > kLast) return nullptr;
  auto copy = std::make_unique<Dicom_Msg>(msg);
  for (int i = 0; (first = msg.GetElement(i)) && first->GetTag().Group() <= kLast; ++i)
    copy->Remove(first->GetTag());
  return copy;
}

} // namespace

Util_EncodedFile::Util_EncodedFile(Dicom_Msg const& msg, Dicom_UI const& wanted) {
  if (char const* const why = msg.GetPixelContradiction()) {
    error = why;
    return;
  }
  Dicom_UI const encapsulated = msg.GetEncapsulatedSyntax();
  syntax = encapsulated == UI_NULL ? wanted : encapsulated;
  int status = 0;
  Dicom_TransferSyntax const transfer(syntax, &status);
  if (status == -1 || transfer.IsDeflated()) {
    error = "can't write the transfer syntax " + syntax.GetText();
    return;
  }
  std::unique_ptr<Dicom_Msg> const meta = MetaFor(msg, syntax);
  std::string start(kPreamble, '\0');
  start += "DICM";
  data_set_start = start.size() + meta->GetDumpLen();
  std::size_t const meta_start = start.size();
  start.resize(data_set_start);
  meta->Dump(start.data() + meta_start, unsigned(data_set_start - meta_start));
  pieces.Copy(start.data(), start.size());

  cleaned_ = WithoutFileGroups(msg);
  Dicom_DataSetWriter writer({transfer.IsExplicitVR(), transfer.IsBigEndian()}, pieces);
  writer.Message(cleaned_ ? *cleaned_ : msg);
  if (!writer.Ok() || data_set_start + writer.Length() >= kUndefinedLength)
    error = "too large or nested too deep to be written, or without a form in " + syntax.GetText();
}
