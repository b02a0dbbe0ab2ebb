#include <Disk/Disk_Access.h>

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Tags.h"

namespace {

/// An entry of a list that is made from the identifier alone.
int FillImageEntry(SCL_MoveIdentifier& entry, SCL_QueryIdentifier const& identifier, Dicom_UI const& image) {
  if (Disk_Try("create_list: Error setting study instance uid.\n",
               [&] { return entry.SetStudyInstanceUID(identifier.GetStudyInstanceUID()); }) == -1)
    return -1;
  if (Disk_Try("create_list: Error setting series instance uid.\n",
               [&] { return entry.SetSeriesInstanceUID(identifier.GetSeriesInstanceUID()); }) == -1)
    return -1;
  if (Disk_Try("create_list: Failed to duplicate or set SOPInstanceUID.\n",
               [&] { return entry.SetSOPInstanceUID(image); }) == -1)
    return -1;
  return Disk_Try("create_list: Failed to duplicate or set RefSOPInstanceUIDInFile.\n",
                  [&] { return entry.Set(kReferencedSopInstanceUid, image); });
}

int ListImages(SCL_QueryIdentifier const& identifier, Dicom_Sequence& list) {
  DISK_LOG(7, "create_list(): IMAGE level.\n");
  Dicom_UI images = identifier.GetSOPInstanceUID();
  if (images == UI_NULL) images = identifier.Value<Dicom_UI>(kReferencedSopInstanceUid);
  if (images == UI_NULL)
    return DISK_FAIL(DISK_FAILURE_ARGUMENT, "create_list(): Failed to create list - no SOPInstanceUID specified.\n");
  for (int i = 0; i < images.GetNValues(); ++i) {
    std::unique_ptr<SCL_MoveIdentifier> entry;
    if (Disk_Try("create_list: Error creating Move Identifier.\n", [&] {
          int status = 0;
          entry = std::make_unique<SCL_MoveIdentifier>(SCL_QueryRetrieveLevel::IMAGE, &status);
          return status;
        }) == -1)
      return -1;
    if (FillImageEntry(*entry, identifier, Dicom_UI(images.ValueView(i))) == -1) return -1;
    if (Disk_Try("create_list: Failed to append image request, Not all wanted images will be handled.\n",
                 [&] { return list.Append(entry.get(), true); }) == 0)
      entry.release();
  }
  return 0;
}

int ListByQuery(SCL_QueryIdentifier const& identifier, SCL_InformationModel model, bool all_series,
                Disk_RootDirectoryFile& root, Dicom_Sequence& list) {
  DISK_LOG(7, "create_list(): in SERIES or STUDY level.\n");
  SCL_QueryIdentifier images(identifier);
  Dicom_CS level;
  if (Disk_Try("load_list(): Failed building image-level object.\n", [&] {
        int status = 0;
        level = Dicom_CS("IMAGE", &status);
        return status;
      }) == -1)
    return -1;
  if (Disk_Try("create_list: Failed to create Query Identifier.\n", [&] {
        if (images.Set(kQueryRetrieveLevel, level) == -1 || (all_series && images.SetSeriesInstanceUID(UI_NULL) == -1))
          return -1;
        return images.SetSOPInstanceUID(UI_NULL) == -1 ? -1 : images.Set(kReferencedFileID, CS_NULL);
      }) == -1)
    return -1;
  return root.Query(images, model, &list) == 0 ? 0 : DISK_FAIL("create_list: DICOMDIR.Query() Failed.\n");
}

} // namespace

int Disk_Access::OpenQuery(SCL_QueryIdentifier const& identifier, SCL_InformationModel model) {
  return Disk_Guarded("OpenQuery", [&] {
    model_ = model;
    list_.reset();
    Dicom_Sequence* list = nullptr;
    if (create_list(identifier, model, *root_, &list) == -1) return DISK_FAIL("Query: Error creating result list.\n");
    list_.reset(list);
    if (!HasMore()) DISK_LOG(7, "Query: Null or empty result list.\n");
    return 0;
  });
}

int Disk_Access::create_list(SCL_QueryIdentifier const& identifier, SCL_InformationModel model,
                             Disk_RootDirectoryFile& root, Dicom_Sequence** list) {
  std::unique_ptr<Dicom_Sequence> made;
  if (Disk_Try("create_list: Failed to create Dicom_Sequence\n", [&] {
        made = std::make_unique<Dicom_Sequence>();
        return 0;
      }) == -1)
    return -1;
  int result = -1;
  switch (auto const level = identifier.GetQueryRetrieveLevel()) {
  case SCL_QueryRetrieveLevel::IMAGE:
    result = ListImages(identifier, *made);
    break;
  case SCL_QueryRetrieveLevel::STUDY:
  case SCL_QueryRetrieveLevel::SERIES:
    result = ListByQuery(identifier, model, level == SCL_QueryRetrieveLevel::STUDY, root, *made);
    break;
  default:
    DISK_FAIL(DISK_FAILURE_ARGUMENT, "create_list: Query/Retrieve level %d isn't supported.\n", int(level));
  }
  if (result == 0) *list = made.release();
  return result;
}

Dicom_UI Disk_Access::GetNextUID() const {
  return HasMore() ? SCL_MoveIdentifier(*list_->Get(0)).GetSOPInstanceUID() : UI_NULL;
}

int Disk_Access::FetchNext(IOD_Msg** object) {
  if (Disk_RefuseNull("FetchNext", object) == -1) return -1;
  return Disk_Guarded("FetchNext", [&] {
    if (!HasMore()) {
      DISK_LOG(7, "FetchNext: No more items.\n");
      return 0;
    }
    std::unique_ptr<Dicom_Msg> const entry(list_->Get(0));
    list_->Remove(0, 0);
    IOD_Msg* fetched = nullptr;
    if (root_->GetOne(SCL_MoveIdentifier(*entry), model_, &fetched, nullptr) == -1)
      return DISK_FAIL("FetchNext: Failed to fetch instance from DICOMDIR.\n");
    *object = fetched;
    return 0;
  });
}
