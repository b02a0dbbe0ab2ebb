#pragma once
#include "dicom/datasets/Dicom_Packer.h"

#include <dicom/SCL_Identifier.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

struct Disk_WalkLevel;

/// A query's identifier, prepared once for all that the query reaches, and its record walk, which all three levels
/// share: one forward pass over the elements of identifier and record.
///
/// An attribute that a record lacks neither rejects the record nor stands in the response; the root's filter decides
/// about it. Private attributes are found in whatever block their implementor has in the record.
class Disk_RecordWalk {
public:
  Disk_RecordWalk(SCL_QueryIdentifier const& identifier, SCL_QueryRetrieveLevel::Value level);
  Disk_RecordWalk(Disk_RecordWalk const&) = delete;
  Disk_RecordWalk& operator=(Disk_RecordWalk const&) = delete;

  /// The level that is asked for, which may be one that isn't served, and what chooses studies and series.
  SCL_QueryRetrieveLevel::Value Level() const { return asked_level_; }
  Dicom_UI const& StudyUid() const { return study_uid_; }
  Dicom_SH const& AccessionNumber() const { return accession_number_; }
  Dicom_UI const& SeriesUid() const { return series_uid_; }

  /// -1 when the identifier can't be used. Run tells why: where there is no record, nobody needs to know.
  int Status() const { return failure_ ? -1 : 0; }
  int GetNElements() const { return identifier_.GetNElements(); }
  /// Gives all responses from now on the UID of a record above theirs; with a null one, none. 0, or -1 (logged).
  int StampStudy(Dicom_UI const& uid) { return stamp(&stamps_[0], uid); }
  int StampSeries(Dicom_UI const& uid) { return stamp(&stamps_[1], uid); }
  /// 0 and a response, which declares the character set that it needs, or null there when the record doesn't match;
  /// -1, logged.
  int Run(Dicom_Msg const& record, std::unique_ptr<SCL_QueryRspIdentifier>* response) const;

private:
  struct Key {
    Dicom_ME const* element;
    Dicom_Tag tag; // private ones without block
    bool elscint;  // an attribute that a record with its implementor's block must have, unless it is empty
    std::string wanted;
  };
  /// What all responses get from the record above theirs; nothing while the UID is null.
  struct Stamp {
    Dicom_Tag tag;
    Dicom_UI uid{};
    std::string encoded{}; // empty, too, for a UID that can't be packed
  };
  enum class Found { Match, Mismatch, Failure };
  static int stamp(Stamp* stamp, Dicom_UI const& uid);
  int add_stamps(Dicom_Msg& response) const;
  int run(Dicom_Msg const& record, std::unique_ptr<SCL_QueryRspIdentifier>* response) const;
  template <class Make>
  int make_response(std::unique_ptr<SCL_QueryRspIdentifier>* response, Make make) const;
  bool pack(Dicom_Msg const& record, bool* matches) const;
  bool pack_stamps(Stamp const** next, std::uint32_t last) const;
  void trace_mismatch(Dicom_ME const& element, Key const& key) const;
  Found compare(Dicom_ME const& element, Key const& key, Dicom_Msg const& record, Dicom_Msg& response) const;

  SCL_QueryIdentifier const identifier_;
  SCL_QueryRetrieveLevel::Value const asked_level_;
  Dicom_UI const study_uid_, series_uid_;
  Dicom_SH const accession_number_;
  Disk_WalkLevel const& level_;
  std::vector<Key> keys_;
  std::array<Stamp, 2> stamps_; // by their tags
  bool can_pack_ = true;        // no key is of a private attribute or of anything but text
  mutable Dicom_Packer packer_; // of the responses
  char const* failure_ = nullptr;
};
