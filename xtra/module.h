// The Tessel module: its two MOA classes, their instance records and interface objects, and the
// state the module keeps between calls.
#pragma once

#include <vector>

#include "moa/moa_interfaces.h"
#include "moa/tessel_interrupt.h"
#include "moa/tessel_stage.h"

namespace tessel::xtra {

using namespace moa;

// ---- Identifiers -------------------------------------------------------------------------------

inline constexpr MoaID CLSID_TesselScript = makeID(0x7144B382, 0xE155, 0x11D6, 0x8525, 0x0056E435BF75);
inline constexpr MoaID CLSID_TesselHelpTool = makeID(0x79A867A2, 0xD3B7, 0x11D0, 0x911C, 0x444553540000);
// Version 10.1.4, release, number 0; used for the classes and their interfaces alike.
inline constexpr MoaLong kTesselVersion = 0x0A0104C0;

// ---- Host services ---------------------------------------------------------------------------------

// The host interfaces a scripting instance acquires at start-up. Each role's interface is the
// host's: the "Lingo value and symbol" service is the host's older all-in-one utility interface,
// "utility B" its relocatable-handle service and the "movie" service its media-value service.
struct HostServices {
  IMoaMmValue* scriptValue = nullptr;
  IMoaAppInfo* appInfo = nullptr;
  IMoaMmUtils2* utilityA = nullptr;
  IMoaMmUtils* lingoValue = nullptr;
  IMoaDrPlayer* player = nullptr;  // Director only
  IMoaCalloc* calloc = nullptr;
  IMoaMmList* list = nullptr;
  IMoaHandle* utilityB = nullptr;
  IMoaDrMediaValue* movie = nullptr;  // Director only
};

// The served instance's services (see serveThrough): the workers and the marshalling layer reach
// the host through this table without an instance at hand. The host calls the module on one
// thread only.
HostServices& hostServices();

// What the module frame keeps. What a movie set and what the subsystems keep between calls is
// the module's session (support/session.h).
struct ModuleState {
  MoaLong liveObjects = 0;  // interface objects alive; DllCanUnloadNow answers from it
  MoaFileRef fileRef = nullptr;  // from ppcSetFileRef; made current around every window
  // The live scripting instances, in the order they started. Several may live at once (two
  // hosts in one process, or `new` on the Xtra); they share the one module and its session.
  std::vector<MoaObjectHeader*> scriptInstances;
  // The served instance: the one whose call runs, else the latest started, and whether its host
  // is Director.
  MoaObjectHeader* scriptInstance = nullptr;
  bool hostIsDirector = false;
};
ModuleState& moduleState();

// Serves the module through this instance (nullptr: none): its services, host kind and host
// extensions become the current ones. A call is served through the instance it was made on and
// the one served before is put back when it returns, so a handler that calls another host's
// instance from inside a call comes back to its own.
void serveThrough(MoaObjectHeader* instance);

// The end of the module's session, when its last scripting instance ends: every setting a movie
// made and everything the subsystems keep between calls goes back to what a freshly loaded module
// has, so a host that loads, unloads and loads the module again (the image may stay mapped)
// starts clean. The kiosk puts back its changes then, while the host's stage is still held.
void endSession();

// ---- Instance records ------------------------------------------------------------------------------

// A scripting-class instance is the host's standard header followed by these fields: one
// reference on each service and extension its host offers, and what its host is. The header's
// dynamic type is the host's, so the fields are reached by their offset rather than through a
// type derived from the header.
struct TesselScriptFields {
  IMoaCalloc* calloc = nullptr;
  IMoaMmUtils2* utilityA = nullptr;
  IMoaMmUtils* lingoValue = nullptr;
  IMoaMmValue* scriptValue = nullptr;
  IMoaDrPlayer* player = nullptr;
  IMoaMmList* list = nullptr;
  IMoaHandle* utilityB = nullptr;
  IMoaDrMediaValue* movie = nullptr;
  IMoaAppInfo* appInfo = nullptr;
  ITesselStage* stage = nullptr;
  ITesselInterrupt* interrupt = nullptr;
  bool hostIsDirector = false;
};
inline constexpr MoaLong kScriptInstanceSize =
    static_cast<MoaLong>(sizeof(MoaObjectHeader) + sizeof(TesselScriptFields));
// A help-tool instance holds nothing beyond the header.
inline constexpr MoaLong kHelpInstanceSize = static_cast<MoaLong>(sizeof(MoaObjectHeader));

inline TesselScriptFields* scriptFields(MoaObjectHeader* instance) {
  return reinterpret_cast<TesselScriptFields*>(reinterpret_cast<char*>(instance) +
                                               sizeof(MoaObjectHeader));
}

// Constructor and destructor of the scripting class (start-up and shut-down).
MoaError scriptCreate(MoaObjectHeader* instance);
void scriptDestroy(MoaObjectHeader* instance);
// Returns the first failing release's result; the services after it stay held.
MoaError scriptShutdown(TesselScriptFields* fields);

// ---- Interface objects -------------------------------------------------------------------------------

// Reference counting shared by the three interface classes: the object holds its owner, forwards
// AddRef/QueryInterface to it, and frees itself through the owner's allocator at count zero.
template <typename Interface>
class InterfaceObject : public Interface {
 public:
  explicit InterfaceObject(MoaObjectHeader* owner) : owner_(owner) {}

  MoaError QueryInterface(ConstPMoaInterfaceID iid, PPMoaVoid out) override {
    return owner_->QueryInterface(iid, out);
  }
  MoaUlong AddRef() override {
    owner_->AddRef();
    return static_cast<MoaUlong>(++refCount_);
  }
  MoaUlong Release() override;

 protected:
  MoaObjectHeader* owner_;
  MoaLong refCount_ = 1;
};

class TStdXtra_IMoaRegister final : public InterfaceObject<IMoaRegister> {
 public:
  using InterfaceObject::InterfaceObject;
  MoaError Register(IMoaCache* cache, IMoaDict* xtraDict) override;
};

class CTool_IMoaMmXTool final : public InterfaceObject<IMoaMmXTool> {
 public:
  using InterfaceObject::InterfaceObject;
  MoaError Invoke() override;
  MoaError GetEnabled(MoaLong* enabled) override;
};

// The Lingo interface: Call dispatches by method number to one operation per method. The
// operations sit in the class's own slot order, which is not the method table's: a few were
// added late and sit at the end, and tsFileAge precedes tsFileExists.
class TStdXtra_IMoaMmXScript final : public InterfaceObject<IMoaMmXScript> {
 public:
  using InterfaceObject::InterfaceObject;
  MoaError Call(PMoaMmCallInfo call) override;

  virtual MoaError tsVersion(PMoaMmCallInfo call);
  virtual MoaError tsSysFolder(PMoaMmCallInfo call);
  virtual MoaError tsDiskInfo(PMoaMmCallInfo call);
  virtual MoaError tsDiskList(PMoaMmCallInfo call);
  virtual MoaError tsMemoryInfo(PMoaMmCallInfo call);
  virtual MoaError tsFindApp(PMoaMmCallInfo call);
  virtual MoaError tsReadIni(PMoaMmCallInfo call);
  virtual MoaError tsWriteIni(PMoaMmCallInfo call);
  virtual MoaError tsFontInstalled(PMoaMmCallInfo call);
  virtual MoaError tsGestalt(PMoaMmCallInfo call);
  virtual MoaError tsGestaltExists(PMoaMmCallInfo call);
  virtual MoaError tsSetWallpaper(PMoaMmCallInfo call);
  virtual MoaError tsSetDisplay(PMoaMmCallInfo call);
  virtual MoaError tsRunProgram(PMoaMmCallInfo call);
  virtual MoaError tsMsgBox(PMoaMmCallInfo call);
  virtual MoaError tsMsgBoxButtons(PMoaMmCallInfo call);
  virtual MoaError tsMsgBoxEx(PMoaMmCallInfo call);
  virtual MoaError tsPrompt(PMoaMmCallInfo call);
  virtual MoaError tsLogIn(PMoaMmCallInfo call);
  virtual MoaError tsHideTaskBar(PMoaMmCallInfo call);
  virtual MoaError tsDisableSwitching(PMoaMmCallInfo call);
  virtual MoaError tsCopyText(PMoaMmCallInfo call);
  virtual MoaError tsPasteText(PMoaMmCallInfo call);
  virtual MoaError tsEncryptText(PMoaMmCallInfo call);
  virtual MoaError tsDecryptText(PMoaMmCallInfo call);
  virtual MoaError tsPlaceCursor(PMoaMmCallInfo call);
  virtual MoaError tsSetVolume(PMoaMmCallInfo call);
  virtual MoaError tsGetVolume(PMoaMmCallInfo call);
  virtual MoaError tsUserName(PMoaMmCallInfo call);
  virtual MoaError tsUserShortName(PMoaMmCallInfo call);
  virtual MoaError tsComputerName(PMoaMmCallInfo call);
  virtual MoaError tsLanguage(PMoaMmCallInfo call);
  virtual MoaError tsKeyIsDown(PMoaMmCallInfo call);
  virtual MoaError tsEjectDisk(PMoaMmCallInfo call);
  virtual MoaError tsSystemTime(PMoaMmCallInfo call);
  virtual MoaError tsFileAge(PMoaMmCallInfo call);
  virtual MoaError tsFileExists(PMoaMmCallInfo call);
  virtual MoaError tsFileVersion(PMoaMmCallInfo call);
  virtual MoaError tsFolderExists(PMoaMmCallInfo call);
  virtual MoaError tsIsBundle(PMoaMmCallInfo call);
  virtual MoaError tsCreateFolder(PMoaMmCallInfo call);
  virtual MoaError tsDeleteFolder(PMoaMmCallInfo call);
  virtual MoaError tsDeleteFile(PMoaMmCallInfo call);
  virtual MoaError tsDeleteXFiles(PMoaMmCallInfo call);
  virtual MoaError tsXDelete(PMoaMmCallInfo call);
  virtual MoaError tsFileSize(PMoaMmCallInfo call);
  virtual MoaError tsFileSizeEx(PMoaMmCallInfo call);
  virtual MoaError tsFileDate(PMoaMmCallInfo call);
  virtual MoaError tsFileDateEx(PMoaMmCallInfo call);
  virtual MoaError tsFileAttributes(PMoaMmCallInfo call);
  virtual MoaError tsSetFileAttributes(PMoaMmCallInfo call);
  virtual MoaError tsCopyFile(PMoaMmCallInfo call);
  virtual MoaError tsCopyFileProgress(PMoaMmCallInfo call);
  virtual MoaError tsGetFolder(PMoaMmCallInfo call);
  virtual MoaError tsFolderSize(PMoaMmCallInfo call);
  virtual MoaError tsCopyXFilesProgress(PMoaMmCallInfo call);
  virtual MoaError tsXCopyProgress(PMoaMmCallInfo call);
  virtual MoaError tsCopyXFiles(PMoaMmCallInfo call);
  virtual MoaError tsXCopy(PMoaMmCallInfo call);
  virtual MoaError tsRenameFile(PMoaMmCallInfo call);
  virtual MoaError tsFileList(PMoaMmCallInfo call);
  virtual MoaError tsFolderList(PMoaMmCallInfo call);
  virtual MoaError tsFindFirstFile(PMoaMmCallInfo call);
  virtual MoaError tsFindNextFile(PMoaMmCallInfo call);
  virtual MoaError tsFindClose(PMoaMmCallInfo call);
  virtual MoaError tsGetFilename(PMoaMmCallInfo call);
  virtual MoaError tsGetDisk(PMoaMmCallInfo call);
  virtual MoaError tsEncryptFile(PMoaMmCallInfo call);
  virtual MoaError tsOpenFile(PMoaMmCallInfo call);
  virtual MoaError tsPrintFile(PMoaMmCallInfo call);
  virtual MoaError tsShortFileName(PMoaMmCallInfo call);
  virtual MoaError tsLongFileName(PMoaMmCallInfo call);
  virtual MoaError tsUnixName(PMoaMmCallInfo call);
  virtual MoaError tsHFSName(PMoaMmCallInfo call);
  virtual MoaError tsOpenURL(PMoaMmCallInfo call);
  virtual MoaError tsShell(PMoaMmCallInfo call);
  virtual MoaError tsMakeShortcut(PMoaMmCallInfo call);
  virtual MoaError tsFileCreator(PMoaMmCallInfo call);
  virtual MoaError tsFileType(PMoaMmCallInfo call);
  virtual MoaError tsSetFileInfo(PMoaMmCallInfo call);
  virtual MoaError tsFilePermissions(PMoaMmCallInfo call);
  virtual MoaError tsReturnUnixNames(PMoaMmCallInfo call);
  virtual MoaError tsSetFilePermissions(PMoaMmCallInfo call);
  virtual MoaError tsRefreshFiles(PMoaMmCallInfo call);
  virtual MoaError tsWindowInfo(PMoaMmCallInfo call);
  virtual MoaError tsFindWindow(PMoaMmCallInfo call);
  virtual MoaError tsActiveWindow(PMoaMmCallInfo call);
  virtual MoaError tsCloseWindow(PMoaMmCallInfo call);
  virtual MoaError tsActivateWindow(PMoaMmCallInfo call);
  virtual MoaError tsWaitForWindow(PMoaMmCallInfo call);
  virtual MoaError tsNextActiveWindow(PMoaMmCallInfo call);
  virtual MoaError tsWindowExists(PMoaMmCallInfo call);
  virtual MoaError tsWindowList(PMoaMmCallInfo call);
  virtual MoaError tsSendKeys(PMoaMmCallInfo call);
  virtual MoaError tsWinHandle(PMoaMmCallInfo call);
  virtual MoaError tsBundleApp(PMoaMmCallInfo call);
  virtual MoaError tsGetFiles(PMoaMmCallInfo call);
  virtual MoaError tsMouseClick(PMoaMmCallInfo call);
  virtual MoaError tsMultiDisplayList(PMoaMmCallInfo call);
  virtual MoaError tsMultiDisplayInfo(PMoaMmCallInfo call);
  virtual MoaError tsSetMultiDisplay(PMoaMmCallInfo call);
};

// The interface makers the class list names.
MoaError makeRegister(MoaObjectHeader* owner, PPMoaVoid out);
MoaError makeScript(MoaObjectHeader* owner, PPMoaVoid out);
MoaError makeTool(MoaObjectHeader* owner, PPMoaVoid out);

// The method table: "new object me", then the four groups of method lines (registration puts
// the line "xtra Tessel" before it).
const char* methodTableText();
inline constexpr MoaUlong kMethodTableBlockSize = 9061;

// Opens the help document with the desktop's default application (authoring mode only).
void openHelpDocument();
// Whether the host behind this callback runs in authoring mode (its application information).
bool hostIsAuthoring(IMoaCallback* callback);

}  // namespace tessel::xtra
