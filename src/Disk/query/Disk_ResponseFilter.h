#pragma once
#include <dicom/SCL_Identifier.h>

#include <memory>

class Disk_DirectoryRecord;
class Disk_RecordWalk;

/// Work on the responses of a query.

/// Removes from `results` the responses that lack an attribute that `identifier` asks for with a real value.
void Disk_FilterMissingTags(SCL_QueryIdentifier const& identifier, Dicom_Sequence* results);
/// 1 when a response is to be kept, 0 when it lacks such an attribute.
int Disk_FilterMsg(Dicom_Msg const& identifier, Dicom_Msg const& result);
/// 1 when the value restricts nothing: no text, or only the characters `^`, `=`, `*` and `?`.
int Disk_AllMatching(Dicom_Type const* value);

/// The responses that a lower level appends to `results`, which go again unless they are kept.
class Disk_LowerResponses {
public:
  explicit Disk_LowerResponses(Dicom_Sequence& results) : results_(results), kept_(results.GetNItems()) {}
  ~Disk_LowerResponses() {
    while (results_.GetNItems() > kept_)
      results_.Remove(results_.GetNItems() - 1, 1);
  }
  Disk_LowerResponses(Disk_LowerResponses const&) = delete;
  Disk_LowerResponses& operator=(Disk_LowerResponses const&) = delete;

  bool IsEmpty() const { return results_.GetNItems() == kept_; }
  void Keep() { kept_ = results_.GetNItems(); }

private:
  Dicom_Sequence& results_;
  int kept_;
};

/// Gives a response to `results`. 0, or -1 (logged).
int Disk_AppendResponse(std::unique_ptr<Dicom_Msg> response, Dicom_Sequence* results, char const* cant_append);

/// Says ISO_IR 192 in a response that holds more than ASCII: the text of records is UTF-8.
void Disk_DeclareCharacterSet(Dicom_Msg& response);
/// Runs the walk over one record and appends the response, if there is one. 0, or -1 (logged).
int Disk_QueryRecord(Disk_RecordWalk const& walk, Disk_DirectoryRecord const& record, Dicom_Sequence* results);
