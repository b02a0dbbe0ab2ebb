#include "support/DataSetProperty.h"
#include "support/Deflated.h"
#include "support/LogCapture.h"
#include "support/TempDirectory.h"

#include <dicom/Util_TransferSyntax.h>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <tuple>

namespace {

using namespace std::string_literals;

struct Syntax {
  Dicom_UI const& uid;
  DataSetBytes bytes;
  std::string seeds; // what the names of its seeds begin with
} const kSyntaxes[] = {{Dicom_UIDic::EXPLICIT_VR_LITTLE_ENDIAN, {true, false}, "explicit_"},
                       {Dicom_UIDic::IMPLICIT_VR_LITTLE_ENDIAN, {false, false}, "implicit_"},
                       {Dicom_UIDic::EXPLICIT_VR_BIG_ENDIAN, {true, true}, "big_endian_"}};
DataSetBytes const &kExplicit = kSyntaxes[0].bytes, &kImplicit = kSyntaxes[1].bytes, &kBig = kSyntaxes[2].bytes;

// A data set that the fuzz target begins with, without the byte that tells its syntax.
std::string Seed(Syntax const& syntax, char const* what) {
  std::string const seed = ReadFile(DISK_SOURCE_DIR "/fuzz/corpus/dataset/" + syntax.seeds + what);
  return seed.substr(0, seed.size() - 1);
}
// An element of each VR, as a writer without peculiarities has them: ascending, even, of defined length.
std::string AllVRs(Syntax const& syntax = kSyntaxes[0]) { return Seed(syntax, "all"); }

std::string File(Syntax const& syntax, std::string const& data_set) {
  return DataSetBytes::File(syntax.uid.GetText(), data_set);
}

std::unique_ptr<IOD_Msg> Read(std::string const& data_set, Syntax const& syntax = kSyntaxes[0]) {
  return DataSetProperty::Read(File(syntax, data_set));
}

std::string Dumped(Dicom_Msg const& msg, Syntax const& syntax = kSyntaxes[0]) {
  std::string bytes;
  return DataSetProperty::Dump(msg, syntax.uid, &bytes) ? bytes : "no dump";
}

std::string ErrorOf(std::string const& file) {
  Util_File in;
  in.GetBytes(file);
  std::unique_ptr<IOD_Msg> const msg(in);
  return msg ? "none" : in.GetError();
}

TEST(DataSet, DumpsOfAllVRsAreExact) {
  std::pair<std::uint32_t, std::unique_ptr<Dicom_Type>> const made_here[] = {
      {0x00081030, Dicom_LO("Köpfe").Clone()},
      {0x00081163, Dicom_FD(1.5).Clone()},
      {0x00089459, Dicom_FL(-1.5F).Clone()},
      {0x00100010, Dicom_PN("Buc^Jérôme").Clone()},
      {0x00186020, Dicom_SL(-2).Clone()},
      {0x00186050, Dicom_UL(0x04030201).Clone()},
      {0x00189219, Dicom_SS(-2).Clone()},
      {0x00200013, Dicom_IS(-12).Clone()},
      {0x00209165, Dicom_AT(0x00200013).Clone()},
      {0x00280010, Dicom_US(std::vector<std::uint16_t>{512, 1}).Clone()},
      {0x00720082, Dicom_SV(-2).Clone()},
      {0x00720083, Dicom_UV(0x8000000000000001).Clone()},
      {0x7FE00010, Dicom_OW("\x01\x02\x03\x04", 4, 1, nullptr).Clone()},
  };
  for (Syntax const& syntax : kSyntaxes) {
    SCOPED_TRACE(syntax.uid.GetText());
    std::unique_ptr<IOD_Msg> const read = Read(AllVRs(syntax), syntax);
    ASSERT_NE(read, nullptr);
    Dicom_Msg typed; // copies of elements are values, not slices
    EXPECT_EQ(typed.Update(*read, true, false), 0);
    EXPECT_EQ(DataSetProperty::Difference(typed, *read, false), "");
    Dicom_Msg made = typed;
    for (auto const& [tag, value] : made_here)
      EXPECT_EQ(made.Set(Dicom_Tag(tag), value.get()), 0);
    for (Syntax const& other : kSyntaxes)
      for (Dicom_Msg const* msg : std::initializer_list<Dicom_Msg const*>{read.get(), &typed, &made})
        EXPECT_EQ(Dumped(*msg, other), AllVRs(other));
    std::string bytes(made.GetDumpLen() + 2, '#');
    EXPECT_EQ(made.Dump(bytes.data(), unsigned(bytes.size() - 2) - 1), -1);
    EXPECT_EQ(made.Dump(bytes.data(), unsigned(bytes.size())), -1);
    EXPECT_EQ(bytes.substr(bytes.size() - 2), "##");
  }
}

/// What writers do besides, and how it comes out in the native syntax when something else is changed.
TEST(DataSet, OddFormsAreRead) {
  auto const id = [](DataSetBytes const& form, char const* text) { return form.Text(0x00100020, "LO", text); };
  std::string const name = kExplicit.Text(0x00100010, "PN", "A"), un_content = kImplicit.OpenItem(id(kImplicit, "1"));
  std::string const fragments =
      kExplicit.Item("") + kExplicit.Item("\xFF\xD8\xFF") + kExplicit.Item("\xFE\xFF\x0D\xE0");
  struct {
    char const* what;
    std::string bytes, native;
    Syntax const& syntax = kSyntaxes[0];
  } const cases[] = {
      {"undefined lengths", kBig.OpenSequence(0x00081115, kBig.OpenItem(id(kBig, "1")) + kBig.Item("")),
       kExplicit.Sequence(0x00081115, kExplicit.Item(id(kExplicit, "1")) + kExplicit.Item("")), kSyntaxes[2]},
      {"a sequence that nobody knows", kImplicit.OpenSequence(0x00091001, kImplicit.Item(id(kImplicit, "1"))),
       kExplicit.Sequence(0x00091001, kExplicit.Item(id(kExplicit, "1"))), kSyntaxes[1]},
      {"items of unknown VR", kExplicit.OpenSequence(0x00091001, un_content, "UN"),
       kExplicit.OpenSequence(0x00091001, un_content, "UN")},
      {"the same in big endian",
       kBig.Claiming(0x00091001, "UN", DataSetBytes::undefined, un_content) + kImplicit.SequenceEnd(),
       kExplicit.OpenSequence(0x00091001, un_content, "UN"), kSyntaxes[2]},
      {"fragments", kExplicit.OpenSequence(0x7FE00010, fragments, "OB"),
       kExplicit.OpenSequence(0x7FE00010, fragments, "OB")},
      {"odd lengths", kExplicit.Element(0x00100020, "LO", "A") + kExplicit.Element(0x00280010, "US", "\1\2\3"),
       id(kExplicit, "A") + kExplicit.Element(0x00280010, "US", "\1\2\3\0"s)},
      {"odd numbers in big endian", kBig.Element(0x00280010, "US", "\2\1\3"),
       kExplicit.Element(0x00280010, "US", "\1\2\0\3"s), kSyntaxes[2]},
      {"group lengths", kExplicit.Element(0x00100000, "UL", "\x0A\0\0\0"s) + name, name},
      {"out of order", id(kExplicit, "1") + name, name + id(kExplicit, "1")},
      {"twice", id(kExplicit, "1") + name + id(kExplicit, "2"), name + id(kExplicit, "1")},
      {"the character set at the end",
       kExplicit.Text(0x00100010, "PN", "\xBB") + kExplicit.Text(0x00080005, "CS", "ISO_IR 144"),
       kExplicit.Text(0x00080005, "CS", "ISO_IR 144") + kExplicit.Text(0x00100010, "PN", "\xBB")},
      {"padding of the file", name + std::string(1001, '\0'), name},
      {"VRs of tomorrow", kExplicit.Element(0x00091001, "ZZ", "1234"), kExplicit.Element(0x00091001, "ZZ", "1234")},
      {"VRs of nowhere", kExplicit.Element(0x00091001, "\1\1", "12"), kExplicit.Element(0x00091001, "\1\1", "12")},
      {"a known number as UN, in big endian", kBig.Element(0x00280010, "UN", "\0\2"s),
       kExplicit.Element(0x00280010, "UN", "\0\2"s), kSyntaxes[2]},
      {"stray delimiters",
       kExplicit.ItemEnd() + kExplicit.Sequence(0x00081115, kExplicit.Item("") + kExplicit.SequenceEnd() +
                                                                kExplicit.Item(kExplicit.ItemEnd() + name)),
       kExplicit.Sequence(0x00081115, kExplicit.Item("") + kExplicit.Item(name))},
      {"delimiters with lengths",
       kBig.Claiming(0x00081115, "SQ", DataSetBytes::undefined) +
           kBig.Claiming(0xFFFEE000, "", DataSetBytes::undefined) +
           kBig.Claiming(0xFFFEE00D, "", DataSetBytes::undefined) + kBig.Item(id(kBig, "1")) +
           kBig.Claiming(0xFFFEE0DD, "", 7),
       kExplicit.Sequence(0x00081115, kExplicit.Item("") + kExplicit.Item(id(kExplicit, "1"))), kSyntaxes[2]},
      {"an item that claims more than its sequence has",
       kExplicit.Sequence(0x00081115, kExplicit.Claiming(0xFFFEE000, "", 248, name)) + id(kExplicit, "1"),
       kExplicit.Sequence(0x00081115, kExplicit.Item(name)) + id(kExplicit, "1")},
      {"signed pixels",
       kImplicit.Element(0x00280103, "US", "\1\0"s) + kImplicit.Element(0x00280106, "SS", "\1\2") +
           kImplicit.Sequence(0x00283000, kImplicit.Item(kImplicit.Element(0x00283002, "SS", "123456"))),
       kExplicit.Element(0x00280103, "US", "\1\0"s) + kExplicit.Element(0x00280106, "SS", "\1\2") +
           kExplicit.Sequence(0x00283000, kExplicit.Item(kExplicit.Element(0x00283002, "SS", "123456"))),
       kSyntaxes[1]},
  };
  for (auto const& [what, bytes, native, syntax] : cases) {
    SCOPED_TRACE(what);
    std::unique_ptr<IOD_Msg> const msg = Read(bytes, syntax);
    ASSERT_NE(msg, nullptr);
    msg->Set(Dicom_Tag(0xFFFC, 0xFFFC), Dicom_OB("1", 1, 1, nullptr)); // so that nothing is copied as a whole
    msg->Remove(Dicom_Tag(0xFFFC, 0xFFFC));
    EXPECT_EQ(Dumped(*msg), native);
    EXPECT_EQ(DataSetProperty::Broken(File(syntax, bytes)), "");
  }
}

TEST(DataSet, ValuesTooLongForTheirLengthFieldBecomeUnknown) {
  Dicom_Msg msg;
  std::string text(70000, 'x');
  msg.Set(Dicom_Tag(0x0010, 0x0020), Dicom_LO(text));
  msg.Set(Dicom_Tag(0x0028, 0x3006), Dicom_US(std::vector<std::uint16_t>(40000, 0x0102)));
  for (Syntax const& syntax : kSyntaxes) {
    std::unique_ptr<IOD_Msg> const read = Read(Dumped(msg, syntax), syntax);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->GetPatientID().GetText(), text);
    EXPECT_EQ(Dumped(*read), Dumped(msg).replace(70000 + 12 + 4, 2, syntax.bytes.explicit_vr ? "UN" : "OW"));
  }
}

TEST(DataSet, WhatNoReaderTakesIsNotWritten) {
  auto const wrapped = [](Dicom_Msg const& inner) {
    Dicom_Sequence sequence;
    sequence.Append(inner.Clone(), true);
    Dicom_Msg outer;
    outer.Set(Dicom_Tag(0x0008, 0x1115), Dicom_SQ(&sequence, 1));
    return outer;
  };
  for (bool const defined : {false, true}) {
    Dicom_Msg const deep = wrapped(*Read(kExplicit.Nested(63, defined)));
    EXPECT_EQ(DataSetProperty::Difference(deep, *Read(Dumped(deep)), false), "");
    EXPECT_EQ(Dumped(wrapped(deep)), "no dump");
  }
  std::string const unknown = kExplicit.OpenSequence(0x00091001, kImplicit.Item(kImplicit.Nested(62, true)), "UN");
  EXPECT_NE(Dumped(wrapped(*Read(unknown))), "no dump");
  EXPECT_EQ(Dumped(wrapped(wrapped(*Read(unknown)))), "no dump");
  std::string const item = kExplicit.Item("");
  std::tuple<std::string, bool, bool, bool> const cases[] = {
      // in which syntaxes they are written
      {kExplicit.OpenSequence(0x7FE00010, item, "OB"), true, true, false},
      {kExplicit.OpenSequence(0x00091001, item, "OB"), true, false, false},
      {kExplicit.Element(0x00081115, "LO", "no sequence "), true, false, true},
      {kExplicit.Element(0x00081115, "UN", kImplicit.Item("")), true, true, true},
      {kExplicit.Sequence(0x7FE00010, item), true, false, true},
  };
  for (auto const& [bytes, in_explicit, in_implicit, in_big] : cases) {
    std::unique_ptr<IOD_Msg> const msg = Read(bytes);
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(Dumped(*msg, kSyntaxes[0]) != "no dump", in_explicit);
    EXPECT_EQ(Dumped(*msg, kSyntaxes[1]) != "no dump", in_implicit);
    EXPECT_EQ(Dumped(*msg, kSyntaxes[2]) != "no dump", in_big);
    int status = 0;
    std::string text;
    Util_File const file(*msg, &status, Dicom_UIDic::EXPLICIT_VR_BIG_ENDIAN, 2, &text);
    EXPECT_EQ(status == 0, in_big) << text;
  }
}

// No header tells another syntax than that of the pixels; what can't be told isn't written.
TEST(DataSet, PixelsThatContradictTheirSyntaxAreRefused) {
  std::string native; // two bytes
  for (auto const& [tag, number] : {std::pair(0x00280002u, 1), {0x00280010u, 1}, {0x00280011u, 2}, {0x00280100u, 8}})
    native += kExplicit.Element(tag, "US", kExplicit.Number(unsigned(number), 2));
  std::string const jpeg = "1.2.840.10008.1.2.4.50", explicit_little = "1.2.840.10008.1.2.1", refused;
  std::string const fragments =
      kExplicit.OpenSequence(0x7FE00010, kExplicit.Item("") + kExplicit.Item("\xFF\xD8"), "OB");
  std::string const icon = kExplicit.Sequence(0x00880200, kExplicit.Item(fragments));
  std::string const two = kExplicit.Element(0x7FE00010, "OB", "12"), four = kExplicit.Element(0x7FE00010, "OB", "1234");
  std::string const url = kExplicit.Text(0x00287FE0, "UR", "http://x");
  std::tuple<std::string, std::string, std::string> const cases[] = {
      // syntax, data set, the syntax that is told
      {jpeg, fragments, jpeg},
      {explicit_little, fragments, refused},
      {jpeg, native + two, explicit_little}, // as their length is that of the attributes
      {jpeg, native + four, refused},
      {explicit_little, native + four, explicit_little}, // odd, but no lie
      {jpeg, icon, jpeg},
      {jpeg, native + icon + two, refused},
      {explicit_little, icon, refused},
      {jpeg, native, explicit_little},
      {"1.2.840.10008.1.2.4.94", url, "1.2.840.10008.1.2.4.94"},
      {"1.2.840.10008.1.2.4.205", Deflated(url), "1.2.840.10008.1.2.4.204"},
      {explicit_little, url, explicit_little},
  };
  for (auto const& [syntax, data_set, written] : cases) {
    SCOPED_TRACE(syntax + " to " + written);
    std::unique_ptr<IOD_Msg> const msg = DataSetProperty::Read(DataSetBytes::File(syntax, data_set));
    ASSERT_NE(msg, nullptr);
    std::string bytes, error;
    int const result = IOD_Msg(*msg).ToFileBytes(&bytes, Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, &error);
    EXPECT_EQ(result == 0 && error.empty(), written != refused) << error;
    Util_File file;
    file.GetBytes(bytes);
    EXPECT_EQ(file.GetTransferSyntax().GetText(), written);
  }
}

TEST(DataSet, FaultsAreRefusedAndNamed) {
  std::uint32_t const all = DataSetBytes::undefined;
  auto const file = [](std::string const& data_set) { return File(kSyntaxes[0], data_set); };
  std::pair<std::string, std::string> const cases[] = {
      {file(kExplicit.Claiming(0x00100020, "LO", 9, "12")), "(0010,0020) at offset 8 claims 9 bytes, but 2 are left"},
      {file(kExplicit.Claiming(0x00420011, "OB", 0xFFFFFFFE, "12")), "claims 4294967294 bytes, but 2 are left"},
      {file(kExplicit.Claiming(0x00420011, "UT", all, "12")), "an undefined length where the VR allows none"},
      {file(kExplicit.Claiming(0x00081115, "SQ", all)), "a sequence ends inside an item's header"},
      {file(kExplicit.Claiming(0x00081115, "SQ", all) + kExplicit.Claiming(0xFFFEE000, "", all)),
       "ends inside an element's header"},
      {file(kExplicit.Claiming(0x00081115, "SQ", all) + kExplicit.Claiming(0xFFFEE000, "", 99) +
            kExplicit.SequenceEnd()),
       "(fffe,e000) at offset 20 claims 99 bytes"},
      {file(kExplicit.Sequence(0x00081115, kExplicit.Text(0x00100020, "LO", "1"))),
       "no item where one is due, but (0010,0020)"},
      {file(kExplicit.Item("")), "an item or delimiter among elements, (fffe,e000)"},
      {file(kExplicit.SequenceEnd()), "an item or delimiter among elements, (fffe,e0dd)"},
      {file(kExplicit.Claiming(0x7FE00010, "OB", all) + kExplicit.Item("1234")),
       "fragments that don't end in a delimiter"},
      {file(kExplicit.Claiming(0x7FE00010, "OB", all) + kExplicit.OpenItem("")),
       "fragments that don't end in a delimiter"},
      {File(kSyntaxes[2], kBig.OpenSequence(0x7FE00010, kBig.Item("12"), "OB")), "fragments in a big endian data set"},
      {file("\x08\0\x60"s), "a data set ends inside an element's header"},
      {File(kSyntaxes[1], kImplicit.Nested(65, false)), "nesting too deep"},
      {file(kExplicit.OpenSequence(0x00091001, kImplicit.Item(kImplicit.Nested(64, true)), "UN")), "nesting too deep"},
      {DataSetBytes::File("1.2.3", ""), "unknown transfer syntax 1.2.3"},
      {DataSetBytes::File("", ""), "no data set follows"},
      {std::string(128, '\0') + "DICM" + kExplicit.Claiming(0x00020010, "UI", 20, "1.2"),
       "the file meta information is cut short"},
      {"", "not a DICOM file"},
      {"Dear reader, this is text.", "not a DICOM file"},
      {std::string(1 << 20, '\0'), "not a DICOM file"},
      {DataSetBytes::File("1.2.840.10008.1.2.1.99", "not deflated"), "damaged or cut short"},
  };
  for (auto const& [bytes, error] : cases)
    EXPECT_NE(ErrorOf(bytes).find(error), std::string::npos) << error << "\n" << ErrorOf(bytes);
  EXPECT_EQ(ErrorOf(File(kSyntaxes[1], kImplicit.Nested(64, false))), "none");
}

// An error or a reading that keeps the property, whatever byte is missing or wrong.
TEST(DataSet, EveryCutAndFlipKeepsTheProperty) {
  int readings = 0, cases = 0;
  for (Syntax const& syntax : kSyntaxes)
    for (char const* seed : {"all", "fragments", "items", "nested", "text", "unknown"}) {
      SCOPED_TRACE(syntax.seeds + seed);
      std::string const data_set = Seed(syntax, seed);
      for (std::size_t i = 0; i < data_set.size(); ++i, ++cases)
        for (char const bits : {'\0', '\xFF', '\x01', '\x80'}) {
          std::string changed = bits ? data_set : data_set.substr(0, i);
          if (bits) changed[i] = char(changed[i] ^ bits);
          bool read = false;
          EXPECT_EQ(DataSetProperty::Broken(File(syntax, changed), &read), "") << "at " << i << ", " << int(bits);
          readings += read;
        }
    }
  EXPECT_GT(readings, cases);
  EXPECT_GT(cases, 2000);
  std::string const file = File(kSyntaxes[0], "");
  for (std::size_t i = 0; i < file.size(); ++i)
    EXPECT_NE(ErrorOf(file.substr(0, i)), "none");
}

TEST(DataSet, SamplesKeepTheProperty) {
  if (std::string(DISK_SAMPLES).empty()) GTEST_SKIP() << "DISK_SAMPLES isn't set";
  int count = 0, read = 0;
  for (auto const& entry : std::filesystem::recursive_directory_iterator(DISK_SAMPLES)) {
    if (!entry.is_regular_file()) continue;
    bool is_read = false;
    EXPECT_EQ(DataSetProperty::Broken(ReadFile(entry.path()), &is_read), "") << entry.path();
    ++count;
    read += is_read;
  }
  EXPECT_GT(read, count / 2);
}

TEST(DataSet, DeflatedOnesAreRead) {
  char const uid[] = "1.2.840.10008.1.2.1.99";
  for (int const window_bits : {-15, 15}) {
    std::string const file = DataSetBytes::File(uid, Deflated(AllVRs(), window_bits));
    for (std::string const& padding : {""s, "\0"s}) {
      std::unique_ptr<IOD_Msg> const msg = DataSetProperty::Read(file + padding);
      ASSERT_NE(msg, nullptr);
      EXPECT_EQ(Dumped(*msg), AllVRs());
    }
    EXPECT_NE(ErrorOf(file.substr(0, file.size() - 10)).find("damaged or cut short"), std::string::npos);
  }
  int status = 0;
  Util_File const file(*Read(AllVRs()), &status, Dicom_UI(uid), 2, nullptr);
  EXPECT_EQ(status, -1);
}

TEST(IOD_Msg, ComesFromMemoryAndGoesThere) {
  std::string bytes = "as it was", error;
  for (Syntax const& syntax : kSyntaxes) {
    std::string const data_set = AllVRs(syntax);
    std::string bare, file;
    auto const msg = IOD_Msg::FromDataSetBytes(data_set, syntax.uid);
    ASSERT_TRUE(msg && msg->ToDataSetBytes(&bare, syntax.uid) == 0 && msg->ToFileBytes(&file, syntax.uid) == 0);
    EXPECT_EQ(bare, data_set);
    EXPECT_EQ(Dumped(*IOD_Msg::FromFileBytes(file), syntax), data_set);
  }
  Dicom_UI const deflated("1.2.840.10008.1.2.1.99"), jpeg("1.2.840.10008.1.2.4.50"), unknown("1.2.3");
  EXPECT_EQ(Dumped(*IOD_Msg::FromDataSetBytes(Deflated(AllVRs()), deflated)), AllVRs());
  std::string const pixels = kExplicit.OpenSequence(0x7FE00010, kExplicit.Item("") + kExplicit.Item("\xFF\xD8"), "OB");
  auto const encapsulated = IOD_Msg::FromDataSetBytes(pixels, jpeg);
  ASSERT_NE(encapsulated, nullptr);
  EXPECT_EQ(encapsulated->ToDataSetBytes(&bytes, Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, &error), -1);
  EXPECT_EQ(bytes, "as it was");
  EXPECT_NE(error.find(jpeg.GetText()), std::string::npos);
  EXPECT_EQ(encapsulated->ToDataSetBytes(&bytes, jpeg), 0);
  EXPECT_EQ(bytes, pixels);
  for (auto const& [length, syntax] : {std::pair(33, kSyntaxes[0].uid), {999, deflated}, {999, unknown}}) {
    error.clear();
    EXPECT_EQ(IOD_Msg::FromDataSetBytes(AllVRs().substr(0, std::size_t(length)), syntax, &error), nullptr);
    EXPECT_NE(error, "");
  }
  EXPECT_EQ(IOD_Msg::FromFileBytes("no DICOM", &error), nullptr);
}

TEST(Util_File, StartsAreRecognised) {
  std::string const data_set = AllVRs(), meta = kExplicit.Text(0x00020010, "UI", "1.2.840.10008.1.2.1");
  std::string const other_meta = kExplicit.Text(0x00020002, "UI", "1.2.3"), prefix = std::string(128, 'x') + "DICM";
  TempDirectory const directory;
  std::pair<std::string, Syntax const&> const cases[] = {
      {prefix + meta + data_set, kSyntaxes[0]},
      {meta + data_set, kSyntaxes[0]},
      {data_set, kSyntaxes[0]},
      {AllVRs(kSyntaxes[1]), kSyntaxes[1]},
      {AllVRs(kSyntaxes[2]), kSyntaxes[2]},
      {prefix + data_set, kSyntaxes[0]},
      {prefix + other_meta + AllVRs(kSyntaxes[1]), kSyntaxes[1]},
      {prefix + other_meta + kImplicit.Element(0x00200020, "", "12345678"), kSyntaxes[1]},
      {prefix + kExplicit.Text(0x00020010, "UI", "1.2.840.10008.1.2.2 ") + AllVRs(kSyntaxes[2]), kSyntaxes[2]},
      {File(kSyntaxes[2], kBig.Text(0x02000010, "LO", "AB")), kSyntaxes[2]},
      {File(kSyntaxes[0], kExplicit.Text(0x00020010, "UI", "1.2.840.10008.1.2.4.50") + data_set), kSyntaxes[0]},
      {File(kSyntaxes[1], kImplicit.Text(0x00020010, "UI", "1.2") + AllVRs(kSyntaxes[1])), kSyntaxes[1]},
  };
  for (auto const& [bytes, syntax] : cases) {
    std::string const path = directory.Write("file", bytes);
    Util_File file;
    EXPECT_EQ(file.GetFile(path.c_str(), 0, nullptr), 0);
    EXPECT_EQ(file.GetTransferSyntax(), syntax.uid);
    std::unique_ptr<IOD_Msg> const msg(file);
    EXPECT_NE(msg, nullptr) << file.GetError();
    int const fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    Util_TransferSyntax start;
    EXPECT_EQ(start.GetDetails(fd), 0);
    EXPECT_EQ(start.GetTransferSyntax(), syntax.uid);
    unsigned const left = unsigned(bytes.size()) - unsigned(lseek(fd, 0, SEEK_CUR));
    unsigned length = 0;
    int error = -1;
    Dicom_Msg const direct(fd, left, &length, Dicom_TransferSyntax(syntax.uid, nullptr), &error);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(length, left);
    EXPECT_EQ(DataSetProperty::Difference(direct, *msg, false), "");
    close(fd);
  }
}

// Parts of a file, from where the descriptor stands.
TEST(DataSet, PartsAreReadFromDescriptors) {
  std::string const big(100000, 'x');
  std::string const first = kExplicit.Text(0x00081030, "LO", "SHORT"),
                    second = kExplicit.Element(0x00420011, "OB", big);
  std::string const items = kExplicit.Item(first) + kExplicit.OpenItem("");
  TempDirectory const directory;
  std::string const bytes =
      first + second + items + kExplicit.SequenceEnd() + kExplicit.Claiming(0x00420011, "OB", 0xFFFFFFFE);
  int const fd = open(directory.Write("file", bytes).c_str(), O_RDONLY | O_CLOEXEC);
  LogCapture log;
  auto const place = [fd] { return std::size_t(lseek(fd, 0, SEEK_CUR)); };
  Dicom_TransferSyntax const& native = Dicom_TransferSyntax::Native();
  unsigned count = 0;
  int error = -1;
  EXPECT_EQ(Dicom_ME(fd, &count, native, nullptr, &error).GetText(), "SHORT");
  Dicom_ME const long_one(fd, &count, native, nullptr, &error);
  EXPECT_EQ(count, second.size());
  EXPECT_EQ(dynamic_cast<Dicom_OB const&>(*long_one.GetValue()).Bytes(), big);
  std::size_t const start = place();
  for (long const length : {-1L, long(items.size())}) {
    lseek(fd, off_t(start), SEEK_SET);
    Dicom_SQ const value(fd, unsigned(length), &count, native, &error);
    Dicom_Sequence const& sequence = *value.GetSequence();
    EXPECT_EQ(error, 0);
    EXPECT_EQ(count, items.size());
    EXPECT_EQ(place(), start + items.size() + (length < 0 ? 8 : 0));
    ASSERT_EQ(sequence.GetNItems(), 2);
    EXPECT_EQ(Dumped(*sequence.Get(0)), first);
  }
  for (bool const fits : {true, false}) {
    auto const size = unsigned(first.size());
    auto const [room, taken, result] = fits ? std::tuple(size, size, 0) : std::tuple(size - 1, 0u, -1);
    lseek(fd, 0, SEEK_SET);
    EXPECT_EQ(Dicom_ME(fd, room, &count, native, &error).GetText(), fits ? "SHORT" : "");
    EXPECT_EQ(std::tuple(error, count, place()), std::tuple(result, taken, std::size_t(taken)));
    EXPECT_EQ(Dicom_ME(first.data(), room, 1, &count, &error).GetText(), fits ? "SHORT" : "");
    EXPECT_EQ(std::pair(error, count), std::pair(result, taken));
    Dicom_Sequence const copy(items.data(), unsigned(items.size()) - !fits, 1, &count, &error);
    EXPECT_EQ(std::pair(error, copy.GetNItems()), std::pair(result, fits ? 2 : 0));
  }
  lseek(fd, off_t(start + items.size() + 8), SEEK_SET);
  EXPECT_TRUE(Dicom_ME(fd, &count, native, nullptr, &error).IsEmpty());
  EXPECT_EQ(error, -1);
  for (unsigned const length : {0xFFFFFFFEu, 0xFFFFFFFFu, unsigned(bytes.size()) + 1}) {
    int of_items = 0;
    lseek(fd, 0, SEEK_SET);
    EXPECT_TRUE(Dicom_Msg(fd, length, &count, native, &error).IsEmpty());
    EXPECT_EQ(Dicom_Sequence(fd, long(length), &count, native, &of_items).GetNItems(), 0);
    EXPECT_EQ(std::tuple(error, of_items, count), std::tuple(-1, -1, 0u));
  }
  close(fd);
}

} // namespace
