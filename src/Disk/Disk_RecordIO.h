#pragma once
#include <Disk/Disk_DirectoryFile.h>
#include <Disk/Disk_Error.h>
#include <Disk/Disk_RecordList.h>
#include <dicom/IOD_Image.h>
#include <dicom/IOD_Msg.h>
#include <infra/Klb_GError.h>
#include <infra/Klb_LogFile.h>

#include <memory>
#include <string_view>

/// What the three levels do alike with their lists of records. They differ in classes and messages.

/// Takes the items off the front of `sequence` and hands each to `take`, which gives 0, or -1 to stop.
template <class Take>
int Disk_TakeItems(Dicom_Sequence& sequence, Take take) {
  for (int left = sequence.GetNItems(); left > 0; --left) {
    std::unique_ptr<Dicom_Msg> const item(sequence.Get(0));
    if (!item) {
      DISK_LOG(3, "Read(): Can't get message from sequence.\n");
      return -1;
    }
    if (sequence.Remove(0, 0) == -1) {
      DISK_LOG(3, "Read(): Can't remove message from sequence.\n");
      return -1;
    }
    if (take(*item) == -1) return -1;
  }
  return 0;
}

/// Fills `records` with those of a sequence, all of one class.
template <class T>
int Disk_TakeRecords(Dicom_Sequence& sequence, Disk_RecordList<T>& records, char const* failure) {
  return Disk_TakeItems(sequence, [&](Dicom_Msg const& item) {
    int status = 0;
    auto record = std::make_unique<T>(&item, status);
    if (status == -1) {
      DISK_LOG_TEXT(3, failure);
      return -1;
    }
    records.append(record.release());
    return 0;
  });
}

/// Appends the messages of `records` to `sequence`, which doesn't own them.
template <class T>
int Disk_AppendRecords(Disk_RecordList<T> const& records, Dicom_Sequence& sequence, char const* null_entry) {
  for (T* record : records) {
    if (!record) {
      DISK_LOG_TEXT(3, null_entry);
      KlbGError.Set(DISK_ERROR_NULL_RECORD);
      return -1;
    }
    if (sequence.Append(record->GetRecordMsg(), false) == -1) {
      DISK_LOG(3, "Write(): Can't add message to sequence.\n");
      return -1;
    }
  }
  return 0;
}

/// Whether a record counts. In the standard structure deleted records stay in their chain, and there may be private
/// ones; in the private structure every record counts.
template <class T>
bool Disk_IsLive(T const& record, bool standard) {
  return !standard ||
         (record.GetRecordInUseFlag() != Dicom_US(0) && record.GetDirectoryRecordType() != IOD_Image::PRIVATE_CS);
}

/// The first live record whose attribute has this text, or null.
template <class T>
T* Disk_FindRecord(Disk_RecordList<T> const& records, bool standard, Dicom_Tag const& tag, std::string_view text) {
  for (T* record : records)
    if (record->GetRecordMsg()->TextEquals(tag, text) && Disk_IsLive(*record, standard)) return record;
  return nullptr;
}
