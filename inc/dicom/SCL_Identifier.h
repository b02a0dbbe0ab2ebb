#pragma once
#include <dicom/IOD_Msg.h>
#include <infra/Disk_Export.h>

/// The level of a query, from the identifier's (0008,0052).
class DISK_EXPORT SCL_QueryRetrieveLevel {
public:
  enum Value { STUDY = 0, SERIES = 1, IMAGE = 2, UNKNOWN = -1 };
  /// The text of a level, "STUDY", "SERIES" or "IMAGE"; empty for others.
  static Dicom_CS TextOf(Value level);
};

/// The information model of a query; value 1 is the one served.
class DISK_EXPORT SCL_InformationModel {
public:
  constexpr SCL_InformationModel(int value = 1) : value_(value) {}
  constexpr operator int() const { return value_; }

private:
  int value_;
};

/// The identifier of a request or a response. An attribute with an empty value asks for the attribute to be returned
/// and restricts nothing.
class DISK_EXPORT SCL_Identifier : public IOD_Msg {
public:
  using IOD_Msg::IOD_Msg;
  SCL_QueryRetrieveLevel::Value GetQueryRetrieveLevel() const;
};

class DISK_EXPORT SCL_QueryIdentifier : public SCL_Identifier {
public:
  SCL_QueryIdentifier() = default;
  /// `*status` (may be null, here and below) is -1 for a level that isn't served, and there is none in it then.
  explicit SCL_QueryIdentifier(SCL_QueryRetrieveLevel::Value level, int* status = nullptr);
  SCL_QueryIdentifier(Dicom_Msg const& msg) : SCL_Identifier(msg) {}
};

/// A response. It is made empty; the level only has to be one that is served.
class DISK_EXPORT SCL_QueryRspIdentifier : public SCL_Identifier {
public:
  explicit SCL_QueryRspIdentifier(SCL_QueryRetrieveLevel::Value level, int* status = nullptr);
  explicit SCL_QueryRspIdentifier(Dicom_Msg&& msg) : SCL_Identifier(std::move(msg)) {}
};

/// The request of a fetch, delete or protection.
class DISK_EXPORT SCL_MoveIdentifier : public SCL_Identifier {
public:
  SCL_MoveIdentifier() = default;
  explicit SCL_MoveIdentifier(SCL_QueryRetrieveLevel::Value level, int* status = nullptr);
  SCL_MoveIdentifier(Dicom_Msg const& msg) : SCL_Identifier(msg) {}
};
