#include "support/DataSetProperty.h"
#include "support/Objects.h"

#include <dicom/Dicom_CharacterSet.h>

#include <barrier>
#include <chrono>
#include <optional>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

namespace {

constexpr Dicom_Tag kModality(0x0008, 0x0060), kName(0x0010, 0x0010), kID(0x0010, 0x0020), kSequence(0x0008, 0x1115),
    kOurs(0x0009, std::uint8_t(0x10), "OURS"), kTheirs(0x0009, std::uint8_t(0x10), "THEIRS");
DataSetBytes const kBytes;

std::unique_ptr<IOD_Msg> Read(std::string const& data_set) {
  return DataSetProperty::Read(DataSetBytes::File("1.2.840.10008.1.2.1", data_set));
}

// Not taken apart yet, as the items of a directory file are when they are found.
Dicom_Msg Unparsed(std::string const& data_set) {
  int error = -1;
  Dicom_Msg msg(data_set.data(), unsigned(data_set.size()), 1, &error);
  EXPECT_EQ(error, 0);
  return msg;
}

Dicom_Sequence* SequenceOf(Dicom_Msg const& msg, Dicom_Tag const& tag = kSequence) {
  auto const* value = dynamic_cast<Dicom_SQ const*>(msg.Get(tag));
  return value ? value->GetSequence() : nullptr;
}

std::string Tags(Dicom_Msg const& msg) {
  std::string text;
  for (int i = 0; i < msg.GetNElements(); ++i) {
    char tag[12];
    std::snprintf(tag, sizeof tag, "%08x ", msg.GetElement(i)->GetTag().Number());
    text += tag;
  }
  return text;
}

TEST(Dicom_Msg, SetsGetsAndRemovesInOrder) {
  Dicom_Msg msg;
  EXPECT_EQ(msg.Set(kID, Dicom_LO("1")) | msg.Set(kModality, Dicom_CS("CT")) | msg.Set(kID, Dicom_LO("2")), 0);
  EXPECT_EQ(msg.Set(kName, nullptr), -1);
  EXPECT_EQ(msg.Set(Dicom_Tag(0xFFFE, 0xE00D), Dicom_LO("x")), -1);
  EXPECT_EQ(msg.Set(Dicom_Tag(0x0009, 0x0001), Dicom_LO("without a block")), -1);
  EXPECT_EQ(Tags(msg), "00080060 00100020 ");
  EXPECT_EQ(msg.Text(kID), "2");
  EXPECT_EQ(msg.Get(kName), nullptr);
  EXPECT_TRUE(msg.Value<Dicom_PN>(kName) == PN_NULL);
  EXPECT_TRUE(!msg.GetElement(2) && !msg.GetElement(-1));
  EXPECT_EQ(msg.Remove(kModality) | msg.Remove(kModality), 0);
  EXPECT_EQ(msg.Add(nullptr, 1), -1);
  int status = -1;
  auto added = std::make_unique<Dicom_ME>(kName, new Dicom_PN("A"), 0, &status);
  EXPECT_EQ(msg.Add(added.get(), 1), 0);
  EXPECT_EQ(msg.Add(added.release(), 0), 0);
  EXPECT_EQ(msg.Add(Dicom_ME(kOurs, std::make_unique<Dicom_LO>("unresolved"))), -1);
  EXPECT_EQ(Tags(msg), "00100010 00100020 ");
  EXPECT_EQ(Dicom_ME(kName, nullptr, 0, &status).GetValue()->GetText(), "");
  EXPECT_EQ(status, -1);
}

TEST(Dicom_Msg, UpdateTakesOverWhatItIsTold) {
  Dicom_Msg other;
  other.Set(kID, Dicom_LO("new"));
  other.Set(kName, Dicom_PN("new"));
  other.Set(kTheirs, Dicom_LO("new theirs")); // both have block 10
  for (bool const replace : {false, true}) {
    for (bool const only_existing : {false, true}) {
      Dicom_Msg msg;
      msg.Set(kID, Dicom_LO("old"));
      msg.Set(kOurs, Dicom_LO("ours"));
      EXPECT_EQ(msg.Update(other, replace, only_existing), 0);
      EXPECT_EQ(msg.Text(kID), replace ? "new" : "old");
      EXPECT_EQ(msg.Text(kName), only_existing ? "" : "new");
      EXPECT_EQ(msg.Text(kOurs), "ours");
      EXPECT_EQ(msg.Text(kTheirs), only_existing ? "" : "new theirs");
      EXPECT_EQ(msg.GetNElements(), only_existing ? 3 : 6);
    }
  }
}

TEST(Dicom_Msg, PrivateAttributesStandInTheBlockOfTheirCreator) {
  std::string const bytes = kBytes.Text(0x00090010, "LO", "THEIRS") + kBytes.Text(0x00090012, "LO", "OURS") +
                            kBytes.Text(0x00091010, "LO", "theirs") + kBytes.Text(0x00091110, "LO", "nobody's") +
                            kBytes.Text(0x00091210, "LO", "ours");
  for (bool const parsed : {false, true}) {
    Dicom_Msg msg = Unparsed(bytes);
    if (parsed) (void)msg.GetNElements();
    EXPECT_EQ(msg.Text(kOurs), "ours");
    EXPECT_TRUE(msg.TextEquals(kTheirs, "theirs"));
    Dicom_Tag const third(0x0009, std::uint8_t(0x01), "THIRD"), in_other_group(0x0011, std::uint8_t(0x10), "OURS");
    EXPECT_FALSE(msg.Has(third) || msg.Has(in_other_group));
    EXPECT_EQ(msg.Set(third, Dicom_LO("third")), 0); // block 11 belongs to what has lost its creator
    EXPECT_EQ(msg.Set(kOurs, Dicom_LO("changed")), 0);
    EXPECT_EQ(msg.Remove(kTheirs), 0);
    EXPECT_EQ(Tags(msg), "00090010 00090012 00090013 00091110 00091210 00091301 ");
  }
  Dicom_Msg full;
  for (unsigned block = 0x10; block <= 0xFF; ++block)
    full.Set(Dicom_Tag(0x0009, std::uint16_t(block)), Dicom_LO("NR " + std::to_string(block)));
  EXPECT_EQ(full.Set(kOurs, Dicom_LO("x")), -1);
  EXPECT_EQ(full.GetNElements(), 0xF0);
  EXPECT_EQ(full.Set(Dicom_Tag(0x0009, std::uint8_t(1), "NR 255"), Dicom_LO("x")), 0);
  EXPECT_EQ(full.GetElement(0xF0)->GetTag(), Dicom_Tag(0x0009, 0xFF01));
}

TEST(Dicom_Msg, CopiesShareNothingThatShows) {
  std::string bytes = kBytes.Sequence(0x00081115, kBytes.Item(kBytes.Text(0x00100020, "LO", "ID"))) +
                      kBytes.Text(0x00100010, "PN", "NAME");
  int error = 0;
  std::optional<Dicom_Msg> borrowing(std::in_place, bytes.data(), unsigned(bytes.size()), 0, &error);
  std::unique_ptr<Dicom_Msg> const clone(borrowing->Clone());
  std::string const original = bytes;
  std::fill(bytes.begin(), bytes.end(), 'x');
  borrowing.reset();
  EXPECT_EQ(Dumped(*clone), original);

  Dicom_Msg first = *clone;
  SequenceOf(first)->Get(0)->Set(kID, Dicom_LO("CHANGED"));
  Dicom_Msg second = first;
  SequenceOf(second)->Remove(0, 1);
  second.Set(kName, PN_NULL);
  EXPECT_EQ(Dumped(*clone), original);
  EXPECT_EQ(SequenceOf(first)->Get(0)->Text(kID), "CHANGED");
  EXPECT_EQ(first.Text(kName), "NAME");
  EXPECT_EQ(SequenceOf(second)->GetNItems(), 0);

  Dicom_ME const alone(*first.Find(kName));
  std::unique_ptr<Dicom_Msg> item(SequenceOf(first)->Get(0));
  EXPECT_EQ(SequenceOf(first)->Remove(0, 0), 0);
  first = Dicom_Msg();
  EXPECT_EQ(alone.GetText(), "NAME");
  EXPECT_EQ(item->Text(kID), "CHANGED");

  Dicom_Msg const taken = std::move(*clone);
  EXPECT_EQ(clone->GetNElements(), 0) << "of what was moved nothing is left";
  EXPECT_EQ(Dumped(taken), original);
}

TEST(Dicom_Msg, ChangesOfItemsShowInTheDump) {
  std::string const item = kBytes.Text(0x00100020, "LO", "ID"), changed = kBytes.Text(0x00100020, "LO", "CHANGED");
  // the inner one is of unknown VR, so its items are in implicit VR, and a change makes it a sequence like others
  DataSetBytes const implicit{false};
  std::string const inner =
      kBytes.OpenSequence(0x00091010, implicit.OpenItem(implicit.Text(0x00100020, "", "ID")), "UN");
  auto const msg = Read(kBytes.OpenSequence(0x00081115, kBytes.OpenItem(item) + kBytes.Item(inner)));
  std::string const before = Dumped(*msg);
  ASSERT_NE(SequenceOf(*msg), nullptr);
  Dicom_Msg* const deep = SequenceOf(*SequenceOf(*msg)->Get(1), Dicom_Tag(0x0009, 0x1010))->Get(0);
  EXPECT_EQ(deep->Text(kID), "ID");
  EXPECT_FALSE(msg->HasChanged());
  EXPECT_EQ(Dumped(*msg), before);
  deep->Set(kID, Dicom_LO("CHANGED"));
  EXPECT_TRUE(msg->HasChanged());
  EXPECT_EQ(
      Dumped(*msg),
      kBytes.Sequence(0x00081115, kBytes.Item(item) + kBytes.Item(kBytes.Sequence(0x00091010, kBytes.Item(changed)))));
  SequenceOf(*msg)->Remove(1, 1);
  EXPECT_EQ(Dumped(*msg), kBytes.Sequence(0x00081115, kBytes.Item(item)));
}

TEST(Dicom_Msg, WhoAsksKnowsMoreThanUnknown) {
  auto const msg = Read(kBytes.Text(0x00080005, "CS", "ISO_IR 100") + kBytes.Text(0x00090010, "LO", "MAKER") +
                        kBytes.Text(0x00091001, "UN", "K\xF6pfe ") + kBytes.Element(0x00091002, "UN", "\x07\x01") +
                        kBytes.Element(0x00091003, "UN", "abc\1"));
  auto const tag = [](int element) { return Dicom_Tag(0x0009, std::uint8_t(element), "MAKER"); };
  EXPECT_EQ(msg->Value<Dicom_SH>(tag(1)).View(), "K\u00F6pfe");
  EXPECT_EQ(unsigned(msg->Value<Dicom_US>(tag(2))), 0x107u);
  EXPECT_EQ(msg->Value<Dicom_UL>(tag(2)), UL_NULL) << "two bytes are none";
  EXPECT_EQ(msg->Value<Dicom_OB>(tag(3)), OB_NULL) << "bytes are asked for as such only";
  EXPECT_EQ(msg->Find(tag(3))->GetVR(), Dicom_VR::UN);
}

TEST(Dicom_Sequence, ItemsComeAndGo) {
  Dicom_Sequence sequence;
  EXPECT_EQ(sequence.Append(nullptr, true), -1);
  Dicom_Msg mine;
  sequence.Append(&mine, false);
  for (int i = 1; i < 4; ++i) {
    sequence.Append(new Dicom_Msg, true);
    sequence.Get(i)->Set(kID, Dicom_LO(std::to_string(i)));
  }
  for (auto const& [i, result] : {std::pair(4, -1), {-1, -1}, {2, 0}, {0, 0}})
    EXPECT_EQ(sequence.Remove(i, 1), result) << i;
  EXPECT_EQ(sequence.GetNItems(), 2);
  EXPECT_EQ(sequence.Get(0)->Text(kID) + sequence.Get(1)->Text(kID), "13");
  EXPECT_EQ(sequence.Get(2), nullptr);

  std::string items;
  for (int i = 0; i < 10000; ++i)
    items += kBytes.Item(kBytes.Text(0x00100020, "LO", std::to_string(i)));
  auto const msg = Read(kBytes.Sequence(0x00081115, items));
  Dicom_Sequence* const many = SequenceOf(*msg);
  auto const start = std::chrono::steady_clock::now();
  for (int i = 0; i < 10000; ++i) {
    ASSERT_EQ(many->Get(0)->Text(kID), std::to_string(i));
    if (i % 3 == 0) many->Append(many->Get(many->GetNItems() - 1)->Clone(), true);
    ASSERT_EQ(many->Remove(0, 1), 0);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(many->GetNItems(), 3334);

  auto const few = Read(kBytes.Sequence(0x00081115, kBytes.Item({}) + kBytes.Item({})));
  SequenceOf(*few)->RemoveIf([](Dicom_Msg const& item) { return item.GetNElements() == 0; });
  EXPECT_EQ(SequenceOf(*Read(Dumped(*few)))->GetNItems(), 0) << "what was taken out isn't written";
}

/// Cyrillic, but for one item.
std::string TwoSets() {
  std::string const cyrillic = kBytes.Text(0x00080005, "CS", "ISO_IR 144"),
                    name = kBytes.Text(0x00100010, "PN", "\xBB");
  std::string const items = kBytes.Item(name) + kBytes.Item(kBytes.Text(0x00080005, "CS", "ISO_IR 100") + name);
  return cyrillic + kBytes.Sequence(0x00081115, items) + kBytes.Text(0x00100010, "UN", "\xBB") +
         kBytes.Text(0x00100040, "CS", "\xBB");
}

TEST(Dicom_Msg, ThreadsMayReadOneMessage) {
  for (int round = 0; round < 60; ++round) {
    Dicom_Msg msg = round % 2 ? Unparsed(TwoSets()) : Dicom_Msg(std::move(*Read(TwoSets())));
    if (round % 3 == 0) msg.Set(kOurs, Dicom_LO("ours"));
    std::barrier start(2);
    std::string told[2];
    auto const read = [&told, &start, &shared = std::as_const(msg), round](int i) {
      start.arrive_and_wait();
      if (i == round % 5) (void)shared.GetNElements(); // before any walk over the bytes
      told[i] = shared.Text(kName) + shared.Text(kOurs) + std::string(shared.GetCharacterSet().Terms()) +
                SequenceOf(shared)->Get(1)->Text(kName) + Dumped(shared) +
                DataSetProperty::Difference(shared, Dicom_Msg(shared), false);
    };
    std::thread other(read, 1);
    read(0);
    other.join();
    EXPECT_EQ(told[0], told[1]);
    EXPECT_EQ(told[0].find(round % 3 ? "ЛISO_IR 144»" : "ЛoursISO_IR 144»"), 0u) << told[0];
  }
}

TEST(Dicom_Msg, ItemsInheritTheCharacterSet) {
  for (bool const parsed : {false, true}) {
    Dicom_Msg const msg = Unparsed(TwoSets());
    if (parsed) (void)msg.GetNElements();
    Dicom_SQ const value = msg.Value<Dicom_SQ>(kSequence);
    ASSERT_EQ(value.GetNValues(), 2);
    EXPECT_EQ(value.GetSequence()->Get(0)->Text(kName), "Л");
    EXPECT_EQ(value.GetSequence()->Get(1)->Text(kName), "»");
    EXPECT_EQ(msg.Text(kName), "Л");                     // of a VR that its writer didn't know
    EXPECT_EQ(msg.Text(Dicom_Tag(0x0010, 0x0040)), "Л"); // has no business to be outside of ASCII
    // alone an item has no declaration around it, so its text is UTF-8
    EXPECT_EQ(Dumped(*value.GetSequence()->Get(0)), kBytes.Text(0x00100010, "PN", "Л"));
  }
}

TEST(Dicom_Msg, TextThatTheSetLacksMovesTheObjectToUtf8) {
  std::string const latin = kBytes.Text(0x00080005, "CS", "ISO_IR 100"), name = kBytes.Text(0x00100010, "PN", "\xC4");
  std::string const own_set = kBytes.Text(0x00080005, "CS", "ISO_IR 101") + name;
  std::string const original = latin + kBytes.Sequence(0x00081115, kBytes.Item(name) + kBytes.Item(own_set)) + name;
  auto const settled = [&](auto change, std::string const& data_set = {}) {
    auto const msg = Read(data_set.empty() ? original : data_set);
    change(*msg);
    msg->SettleCharacterSet();
    return Dumped(*msg);
  };
  std::string const utf8 = kBytes.Text(0x00080005, "CS", "ISO_IR 192"), utf8_name = kBytes.Text(0x00100010, "PN", "Ä");
  EXPECT_EQ(settled([](Dicom_Msg&) {}), original);
  EXPECT_EQ(settled([](Dicom_Msg& msg) { msg.Set(kID, Dicom_CS("Ä")); }),
            original + kBytes.Text(0x00100020, "CS", "\xC4"));
  std::string const moved =
      utf8 + kBytes.Sequence(0x00081115, kBytes.Item(utf8_name) + kBytes.Item(own_set)) + utf8_name;
  EXPECT_EQ(settled([](Dicom_Msg& msg) { msg.Set(kID, Dicom_LO("山")); }), moved + kBytes.Text(0x00100020, "LO", "山"));
  // a change in an item counts as one of the object, and an item with a set of its own moves alone
  std::string const hill = kBytes.Text(0x00100010, "PN", "山");
  EXPECT_EQ(settled([](Dicom_Msg& msg) { SequenceOf(msg)->Get(0)->Set(kName, Dicom_PN("山")); }),
            utf8 + kBytes.Sequence(0x00081115, kBytes.Item(hill) + kBytes.Item(own_set)) + utf8_name);
  EXPECT_EQ(settled([](Dicom_Msg& msg) { SequenceOf(msg)->Get(1)->Set(kName, Dicom_PN("山")); }),
            latin + kBytes.Sequence(0x00081115, kBytes.Item(name) + kBytes.Item(utf8 + hill)) + name);
  // Latin-1 without a word stays as it is while nothing else has to be declared
  EXPECT_EQ(settled([](Dicom_Msg& msg) { msg.Set(kID, Dicom_LO("1")); }, name),
            name + kBytes.Text(0x00100020, "LO", "1"));
  EXPECT_EQ(settled([](Dicom_Msg& msg) { msg.Set(kID, Dicom_LO("ä")); }, name),
            utf8 + utf8_name + kBytes.Text(0x00100020, "LO", "ä"));
}

} // namespace
