// The interpreter as the host and the runner see it: external functions, call-backs through the
// Movie interface, value(), the API for calling handlers and evaluating expressions.
#include <gtest/gtest.h>

#include <pthread.h>

#include <memory>
#include <string>
#include <vector>

#include "host/lingo/interpreter.h"
#include "host/lingo/values.h"
#include "tests/lingo/lingo_test_util.h"

namespace tessel::lingo {
namespace {

using testing::runIn;

// Stands in for the MOA host's global Xtra methods. fakeProgress behaves like a progress copy:
// it calls the movie's tsCopyProgressUpdate handler through host::Movie until a call fails.
// (The real module's call-backs, a handler's answer and "the moviePath" behind "@", are the
// reference's examples, through the message window.)
class FakeExternals : public Externals {
 public:
  host::Movie* movie = nullptr;
  std::vector<moa::MoaError> callbackCodes;
  int lookups = 0;

  int lookup(const std::string& name) override {
    ++lookups;
    for (size_t i = 0; i < names_.size(); ++i) {
      if (equalNoCase(name, names_[i])) return static_cast<int>(i);
    }
    return -1;
  }

  bool call(int id, const std::vector<Value>& args, Value& result, std::string& error) override {
    const std::string& name = names_[static_cast<size_t>(id)];
    if (name == "fakeAdd") {
      if (args.size() != 2 || !args[0].isInteger() || !args[1].isInteger()) {
        error = "fakeAdd: integer expected";
        return false;
      }
      result = Value(args[0].integer() + args[1].integer());
      return true;
    }
    if (name == "fakeFail") {
      error = "fakeFail: string expected";
      return false;
    }
    if (name == "fakeProgress") {
      for (int32_t percent : {25, 50, 75, 100}) {
        Value answer;
        moa::MoaError err = movie->callHandler("tsCopyProgressUpdate",
                                               {Value(percent), Value("file.txt")}, answer);
        callbackCodes.push_back(err);
        if (err != moa::kMoaErr_NoErr) break;
      }
      result = Value(int32_t{0});
      return true;
    }
    if (name == "fakeList") {
      result = Value::list({Value("a"), Value("b")});
      return true;
    }
    return false;
  }

  std::optional<std::string> interfaceText(const std::string& xtraName) override {
    if (equalNoCase(xtraName, "Fake")) return std::string("xtra Fake\n* fakeAdd integer a, integer b\n");
    return std::nullopt;
  }

 private:
  std::vector<std::string> names_ = {"fakeAdd", "fakeFail", "fakeProgress", "fakeList"};
};

class LingoEmbedding : public ::testing::Test {
 protected:
  void SetUp() override {
    fake.movie = &lingo;
    lingo.setExternals(&fake);
    lingo.environment().moviePath = "/movies/demo/";
    lingo.setErrorOutput([this](const std::string& text) { errors.push_back(text); });
  }
  std::string run(const std::string& source) { return runIn(lingo, source); }

  FakeExternals fake;
  Interpreter lingo;
  std::vector<std::string> errors;
};

TEST_F(LingoEmbedding, ExternalFunctionsAreCalledByName) {
  EXPECT_EQ(run("put fakeAdd(2, 3), FAKEADD(1, 1)\n"
                "fakeAdd 4, 5\n"
                "put fakeList()\n"
                "put interface(xtra \"fake\")\n"
                "put xtra(\"Fake\").interface() = interface(\"FAKE\")\n"),
            "-- 5 2\n-- [\"a\", \"b\"]\n-- \"xtra Fake\n* fakeAdd integer a, integer b\n\"\n-- 1\n");
  // A failed call (the host refused an argument) is a script error with the host's text.
  EXPECT_EQ(run("put 1\nput fakeAdd(\"2\", 3)\nput 2\n"),
            "-- 1\nerror: 2: fakeAdd: integer expected\n");
  EXPECT_EQ(run("fakeFail()"), "error: 1: fakeFail: string expected\n");
  EXPECT_EQ(run("put interface(xtra \"Nope\")"), "error: 1: Xtra not found: Nope\n");
  // Call sites remember what a name resolved to.
  int before = fake.lookups;
  EXPECT_EQ(run("repeat with i = 1 to 50\n  x = fakeAdd(i, 1)\nend repeat\nput x\n"), "-- 51\n");
  EXPECT_EQ(fake.lookups - before, 1);
}

TEST_F(LingoEmbedding, ErrorInsideACallBackStopsTheScript) {
  EXPECT_EQ(run("on tsCopyProgressUpdate value, fileName\n"
                "  return value / 0\n"
                "end\n"
                "put \"before\"\n"
                "put fakeProgress()\n"
                "put \"never\"\n"),
            "-- \"before\"\nerror: 2 in handler tsCopyProgressUpdate: Division by zero\n");
  // The Xtra saw the failure once and was not called back again.
  EXPECT_EQ(fake.callbackCodes, (std::vector<moa::MoaError>{moa::kMoaMmErr_InternalError}));
  EXPECT_TRUE(errors.empty());
  // Without a handler the call-back reports it as not defined and the Xtra goes on.
  Interpreter bare;
  FakeExternals other;
  other.movie = &bare;
  bare.setExternals(&other);
  EXPECT_EQ(runIn(bare, "put fakeProgress()\n"), "-- 0\n");
  EXPECT_EQ(other.callbackCodes, (std::vector<moa::MoaError>{moa::kMoaDrErr_HandlerNotDefined}));
}

// A handler that fails when no script runs reports to the error output, and the interpreter
// stays usable. (A missing handler's code and a failing one inside a script are
// ErrorInsideACallBackStopsTheScript's; the moviePath ValueEvaluatesInTheGlobalScope's.)
TEST_F(LingoEmbedding, MovieInterfaceOutsideAScript) {
  ASSERT_EQ(run("on triple n\n  return n * 3\nend\non bad\n  return 1 + #x\nend\n"), "");
  host::Movie& movie = lingo;
  Value result;
  EXPECT_EQ(movie.callHandler("bad", {}, result), moa::kMoaMmErr_InternalError);
  EXPECT_EQ(errors, (std::vector<std::string>{"5 in handler bad: Number expected, found #x"}));
  EXPECT_EQ(movie.callHandler("TRIPLE", {Value(int32_t{1})}, result), moa::kMoaErr_NoErr);
  EXPECT_EQ(result.integer(), 3);
}

// (An expression and text that does not parse: tests/scripts/lingo_basics.ls.)
TEST_F(LingoEmbedding, ValueEvaluatesInTheGlobalScope) {
  EXPECT_EQ(run("g = 5\n"
                "on helper n\n  return n + 1\nend\n"
                "on readLocal\n  g = 100\n  return value(\"g\")\nend\n"
                "put value(\"[1, #a, \" & QUOTE & \"s\" & QUOTE & \"]\"), value(\"helper(g)\")\n"
                "put value(\"\"), value(\"unknownName\"), value(7), value(#s)\n"
                "put readLocal()\n"
                "put value(\"the moviePath\")\n"),
            "-- [1, #a, \"s\"] 6\n-- <Void> <Void> 7 #s\n-- 5\n-- \"/movies/demo/\"\n");
}

TEST_F(LingoEmbedding, CallHandlerAndCompiledExpressions) {
  ASSERT_TRUE(lingo.run("on addUp a, b\n  return a + b\nend\ncounter = 0\n").ok);
  Outcome r = lingo.callHandler("addUp", {Value(int32_t{2}), Value(0.5)});
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value.real(), 2.5);
  r = lingo.callHandler("count", {Value::list({Value(int32_t{1})})});
  EXPECT_EQ(r.value.integer(), 1);
  r = lingo.callHandler("fakeAdd", {Value(int32_t{1}), Value(int32_t{2})});
  EXPECT_EQ(r.value.integer(), 3);
  r = lingo.callHandler("missing", {});
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.message, "Handler not defined: missing");
  r = lingo.callHandler("addUp", {Value("x"), Value(int32_t{1})});
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.errorText(), "2 in handler addUp: Number expected, found \"x\"");

  std::string error;
  auto bump = lingo.compile("addUp(counter, 1)", &error);
  ASSERT_NE(bump, nullptr) << error;
  for (int i = 0; i < 3; ++i) lingo.setGlobal("counter", lingo.evaluate(*bump).value);
  EXPECT_EQ(lingo.global("COUNTER").integer(), 3);
  EXPECT_EQ(lingo.compile("addUp(", &error), nullptr);
  EXPECT_EQ(error, "1: Unexpected end of script");
  EXPECT_FALSE(lingo.evaluate("1 + ").ok);  // (an expression's value: LingoLifetime's)

  Interpreter other;
  EXPECT_FALSE(other.evaluate(*bump).ok);
  EXPECT_TRUE(lingo.hasHandler("ADDUP"));
  EXPECT_FALSE(lingo.hasHandler("sub"));
}

TEST_F(LingoEmbedding, RedefinedHandlersReplaceTheOldOnes) {
  ASSERT_EQ(run("on f\n  return 1\nend\non g\n  return f()\nend\nput g()\n"), "-- 1\n");
  EXPECT_EQ(run("on f\n  return 2\nend\nput g()\n"), "-- 2\n");
}

TEST(LingoMultiLineInput, CompleteOnlyWhenEveryBlockIsClosed) {
  const std::pair<const char*, bool> rows[] = {
      {"on foo\n", true}, {"on foo\n  if x then\n    put 1\n  end if\n", true},
      {"if x then\n", true}, {"repeat while 1\n  put 1\n", true},
      {"repeat while 1\n  put [1,\n", false},  // lists end on their line
      {"case x of\n  1: put 1\n", true}, {"on foo\nend\n", false},
      {"put 1 +\n", false},  // a plain error
      {"if x then put 1\n", false}, {"on foo\n  put )\n", false},
  };
  for (const auto& [text, more] : rows) EXPECT_EQ(Interpreter::needsMoreInput(text), more) << text;
}

TEST(LingoThreads, SmallStacksGetAStackOverflowErrorNotACrash) {
  std::string out;
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 256 << 10);
  struct Job {
    std::string* out;
  } job{&out};
  pthread_t thread;
  auto body = [](void* arg) -> void* {
    auto* j = static_cast<Job*>(arg);
    *j->out = testing::run("on down n\n  return down(n + 1)\nend\nput down(1)\nput \"ok\"\n") +
              testing::run("put 1 + 1\n");
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attr, body, &job), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
  EXPECT_EQ(out, "error: 2 in handler down: Stack overflow\n-- 2\n");
}

TEST(LingoLifetime, ListsOutliveTheInterpreterUnlessOnlyCyclesHoldThem) {
  Value kept;
  Value keptCycle;
  {
    Interpreter in;
    ASSERT_TRUE(in.run("a = [1]\nappend(a, a)\nb = [#self: 0]\nb[#self] = b\n").ok);
    kept = in.evaluate("[1, [2, 3]]").value;
    keptCycle = in.evaluate("value(\"a\")").value;
    // Cyclic lists that only the interpreter held are freed with it (LeakSanitizer checks).
  }
  ASSERT_TRUE(kept.isList());
  EXPECT_EQ(literalText(kept, 100), "[1, [2, 3]]");
  ASSERT_TRUE(keptCycle.isList());
  EXPECT_EQ(keptCycle.listPtr()->items.size(), 2u);
  keptCycle.listPtr()->items.clear();  // the test's own cycle
}

}  // namespace
}  // namespace tessel::lingo
