// The host with a real module: HostTest (tests/host/xtra), loaded from build/test-xtras.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "host/host.h"
#include "host/module.h"
#include "host/services.h"

using namespace moa;
using namespace tessel::host;
namespace fs = std::filesystem;

namespace {

// The test module's own hooks, reached through its already-loaded image.
struct Hooks {
  explicit Hooks(const std::string& path) {
    handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  }
  ~Hooks() {
    if (handle != nullptr) dlclose(handle);
  }
  template <class F>
  F get(const char* name) const {
    void* p = handle != nullptr ? dlsym(handle, name) : nullptr;
    F f = nullptr;
    std::memcpy(&f, &p, sizeof f);
    return f;
  }
  int32_t call(const char* name) const { return get<int32_t (*)()>(name)(); }
  void* handle;
};

class FakeMovie : public Movie {
 public:
  MoaError callHandler(const std::string& name, const std::vector<Value>& args,
                       Value& result) override {
    last = name;
    lastArgs = args;
    if (equalsIgnoringCase(name, "double") && args.size() == 1 && args[0].isInteger()) {
      result = Value(args[0].integer() * 2);
      return 0;
    }
    if (equalsIgnoringCase(name, "greet")) {
      result = Value::list({Value("hi"), Value::symbol("there")});
      return 0;
    }
    return kMoaDrErr_HandlerNotDefined;
  }
  std::string moviePath() const override { return path; }
  std::string last;
  std::vector<Value> lastArgs;
  std::string path;
};

class TempDir {
 public:
  TempDir() {
    path = fs::temp_directory_path() /
           ("tessel-host-" + std::to_string(getpid()) + "-" + std::to_string(counter++));
    fs::create_directories(path);
  }
  ~TempDir() { fs::remove_all(path); }
  fs::path path;
  static inline int counter = 0;
};

TEST(Module, ClassListAndInstances) {
  std::string error;
  auto m = Module::open(HOST_TEST_XTRA_PATH, &error);
  ASSERT_TRUE(m) << error;
  Hooks hooks(HOST_TEST_XTRA_PATH);
  auto* scriptClass = hooks.get<const MoaClassID* (*)()>("HostTestXtra_ScriptClass")();
  auto* toolClass = hooks.get<const MoaClassID* (*)()>("HostTestXtra_ToolClass")();

  // (The raw list's bytes are the boundary tests' business, on the real module.)
  Allocator calloc;
  std::vector<MoaClassInterfaceInfo> list;
  ASSERT_EQ(m->classList(calloc, list), 0);
  ASSERT_EQ(list.size(), 5u);
  EXPECT_TRUE(equalID(list[3].classID, *toolClass));
  EXPECT_EQ(list[3].interfaceVersion, 1);
  EXPECT_EQ(calloc.liveBlocks(), 0u);  // the host gave the list back
  calloc.failNextAllocations(1);
  EXPECT_EQ(m->classList(calloc, list), kMoaErr_OutOfMem);

  // An instance with a host's callback: its last release runs the destroy proc and frees the
  // block and the services.
  Host host;
  HostServices& s = services(host);
  MoaObjectHeader* obj = nullptr;
  ASSERT_EQ(m->createInstance(*scriptClass, &s.callback, &s.calloc, &obj), 0);
  EXPECT_EQ(obj->pCallback, &s.callback);
  EXPECT_TRUE(equalID(*obj->pClassID, *scriptClass));
  EXPECT_EQ(m->liveInstances(), 1u);
  int destroyedBefore = hooks.call("HostTestXtra_Destroyed");
  obj->Release();
  EXPECT_EQ(hooks.call("HostTestXtra_Destroyed"), destroyedBefore + 1);
  EXPECT_EQ(m->liveInstances(), 0u);
  EXPECT_EQ(m->canUnloadNow(), 0);
  EXPECT_EQ(host.serviceReferences(), 0u);
  EXPECT_EQ(s.calloc.liveBlocks(), 0u);

  // A failing constructor (no memory for the instance) never reaches the destructor.
  s.calloc.failNextAllocations(1);
  EXPECT_EQ(m->createInstance(*scriptClass, &s.callback, &s.calloc, &obj), kMoaErr_OutOfMem);
  EXPECT_EQ(obj, nullptr);
}

TEST(Module, RefusesLibrariesThatAreNoModules) {
  std::string error;
  EXPECT_FALSE(Module::open(HOST_TEST_NOENTRY_PATH, &error));
  EXPECT_NE(error.find("ppcSetFileRef"), std::string::npos) << error;
  EXPECT_FALSE(Module::open("/nonexistent/X.so", &error));
  EXPECT_FALSE(error.empty());

  TempDir dir;
  std::ofstream(dir.path / "Fake.so") << "not a library";
  fs::copy_file(HOST_TEST_NOENTRY_PATH, dir.path / "NoEntry.so");
  fs::copy_file(HOST_TEST_XTRA_PATH, dir.path / "Good.xtra");
  std::ofstream(dir.path / "readme.txt") << "ignored";
  Host host;
  EXPECT_EQ(host.loadXtras(dir.path.string()), 1);
  ASSERT_EQ(host.diagnostics().size(), 2u);
  EXPECT_NE(host.diagnostics()[0].find("Fake.so"), std::string::npos);  // sorted by name
  EXPECT_NE(host.diagnostics()[1].find("not a MOA module"), std::string::npos);
  EXPECT_EQ(host.loadedModules().size(), 1u);
  EXPECT_FALSE(host.loadModule((dir.path / "Good.xtra").string()));  // already loaded
  EXPECT_EQ(host.loadXtras((dir.path / "missing").string()), 0);
}

class HostWithXtra : public ::testing::Test {
 protected:
  void SetUp() override {
    host.setMovie(&movie);
    ASSERT_EQ(host.loadXtras(HOST_TEST_XTRAS_DIR), 1) << diagnostics();
  }
  std::string diagnostics() const {
    std::string all;
    for (const auto& d : host.diagnostics()) all += d + "\n";
    return all;
  }
  MoaError call(const std::string& name, std::vector<Value> args, Value& result) {
    MoaError err = host.callMethod(name, args, result);
    EXPECT_EQ(host.liveValues(), 0u) << name << " leaked values";
    EXPECT_EQ(host.outstandingStringBorrows(), 0u) << name;
    return err;
  }

  Host host;
  FakeMovie movie;
};

TEST_F(HostWithXtra, RegistersTheMethodTableAndTool) {
  EXPECT_EQ(host.xtraNames(), std::vector<std::string>{"HostTest"});
  auto text = host.messageTable("hosttest");
  ASSERT_TRUE(text);
  EXPECT_EQ(text->rfind("xtra HostTest\nnew object me\n", 0), 0u);
  const MethodInfo* concat = host.findMethod("HTCONCAT");
  ASSERT_NE(concat, nullptr);
  EXPECT_EQ(concat->selector, 3);
  EXPECT_EQ(concat->comment, "joins two strings");
  EXPECT_EQ(host.findMethod("htParent"), nullptr);  // not global
  EXPECT_EQ(host.findMethod("new"), nullptr);
  ASSERT_EQ(host.tools().size(), 1u);
  EXPECT_EQ(host.tools()[0].displayName, "Host Test Tool");
  EXPECT_EQ(host.tools()[0].category, "Testing");
  EXPECT_FALSE(host.tools()[0].alwaysEnabled);

  Hooks hooks(HOST_TEST_XTRA_PATH);
  auto* ref = static_cast<const char*>(hooks.get<void* (*)()>("HostTestXtra_FileRef")());
  ASSERT_NE(ref, nullptr);  // the host handed over its file record
  EXPECT_EQ(hooks.call("HostTestXtra_LiveObjects"), 0);  // registration released everything
  EXPECT_EQ(host.serviceReferences(), 0u);
}

TEST_F(HostWithXtra, CallsConvertArgumentsAndResults) {
  Value r;
  EXPECT_EQ(call("htAdd", {Value(2), Value(40)}, r), 0);
  EXPECT_EQ(r.integer(), 42);
  EXPECT_EQ(call("htConcat", {Value("ab"), Value("cd")}, r), 0);
  EXPECT_EQ(r.string(), "abcd");
  EXPECT_EQ(call("htHalf", {Value(5)}, r), 0);  // an integer is accepted as a float
  EXPECT_EQ(r.real(), 2.5);
  EXPECT_EQ(call("htSymbolName", {Value::symbol("Hello")}, r), 0);
  EXPECT_EQ(r.string(), "Hello");
  EXPECT_EQ(call("htRange", {Value(3)}, r), 0);
  ASSERT_TRUE(r.isList());
  ASSERT_EQ(r.listPtr()->items.size(), 3u);
  EXPECT_EQ(r.listPtr()->items[2].integer(), 3);
  EXPECT_EQ(call("htRange", {Value(0)}, r), 0);
  EXPECT_TRUE(r.isList());
  EXPECT_TRUE(r.listPtr()->items.empty());
  EXPECT_EQ(call("htProps", {Value("Ann"), Value(30)}, r), 0);
  ASSERT_TRUE(r.isPropList());
  EXPECT_EQ(r.propListPtr()->items[0].first.sym().name, "name");
  EXPECT_EQ(r.propListPtr()->items[1].second.integer(), 30);
  EXPECT_EQ(call("htSum", {Value::list({Value(1), Value(2), Value(3)})}, r), 0);
  EXPECT_EQ(r.integer(), 6);
  Value nested = Value::list({Value("x"), Value::list({Value(1.5)}), Value::propList()});
  EXPECT_EQ(call("htEcho", {nested}, r), 0);
  ASSERT_TRUE(r.isList());
  EXPECT_EQ(r.listPtr()->items[1].listPtr()->items[0].real(), 1.5);
  EXPECT_EQ(call("htEcho", {}, r), 0);  // a missing argument reads as VOID
  EXPECT_TRUE(r.isVoid());
  EXPECT_EQ(call("htArgCount", {Value(1), Value(2), Value(3)}, r), 0);
  EXPECT_EQ(r.integer(), 3);
  EXPECT_EQ(call("htArgCount", {}, r), 0);
  EXPECT_EQ(r.integer(), 0);
  // A parent method: its declared object comes first, then the caller's arguments.
  MethodInfo parent{"HostTest", "htParent", 13, '+', {{"object", "xt"}, {"integer", "N"}}, ""};
  EXPECT_EQ(host.callMethod(parent, {Value(12)}, r), 0);
  EXPECT_EQ(r.integer(), 12);
  EXPECT_EQ(host.callSelector("HostTest", 13, {Value(), Value(13)}, r), 0);
  EXPECT_EQ(r.integer(), 13);
  EXPECT_EQ(host.callSelector("HostTest", 99, {}, r), kMoaMmErr_ArgOutOfRange);
  EXPECT_EQ(host.liveValues(), 0u);
}

// Every kind of argument against every kind a method reads: the value service's code comes back
// as the call's error, with no result. An integer is accepted as a float; nothing else converts.
TEST_F(HostWithXtra, WrongTypesComeBackAsTheHostsCodes) {
  const Value given[] = {Value(3), Value(2.5), Value("x"), Value::symbol("s"), Value::list({})};
  struct Reader {
    const char* method;  // reads its first argument as one kind
    Value second;        // what its second argument is, when it takes one
    MoaError codes[5];   // for each of `given` as the first
  };
  const MoaError ok = kMoaErr_NoErr;
  const Reader readers[] = {
      {"htAdd", Value(1), {ok, kMoaMmErr_IntegerExpected, kMoaMmErr_IntegerExpected,
                    kMoaMmErr_IntegerExpected, kMoaMmErr_IntegerExpected}},
      {"htHalf", Value(), {ok, ok, kMoaMmErr_FloatExpected, kMoaMmErr_FloatExpected,
                  kMoaMmErr_FloatExpected}},
      {"htConcat", Value("b"), {kMoaMmErr_StringExpected, kMoaMmErr_StringExpected, ok,
                    kMoaMmErr_StringExpected, kMoaMmErr_StringExpected}},
      {"htSymbolName", Value(), {kMoaMmErr_SymbolExpected, kMoaMmErr_SymbolExpected,
                        kMoaMmErr_SymbolExpected, ok, kMoaMmErr_SymbolExpected}},
      {"htSum", Value(), {kMoaMmErr_ValueTypeMismatch, kMoaMmErr_ValueTypeMismatch,
                 kMoaMmErr_ValueTypeMismatch, kMoaMmErr_ValueTypeMismatch, ok}},
  };
  for (const Reader& reader : readers)
    for (size_t k = 0; k < std::size(given); ++k) {
      Value r = Value(1);
      std::vector<Value> args = {given[k]};
      if (!reader.second.isVoid()) args.push_back(reader.second);
      EXPECT_EQ(call(reader.method, args, r), reader.codes[k]) << reader.method << " " << k;
      if (reader.codes[k] != ok) {
        EXPECT_TRUE(r.isVoid()) << reader.method << " " << k;
      }
    }
  Value r;
  EXPECT_EQ(call("htSum", {Value::list({Value("no")})}, r), kMoaMmErr_IntegerExpected);
  EXPECT_EQ(call("htNothing", {}, r), kMoaMmErr_FunctionNotFound);
  EXPECT_EQ(describeError(kMoaMmErr_StringExpected), "string expected");
  EXPECT_EQ(describeError(static_cast<MoaError>(0x80041234)), "error 0x80041234");
}

TEST_F(HostWithXtra, CallsBackIntoTheMovie) {
  Value r;
  EXPECT_EQ(call("htCallMovie", {Value("double"), Value(21)}, r), 0);
  EXPECT_EQ(movie.last, "double");
  EXPECT_EQ(r.integer(), 42);
  EXPECT_EQ(call("htCallMovie", {Value("greet")}, r), 0);
  EXPECT_TRUE(movie.lastArgs.empty());
  ASSERT_TRUE(r.isList());
  EXPECT_EQ(r.listPtr()->items[1].sym().name, "there");
  EXPECT_EQ(call("htCallMovie", {Value("nothing"), Value(1)}, r), kMoaDrErr_HandlerNotDefined);
  host.setMovie(nullptr);
  EXPECT_EQ(call("htCallMovie", {Value("double"), Value(1)}, r), kMoaDrErr_MovieNotOpen);

  TempDir dir;
  std::ofstream(dir.path / "data.txt") << "x";
  movie.path = dir.path.string() + "/";
  host.setMovie(&movie);
  EXPECT_EQ(call("htResolve", {Value("@/data.txt")}, r), 0);
  EXPECT_EQ(r.string(), (dir.path / "data.txt").string());
  EXPECT_EQ(call("htResolve", {Value("@")}, r), 0);
  EXPECT_EQ(r.integer(), kMoaErr_FileNotFound);
  EXPECT_EQ(host.serviceReferences(), 4u + 1u);  // the instance's services, and the player
}

TEST_F(HostWithXtra, ToolsAskWhetherTheyAreEnabled) {
  Hooks hooks(HOST_TEST_XTRA_PATH);
  int before = hooks.call("HostTestXtra_ToolInvocations");
  EXPECT_EQ(host.invokeTool("host test tool"), 0);
  EXPECT_EQ(hooks.call("HostTestXtra_ToolInvocations"), before + 1);
  hooks.get<void (*)(int32_t)>("HostTestXtra_SetToolEnabled")(0);
  EXPECT_EQ(host.invokeTool("Host Test Tool"), kMoaMmErr_ToolDisabled);
  hooks.get<void (*)(int32_t)>("HostTestXtra_SetToolEnabled")(1);
  EXPECT_EQ(hooks.call("HostTestXtra_ToolInvocations"), before + 1);
  EXPECT_EQ(host.invokeTool("Other"), kMoaMmErr_FunctionNotFound);
  EXPECT_EQ(hooks.call("HostTestXtra_LiveObjects"), 0);
}

TEST_F(HostWithXtra, UnloadWaitsForTheModuleToAllowIt) {
  Hooks hooks(HOST_TEST_XTRA_PATH);
  Value r;
  EXPECT_EQ(call("htAdd", {Value(1), Value(1)}, r), 0);  // makes the shared instance
  int created = hooks.call("HostTestXtra_Created");
  int destroyed = hooks.call("HostTestXtra_Destroyed");
  EXPECT_EQ(call("htHold", {}, r), 0);  // the Xtra keeps an interface object of its own
  EXPECT_EQ(hooks.call("HostTestXtra_Created"), created);  // the shared instance was reused

  EXPECT_FALSE(host.unloadAll());
  EXPECT_NE(diagnostics().find("still in use"), std::string::npos);
  EXPECT_EQ(host.loadedModules().size(), 1u);
  EXPECT_TRUE(host.xtraNames().empty());
  EXPECT_EQ(hooks.call("HostTestXtra_Destroyed"), destroyed);  // held through the interface

  hooks.get<void (*)()>("HostTestXtra_ReleaseHeld")();
  EXPECT_EQ(hooks.call("HostTestXtra_Destroyed"), destroyed + 1);
  EXPECT_EQ(host.serviceReferences(), 0u);
  EXPECT_TRUE(host.unloadAll());
  EXPECT_TRUE(host.loadedModules().empty());
  EXPECT_EQ(services(host).calloc.liveBlocks(), 0u);
}

}  // namespace
