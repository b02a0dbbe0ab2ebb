#include <dicom/Dicom_DeIdentifier.h>

#include <utility>

namespace {

Dicom_DeIdentifier::Process& Current() {
  static Dicom_DeIdentifier::Process s_process;
  return s_process;
}

} // namespace

void Dicom_DeIdentifier::SetProcess(Process process) { Current() = std::move(process); }

int Dicom_DeIdentifier::Process_for_Push(IOD_Msg* msg) const { return Current() ? Current()(*msg) : 0; }
