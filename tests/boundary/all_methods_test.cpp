// Every method of the table can be called with its declared arguments, and bad calls end as
// errors or failure values, never as crashes.
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

#include "tests/boundary/boundary_support.h"

namespace tessel::testing {
namespace {

using host::Value;

class AllMethods : public XtraTest {
 protected:
  // Without a display every dialog answers at once instead of waiting for a click.
  void SetUp() override {
    unsetenv("DISPLAY");
    XtraTest::SetUp();
  }
  // The names of the methods, in table order, read from the registered text.
  std::vector<std::string> methodNames() {
    std::vector<std::string> names;
    std::istringstream lines(*host_->messageTable("Tessel"));
    std::string line;
    while (std::getline(lines, line)) {
      if (line.rfind("* ", 0) != 0) continue;
      names.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    return names;
  }
  // Arguments of the declared types: "" for every string, 0 for every integer.
  std::vector<Value> declaredArguments(const host::MethodInfo& method) {
    std::vector<Value> args;
    for (const auto& arg : method.args)
      args.push_back(host::equalsIgnoringCase(arg.type, "string") ? Value(std::string())
                                                                : Value(int32_t{0}));
    return args;
  }
};

TEST_F(AllMethods, EveryMethodAnswersWithItsDeclaredArguments) {
  // The registered text is the header and the method table, character for character.
  std::ifstream table(TESSEL_SOURCE_DIR "/xtra/methods.txt", std::ios::binary);
  EXPECT_EQ(*host_->messageTable("Tessel"),
            "xtra Tessel\n" + std::string(std::istreambuf_iterator<char>(table), {}));
  std::vector<std::string> names = methodNames();
  ASSERT_EQ(names.size(), 101u);
  // Results that do not depend on the machine, for empty and zero arguments.
  const std::map<std::string, Value> expected = {
      {"tsVersion", Value("")},         {"tsFindApp", Value("")},
      {"tsReadIni", Value("")},         {"tsWriteIni", Value(0)},
      {"tsFontInstalled", Value(0)},    {"tsGestalt", Value(0)},
      {"tsGestaltExists", Value(0)},    {"tsSetDisplay", Value(-1)},
      {"tsSetMultiDisplay", Value(-1)}, {"tsRunProgram", Value(0)},
      {"tsMsgBoxButtons", Value()},     {"tsHideTaskBar", Value(0)},
      {"tsEjectDisk", Value(0)},        {"tsFileExists", Value(0)},
      {"tsFileAge", Value(0)},          {"tsFolderExists", Value(0)},
      {"tsIsBundle", Value(0)},         {"tsFileSize", Value(-1)},
      {"tsFileSizeEx", Value(-1.0)},    {"tsFileDate", Value("")},
      {"tsFileDateEx", Value("")},      {"tsFileAttributes", Value("")},
      {"tsCopyFile", Value(1)},         {"tsFileList", Value::list()},
      {"tsFolderList", Value::list()},  {"tsFindClose", Value()},
      {"tsReturnUnixNames", Value()},   {"tsHFSName", Value("")},
      {"tsFileCreator", Value("")},     {"tsFileType", Value("")},
      {"tsRefreshFiles", Value()},      {"tsBundleApp", Value("")},
      {"tsWindowInfo", Value("Invalid")}, {"tsWindowExists", Value(0)},
      {"tsSendKeys", Value(0)},
      {"tsMouseClick", Value(0)},       {"tsPrintFile", Value(0)},
      {"tsOpenFile", Value(0)},         {"tsFindFirstFile", Value("")},
  };
  for (size_t i = 0; i < names.size(); ++i) {
    const host::MethodInfo* method = host_->findMethod(names[i]);
    ASSERT_NE(method, nullptr) << names[i];
    EXPECT_EQ(method->selector, static_cast<int>(i + 1)) << names[i];
    Value result;
    std::vector<Value> args = declaredArguments(*method);
    // A time-out of 0 waits without limit for another program to come to the front.
    if (names[i] == "tsNextActiveWindow") args[0] = Value(int32_t{1});
    moa::MoaError err = host_->callMethod(*method, args, result);
    EXPECT_EQ(err, moa::kMoaErr_NoErr) << names[i] << ": " << host::describeError(err);
    auto want = expected.find(names[i]);
    if (want == expected.end()) continue;
    const Value& w = want->second;
    if (w.isList()) {
      ASSERT_TRUE(result.isList()) << names[i];
      EXPECT_TRUE(result.listPtr()->items.empty()) << names[i];
    } else if (w.isVoid()) {
      EXPECT_TRUE(result.isVoid()) << names[i];
    } else if (w.isString()) {
      ASSERT_TRUE(result.isString()) << names[i];
      EXPECT_EQ(result.string(), w.string()) << names[i];
    } else if (w.isFloat()) {
      ASSERT_TRUE(result.isFloat()) << names[i];
      EXPECT_EQ(result.real(), w.real()) << names[i];
    } else {
      ASSERT_TRUE(result.isInteger()) << names[i];
      EXPECT_EQ(result.integer(), w.integer()) << names[i];
    }
  }
  EXPECT_EQ(host_->liveValues(), 0u);
}

TEST_F(AllMethods, WrongTypesInEveryPositionAreRefusedByTheHost) {
  for (const std::string& name : methodNames()) {
    const host::MethodInfo* method = host_->findMethod(name);
    std::vector<Value> args = declaredArguments(*method);
    for (size_t k = 0; k < args.size(); ++k) {
      std::vector<Value> bad = args;
      bool wantsString = bad[k].isString();
      bad[k] = wantsString ? Value(3.5) : Value("text");
      Value result;
      moa::MoaError err = host_->callMethod(*method, bad, result);
      EXPECT_EQ(err, wantsString ? moa::kMoaMmErr_StringExpected : moa::kMoaMmErr_IntegerExpected)
          << name << " argument " << k + 1;
      EXPECT_TRUE(result.isVoid()) << name;
    }
  }
  EXPECT_EQ(host_->liveValues(), 0u);
}

TEST_F(AllMethods, SelectorsOutsideTheTableSucceedWithVoid) {
  for (int32_t selector : {0, -1, -100, 102, 1000}) {
    Value result = Value(int32_t{77});
    EXPECT_EQ(host_->callSelector("Tessel", selector, {}, result), moa::kMoaErr_NoErr)
        << selector;
    EXPECT_TRUE(result.isVoid()) << selector;
  }
}

TEST_F(AllMethods, ReturnUnixNamesKeepsOnlyTheLowEightBits) {
  for (auto [on, expectUnix] : {std::pair{1, true}, {256, false}, {257, true}, {0, false}}) {
    EXPECT_TRUE(call("tsReturnUnixNames", {Value(int32_t(on))}).isVoid());
    std::string boot = text("tsSysFolder", {Value("boot")});
    EXPECT_EQ(boot == "/", expectUnix) << on << " gave " << boot;
  }
}

TEST_F(AllMethods, ListResultsAreListsOfStringsEvenWhenEmpty) {
  Value disks = call("tsDiskList");
  ASSERT_TRUE(disks.isList());
  ASSERT_FALSE(disks.listPtr()->items.empty());
  for (const Value& d : disks.listPtr()->items) {
    ASSERT_TRUE(d.isString());
    EXPECT_EQ(d.string().back(), ':');
  }
  Value windows = call("tsWindowList", {Value(""), Value(""), Value(0)});
  ASSERT_TRUE(windows.isList());
}

}  // namespace
}  // namespace tessel::testing
