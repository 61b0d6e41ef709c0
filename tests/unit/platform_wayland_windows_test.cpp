// Owners of Wayland windows from sway's tree: the reply's JSON read for its views, and views
// matched to toplevels by app_id and title in the order both were made.
#include <gtest/gtest.h>

#include "platform/linux/wayland_sway_ipc.h"
#include "platform/linux/wayland_windows.h"

namespace tessel::platform::wayland {
namespace {

TEST(SwayViews, TheTreeIsReadAndViewsMatchInMappingOrder) {
  // Nested containers, a floating view, escapes, a workspace (no pid) and a view with no app_id.
  const char* tree = R"({"id":1,"name":"root","nodes":[{"id":3,"name":"WS","nodes":[
      {"id":9,"pid":300,"app_id":"foot","name":"same","rect":{"x":0},"nodes":[]},
      {"id":7,"pid":200,"app_id":"foot","name":"same","nodes":[]}],
    "floating_nodes":[{"id":12,"pid":400,"app_id":"ed\u00e9","name":"a \"b\" \ud83d\ude00","nodes":[]},
      {"id":13,"pid":500,"app_id":null,"name":"x","nodes":[]}]}]})";
  auto views = parseSwayTree(tree);
  ASSERT_TRUE(views);
  ASSERT_EQ(views->size(), 4u);
  EXPECT_EQ((*views)[2].appId, "ed\xc3\xa9");
  EXPECT_EQ((*views)[2].title, "a \"b\" \xf0\x9f\x98\x80");
  EXPECT_EQ((*views)[3].appId, "");

  auto window = [](std::string appId, std::string title) {
    ManagedWindow w;
    w.wmClass = std::move(appId);
    w.title = std::move(title);
    return w;
  };
  // Two views alike go to the toplevels in the order sway made them (container ids), whatever the
  // tree's order; a title that changed meanwhile matches by the one view left with its app_id.
  EXPECT_EQ(matchViews({window("foot", "same"), window("foot", "same"), window("ed\xc3\xa9", "renamed"),
                        window("gone", "x")},
                       *views),
            (std::vector<int32_t>{200, 300, 400, 0}));

  for (const char* bad : {"", "{", R"({"pid":1,})", "[1,2", R"({"a":"\u12"})", "nul"})
    EXPECT_FALSE(parseSwayTree(bad)) << bad;
  EXPECT_FALSE(parseSwayTree(std::string(100000, '[')));  // nesting is bounded, not recursed through
}

}  // namespace
}  // namespace tessel::platform::wayland
