#pragma once
#include "Disk/Disk_Guard.h"

#include <Disk/Disk_DicomDir.h>
#include <Disk/Disk_DirectoryFile.h>
#include <Disk/Disk_Error.h>
#include <Disk/Disk_RecordList.h>
#include <dicom/IOD_Image.h>
#include <dicom/IOD_Msg.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// What the three levels do alike with their lists of records. They differ in classes and messages.

/// Takes the items off the front of `sequence` and hands each to `take`, which gives 0, or -1 to stop.
template <class Take>
int Disk_TakeItems(Dicom_Sequence& sequence, Take take) {
  for (int left = sequence.GetNItems(); left > 0; --left) {
    std::unique_ptr<Dicom_Msg> item(sequence.Get(0));
    if (!item) {
      DISK_LOG(3, "Read(): Can't get message from sequence.\n");
      return -1;
    }
    if (sequence.Remove(0, 0) == -1) {
      DISK_LOG(3, "Read(): Can't remove message from sequence.\n");
      return -1;
    }
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
    bool const is_damaged = damage.before == Disk_shortages;
    if (is_damaged) DISK_LOG(3, "Read: %s: a record is of no type that is kept\n", path.c_str());
    return damage.Failed();
  });
}

/// Appends the message of `record` to `sequence`, which doesn't own it.
inline int Disk_AppendRecord(Disk_DirectoryRecord* record, Dicom_Sequence& sequence, char const* null_entry) {
  if (!record) {
    DISK_LOG_TEXT(3, null_entry);
    KlbGError.Set(DISK_ERROR_NULL_RECORD);
    return -1;
  }
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

/// Whether a record counts. In the standard structure deleted records stay in their chain, and others may stand in it
/// that don't belong to the level; in the private structure every record counts.
template <class T>
bool Disk_IsLive(T const& record, bool standard) {
  if (!standard) return true;
  if (record.GetRecordInUseFlag() == Dicom_US(0)) return false;
  Dicom_CS const type = record.GetDirectoryRecordType();
  if constexpr (T::kLevel == 0) return type == IOD_Image::PATIENT;
  if constexpr (T::kLevel == 1) return type == IOD_Image::STUDY;
  if constexpr (T::kLevel == 2) return type == IOD_Image::SERIES;
  return type != IOD_Image::PRIVATE_CS;
}

/// The first live record whose attribute has this text, or null.
template <class T>
T* Disk_FindRecord(Disk_RecordList<T> const& records, bool standard, Dicom_Tag const& tag, std::string_view text) {
  return records.Find(tag, text, [standard](T const& record) { return Disk_IsLive(record, standard); });
}

/// Takes a deleted record out of its list, or out of use where it stays in its chain. 0, or -1.
template <class T>
int Disk_TakeOut(Disk_RecordList<T>& records, T* record, bool standard) {
  if (standard) return record->SetOutOfUse();
  delete records.remove(record);
  return 0;
}

/// Makes a filled record the last of its chain and reserves its place in the DICOMDIR. `link` is called with the place
/// if the record is the first one. 0, and the list owns the record; or -1 with the message of the step that failed.
template <class T, class Link>
int Disk_AddToChain(Disk_DicomDir& dicomdir, Disk_RecordList<T>& records, T* record, Link link, char const* cant_link,
                    char const* cant_add) {
  unsigned const offset = dicomdir.GetOffsetEnd();
  if (records.isEmpty() && link(offset) == -1) {
    DISK_LOG_TEXT(3, cant_link);
    return -1;
  }
  if (dicomdir.Reserve(*record->GetRecordMsg()) == 0 && records.AddNewRecord(record, offset) == 0) return 0;
  DISK_LOG_TEXT(3, cant_add);
  return -1;
}

/// Makes `offset` the start of the chain below a record.
inline int Disk_LinkBelow(Disk_DirectoryRecord& parent, unsigned offset) {
  if (parent.SetOffsetOfReferencedLowerLevelDirectoryEntity(Dicom_UL(offset)) == -1) return -1;
  parent.SetChanged(true);
  return 0;
}

/// A counter moved by `step`. It stops at the limits of its type.
inline int Disk_Moved(int count, std::int64_t step) {
  using Limits = std::numeric_limits<int>;
  return int(std::clamp<std::int64_t>(count + step, Limits::min(), Limits::max()));
}

/// What a record counts: in the attribute of the standard or, where that is missing, in ours. Nothing without both.
inline std::optional<int> Disk_Counted(Dicom_IS const& related, Dicom_UL const& ours) {
  if (related != IS_NULL) return int(related);
  if (ours == UL_NULL) return std::nullopt;
  return Disk_Moved(0, std::uint32_t(ours));
}
inline std::optional<int> Disk_CountedImages(IOD_Msg const& series) {
  return Disk_Counted(series.GetNumberOfSeriesRelatedImages(), series.GetNumberOfImages());
}
inline std::optional<int> Disk_CountedSeries(IOD_Msg const& study) {
  return Disk_Counted(study.GetNumberOfStudyRelatedSeries(), study.GetNumberOfSeries());
}
/// For our attribute, which is unsigned.
inline Dicom_UL Disk_OwnCounter(int count) { return Dicom_UL(std::uint32_t(std::max(count, 0))); }

/// Writes `value` into a counter of a record of the standard shape, whose length stays. Another system's record may
/// have no room for the digits. 0, or -1.
inline int Disk_SetCounter(Disk_DirectoryRecord& record, Dicom_Tag const& tag, int value) {
  IOD_Msg& msg = *record.GetRecordMsg();
  record.SetChanged(true);
  unsigned const length = msg.GetDumpLen();
  for (bool const fixed_width : {true, false}) {
    if (msg.Set(tag, Dicom_IS(value, fixed_width)) == -1) return -1;
    if (msg.GetDumpLen() == length) return 0;
  }
  return -1;
}
