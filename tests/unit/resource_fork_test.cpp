// The resource-fork reader: finding resources among several types and references, and refusing
// every fork whose offsets or lengths point outside it.
#include "files/resource_fork.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace tessel::files {
namespace {

void put32(std::string& out, uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<char>(v >> shift));
}
void put16(std::string& out, uint32_t v) {
  out.push_back(static_cast<char>(v >> 8));
  out.push_back(static_cast<char>(v));
}

struct Resource {
  uint32_t type;
  int16_t id;
  std::string body;
};

// A fork holding `resources`, each type with its own reference list, the data after a 256-byte
// header area as usual.
std::string makeFork(const std::vector<Resource>& resources) {
  std::vector<uint32_t> types;
  for (const Resource& r : resources)
    if (std::find(types.begin(), types.end(), r.type) == types.end()) types.push_back(r.type);
  std::string data;
  std::vector<uint32_t> offsets;
  for (const Resource& r : resources) {
    offsets.push_back(static_cast<uint32_t>(data.size()));
    put32(data, static_cast<uint32_t>(r.body.size()));
    data += r.body;
  }
  std::string typeList;
  put16(typeList, static_cast<uint32_t>(types.size() - 1));
  std::string refs;
  uint32_t refsStart = 2 + 8 * static_cast<uint32_t>(types.size());
  for (uint32_t type : types) {
    std::vector<size_t> mine;
    for (size_t i = 0; i < resources.size(); ++i)
      if (resources[i].type == type) mine.push_back(i);
    put32(typeList, type);
    put16(typeList, static_cast<uint32_t>(mine.size() - 1));
    put16(typeList, refsStart + static_cast<uint32_t>(refs.size()));
    for (size_t i : mine) {
      put16(refs, static_cast<uint16_t>(resources[i].id));
      put16(refs, 0xFFFF);
      put32(refs, offsets[i]);  // attributes 0 in the high byte
      put32(refs, 0);
    }
  }
  std::string map(16, '\0');
  put32(map, 0);
  put16(map, 0);
  put16(map, 0);
  put16(map, 28);
  put16(map, static_cast<uint32_t>(28 + typeList.size() + refs.size()));
  map += typeList + refs;
  std::string fork;
  put32(fork, 256);
  put32(fork, static_cast<uint32_t>(256 + data.size()));
  put32(fork, static_cast<uint32_t>(data.size()));
  put32(fork, static_cast<uint32_t>(map.size()));
  fork.resize(256, '\0');
  return fork + data + map;
}

constexpr uint32_t kVers = 0x76657273;
constexpr uint32_t kStr = 0x53545223;

TEST(ResourceFork, FindsTheResourceByTypeAndId) {
  std::string fork = makeFork({{kStr, 1, "strings"},
                               {kVers, 2, "two"},
                               {kVers, -1, "minus one"},
                               {kVers, 1, "one"},
                               {kStr, 128, ""}});
  EXPECT_EQ(findResource(fork, kVers, 1), "one");
  EXPECT_EQ(findResource(fork, kVers, 2), "two");
  EXPECT_EQ(findResource(fork, kVers, -1), "minus one");
  EXPECT_EQ(findResource(fork, kStr, 1), "strings");
  EXPECT_EQ(findResource(fork, kStr, 128), "");
  EXPECT_FALSE(findResource(fork, kVers, 3));
  EXPECT_FALSE(findResource(fork, 0x50494354, 1));
  EXPECT_FALSE(findResource("", kVers, 1));
}

// (That whatever is found lies inside the fork, for any bytes, is resource_fork_fuzz's check.)
TEST(ResourceFork, DamagedForksFindNothing) {
  std::string fork = makeFork({{kVers, 1, "1.0 body"}});
  ASSERT_TRUE(findResource(fork, kVers, 1));
  // A resource whose length runs past the data.
  std::string longer = fork;
  longer[256] = 0x7F;
  EXPECT_FALSE(findResource(longer, kVers, 1));
  // A map length reaching past the end of the fork.
  std::string map = fork;
  map[12] = static_cast<char>(0xFF);
  EXPECT_FALSE(findResource(map, kVers, 1));
  // An empty type list is stored as count-minus-one 0xFFFF.
  std::string none = fork;
  size_t typeList = fork.size() - (28 + 2 + 8 + 12) + 28;
  none[typeList] = none[typeList + 1] = static_cast<char>(0xFF);
  EXPECT_FALSE(findResource(none, kVers, 1));
}

TEST(ResourceFork, VersionStringIsCutAtTheResourcesEnd) {
  std::string vers = {1, 0, 0, 0, 0, 0, 5};
  EXPECT_EQ(versionString(vers + "1.2.3" + "\x04long"), "1.2.3");
  EXPECT_EQ(versionString(std::string(6, '\0') + '\0'), "");
  EXPECT_FALSE(versionString(std::string(6, '\0')));
}

}  // namespace
}  // namespace tessel::files
