#pragma once
#include <dicom/SCL_Identifier.h>

#include <memory>

/// Work on the responses of a query.

/// Removes from `results` the responses that lack an attribute that `identifier` asks for with a real value.
void Disk_FilterMissingTags(SCL_QueryIdentifier const& identifier, Dicom_Sequence* results);
/// 1 when a response is to be kept, 0 when it lacks such an attribute.
int Disk_FilterMsg(Dicom_Msg const& identifier, Dicom_Msg const& result);
/// 1 when the value restricts nothing: no text, or only the characters `^`, `=`, `*` and `?`.
int Disk_AllMatching(Dicom_Type const* value);

/// Moves the responses of a lower level to `results`, each stamped with the UID of the record above it. 0, or -1
/// (logged): `no_uid` when there are responses and no UID.
int Disk_TakeItemsOver(Dicom_Sequence& lower, Dicom_Sequence& results, Dicom_Tag const& tag, Dicom_UI const& uid,
                       char const* no_uid, char const* cant_append);

/// Gives a response to `results`. 0, or -1 (logged).
int Disk_AppendResponse(std::unique_ptr<Dicom_Msg> response, Dicom_Sequence* results, char const* cant_append);

/// Says ISO_IR 192 in a response that holds more than ASCII: the text of records is UTF-8.
void Disk_DeclareCharacterSet(Dicom_Msg& response);
