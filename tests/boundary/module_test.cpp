// The module as a host meets it before any Lingo call: its exports, class list, class forms,
// interface objects, registration and the help tool.
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "host/module.h"
#include "host/services.h"
#include "tests/boundary/boundary_support.h"

namespace tessel::testing {
namespace {

using namespace moa;
using host::Allocator;
using host::Cache;
using host::Dict;
using host::HostServices;
using host::Module;

constexpr MoaID kScriptClass = makeID(0x7144B382, 0xE155, 0x11D6, 0x8525, 0x0056E435BF75);
constexpr MoaID kToolClass = makeID(0x79A867A2, 0xD3B7, 0x11D0, 0x911C, 0x444553540000);

std::unique_ptr<Module> openModule() {
  std::string error;
  auto m = Module::open(modulePath(), &error);
  EXPECT_TRUE(m) << error;
  return m;
}

uint32_t word(const unsigned char* record, int i) {
  uint32_t w;
  std::memcpy(&w, record + 4 * i, 4);
  return w;
}

TEST(Module, ExportsExactlyTheSixEntryPoints) {
  std::optional<std::string> symbols = run("nm -D --defined-only '" + modulePath() + "'");
  ASSERT_TRUE(symbols);
  std::set<std::string> names;
  std::istringstream lines(*symbols);
  for (std::string line; std::getline(lines, line);) names.insert(line.substr(line.find_last_of(' ') + 1));
  EXPECT_EQ(names, (std::set<std::string>{"DllGetClassObject", "DllCanUnloadNow",
                                          "DllGetClassInfo", "DllGetInterface",
                                          "DllGetClassForm", "ppcSetFileRef"}));
}

TEST(Module, ClassListIsFiveRecordsAndAZeroTerminator) {
  auto m = openModule();
  ASSERT_TRUE(m);
  Allocator calloc;
  MoaClassInterfaceInfo* raw = nullptr;
  ASSERT_EQ(m->getClassInfo(&calloc, &raw), 0);
  ASSERT_EQ(*calloc.blockSize(raw), 6 * 40u);
  const auto* bytes = reinterpret_cast<const unsigned char*>(raw);
  const MoaID* expected[5][2] = {{&kScriptClass, &IID_IMoaClassFactory},
                                 {&kScriptClass, &IID_IMoaRegister},
                                 {&kScriptClass, &IID_IMoaMmXScript},
                                 {&kToolClass, &IID_IMoaClassFactory},
                                 {&kToolClass, &IID_IMoaMmXTool}};
  for (int r = 0; r < 5; ++r) {
    const unsigned char* rec = bytes + 40 * r;
    EXPECT_EQ(std::memcmp(rec, expected[r][0], 16), 0) << r;
    EXPECT_EQ(word(rec, 4), 0x0A0104C0u) << r;
    EXPECT_EQ(std::memcmp(rec + 20, expected[r][1], 16), 0) << r;
    bool classRecord = expected[r][1] == &IID_IMoaClassFactory;
    EXPECT_EQ(word(rec, 9), classRecord ? 1u : 0x0A0104C0u) << r;
  }
  static const unsigned char zero[40] = {};
  EXPECT_EQ(std::memcmp(bytes + 200, zero, 40), 0);
  calloc.NRFree(raw);

  calloc.failNextAllocations(1);
  raw = nullptr;
  EXPECT_EQ(m->getClassInfo(&calloc, &raw), kMoaErr_OutOfMem);
  EXPECT_EQ(m->getClassObject(&kScriptClass, &IID_IMoaUnknown, nullptr), kMoaErr_BadClass);
}

TEST(Module, ClassFormsForKnownAndUnknownClasses) {
  auto m = openModule();
  ASSERT_TRUE(m);
  MoaLong size = -1;
  MoaCreateProc create = nullptr;
  MoaDestroyProc destroy = nullptr;
  ASSERT_EQ(m->getClassForm(&kToolClass, &size, &create, &destroy), 0);
  EXPECT_EQ(size, static_cast<MoaLong>(sizeof(MoaObjectHeader)));
  ASSERT_NE(create, nullptr);
  ASSERT_NE(destroy, nullptr);
  EXPECT_EQ(create(nullptr), 0);  // the help tool's constructor does nothing and succeeds

  ASSERT_EQ(m->getClassForm(&kScriptClass, &size, &create, &destroy), 0);
  // The header, one pointer for each of the nine services and two host extensions, and the
  // host-is-Director flag (padded to a pointer).
  EXPECT_EQ(size, static_cast<MoaLong>(sizeof(MoaObjectHeader) + 12 * sizeof(void*)));

  MoaClassID unknown = makeID(1, 2, 3, 4, 5);
  size = -1;
  create = nullptr;
  destroy = nullptr;
  EXPECT_EQ(m->getClassForm(&unknown, &size, &create, &destroy), kMoaErr_BadClass);
  EXPECT_EQ(size, -1);
  EXPECT_EQ(create, nullptr);
  EXPECT_EQ(destroy, nullptr);
  void* out = nullptr;
  EXPECT_EQ(m->getInterface(nullptr, &kToolClass, &IID_IMoaMmXScript, &out), kMoaErr_BadInterface);
  EXPECT_EQ(out, nullptr);
}

TEST(Module, InterfaceObjectsCountReferencesAndHoldTheModule) {
  auto m = openModule();
  ASSERT_TRUE(m);
  host::Host host;
  HostServices& s = host::services(host);
  MoaObjectHeader* obj = nullptr;
  ASSERT_EQ(m->createInstance(kScriptClass, &s.callback, &s.calloc, &obj), 0);
  // Director: nine services, the player and media-value ones included.
  EXPECT_EQ(host.serviceReferences(), 9u);
  EXPECT_EQ(m->canUnloadNow(), 0);

  void* p = nullptr;
  ASSERT_EQ(obj->QueryInterface(&IID_IMoaMmXScript, &p), 0);
  auto* script = static_cast<IMoaMmXScript*>(p);
  EXPECT_EQ(obj->refCount, 3);
  EXPECT_EQ(m->canUnloadNow(), kMoaErr_XtraInUse);
  EXPECT_EQ(script->AddRef(), 2u);
  EXPECT_EQ(obj->refCount, 4);
  EXPECT_EQ(script->Release(), 1u);
  EXPECT_EQ(obj->refCount, 3);
  // QueryInterface of an interface object is its owner's.
  void* reg = nullptr;
  ASSERT_EQ(script->QueryInterface(&IID_IMoaRegister, &reg), 0);
  EXPECT_EQ(static_cast<IMoaRegister*>(reg)->Release(), 0u);
  EXPECT_EQ(m->canUnloadNow(), kMoaErr_XtraInUse);

  obj->Release();
  EXPECT_EQ(m->liveInstances(), 1u);  // the interface still holds its owner
  EXPECT_EQ(script->Release(), 0u);
  EXPECT_EQ(m->liveInstances(), 0u);
  EXPECT_EQ(m->canUnloadNow(), 0);
  EXPECT_EQ(host.serviceReferences(), 0u);  // shut-down released every service
  EXPECT_EQ(s.calloc.liveBlocks(), 0u);
}

// Shut-down releases the services in a fixed order and stops at the first release that answers
// non-zero (a service another holder still has), leaving the rest held: with two instances alive,
// the first one to go gives back only its value service.
TEST(Module, ShutDownStopsAtTheFirstServiceStillHeldElsewhere) {
  auto m = openModule();
  ASSERT_TRUE(m);
  host::Host host;
  HostServices& s = host::services(host);
  MoaObjectHeader* first = nullptr;
  MoaObjectHeader* second = nullptr;
  ASSERT_EQ(m->createInstance(kScriptClass, &s.callback, &s.calloc, &first), 0);
  ASSERT_EQ(m->createInstance(kScriptClass, &s.callback, &s.calloc, &second), 0);
  EXPECT_EQ(host.serviceReferences(), 18u);
  first->Release();
  EXPECT_EQ(host.serviceReferences(), 17u);
  EXPECT_EQ(s.value.refs().count(), 1u);
  second->Release();
  // The second gives back its value service, then its Lingo value service, which the first
  // still holds, and stops there.
  EXPECT_EQ(host.serviceReferences(), 15u);
  EXPECT_EQ(s.utils.refs().count(), 1u);
  EXPECT_EQ(s.value.refs().count(), 0u);
  EXPECT_EQ(m->canUnloadNow(), 0);
}

TEST(Module, RegistrationSurvivesAFailingToolEntryAndFreesItsText) {
  auto m = openModule();
  ASSERT_TRUE(m);
  host::Host host;
  HostServices& s = host::services(host);
  auto registerWith = [&](Cache& cache, Dict* xtra, int failedAllocations = 0) {
    MoaObjectHeader* obj = nullptr;
    EXPECT_EQ(m->createInstance(kScriptClass, &s.callback, &s.calloc, &obj), 0);
    void* p = nullptr;
    EXPECT_EQ(m->getInterface(obj, &kScriptClass, &IID_IMoaRegister, &p), 0);
    auto* reg = static_cast<IMoaRegister*>(p);
    s.calloc.failNextAllocations(failedAllocations);
    MoaError err = reg->Register(&cache, xtra);
    reg->Release();
    obj->Release();
    return err;
  };

  Cache normal;
  Dict* xtra = normal.addXtraFile(modulePath());
  ASSERT_EQ(registerWith(normal, xtra), 0);
  auto entries = normal.entries(xtra);
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[1]->dict->getString("displayNameString"), "Tessel Help");
  EXPECT_EQ(entries[1]->dict->getString("displayCategoryString"), "");
  EXPECT_EQ(entries[1]->dict->getLong("alwaysEnabled"), 1);

  Cache toolFails;
  toolFails.failPut("displayNameString");
  xtra = toolFails.addXtraFile(modulePath());
  size_t blocks = s.calloc.liveBlocks();
  EXPECT_EQ(registerWith(toolFails, xtra), 0);
  EXPECT_EQ(s.calloc.liveBlocks(), blocks);
  entries = toolFails.entries(xtra);
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0]->dict->getString("msgTable")->rfind("xtra Tessel\nnew object me\n", 0), 0u);
  EXPECT_FALSE(entries[1]->dict->getString("displayCategoryString"));

  Cache tableFails;
  tableFails.failPut("msgTable", kMoaDictErr_CantWrite);
  xtra = tableFails.addXtraFile(modulePath());
  EXPECT_EQ(registerWith(tableFails, xtra), kMoaDictErr_CantWrite);
  EXPECT_EQ(tableFails.entries(xtra).size(), 1u);
  EXPECT_EQ(s.calloc.liveBlocks(), blocks);

  // No memory for the text: the error, and nothing registered beyond the script entry.
  Cache noMemory;
  xtra = noMemory.addXtraFile(modulePath());
  EXPECT_EQ(registerWith(noMemory, xtra, 1), kMoaErr_OutOfMem);
  EXPECT_EQ(noMemory.entries(xtra).size(), 1u);
  EXPECT_EQ(m->canUnloadNow(), 0);
}

// Operations sit in the class's own order: invoke is slot 3, then the methods, with tsFileAge
// (method 40) before tsFileExists (method 39).
TEST(Module, MethodOperationsSitInTheClassesOwnSlots) {
  auto m = openModule();
  ASSERT_TRUE(m);
  host::Host host;
  HostServices& s = host::services(host);
  MoaObjectHeader* obj = nullptr;
  ASSERT_EQ(m->createInstance(kScriptClass, &s.callback, &s.calloc, &obj), 0);
  void* p = nullptr;
  ASSERT_EQ(obj->QueryInterface(&IID_IMoaMmXScript, &p), 0);
  using Operation = MoaError (*)(void* self, PMoaMmCallInfo call);
  Operation* table = *static_cast<Operation**>(p);

  TempDir dir;
  std::string file = dir.file("a", "x").string();
  auto callSlot = [&](int slot) {
    MoaMmValue arg{};
    s.value.StringToValue(file.c_str(), &arg);
    MoaMmCallInfo call{};
    call.nargs = 1;
    call.pArgs = &arg;
    EXPECT_EQ(table[slot](p, &call), 0);
    MoaLong n = -1;
    s.value.ValueToInteger(&call.resultValue, &n);
    s.value.ValueRelease(&arg);
    s.value.ValueRelease(&call.resultValue);
    return n;
  };
  // Slots 4.. hold methods 1-13, 17-38, then 40, 39.
  EXPECT_GT(callSlot(4 + 35), 1);  // tsFileAge: a 1904-based stamp less two thousand million
  EXPECT_EQ(callSlot(4 + 36), 1);  // tsFileExists
  EXPECT_EQ(callSlot(4 + 38), 0);  // tsFolderExists of a file

  static_cast<IMoaUnknown*>(p)->Release();
  obj->Release();
}

// The help tool opens "Tessel Help.html" beside the module with the desktop's default
// application for it, in the authoring environment only. The default application is a script of
// the test's own, registered for HTML in a private XDG configuration. Each case runs in a fresh
// process (a re-executed death test), so the desktop settings are read from its own folders.
// Registers a script of the test's own as the default application for HTML, in a private XDG
// configuration under `dir`; it writes the path it opens to `marker`.
void registerHtmlViewer(const TempDir& dir, const std::string& marker) {
  std::filesystem::create_directories(dir.path() / "data/applications");
  std::filesystem::create_directories(dir.path() / "config");
  std::string script = dir.file("viewer.sh", "#!/bin/sh\necho \"$1\" > " + marker + "\n");
  chmod(script.c_str(), 0755);
  std::ofstream(dir.path() / "data/applications/tessel-test-viewer.desktop")
      << "[Desktop Entry]\nType=Application\nName=Viewer\nExec=" << script
      << " %f\nMimeType=text/html;\n";
  std::ofstream(dir.path() / "config/mimeapps.list")
      << "[Default Applications]\ntext/html=tessel-test-viewer.desktop\n";
  setenv("XDG_DATA_HOME", (dir.str() + "/data").c_str(), 1);
  setenv("XDG_DATA_DIRS", (dir.str() + "/data:/usr/local/share:/usr/share").c_str(), 1);
  setenv("XDG_CONFIG_HOME", (dir.str() + "/config").c_str(), 1);
}

bool helpToolOpensTheDocument(const std::string& mode) {
  TempDir dir;
  std::string marker = dir.str() + "/opened";
  registerHtmlViewer(dir, marker);
  host::HostOptions options;
  options.runMode = mode;
  host::Host host(options);
  if (host.loadXtras(xtrasFolder()) != 1) return false;
  if (host.tools().size() != 1 || host.tools()[0].displayName != "Tessel Help") return false;
  if (host.invokeTool("Tessel Help") != 0) return false;
  eventually([&] { return std::filesystem::exists(marker); },
             std::chrono::milliseconds(mode == "Author" ? 5000 : 1000));
  std::ifstream in(marker);
  std::string opened;
  std::getline(in, opened);
  return opened == xtrasFolder() + "/Tessel Help.html";
}

TEST(HelpTool, OpensTheHelpDocumentOnlyWhileAuthoring) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::_Exit(helpToolOpensTheDocument("Author") ? 0 : 1),
              ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(std::_Exit(helpToolOpensTheDocument("Projector") ? 1 : 0),
              ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tessel::testing
