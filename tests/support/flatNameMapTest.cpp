// The flat name map against std::map on many names, and its first-wins rule.

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "support/flatNameMap.h"

namespace {

TEST(FlatNameMap, AgreesWithAnOrderedMapOnManyNames) {
  std::mt19937 engine(5);
  std::vector<std::string> names;
  // Short, long, similar and empty names; some repeated.
  names.push_back("");
  for (int i = 0; i < 20000; ++i) {
    std::string name = "n" + std::to_string(engine() % 15000);
    if (i % 7 == 0) {
      name += std::string(40, 'x') + std::to_string(i % 100);
    }
    names.push_back(name);
  }
  support::FlatNameMap flat;
  std::map<std::string, int> reference;
  for (size_t i = 0; i < names.size(); ++i) {
    const bool stored = flat.insert(names[i], static_cast<int>(i));
    const bool referenceStored = reference.emplace(names[i], static_cast<int>(i)).second;
    ASSERT_EQ(stored, referenceStored) << names[i];
  }
  EXPECT_EQ(flat.size(), reference.size());
  for (const auto& [name, value] : reference) {
    const int* found = flat.find(name);
    ASSERT_NE(found, nullptr) << name;
    EXPECT_EQ(*found, value) << name;
  }
  const std::string absent[] = {"n15000", "N1", "n1 ", "x", std::string(41, 'x')};
  for (const std::string& name : absent) {
    EXPECT_EQ(flat.find(name), nullptr) << name;
  }
}

TEST(FlatNameMap, FirstValueStaysAndClearForgets) {
  support::FlatNameMap map;
  EXPECT_EQ(map.find("a"), nullptr);  // an empty map answers too
  EXPECT_TRUE(map.insert("a", 1));
  EXPECT_FALSE(map.insert("a", 2));
  EXPECT_EQ(*map.find("a"), 1);
  const std::string key = "b";
  EXPECT_TRUE(map.insert(key, support::hashName(key), 3));
  EXPECT_EQ(*map.find("b", support::hashName("b")), 3);
  map.clear();
  EXPECT_EQ(map.size(), 0u);
  EXPECT_EQ(map.find("a"), nullptr);
  EXPECT_TRUE(map.insert("a", 4));
  EXPECT_EQ(*map.find("a"), 4);
}

}  // namespace
