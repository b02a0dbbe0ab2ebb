#include "Disk/structure/Disk_Structure.h"

#include "Disk/structure/Disk_PrivateStructure.h"
#include "Disk/structure/Disk_StandardStructure.h"

namespace {

/// It keeps nothing, so all file-sets share one.
std::shared_ptr<Disk_Structure> Private() {
  static std::shared_ptr<Disk_Structure> const s_private = std::make_shared<Disk_PrivateStructure>();
  return s_private;
}

} // namespace

std::shared_ptr<Disk_Structure> Disk_Structure::OfRoot(Disk_StoreParams params) {
  return params.standard_structure ? std::make_shared<Disk_StandardStructure>() : Private();
}

std::shared_ptr<Disk_Structure> Disk_Structure::Of(Disk_DicomDir* dicomdir) {
  return dicomdir ? std::make_shared<Disk_StandardStructure>(dicomdir) : Private();
}
