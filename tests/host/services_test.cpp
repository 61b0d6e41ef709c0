#include "host/services.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/unit/scratch_folder.h"

using namespace moa;
using namespace tessel::host;

namespace {

// (Failing on request: the OutOfMem rows of Module.ClassListAndConstructorWithoutMemory and of
// the boundary's module_test.)
TEST(Allocator, ZeroFilledAndCounted) {
  Allocator a;
  auto* p = static_cast<unsigned char*>(a.NRAlloc(64));
  ASSERT_NE(p, nullptr);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(p[i], 0) << i;
  EXPECT_EQ(a.liveBlocks(), 1u);
  EXPECT_EQ(*a.blockSize(p), 64u);
  void* q = a.NRAlloc(0);  // a zero-byte request is still a distinct block
  EXPECT_NE(q, nullptr);
  int local = 0;
  a.NRFree(&local);  // not ours: ignored, counted
  EXPECT_EQ(a.badFrees(), 1u);
  a.NRFree(p);
  a.NRFree(q);
  a.NRFree(nullptr);
  EXPECT_EQ(a.liveBlocks(), 0u);
}

TEST(Dict, TypedEntriesSizesAndErrors) {
  Dict d;
  EXPECT_EQ(d.Put(kMoaDictType_CString, "hello", 0, "text"), 0);  // size 0: measured
  char buf[16];
  EXPECT_EQ(d.Get(kMoaDictType_CString, buf, sizeof buf, "text"), 0);
  EXPECT_STREQ(buf, "hello");
  EXPECT_EQ(d.Get(kMoaDictType_CString, buf, 5, "text"), kMoaDictErr_BufferTooSmall);
  EXPECT_EQ(d.Put(kMoaDictType_CString, "abcdef", 3, "cut"), 0);  // no NUL within size: one added
  EXPECT_EQ(*d.getString("cut"), "abc");

  MoaLong n = 42;
  EXPECT_EQ(d.Put(kMoaDictType_Long, &n, sizeof n, "n"), 0);
  EXPECT_EQ(d.Put(kMoaDictType_Long, &n, 2, "bad"), kMoaErr_BadParam);
  MoaLong back = 0;
  EXPECT_EQ(d.Get(kMoaDictType_Long, &back, sizeof back, "n"), 0);
  EXPECT_EQ(back, 42);
  EXPECT_EQ(d.Get(kMoaDictType_CString, buf, sizeof buf, "n"), kMoaDictErr_WrongType);
  EXPECT_EQ(d.Get(kMoaDictType_Long, &back, sizeof back, "none"), kMoaDictErr_NotFound);
  EXPECT_EQ(d.Put(kMoaDictType_Bogus, &n, sizeof n, "x"), kMoaErr_BadParam);
  EXPECT_EQ(d.Put(kMoaDictType_Long, &n, sizeof n, nullptr), kMoaErr_BadParam);

  n = 7;
  EXPECT_EQ(d.Put(kMoaDictType_Long, &n, 0, "n"), 0);  // replaces, keeps its place
  MoaUlong count = 0;
  d.Count(&count);
  EXPECT_EQ(count, 3u);
  MoaDictTypeID type = 0;
  MoaLong size = 0;
  const char* key = nullptr;
  EXPECT_EQ(d.GetNth(2, &type, &size, &key), 0);
  EXPECT_STREQ(key, "n");
  EXPECT_EQ(type, kMoaDictType_Long);
  EXPECT_EQ(size, 4);
  EXPECT_EQ(key, d.FindKey("n"));  // interned "fast key"
  EXPECT_EQ(d.GetNth(3, &type, &size, &key), kMoaErr_BadParam);
  EXPECT_EQ(d.Remove("text"), 0);
  EXPECT_EQ(d.Remove("text"), kMoaDictErr_NotFound);
  EXPECT_EQ(d.GetNth(1, nullptr, nullptr, &key), 0);
  EXPECT_STREQ(key, "n");
  EXPECT_EQ(*d.getLong("n"), 7);
}

TEST(Dict, ObjectEntriesHoldReferences) {
  Dict d;
  Dict other;
  IMoaDict* p = &other;
  EXPECT_EQ(d.Put(kMoaDictType_Dict, &p, sizeof p, "child"), 0);
  EXPECT_EQ(other.refs().count(), 1u);
  IMoaDict* got = nullptr;
  EXPECT_EQ(d.Get(kMoaDictType_Dict, &got, sizeof got, "child"), 0);
  EXPECT_EQ(got, &other);
  EXPECT_EQ(other.refs().count(), 2u);
  got->Release();
  EXPECT_EQ(d.Remove("child"), 0);
  EXPECT_EQ(other.refs().count(), 0u);

  IMoaDict* made = nullptr;
  EXPECT_EQ(d.MakeDict(&made, "sub"), 0);
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->Put(kMoaDictType_CString, "x", 0, "k"), 0);
  MoaDictTypeID type = 0;
  EXPECT_EQ(d.GetInfo(&type, nullptr, "sub"), 0);
  EXPECT_EQ(type, kMoaDictType_Dict);
}

TEST(Cache, RegistryEntriesBelongToTheirXtraEntry) {
  Cache c;
  Dict* xtra = c.addXtraFile("/x/A.so");
  Dict foreign;
  MoaClassID cls = makeID(1, 2, 3, 4, 5);
  IMoaDict* reg = nullptr;
  EXPECT_EQ(c.AddRegistryEntry(&foreign, &cls, &IID_IMoaMmXScript, &reg), kMoaErr_BadParam);
  ASSERT_EQ(c.AddRegistryEntry(xtra, &cls, &IID_IMoaMmXScript, &reg), 0);
  IMoaDict* again = nullptr;
  EXPECT_EQ(c.AddRegistryEntry(xtra, &cls, &IID_IMoaMmXScript, &again), 0);
  EXPECT_EQ(again, reg);  // one entry per (class, interface)
  c.AddRegistryEntry(xtra, &cls, &IID_IMoaMmXTool, &again);
  EXPECT_NE(again, reg);
  ASSERT_EQ(c.entries(xtra).size(), 2u);

  struct Seen {
    int entries = 0;
    int tools = 0;
  } seen;
  auto proc = [](IMoaDict*, ConstPMoaClassID, ConstPMoaInterfaceID iid, PMoaVoid refCon) {
    auto* s = static_cast<Seen*>(refCon);
    ++s->entries;
    if (equalID(*iid, IID_IMoaMmXTool)) ++s->tools;
    return kMoaErr_NoErr;
  };
  EXPECT_EQ(c.EnumerateRegistryEntries(proc, &seen), 0);
  EXPECT_EQ(seen.entries, 2);
  EXPECT_EQ(seen.tools, 1);

  int files = 0;
  auto fromFile = [](IMoaDict*, const char* spec, MoaWide, MoaUlong, IMoaDict*, IMoaDict*,
                     ConstPMoaClassID, ConstPMoaInterfaceID, PMoaVoid refCon) {
    EXPECT_STREQ(spec, "/x/A.so");
    ++*static_cast<int*>(refCon);
    return kMoaErr_NoErr;
  };
  EXPECT_EQ(c.EnumerateRegistryEntriesFromFile("/x", 0, fromFile, &files), 0);
  EXPECT_EQ(files, 2);
  EXPECT_EQ(c.EnumerateRegistryEntriesFromFile("/y", 0, fromFile, &files), 0);
  EXPECT_EQ(files, 2);

  // No instance maker: the registry cannot make instances.
  void* out = &files;
  EXPECT_EQ(c.GetInstanceFromRegistry(reg, &IID_IMoaMmXScript, &out), kMoaErr_BadClass);
  EXPECT_EQ(out, nullptr);

  c.failPut("msgTable");
  EXPECT_EQ(reg->Put(kMoaDictType_CString, "xtra X", 0, "msgTable"), kMoaDictErr_CantWrite);
  c.removeXtraFile(xtra);
  EXPECT_TRUE(c.entries().empty());
}

// A movie that records the handlers called on it.
class RecordingMovie : public Movie {
 public:
  MoaError callHandler(const std::string& name, const std::vector<Value>& args,
                       Value& result) override {
    calls.push_back(name);
    result = Value::list(args);
    return 0;
  }
  std::string moviePath() const override { return path; }
  std::vector<std::string> calls;
  std::string path;
};

// (Which services a Director and another host give the real module is the boundary's module_test.)
TEST(HostServices, EveryServiceIsAFaceOfTheCallback) {
  Host host;
  HostServices& s = services(host);
  void* p = nullptr;
  for (const MoaID* iid : {&IID_IMoaCache, &IID_IMoaMmWndWin, &IID_IMoaMmWndMac}) {
    ASSERT_EQ(s.callback.QueryInterface(iid, &p), 0);
    static_cast<IMoaUnknown*>(p)->Release();
  }
  EXPECT_EQ(s.callback.QueryInterface(&IID_IMoaDrMovie, &p), kMoaErr_BadInterface);
  ASSERT_EQ(s.callback.QueryInterface(&IID_IMoaDrPlayer, &p), 0);
  void* value = nullptr;
  EXPECT_EQ(static_cast<IMoaDrPlayer*>(p)->QueryInterface(&IID_IMoaMmValue, &value), 0);
  EXPECT_EQ(value, static_cast<IMoaMmValue*>(&s.value));
  static_cast<IMoaUnknown*>(value)->Release();
  EXPECT_EQ(static_cast<IMoaDrPlayer*>(p)->Release(), 0u);
  EXPECT_EQ(host.serviceReferences(), 0u);
}

TEST(HostServices, AppInfoItems) {
  Host host({.productName = "Director", .runMode = "Author", .productVersion = "11.5"});
  IMoaAppInfo& info = services(host).appInfo;
  char buf[64];  // (the product name and run mode: the boundary's module_test)
  EXPECT_EQ(info.GetInfo(kMoaAppInfo_ProductVersion, buf, sizeof buf), 0);
  EXPECT_STREQ(buf, "11.5");
  EXPECT_EQ(info.GetInfo(kMoaAppInfo_UILanguage, buf, sizeof buf), 0);
  EXPECT_EQ(info.GetInfo(kMoaAppInfo_OSLanguage, buf, sizeof buf), 0);
  EXPECT_GT(std::strlen(buf), 0u);
  EXPECT_EQ(info.GetInfo(kMoaAppInfo_SerialNumber, buf, sizeof buf), kMoaErr_NoSuchKey);
  EXPECT_EQ(info.GetInfo(kMoaAppInfo_ProductName, buf, 8), kMoaErr_BadParam);  // needs 9
  EXPECT_EQ(info.GetInfo(kMoaAppInfo_ProductName, buf, 9), 0);
}

TEST(HostServices, PrintMessageFormatsThirtyTwoBitArguments) {
  std::string printed;
  Host host({.printMessage = [&](const std::string& t) { printed += t; }});
  IMoaMmUtils& utils = services(host).utils;
  utils.PrintMessage("plain %d\n");
  utils.PrintMessage2("%d|%lx", -5, 255);
  utils.PrintMessage4("|%5d|%s|%v|%%|%q", 7, 1, 2, 3);
  utils.PrintMessage1("|%d%d", 1);
  EXPECT_EQ(printed, "plain %d\n-5|ff|    7|?|?|%|%q|1?");

  MoaMmDialogCookie cookie = 0;
  utils.MacPrepareModalDialog(&cookie);
  utils.MacUnprepareModalDialog(cookie);
  services(host).wndWin.WinPrepareDialogBox(&cookie);
  EXPECT_EQ(host.counters().modalDialogsBegun, 2);
  EXPECT_EQ(host.counters().modalDialogsEnded, 1);
  EXPECT_EQ(utils.MacModalDialog(cookie, nullptr, nullptr), kMoaErr_NotImplemented);
}

// (Calls with arguments and results, a missing handler and no movie at all are the boundary
// tests', through the real module's progress handler.)
TEST(HostServices, MovieCallHandlerChecksItsArguments) {
  Host host;
  HostServices& s = services(host);
  RecordingMovie rec;
  host.setMovie(&rec);
  MoaMmSymbol name = s.values.intern("collect");
  EXPECT_EQ(s.player.CallHandler(name, 1, nullptr, nullptr), kMoaErr_BadParam);
  EXPECT_EQ(s.player.CallHandler(name, 0, nullptr, nullptr), 0);  // result not wanted
  EXPECT_EQ(rec.calls, std::vector<std::string>{"collect"});
  EXPECT_EQ(host.liveValues(), 0u);
  EXPECT_EQ(host.serviceReferences(), 0u);
}

TEST(HostServices, ResolveFileNameFindsOnlyExistingFiles) {
  tessel::testing::ScratchFolder dir;
  std::string clip = dir.file("movie/media/clip.mov");
  std::string top = dir.file("top.txt");
  RecordingMovie rec;
  rec.path = dir.path() + "/movie/";

  Host host;
  host.setMovie(&rec);
  IMoaDrPlayer& player = services(host).player;
  char buf[1024];
  for (const char* name : {"@/media/clip.mov", "@:media:clip.mov", "@\\media\\clip.mov",
                           "media/clip.mov"}) {
    EXPECT_EQ(player.ResolveFileName(name, buf, sizeof buf), 0) << name;
    EXPECT_EQ(buf, clip) << name;
  }
  EXPECT_EQ(player.ResolveFileName("@//top.txt", buf, sizeof buf), 0);  // one folder up
  EXPECT_EQ(buf, top);
  EXPECT_EQ(player.ResolveFileName(clip.c_str(), buf, sizeof buf), 0);
  EXPECT_EQ(player.ResolveFileName("@", buf, sizeof buf), kMoaErr_FileNotFound);  // a folder
  EXPECT_STREQ(buf, "");
  EXPECT_EQ(player.ResolveFileName("@/media", buf, sizeof buf), kMoaErr_FileNotFound);
  EXPECT_EQ(player.ResolveFileName("@/none.mov", buf, sizeof buf), kMoaErr_FileNotFound);
  EXPECT_EQ(player.ResolveFileName("@/media/clip.mov", buf, 10), kMoaDictErr_BufferTooSmall);

  Host answering({.playerResolvesAt = std::string("/somewhere/movie")});
  answering.setMovie(&rec);
  IMoaDrPlayer& p2 = services(answering).player;
  EXPECT_EQ(p2.ResolveFileName("@", buf, sizeof buf), 0);
  EXPECT_STREQ(buf, "/somewhere/movie");
  EXPECT_EQ(p2.ResolveFileName("@/media/clip.mov", buf, sizeof buf), 0);  // still searched
}

TEST(HostServices, HandlesAndStringHandleValues) {
  Host host;
  HostServices& s = services(host);
  IMoaHandle& h = s.handles;
  MoaHandle handle = h.ZeroAlloc(6);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(h.GetSize(handle), 6);
  auto* text = static_cast<char*>(h.Lock(handle));
  std::memcpy(text, "hello", 6);
  EXPECT_EQ(h.Resize(handle, 10), 0u);  // locked
  h.Unlock(handle);
  EXPECT_EQ(h.Resize(handle, 10), 1u);
  MoaMmValue v{};
  EXPECT_EQ(s.value.StringHandleToValue(handle, &v), 0);  // takes the handle over
  EXPECT_EQ(s.handles.liveHandles(), 0u);
  char buf[16];
  s.value.ValueToString(&v, buf, sizeof buf);
  EXPECT_STREQ(buf, "hello");
  s.value.ValueRelease(&v);
  int local = 0;
  EXPECT_EQ(s.value.StringHandleToValue(&local, &v), kMoaErr_BadParam);
  EXPECT_EQ(h.GetSize(&local), 0);
  EXPECT_EQ(h.Alloc(-1), nullptr);
}

}  // namespace
