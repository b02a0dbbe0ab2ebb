#include "Disk/query/Disk_RecordWalk.h"

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/query/Disk_ResponseFilter.h"

#include <limits>

/// How one level of a query compares its records with the identifier.
struct Disk_WalkLevel {
  SCL_QueryRetrieveLevel::Value level;
  bool passes_level_over; // (0008,0052) isn't compared
  bool retrieves;         // the response holds what MatchRetrieve hands back, not a copy of the record's element
  bool elscint_rule;      // see Disk_RecordWalk::Key
  char const* cant_create_response;
  char const* cant_find_tag;
  char const* cant_unresolve;
  char const* cant_allocate;
  char const* cant_add;
};

namespace {

constexpr Disk_WalkLevel kStudyLevel{SCL_QueryRetrieveLevel::STUDY,
                                     true,
                                     false,
                                     false,
                                     "query_record: Can't create query response identifier.\n",
                                     "query_record: Can't find the tag of an element.\n",
                                     "query_record: Can't unresolve tag.\n",
                                     "query_record: Can't allocate message element.\n",
                                     "query_record: Can't add attribute to the result message.\n"};
constexpr Disk_WalkLevel kSeriesLevel{SCL_QueryRetrieveLevel::SERIES,
                                      false,
                                      false,
                                      false,
                                      "Query(): Can't create query response identifier.\n",
                                      "Query(): Can't find the tag of an element.\n",
                                      "Query(): Can't un-resolve tag.\n",
                                      "Query(): Can't allocate message element.\n",
                                      "Query(): Can't add attribute to the result message.\n"};
constexpr Disk_WalkLevel kImageLevel{SCL_QueryRetrieveLevel::IMAGE,
                                     false,
                                     true,
                                     true,
                                     "Query(): Can't create query response identifier.\n",
                                     "Query(): Can't find the tag of an element.\n",
                                     "Query(): Can't \"un-resolve\" tag.\n",
                                     "Query(): Can't allocate message element.\n",
                                     "Query(): Can't add attribute to the result message.\n"};

Disk_WalkLevel const& WalkLevel(SCL_QueryRetrieveLevel::Value level) {
  switch (level) {
  case SCL_QueryRetrieveLevel::SERIES:
    return kSeriesLevel;
  case SCL_QueryRetrieveLevel::IMAGE:
    return kImageLevel;
  default: // no record is compared at a level that isn't served
    return kStudyLevel;
  }
}

constexpr char kCantStamp[] = "Query(): Can't create a message element.\n";

/// An attribute of another vendor's equipment, whose absence means something. `tag` is unresolved.
bool IsElscintAttribute(Dicom_Tag const& tag) {
  return tag.Group() == 0x07A1 && (tag.Element() & 0xFF) == 0x2B && tag.GetImplementorID() == "ELSCINT1";
}

} // namespace

Disk_RecordWalk::Disk_RecordWalk(SCL_QueryIdentifier const& identifier, SCL_QueryRetrieveLevel::Value level)
    : identifier_(identifier), asked_level_(level), study_uid_(identifier.GetStudyInstanceUID()),
      series_uid_(identifier.GetSeriesInstanceUID()), accession_number_(identifier.GetAccessionNumber()),
      level_(WalkLevel(level)), stamps_{{{kStudyInstanceUid}, {kSeriesInstanceUid}}} {
  for (int i = 0; i < identifier_.GetNElements(); ++i) {
    Dicom_ME const* element = identifier_.GetElement(i);
    Dicom_Tag tag = element->GetTag();
    if (tag == kSpecificCharacterSet || (level_.passes_level_over && tag == kQueryRetrieveLevel)) continue;
    if (tag.Number() == 0) {
      failure_ = level_.cant_find_tag;
      return;
    }
    bool const creator = tag.IsPrivateCreator();
    if (tag.Unresolve(identifier_) == -1) {
      failure_ = level_.cant_unresolve;
      return;
    }
    bool const is_text = Dicom_IsText(element->GetVR());
    can_pack_ = can_pack_ && is_text && !tag.IsPrivate() && tag.Number() > kSpecificCharacterSet.Number();
    keys_.push_back({element, tag, level_.elscint_rule && !creator && IsElscintAttribute(tag),
                     is_text ? element->GetText() : std::string()});
  }
}

int Disk_RecordWalk::stamp(Stamp* stamp, Dicom_UI const& uid) {
  return Disk_Allocating(kCantStamp, [&] {
    stamp->uid = uid;
    stamp->encoded = uid == UI_NULL ? std::string() : Dicom_Packer::Encoded(stamp->tag, uid);
    return 0;
  });
}

/// The stamps from `next` on whose tags reach up to `last`. Whether `last` itself is stamped.
bool Disk_RecordWalk::pack_stamps(Stamp const** next, std::uint32_t last) const {
  bool is_stamped = false;
  for (; *next != stamps_.data() + stamps_.size() && (*next)->tag.Number() <= last; ++*next) {
    packer_.Add((*next)->encoded);
    is_stamped = (*next)->tag.Number() == last && (*next)->uid != UI_NULL;
  }
  return is_stamped;
}

int Disk_RecordWalk::add_stamps(Dicom_Msg& response) const {
  for (Stamp const& stamp : stamps_) {
    auto const add = [&] { return response.Add(Dicom_ME(stamp.tag, std::make_unique<Dicom_UI>(stamp.uid))); };
    if (stamp.uid != UI_NULL && Disk_Allocating(kCantStamp, add) == -1) return -1;
  }
  return 0;
}

/// The walk over a record whose attributes that were asked for are all plain text, as nearly always: the response takes
/// their bytes. False when there is another one; then nothing is told.
bool Disk_RecordWalk::pack(Dicom_Msg const& record, bool* matches) const {
  for (Stamp const& stamp : stamps_)
    if (stamp.encoded.empty() && stamp.uid != UI_NULL) return false;
  packer_.Drop();
  *matches = false;
  Stamp const* next = stamps_.data();
  Dicom_ElementCursor cursor(record, keys_.empty() ? 0 : keys_.front().tag.Number());
  for (Key const& key : keys_) {
    cursor.Seek(key.tag.Number());
    if (cursor.AtEnd()) break;
    Dicom_ME const& element = cursor.Element();
    if (element.GetTag().Number() != key.tag.Number()) continue;
    if (!packer_.Takes(element)) return false;
    if (!key.wanted.empty() && !element.MatchText(key.wanted)) {
      trace_mismatch(element, key);
      return true;
    }
    if (!pack_stamps(&next, key.tag.Number())) packer_.Add(element);
  }
  pack_stamps(&next, std::numeric_limits<std::uint32_t>::max());
  return *matches = true;
}

/// Studies only: the lower levels have more records than a trace could be read for.
void Disk_RecordWalk::trace_mismatch(Dicom_ME const& element, Key const& key) const {
  if (level_.level == SCL_QueryRetrieveLevel::STUDY)
    DISK_LOG(7, "query_record: tag (%04x, %04x) doesn't match. queried for: %s, disk has: %s\n",
             element.GetTag().Group(), element.GetTag().Element(), key.element->GetText().c_str(),
             element.GetText().c_str());
}

int Disk_RecordWalk::Run(Dicom_Msg const& record, std::unique_ptr<SCL_QueryRspIdentifier>* response) const {
  return Disk_Allocating(level_.cant_allocate, [&] { return run(record, response); });
}

template <class Make>
int Disk_RecordWalk::make_response(std::unique_ptr<SCL_QueryRspIdentifier>* response, Make make) const {
  return Disk_Allocating(level_.cant_create_response, [&] {
    *response = make();
    return 0;
  });
}

int Disk_RecordWalk::run(Dicom_Msg const& record, std::unique_ptr<SCL_QueryRspIdentifier>* response) const {
  if (failure_) return DISK_FAIL_TEXT(DISK_FAILURE_ARGUMENT, failure_);
  bool matches = false;
  if (can_pack_ && pack(record, &matches))
    return !matches
               ? 0
               : make_response(response, [&] { return std::make_unique<SCL_QueryRspIdentifier>(packer_.Finish()); });
  std::unique_ptr<SCL_QueryRspIdentifier> answer;
  int status = 0;
  if (make_response(&answer, [&] { return std::make_unique<SCL_QueryRspIdentifier>(level_.level, &status); }) == -1)
    return -1;
  if (status == -1) return DISK_FAIL_TEXT(level_.cant_create_response);
  Dicom_ElementCursor cursor(record);
  std::uint32_t reached = 0;
  for (Key const& key : keys_) {
    Dicom_Tag tag = key.tag;
    if (tag.ResolveIfFound(record) == -1) continue; // no such private block: nothing is required
    Dicom_ME const* element = nullptr;
    if (tag.Number() < reached) { // blocks of private attributes may stand in another order than the identifier's
      element = record.Find(tag);
    } else {
      cursor.Seek(reached = tag.Number());
      if (!cursor.AtEnd() && cursor.Element().GetTag().Number() == reached) element = &cursor.Element();
    }
    if (!element) {
      if (key.elscint && !key.element->IsEmpty()) return 0;
      continue;
    }
    switch (compare(*element, key, record, *answer)) {
    case Found::Match:
      break;
    case Found::Mismatch:
      return 0;
    case Found::Failure:
      return -1;
    }
  }
  Disk_DeclareCharacterSet(*answer);
  if (add_stamps(*answer) == -1) return -1;
  *response = std::move(answer);
  return 0;
}

Disk_RecordWalk::Found Disk_RecordWalk::compare(Dicom_ME const& element, Key const& key, Dicom_Msg const& record,
                                                Dicom_Msg& response) const {
  Dicom_Tag const tag = element.GetTag();
  if (!element.Match(*key.element)) {
    trace_mismatch(element, key);
    return Found::Mismatch;
  }
  int result = 0;
  if (level_.retrieves) {
    Dicom_Type* value = nullptr;
    if (element.GetValue()->MatchRetrieve(*key.element->GetValue(), &value) == -1) {
      DISK_LOG(3, "Query: can't retrive data.\n");
      return Found::Mismatch;
    }
    if (!value) return Found::Mismatch;
    result = response.Add(Dicom_ME(tag, std::unique_ptr<Dicom_Type>(value)));
  } else {
    result = response.Add(Dicom_ME(element));
  }
  // a private attribute means nothing without the element that reserves its block
  Dicom_Tag const creator(tag.Group(), std::uint16_t(tag.Element() >> 8));
  if (result == 0 && creator.IsPrivateCreator() && !response.Has(creator))
    if (Dicom_ME const* reserved = record.Find(creator)) result = response.Add(Dicom_ME(*reserved));
  if (result == 0) return Found::Match;
  DISK_FAIL_TEXT(level_.cant_add);
  return Found::Failure;
}
