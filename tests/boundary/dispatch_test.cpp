// The method table as the host sees it, and dispatch by method number.
#include <fstream>
#include <sstream>

#include "tests/boundary/boundary_support.h"

namespace tessel::testing {
namespace {

using host::Value;

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

class Dispatch : public XtraTest {};

TEST_F(Dispatch, RegisteredTextIsTheHeaderAndTheMethodTableCharacterForCharacter) {
  auto text = host_->messageTable("Tessel");
  ASSERT_TRUE(text.has_value());
  EXPECT_EQ(*text, "xtra Tessel\n" + readFile(TESSEL_SOURCE_DIR "/xtra/methods.txt"));
  EXPECT_EQ(text->rfind("xtra Tessel\nnew object me\n\n-- Information Functions\n", 0), 0u);
  // Irregular lines are kept as they are.
  EXPECT_NE(text->find("* tsGetFilename  string Operation, string StartDir, string Filename,  "
                       "string Filter, integer Flags, string Instruction, integer NoFolders, "
                       "integer X, integer Y   -- gets filename\n"),
            std::string::npos);
  EXPECT_NE(text->find("string Filename, String User, string Permissions"), std::string::npos);
  EXPECT_NE(text->find("int FontSize, int FontWeight, int xPos, int yPos  -- shows custom"),
            std::string::npos);
  EXPECT_EQ(text->back(), '\n');
  EXPECT_EQ(text->find('\r'), std::string::npos);
  EXPECT_EQ(text->find('\t'), std::string::npos);
}

TEST_F(Dispatch, MethodsAreNumberedFromOneInTableOrder) {
  const host::MethodInfo* first = host_->findMethod("tsVersion");
  const host::MethodInfo* last = host_->findMethod("tsWinHandle");
  ASSERT_NE(first, nullptr);
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(first->selector, 1);
  EXPECT_EQ(last->selector, 101);
  EXPECT_EQ(host_->findMethod("tsFileExists")->selector, 39);
  EXPECT_EQ(host_->findMethod("tsFileAge")->selector, 40);
}

TEST_F(Dispatch, SelectorsOutsideTheTableSucceedWithVoid) {
  for (int32_t selector : {0, -1, -100, 102, 1000}) {
    Value result = Value(int32_t{77});
    EXPECT_EQ(host_->callSelector("Tessel", selector, {}, result), moa::kMoaErr_NoErr)
        << selector;
    EXPECT_TRUE(result.isVoid()) << selector;
  }
}

TEST_F(Dispatch, FileExistsAndFileAgeReachTheirOwnOperations) {
  TempDir dir;
  std::string file = dir.file("a.txt", "x").string();
  Value exists, age;
  ASSERT_EQ(host_->callSelector("Tessel", 39, {Value(file)}, exists), 0);
  ASSERT_EQ(host_->callSelector("Tessel", 40, {Value(file)}, age), 0);
  EXPECT_EQ(exists.integer(), 1);
  // A file written now has a 1904-based stamp far beyond 2,000,000,000 seconds.
  EXPECT_GT(age.integer(), 1000000000);
  EXPECT_EQ(integer("tsFileAge", {Value(dir.str() + "/missing")}), 0);
}

TEST_F(Dispatch, RefusedArgumentsEndTheCallWithTheHostsCodeAndNoResult) {
  Value result;
  EXPECT_EQ(callError("tsFileExists", {Value(int32_t{5})}, result), moa::kMoaMmErr_StringExpected);
  EXPECT_TRUE(result.isVoid());
  EXPECT_EQ(callError("tsKeyIsDown", {Value("a")}, result), moa::kMoaMmErr_IntegerExpected);
  EXPECT_TRUE(result.isVoid());
  // The second argument is refused after the first was read: nothing is left borrowed.
  EXPECT_EQ(callError("tsSetWallpaper", {Value("/tmp"), Value("tile")}, result),
            moa::kMoaMmErr_IntegerExpected);
  EXPECT_TRUE(result.isVoid());
}

TEST_F(Dispatch, ReturnUnixNamesKeepsOnlyTheLowEightBits) {
  for (auto [on, expectUnix] : {std::pair{1, true}, {256, false}, {257, true}, {0, false}}) {
    EXPECT_TRUE(call("tsReturnUnixNames", {Value(int32_t(on))}).isVoid());
    std::string boot = text("tsSysFolder", {Value("boot")});
    EXPECT_EQ(boot == "/", expectUnix) << on << " gave " << boot;
  }
}

}  // namespace
}  // namespace tessel::testing
