#pragma once
#include "Disk/files/Disk_Guard.h"

#include <Disk/Disk_DirectoryFile.h>
#include <Disk/Disk_Error.h>
#include <Disk/Disk_RecordList.h>
#include <dicom/IOD_Image.h>
#include <dicom/IOD_Msg.h>

#include <memory>
#include <string>

/// What the three levels do alike with their lists of records. They differ in classes and messages.

/// Takes the items off the front of `sequence` and hands each to `take`, which gives 0, or -1 to stop.
template <class Take>
int Disk_TakeItems(Dicom_Sequence& sequence, Take take) {
  for (int left = sequence.GetNItems(); left > 0; --left) {
    std::unique_ptr<Dicom_Msg> item(sequence.Get(0));
    if (!item) return DISK_FAIL("Read(): Can't get message from sequence.\n");
    if (sequence.Remove(0, 0) == -1) return DISK_FAIL("Read(): Can't remove message from sequence.\n");
    if (take(std::move(item)) == -1) return -1;
  }
  return 0;
}

/// Gives `item` to `records`. 0; or -1, with the code where memory doesn't suffice.
inline int Disk_TakeRecord(std::unique_ptr<Dicom_Msg> item, Disk_RecordChain& records, char const* failure, int code) {
  auto const take = [&] {
    if (records.Take(std::move(item)) == 0) return 0;
    DISK_LOG_TEXT(3, failure);
    return -1;
  };
  return Disk_Allocating(failure, take, code);
}

/// Fills `records` with those of a sequence, all of one class; `path` is its file's. Those that can't be taken are left
/// out with `pass_over_damage`.
inline int Disk_TakeRecords(Dicom_Sequence& sequence, Disk_RecordChain& records, char const* failure,
                            std::string const& path, bool pass_over_damage) {
  return Disk_TakeItems(sequence, [&](std::unique_ptr<Dicom_Msg> item) {
    Disk_PassingOver const damage{pass_over_damage};
    if (Disk_TakeRecord(std::move(item), records, failure, DISK_ERROR_MEMORY) == 0) return 0;
    if (damage.IsDamage())
      DISK_FAIL(Klb_Cause(DISK_FAILURE_DAMAGED).At(path), "Read: %s: a record is of no type that is kept\n",
                path.c_str());
    return damage.Failed();
  });
}

/// Appends the message of `record` to `sequence`, which doesn't own it.
inline int Disk_AppendRecord(Disk_DirectoryRecord* record, Dicom_Sequence& sequence, char const* null_entry) {
  if (!record) return DISK_FAIL_TEXT(DISK_ERROR_NULL_RECORD, null_entry);
  return Disk_Allocating("Write(): Can't add message to sequence.\n", [&] {
    record->GetRecordMsg()->Condense(); // one that stays as it is from now on is copied whole by each write
    return sequence.Append(record->GetRecordMsg(), false);
  });
}

inline int Disk_AppendRecords(Disk_RecordChain const& records, Dicom_Sequence& sequence, char const* null_entry) {
  for (RWCollectable* item : records)
    if (Disk_AppendRecord(static_cast<Disk_DirectoryRecord*>(item), sequence, null_entry) == -1) return -1;
  return 0;
}
