// The public face of failures: the cause of the last one, what was passed over, and the meaning of codes.
#include <Disk/Disk_Failure.h>

#include "infra/Klb_Failure.h"

#include <Disk/Disk_Error.h>

#include <new>

static_assert(int(DISK_FAILURE_UNTOLD) == KLB_FAILURE_UNTOLD && int(DISK_FAILURE_ARGUMENT) == KLB_FAILURE_ARGUMENT);

Disk_Failure Disk_LastFailure() noexcept {
  Klb_Failure const failure = Klb_LastFailure();
  return {failure.code, failure.text, failure.path};
}

char const* Disk_ErrorText(int code) noexcept {
  switch (code) {
  case 0:
    return "no failure";
  case DISK_ERROR_MEMORY:
    return "out of memory";
  case DISK_ERROR_LEVEL:
    return "the Query/Retrieve Level isn't served";
  case DISK_ERROR_FILE_NAME:
    return "the file name can't be one in the file-set";
  case DISK_ERROR_OUT_OF_NAMES:
    return "a folder has no free name left";
  case DISK_ERROR_INFORMATION_MODEL:
    return "the information model isn't served";
  case DISK_ERROR_STUDY_RECORD:
    return "the root directory file holds a study record that can't be read";
  case DISK_ERROR_RECORD_TYPE:
    return "the root directory file holds a record of a type that can't stand there";
  case DISK_ERROR_NULL_RECORD:
    return "a list of records has an empty entry";
  case DISK_ERROR_PATIENT_MISMATCH:
    return "the object's patient isn't that of its study";
  case DISK_ERROR_STUDY_ID_MISMATCH:
    return "the object's Study ID isn't that of its study";
  case DISK_ERROR_SERIES_NUMBER_MISMATCH:
    return "the object's Series Number isn't that of its series";
  case DISK_ERROR_RENAME:
    return "a new file can't be renamed to its final name";
  case DISK_ERROR_NEW_RECORD:
    return "out of memory for a new record";
  case DISK_FAILURE_UNTOLD:
    return "the operation failed";
  case DISK_FAILURE_NOT_FOUND:
    return "what was asked for isn't in the file-set";
  case DISK_FAILURE_DAMAGED:
    return "a file holds what can't be read";
  case DISK_FAILURE_ARGUMENT:
    return "the request or the object lacks something, or holds what can't be used";
  case DISK_FAILURE_UNSUPPORTED:
    return "the structure of this file-set doesn't support the operation";
  case DISK_FAILURE_PROTECTED:
    return "the study is protected";
  case DISK_FAILURE_NO_ROOM:
    return "there is no room";
  }
  bool const is_system = code >= DISK_ERROR_SYSTEM && code < DISK_ERROR_SYSTEM + 1000;
  return is_system ? Klb_SystemText(code - DISK_ERROR_SYSTEM) : "an unknown code";
}

Disk_PassedOver::Disk_PassedOver() noexcept {
  auto const tell = [](void* list, Klb_Failure const& failure) {
    auto& entries = static_cast<Disk_PassedOver*>(list)->entries_;
    try {
      if (entries.size() < kMost) entries.push_back({failure.code, failure.text, failure.path});
    } catch (std::bad_alloc const&) { // there is one less to tell of
    }
  };
  Klb_Listener const before = Klb_Listen({tell, this});
  tell_before_ = before.tell;
  list_before_ = before.list;
}

Disk_PassedOver::~Disk_PassedOver() { Klb_Listen({tell_before_, list_before_}); }
