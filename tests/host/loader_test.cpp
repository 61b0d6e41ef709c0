// The host with a real module: HostTest (tests/host/xtra), loaded from build/test-xtras.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>

#include "host/host.h"
#include "host/module.h"
#include "host/services.h"
#include "tests/unit/scratch_folder.h"

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

// (The class list's bytes and an instance's life are the boundary tests', on the real module;
// the list read and given back, every load here: HostWithXtra registers its classes and
// UnloadWaitsForTheModuleToAllowIt finds no block left.)
TEST(Module, ClassListAndConstructorWithoutMemory) {
  std::string error;
  auto m = Module::open(HOST_TEST_XTRA_PATH, &error);
  ASSERT_TRUE(m) << error;
  Allocator calloc;
  std::vector<MoaClassInterfaceInfo> list;
  calloc.failNextAllocations(1);
  EXPECT_EQ(m->classList(calloc, list), kMoaErr_OutOfMem);

  // A failing constructor (no memory for the instance) never reaches the destructor.
  Hooks hooks(HOST_TEST_XTRA_PATH);
  auto* scriptClass = hooks.get<const MoaClassID* (*)()>("HostTestXtra_ScriptClass")();
  int destroyed = hooks.call("HostTestXtra_Destroyed");
  Host host;
  HostServices& s = services(host);
  MoaObjectHeader* obj = nullptr;
  s.calloc.failNextAllocations(1);
  EXPECT_EQ(m->createInstance(*scriptClass, &s.callback, &s.calloc, &obj), kMoaErr_OutOfMem);
  EXPECT_EQ(obj, nullptr);
  EXPECT_EQ(hooks.call("HostTestXtra_Destroyed"), destroyed);
  EXPECT_EQ(m->liveInstances(), 0u);
}

TEST(Module, RefusesLibrariesThatAreNoModules) {
  std::string error;
  EXPECT_FALSE(Module::open(HOST_TEST_NOENTRY_PATH, &error));
  EXPECT_NE(error.find("ppcSetFileRef"), std::string::npos) << error;
  EXPECT_FALSE(Module::open("/nonexistent/X.so", &error));
  EXPECT_FALSE(error.empty());

  tessel::testing::ScratchFolder dir;
  dir.file("Fake.so", "not a library");
  fs::copy_file(HOST_TEST_NOENTRY_PATH, dir.path() + "/NoEntry.so");
  fs::copy_file(HOST_TEST_XTRA_PATH, dir.path() + "/Good.xtra");
  dir.file("readme.txt", "ignored");
  Host host;
  EXPECT_EQ(host.loadXtras(dir.path()), 1);
  ASSERT_EQ(host.diagnostics().size(), 2u);
  EXPECT_NE(host.diagnostics()[0].find("Fake.so"), std::string::npos);  // sorted by name
  EXPECT_NE(host.diagnostics()[1].find("not a MOA module"), std::string::npos);
  EXPECT_EQ(host.loadedModules().size(), 1u);
  EXPECT_FALSE(host.loadModule(dir.path() + "/Good.xtra"));  // already loaded
  EXPECT_EQ(host.loadXtras(dir.path() + "/missing"), 0);
}

class HostWithXtra : public ::testing::Test {
 protected:
  void SetUp() override {
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
};

TEST_F(HostWithXtra, RegistersTheMethodTableAndTool) {
  EXPECT_EQ(host.xtraNames(), std::vector<std::string>{"HostTest"});
  auto text = host.messageTable("hosttest");
  ASSERT_TRUE(text);
  EXPECT_EQ(text->rfind("xtra HostTest\nnew object me\n", 0), 0u);
  const MethodInfo* half = host.findMethod("HTHALF");
  ASSERT_NE(half, nullptr);
  EXPECT_EQ(half->selector, 2);
  EXPECT_EQ(half->comment, "returns X / 2");
  EXPECT_EQ(host.findMethod("htParent"), nullptr);  // not global
  EXPECT_EQ(host.findMethod("new"), nullptr);
  ASSERT_EQ(host.tools().size(), 1u);
  EXPECT_EQ(host.tools()[0].category, "Testing");  // (its name: ToolsAskWhetherTheyAreEnabled)
  EXPECT_FALSE(host.tools()[0].alwaysEnabled);

  Hooks hooks(HOST_TEST_XTRA_PATH);
  auto* ref = static_cast<const char*>(hooks.get<void* (*)()>("HostTestXtra_FileRef")());
  ASSERT_NE(ref, nullptr);  // the host handed over its file record
  EXPECT_EQ(hooks.call("HostTestXtra_LiveObjects"), 0);  // registration released everything
  EXPECT_EQ(host.serviceReferences(), 0u);
}

// Integers, strings and lists as the real module reads and makes them are the boundary tests'.
TEST_F(HostWithXtra, CallsConvertArgumentsAndResults) {
  Value r;
  EXPECT_EQ(call("htHalf", {Value(5)}, r), 0);  // an integer is accepted as a float
  EXPECT_EQ(r.real(), 2.5);
  EXPECT_EQ(call("htSymbolName", {Value::symbol("Hello")}, r), 0);
  EXPECT_EQ(r.string(), "Hello");
  Value nested = Value::list({Value("x"), Value::list({Value(1.5)}), Value::propList()});
  EXPECT_EQ(call("htEcho", {nested}, r), 0);
  ASSERT_TRUE(r.isList());
  EXPECT_EQ(r.listPtr()->items[1].listPtr()->items[0].real(), 1.5);
  EXPECT_TRUE(r.listPtr()->items[2].isPropList());
  EXPECT_EQ(call("htEcho", {}, r), 0);  // a missing argument reads as VOID
  EXPECT_TRUE(r.isVoid());
  EXPECT_EQ(call("htArgCount", {Value(1), Value(2), Value(3)}, r), 0);
  EXPECT_EQ(r.integer(), 3);
  EXPECT_EQ(call("htArgCount", {}, r), 0);
  EXPECT_EQ(r.integer(), 0);
  // A parent method: its declared object comes first, then the caller's arguments.
  MethodInfo parent{"HostTest", "htParent", 6, '+', {{"object", "xt"}, {"integer", "N"}}, ""};
  EXPECT_EQ(host.callMethod(parent, {Value(12)}, r), 0);
  EXPECT_EQ(r.integer(), 12);
  EXPECT_EQ(host.callSelector("HostTest", 6, {Value(), Value(13)}, r), 0);
  EXPECT_EQ(r.integer(), 13);
  EXPECT_EQ(host.callSelector("HostTest", 99, {}, r), kMoaMmErr_ArgOutOfRange);
  EXPECT_EQ(host.liveValues(), 0u);
}

// Every kind of argument against the float and symbol readers (the integer and string readers
// are all_methods_test's, on the real module): the value service's code comes back as the call's
// error, with no result. An integer is accepted as a float; nothing else converts.
TEST_F(HostWithXtra, WrongTypesComeBackAsTheHostsCodes) {
  const Value given[] = {Value(3), Value(2.5), Value("x"), Value::symbol("s"), Value::list({})};
  const MoaError ok = kMoaErr_NoErr;
  const std::pair<const char*, std::array<MoaError, 5>> readers[] = {
      {"htHalf", {ok, ok, kMoaMmErr_FloatExpected, kMoaMmErr_FloatExpected,
                  kMoaMmErr_FloatExpected}},
      {"htSymbolName", {kMoaMmErr_SymbolExpected, kMoaMmErr_SymbolExpected,
                        kMoaMmErr_SymbolExpected, ok, kMoaMmErr_SymbolExpected}},
  };
  for (const auto& [method, codes] : readers)
    for (size_t k = 0; k < std::size(given); ++k) {
      Value r = Value(1);
      EXPECT_EQ(call(method, {given[k]}, r), codes[k]) << method << " " << k;
      if (codes[k] != ok) {
        EXPECT_TRUE(r.isVoid()) << method << " " << k;
      }
    }
  Value r;
  EXPECT_EQ(call("htNothing", {}, r), kMoaMmErr_FunctionNotFound);
  EXPECT_EQ(describeError(kMoaMmErr_StringExpected), "string expected");
  EXPECT_EQ(describeError(static_cast<MoaError>(0x80041234)), "error 0x80041234");
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
  EXPECT_EQ(call("htArgCount", {}, r), 0);  // makes the shared instance
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
