#include "Phantom.h"

#include "support/DataSetProperty.h"

#include <gtest/gtest.h>

namespace {

using Phantom::Charset;
using Phantom::Kind;

constexpr Kind kKinds[] = {Kind::CT, Kind::MR, Kind::US, Kind::MultiFrame, Kind::PR, Kind::SR};
constexpr Charset kCharsets[] = {Charset::Ascii,    Charset::Latin1,   Charset::Utf8,   Charset::Greek,
                                 Charset::Cyrillic, Charset::Japanese, Charset::Korean, Charset::Chinese};

std::string BytesOf(Phantom::Object const& object) {
  std::unique_ptr<IOD_Msg> const msg = Phantom::Make(object);
  int status = -1;
  Util_File const file(*msg, &status, Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, 2, nullptr);
  EXPECT_EQ(status, 0);
  return std::string(file.Bytes());
}

TEST(Phantom, EveryKindIsTheSameEachTimeAndReadBackAsItWasMade) {
  for (Kind const kind : kKinds)
    for (Charset const charset : kCharsets) {
      SCOPED_TRACE(testing::Message() << int(kind) << " " << int(charset));
      Phantom::Object object{.kind = kind, .size = 21, .charset = charset};
      std::string const bytes = BytesOf(object);
      auto const made = Phantom::Make(object), read = DataSetProperty::Read(bytes);
      ASSERT_TRUE(read);
      EXPECT_EQ(DataSetProperty::Difference(*made, *read, false), "");
      EXPECT_EQ(read->GetPatientsName(), made->GetPatientsName());
      EXPECT_EQ(read->GetPatientsName().View().find('?'), std::string_view::npos) << "lost in its character set";
      EXPECT_EQ(BytesOf(object), bytes);
      object.seed = 2;
      EXPECT_NE(BytesOf(object), bytes);
    }
}

} // namespace
