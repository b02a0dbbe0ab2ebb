#include <infra/CFG_Factory.h>
#include <infra/Util_Cfg.h>

Tree_Node const* CFG_RepositoryServices::GetNode(char const* path) const {
  Util_CfgHandle const* const handle = Util_Cfg::GetHandle();
  return handle && path ? handle->GetRoot()->GetNode(path) : nullptr;
}

CFG_RepositoryServices const* CFG_Factory::GetRepositoryServices() noexcept {
  static constexpr CFG_RepositoryServices services;
  return Util_Cfg::HasFailed() ? nullptr : &services;
}
