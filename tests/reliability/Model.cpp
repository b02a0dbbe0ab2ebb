#include "Model.h"

#include "support/TestImage.h"

#include <Disk/Disk_Access.h>
#include <dicom/Dicom_Compressor.h>
#include <optional>

namespace {

/// Nothing if its pixels can't be decompressed.
std::optional<Content> TryContentOf(IOD_Msg const& object) {
  IOD_Msg plain(object);
  if (Dicom_Compressor().Decompress(&plain) == -1) return {};
  return Content{object.GetStudyInstanceUID().GetText(), object.GetSeriesInstanceUID().GetText(),
                 object.GetPatientID().GetText(), object.GetPatientsName().GetText(), PixelsOf(plain)};
}

} // namespace

Content ContentOf(IOD_Msg const& object) {
  std::optional<Content> const content = TryContentOf(object);
  Require(content.has_value(), "an object can't be decompressed");
  return *content;
}

void Model::Add(IOD_Msg const& object, bool standard) {
  Content const content = ContentOf(object);
  objects[object.GetSOPInstanceUID().GetText()] = content;
  studies.try_emplace(content.study, Study{content.patient_id, content.patient_name, standard ? "" : "N", ""});
}

std::unique_ptr<IOD_Msg> MakeObject(Phantom::Object object) {
  object.size = 16;
  return Phantom::Make(object);
}

std::unique_ptr<Disk_RootDirectoryFile> OpenSet(std::string const& path, unsigned flags) {
  int status = 0;
  auto root = std::make_unique<Disk_RootDirectoryFile>(path.c_str(), Disk_StoreParams(flags), 0, &status, nullptr);
  if (status != 0) return nullptr;
  root->SetSupportPar({1, 1, 0});
  constexpr std::int32_t kMoreThanAnyDisk = 1 << 30;
  root->SetAutoDeletePar({kMoreThanAnyDisk, 1});
  return root;
}

Disk_CheckResult CheckAll(std::string const& path, bool standard) {
  Disk_CheckResult result;
  Disk_CheckOptions options;
  options.deep = true;
  Disk_StoreParams const params(standard ? unsigned(Disk_StoreParams::STANDARD_STRUCTURE) : 0);
  Require(Disk_Check(path.c_str(), params, options, &result) == 0, "it can't be checked");
  return result;
}

Model Ask(Disk_RootDirectoryFile& root, bool standard) {
  Model model;
  SCL_QueryIdentifier all(SCL_QueryRetrieveLevel::STUDY);
  all.SetStudyInstanceUID(UI_NULL);
  all.SetPatientID(LO_NULL);
  all.SetPatientsName(PN_NULL);
  if (!standard) {
    all.SetProtectionFlag(CS_NULL);
    all.Set(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_LOAD_COMPLETED, CS_NULL);
  }
  Dicom_Sequence answers;
  Require(root.Query(all, 1, &answers) == 0, "a query fails");
  for (int i = 0; i < answers.GetNItems(); ++i) {
    IOD_Msg const study(*answers.Get(i));
    model.studies[study.GetStudyInstanceUID().GetText()] = {
        study.GetPatientID().GetText(), study.GetPatientsName().GetText(), study.GetProtectionFlag().GetText(),
        study.Value<Dicom_CS>(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_LOAD_COMPLETED).GetText()};
    SCL_QueryIdentifier objects(SCL_QueryRetrieveLevel::STUDY);
    objects.SetStudyInstanceUID(study.GetStudyInstanceUID());
    Disk_Access access(root);
    if (access.OpenQuery(objects, 1) == -1) continue; // its folder is gone
    while (access.HasMore()) {
      std::string const uid = access.GetNextUID().GetText();
      IOD_Msg* fetched = nullptr;
      int const result = access.FetchNext(&fetched);
      std::unique_ptr<IOD_Msg> const object(fetched);
      std::optional<Content> const content = result == -1 || !object ? std::nullopt : TryContentOf(*object);
      if (content)
        Require(model.objects.emplace(uid, *content).second, "found twice: " + uid);
      else
        model.unfetched.insert(uid);
    }
  }
  return model;
}
