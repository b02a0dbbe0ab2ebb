#include <gtest/gtest.h>
#include <infra/RWSlistCollectables.h>
#include <memory>
#include <string>

namespace {

struct Item : RWCollectable {
  explicit Item(char item_name) : name(item_name) { ++s_alive; }
  ~Item() override { --s_alive; }
  bool isEqual(RWCollectable const*) const override { return true; } // searches must not use it

  char name;
  static int s_alive;
};
int Item::s_alive = 0;

void fill(RWSlistCollectables& list, char const* names) {
  for (; *names; ++names)
    list.append(new Item(*names));
}

std::string names(RWSlistCollectables const& list) {
  std::string result;
  for (RWCollectable* item : list)
    result += static_cast<Item*>(item)->name;
  EXPECT_EQ(list.entries(), result.size());
  EXPECT_EQ(list.first(), list.at(0));
  EXPECT_EQ(list.last(), list.at(result.size() - 1));
  return result;
}

TEST(Slist, IteratorRemovesEverySubset) {
  for (int subset = 0; subset < 32; ++subset) {
    RWSlistCollectables list;
    fill(list, "abcde");
    std::string expected;
    RWSlistCollectablesIterator next(list);
    for (int i = 0; RWCollectable* item = next(); ++i) {
      EXPECT_EQ(next.key(), item);
      if (subset >> i & 1) {
        std::unique_ptr<RWCollectable> const removed(next.remove());
        EXPECT_EQ(removed.get(), item);
        EXPECT_EQ(next.remove(), nullptr);
      } else {
        expected += static_cast<Item*>(item)->name;
      }
    }
    EXPECT_EQ(names(list), expected);
    fill(list, "z");
    EXPECT_EQ(next(), list.last()); // what is appended at the end is still met
    next.reset();
    EXPECT_EQ(next(), list.first());
    delete list.remove(list.at(list.entries() / 2)); // by identity
    expected = (expected + "z").erase((expected.size() + 1) / 2, 1);
    EXPECT_EQ(names(list), expected);
    list.clearAndDestroy();
    EXPECT_EQ(names(list), "");
  }
}

TEST(Slist, AMillionEntriesTakeNoStack) {
  RWSlistCollectables list;
  for (int i = 0; i < 1000000; ++i)
    list.append(new Item('m'));
  list.clearAndDestroy();
  EXPECT_EQ(Item::s_alive, 0);
}

} // namespace
