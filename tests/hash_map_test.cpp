// The keyed collection: checked against a model under random operations,
// walks that delete as they go, bookmarks, string keys and growth.

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <stdexcept>
#include <string>

#include "Zet/HashMap.h"
#include "Zet/Ptr.h"

namespace Zet {
namespace {

Name numbered(char const* prefix, long n) {
  std::string text(prefix);
  text += std::to_string(n);
  return Name(text);
}

TEST(HashMap, AgreesWithAModelUnderRandomOperations) {
  HashMap<int> map;
  std::map<std::string, int> model;
  std::mt19937 rng(7);
  for (int step = 0; step < 200000; ++step) {
    // The empty name is a key like any other, beside erased places.
    Name key = rng() % 100 == 0 ? Name() : numbered("k", rng() % 5000);
    switch (rng() % 4) {
      case 0:
      case 1: {
        int v = static_cast<int>(rng());
        auto [slot, inserted] = map.insert(key, v);
        auto [it, modelInserted] = model.emplace(key.str(), v);
        ASSERT_EQ(inserted, modelInserted);
        ASSERT_EQ(*slot, it->second);
        break;
      }
      case 2:
        ASSERT_EQ(map.erase(key), model.erase(key.str()) == 1);
        break;
      case 3:
        map.assign(key, step);
        model[key.str()] = step;
        break;
    }
  }
  ASSERT_EQ(map.size(), model.size());
  EXPECT_TRUE(map.isConsistent());
  size_t walked = 0;
  for (auto& m : map) {
    ASSERT_EQ(m.value(), model.at(m.key().str()));
    ++walked;
  }
  EXPECT_EQ(walked, model.size());
  for (auto const& [key, value] : model) {
    auto* m = map.memberByText(key);
    ASSERT_NE(m, nullptr) << "text lookup hashes as the key does";
    ASSERT_EQ(m->value(), value);
  }
  EXPECT_EQ(map.memberByText("absent"), nullptr);
  EXPECT_EQ(map.find("absent"), nullptr);
  EXPECT_EQ(map.value("absent"), 0);
}

// A named object, as the maps keyed by name hold them.
struct Item : PtrInterface {
  Item(Name n, int v) : name_(std::move(n)), value(v) {}
  Name const& name() const { return name_; }
  Name name_;
  int value;
};

TEST(HashMap, KeyedByNameAgreesWithAModelAndRefusesNull) {
  HashMap<Ptr<Item>, KeyedByName> map;
  std::map<std::string, int> model;
  std::mt19937 rng(11);
  for (int step = 0; step < 100000; ++step) {
    Name key = numbered("k", rng() % 3000);
    switch (rng() % 3) {
      case 0: {
        auto [slot, inserted] = map.insertMade(key, [&] { return Ptr<Item>(new Item(key, step)); });
        auto [it, modelInserted] = model.emplace(key.str(), step);
        ASSERT_EQ(inserted, modelInserted);
        ASSERT_EQ((*slot)->value, it->second);
        break;
      }
      case 1:
        ASSERT_EQ(map.erase(key), model.erase(key.str()) == 1);
        break;
      case 2:
        map.assign(key, Ptr<Item>(new Item(Name(key.str()), -step)));
        model[key.str()] = -step;
        break;
    }
  }
  EXPECT_TRUE(map.isConsistent());
  size_t walked = 0;
  for (auto& m : map) {
    ASSERT_EQ(m.key(), m.value()->name());
    ASSERT_EQ(m.value()->value, model.at(m.key().str()));
    ++walked;
  }
  EXPECT_EQ(walked, model.size());
  EXPECT_THROW(map.insert(Name("null"), nullptr), std::invalid_argument);
  EXPECT_EQ(map.find("null"), nullptr) << "a refused value leaves no member";
  EXPECT_TRUE(map.isConsistent());
}

TEST(HashMap, WalkSurvivesDeletingTheMemberItStandsOnAndOthers) {
  HashMap<int> map;
  for (int i = 0; i < 100; ++i) map.insert(numbered("m", i), i);

  // Delete every member as it is visited, plus its successor-by-number.
  size_t visited = 0;
  for (auto it = map.begin(); it; ++visited) {
    Name key(it->key());
    int v = it->value();
    map.erase(numbered("m", v ^ 1));
    map.erase(key);  // the bookmark moves on to the next member
    EXPECT_FALSE(it && it->key() == key);
  }
  EXPECT_EQ(map.size(), 0u);
  EXPECT_EQ(visited, 50u) << "each erase pair removes two members";
  EXPECT_TRUE(map.isConsistent());
}

TEST(HashMap, AWalkSeesAheadTheMemberItWillReachOrNothing) {
  HashMap<int> map;
  for (int i = 0; i < 10; ++i) map.insert(numbered("m", i), i);
  map.erase(numbered("m", 5));
  auto it = map.begin();
  ASSERT_TRUE(it.ahead(4));
  EXPECT_EQ(it.ahead(4)->value(), 4);
  EXPECT_EQ(it.ahead(5), nullptr) << "an erased member's place";
  EXPECT_EQ(it.ahead(9)->value(), 9);
  EXPECT_EQ(it.ahead(10), nullptr) << "past the last place";
  EXPECT_EQ(it.ahead(SIZE_MAX), nullptr);
  EXPECT_EQ(map.end().ahead(0), nullptr);
}

TEST(HashMap, BookmarksOutliveClearsAndTheMapItself) {
  auto* map = new HashMap<std::string>;
  for (int i = 0; i < 10; ++i) map->insert(numbered("k", i), "v");
  auto a = map->begin();
  auto b = a;
  ++b;
  map->clear();
  EXPECT_FALSE(a);
  EXPECT_FALSE(b);
  map->insert("again", "v");
  auto c = map->begin();
  delete map;  // c must not touch the map when it goes
  EXPECT_FALSE(c);

  // Bookmarks that stand on nothing: the begin of an empty map, its end, a
  // walk run to its end, and copies of each.
  auto* empty = new HashMap<int>;
  auto first = empty->begin();
  auto last = empty->end();
  auto copy = first;
  auto* one = new HashMap<int>;
  one->insert("only", 1);
  auto walked = one->begin();
  ++walked;
  auto walkedCopy = walked;
  delete empty;
  delete one;
  EXPECT_FALSE(first);
  EXPECT_FALSE(last);
  EXPECT_FALSE(copy);
  EXPECT_FALSE(walkedCopy);
}

TEST(HashMap, StringKeysFindTheirMembersByTextOrByACopyOfTheKey) {
  HashMap<int> map;
  for (int i = 0; i < 1000; ++i) map.insert(numbered("k", i), i);
  for (int i = 0; i < 1000; ++i) {
    std::string text = numbered("k", i).str();
    ASSERT_TRUE(map.memberByText(text)) << text;
    EXPECT_EQ(*map.find(Name(text)), i);  // another buffer with the same text
  }
  EXPECT_FALSE(map.find(Name("k1000")));
  EXPECT_TRUE(map.isConsistent());
}

// A value made on insertion is made only for an absent key; a maker that
// throws leaves nothing, and one that inserts the key itself wins.
TEST(HashMap, InsertMadeMakesOnlyWhatIsMissing) {
  HashMap<int> map;
  int made = 0;
  auto maker = [&made](int v) { return [&made, v] { return ++made, v; }; };
  EXPECT_TRUE(map.insertMade("a", maker(1)).second);
  auto [slot, inserted] = map.insertMade("a", maker(2));
  EXPECT_FALSE(inserted);
  EXPECT_EQ(*slot, 1);
  EXPECT_EQ(made, 1);
  EXPECT_THROW(map.insertMade("b", []() -> int { throw std::runtime_error("no"); }), std::runtime_error);
  EXPECT_FALSE(map.find("b"));
  auto [inner, innerInserted] = map.insertMade("c", [&map] {
    map.insert("c", 3);
    return 4;
  });
  EXPECT_FALSE(innerInserted);
  EXPECT_EQ(*inner, 3);
  EXPECT_EQ(map.size(), 2u);
  EXPECT_TRUE(map.isConsistent());
}

TEST(HashMap, GrowsOnlyWhenNoWalkIsInProgress) {
  HashMap<int> map;
  map.insert("first", 1);
  {
    auto it = map.begin();
    for (int i = 0; i < 64; ++i) map.insert(numbered("n", i), i);
    EXPECT_TRUE(it);
    EXPECT_EQ(it->key(), "first") << "the bookmark still stands where it was";
  }
  map.insert("after", 0);  // grows now
  EXPECT_EQ(map.size(), 66u);
  EXPECT_TRUE(map.isConsistent());
}

TEST(HashMap, ReservingKeepsEveryMemberWhereAWalkFindsIt) {
  HashMap<int> map;
  map.reserve(0);
  EXPECT_TRUE(map.empty());
  for (int i = 0; i < 100; ++i) map.insert(numbered("n", i), i);
  map.erase(numbered("n", 7));  // a freed place stays freed across the new index
  auto it = map.begin();
  ++it;
  map.reserve(50);  // already room: nothing changes
  map.reserve(100000);
  EXPECT_EQ(it->key(), "n1") << "the walk goes on where it stood";
  EXPECT_TRUE(map.isConsistent());
  for (int i = 100; i < 100000; ++i) map.insert(numbered("n", i), i);
  EXPECT_EQ(map.size(), 99999u);
  EXPECT_TRUE(map.isConsistent());
  EXPECT_EQ(map.find(numbered("n", 7)), nullptr);
  EXPECT_EQ(*map.find(numbered("n", 99999)), 99999);
}

}  // namespace
}  // namespace Zet
