#pragma once
#include "dicom/Dicom_Packer.h"

#include <Disk/Disk_DirectoryRecord.h>
#include <dicom/SCL_Identifier.h>

#include <memory>
#include <vector>

/// How one level of a query compares its records with the identifier.
struct Disk_WalkLevel {
  SCL_QueryRetrieveLevel::Value level;
  bool passes_level_over; // (0008,0052) isn't compared
  bool retrieves;         // the response holds what MatchRetrieve hands back, not a copy of the record's element
  bool elscint_rule;      // see Disk_RecordWalk::Run
  char const* cant_create_response;
  char const* cant_find_tag;
  char const* cant_unresolve;
  char const* cant_allocate;
  char const* cant_add;
};

/// The record walk, which all three levels share: one forward pass over the elements of identifier and record.
///
/// The identifier is prepared once for all records. An attribute that a record lacks neither rejects the record nor
/// stands in the response; the root's filter decides about it. Private attributes are found in whatever block their
/// implementor has in the record.
class Disk_RecordWalk {
public:
  Disk_RecordWalk(SCL_QueryIdentifier const& identifier, Disk_WalkLevel const& level);

  /// -1 when the identifier can't be used. Run tells why: where there is no record, nobody needs to know.
  int Status() const { return failure_ ? -1 : 0; }
  int GetNElements() const { return identifier_.GetNElements(); }
  /// 0 and a response for the caller to own in `*response`, which declares the character set that it needs, or null
  /// there when the record doesn't match; -1, logged.
  int Run(Dicom_Msg const& record, SCL_QueryRspIdentifier** response) const;

private:
  struct Key {
    Dicom_ME const* element;
    Dicom_Tag tag; // private ones without block
    bool elscint;  // an attribute that a record with its implementor's block must have, unless it is empty
    std::string wanted;
  };
  enum class Found { Match, Mismatch, Failure };
  int run(Dicom_Msg const& record, std::unique_ptr<SCL_QueryRspIdentifier>* response) const;
  template <class Make>
  int make_response(std::unique_ptr<SCL_QueryRspIdentifier>* response, Make make) const;
  bool pack(Dicom_Msg const& record, bool* matches) const;
  void trace_mismatch(Dicom_ME const& element, Key const& key) const;
  Found compare(Dicom_ME const& element, Key const& key, Dicom_Msg const& record, Dicom_Msg& response) const;

  SCL_QueryIdentifier const identifier_;
  Disk_WalkLevel const& level_;
  std::vector<Key> keys_;
  bool can_pack_ = true;        // no key is of a private attribute or of anything but text
  mutable Dicom_Packer packer_; // of the responses
  char const* failure_ = nullptr;
};
