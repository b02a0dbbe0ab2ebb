#pragma once
#include "Disk/files/Disk_Guard.h"

#include <dicom/IOD_Msg.h>

/// Copying of attributes from an object to a record. The tables say which; the loop is here.
struct Disk_Attribute {
  enum Need { Always, IfPresent };
  enum Shape { Both, Standard, Private };
  Dicom_Tag tag;
  /// Makes a record's own element of the object's; the null value when the object lacks the attribute.
  int (*copy)(IOD_Msg const& from, IOD_Msg& to, Dicom_Tag const& tag, Need need);
  Need need = Always;
  Shape shape = Both;
};

template <class V>
int Disk_CopyAttribute(IOD_Msg const& from, IOD_Msg& to, Dicom_Tag const& tag, Disk_Attribute::Need need) {
  V const value = from.Value<V>(tag);
  if (need == Disk_Attribute::IfPresent && value == V()) return 0;
  return to.Set(tag, value.Duplicate());
}

/// What counts starts at nothing.
inline int Disk_SetOwnCounter(IOD_Msg const&, IOD_Msg& to, Dicom_Tag const& tag, Disk_Attribute::Need) {
  return to.Set(tag, Dicom_UL(0));
}
inline int Disk_SetCounter(IOD_Msg const&, IOD_Msg& to, Dicom_Tag const& tag, Disk_Attribute::Need) {
  return to.Set(tag, Dicom_IS(0, true));
}

/// Copies the attributes in order; -1 at the first that can't be set.
template <std::size_t N>
int Disk_CopyAttributes(Disk_Attribute const (&table)[N], IOD_Msg const& from, IOD_Msg& to, bool standard) {
  for (Disk_Attribute const& attribute : table) {
    if (attribute.shape == (standard ? Disk_Attribute::Private : Disk_Attribute::Standard)) continue;
    if (attribute.copy(from, to, attribute.tag, attribute.need) == -1) return -1;
  }
  return 0;
}
