// Start-up and shut-down of a scripting-class instance: acquiring the host services every method
// uses, and learning which host runs the module.
#include "dialogs/message_box.h"
#include "files/file_search.h"
#include "paths/paths.h"
#include "platform/ui.h"
#include "support/text.h"
#include "system/kiosk.h"
#include "xtra/host_extensions.h"
#include "xtra/module.h"

namespace tessel::xtra {

platform::HostHooks& frameHooks();  // host_hooks.cpp

namespace {

template <typename Interface>
MoaError acquire(IMoaCallback* callback, const MoaInterfaceID& iid, Interface*& field) {
  void* out = nullptr;
  MoaError err = callback->QueryInterface(&iid, &out);
  if (err != kMoaErr_NoErr) return err;
  field = static_cast<Interface*>(out);
  return kMoaErr_NoErr;
}

// Asks the host for an information item of at most 64 bytes; "" when it has none.
void appInfoText(IMoaAppInfo* info, MoaLong item, char (&text)[65]) {
  text[0] = '\0';
  if (info->GetInfo(item, text, 64) != kMoaErr_NoErr) text[0] = '\0';
  text[64] = '\0';
}

}  // namespace

MoaError scriptCreate(MoaObjectHeader* header) {
  TesselScriptFields* self = scriptFields(header);
  ModuleState& state = moduleState();
  HostServices& services = hostServices();
  state.scriptInstance = header;
  self->appInfo = nullptr;
  self->player = nullptr;

  IMoaCallback* cb = header->pCallback;
  MoaError err = acquire(cb, IID_IMoaMmValue, self->scriptValue);
  if (err) return err;
  services.scriptValue = self->scriptValue;
  if ((err = acquire(cb, IID_IMoaAppInfo, self->appInfo))) return err;
  services.appInfo = self->appInfo;

  char text[65];
  appInfoText(self->appInfo, kMoaAppInfo_ProductName, text);
  state.hostIsDirector = support::equalsIgnoringCase(text, "Director");

  if ((err = acquire(cb, IID_IMoaMmUtils2, self->utilityA))) return err;
  services.utilityA = self->utilityA;
  if ((err = acquire(cb, IID_IMoaMmUtils, self->lingoValue))) return err;
  services.lingoValue = self->lingoValue;
  if (state.hostIsDirector) {
    if ((err = acquire(cb, IID_IMoaDrPlayer, self->player))) return err;
    services.player = self->player;
  }
  if ((err = acquire(cb, IID_IMoaCalloc, self->calloc))) return err;
  services.calloc = self->calloc;
  if ((err = acquire(cb, IID_IMoaMmList, self->list))) return err;
  services.list = self->list;
  if ((err = acquire(cb, IID_IMoaHandle, self->utilityB))) return err;
  services.utilityB = self->utilityB;
  if (state.hostIsDirector) {
    if ((err = acquire(cb, IID_IMoaDrMediaValue, self->movie))) return err;
    services.movie = self->movie;
  }

  appInfoText(self->appInfo, kMoaAppInfo_RunMode, text);
  state.hostIsAuthoring = support::equalsIgnoringCase(text, "Author");
  acquireHostExtensions(cb);

  // The workers' windows and progress handler go through this instance's services.
  platform::setHostHooks(&frameHooks());
  return kMoaErr_NoErr;
}

MoaError scriptShutdown(TesselScriptFields* self) {
  // A release that answers non-zero (the host still has other holders of that service) ends the
  // shut-down there: the services after it in this order stay held.
  IMoaUnknown* const order[] = {self->scriptValue, self->lingoValue, self->utilityA,
                                self->player,      self->list,       self->calloc,
                                self->utilityB,    self->movie,      self->appInfo};
  for (IMoaUnknown* service : order) {
    if (service == nullptr) continue;
    auto result = static_cast<MoaError>(service->Release());
    if (result != kMoaErr_NoErr) return result;
  }
  return kMoaErr_NoErr;
}

void endSession() {
  system::restoreKiosk();
  paths::resetPaths();
  dialogs::resetMessageBoxes();
  files::findClose();
}

void scriptDestroy(MoaObjectHeader* header) {
  if (moduleState().scriptInstance == header) {
    endSession();
    releaseHostExtensions();
  }
  scriptShutdown(scriptFields(header));
  ModuleState& state = moduleState();
  if (state.scriptInstance == header) {
    state.scriptInstance = nullptr;
    hostServices() = HostServices{};
    platform::setHostHooks(nullptr);
  }
}

}  // namespace tessel::xtra
