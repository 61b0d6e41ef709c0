// Start-up and shut-down of a scripting-class instance: acquiring the host services every method
// uses, and learning which host runs the module.
#include <algorithm>

#include "platform/ui.h"
#include "support/session.h"
#include "support/text.h"
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

// The host services an instance holds, and whether its host is Director; stops at the first that
// fails.
MoaError acquireServices(IMoaCallback* cb, TesselScriptFields& self) {
  MoaError err = acquire(cb, IID_IMoaMmValue, self.scriptValue);
  if (err) return err;
  if ((err = acquire(cb, IID_IMoaAppInfo, self.appInfo))) return err;

  char text[65];
  appInfoText(self.appInfo, kMoaAppInfo_ProductName, text);
  self.hostIsDirector = support::equalsIgnoringCase(text, "Director");

  if ((err = acquire(cb, IID_IMoaMmUtils2, self.utilityA))) return err;
  if ((err = acquire(cb, IID_IMoaMmUtils, self.lingoValue))) return err;
  if (self.hostIsDirector && (err = acquire(cb, IID_IMoaDrPlayer, self.player))) return err;
  if ((err = acquire(cb, IID_IMoaCalloc, self.calloc))) return err;
  if ((err = acquire(cb, IID_IMoaMmList, self.list))) return err;
  if ((err = acquire(cb, IID_IMoaHandle, self.utilityB))) return err;
  if (self.hostIsDirector && (err = acquire(cb, IID_IMoaDrMediaValue, self.movie))) return err;
  return kMoaErr_NoErr;
}

}  // namespace

bool hostIsAuthoring(IMoaCallback* callback) {
  IMoaAppInfo* info = nullptr;
  if (callback == nullptr || acquire(callback, IID_IMoaAppInfo, info) != kMoaErr_NoErr) return false;
  char text[65];
  appInfoText(info, kMoaAppInfo_RunMode, text);
  info->Release();
  return support::equalsIgnoringCase(text, "Author");
}

MoaError scriptCreate(MoaObjectHeader* header) {
  TesselScriptFields* self = scriptFields(header);
  *self = TesselScriptFields{};
  IMoaCallback* cb = header->pCallback;
  // A constructor that fails is not followed by the destructor: what it acquired goes back here.
  MoaError err = acquireServices(cb, *self);
  if (err != kMoaErr_NoErr) {
    scriptShutdown(self);
    return err;
  }
  ModuleState& state = moduleState();
  acquireHostExtensions(cb, *self);
  state.scriptInstances.push_back(header);
  serveThrough(header);
  // The workers' windows and progress handler go through the served instance's services.
  platform::setHostHooks(&frameHooks());
  return kMoaErr_NoErr;
}

void serveThrough(MoaObjectHeader* header) {
  ModuleState& state = moduleState();
  state.scriptInstance = header;
  if (header == nullptr) {
    hostServices() = HostServices{};
    state.hostIsDirector = false;
    useHostExtensions(nullptr);
    return;
  }
  const TesselScriptFields& self = *scriptFields(header);
  hostServices() = HostServices{self.scriptValue, self.appInfo, self.utilityA, self.lingoValue,
                                self.player,      self.calloc,  self.list,     self.utilityB,
                                self.movie};
  state.hostIsDirector = self.hostIsDirector;
  useHostExtensions(&self);
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

void endSession() { support::session().end(); }

void scriptDestroy(MoaObjectHeader* header) {
  ModuleState& state = moduleState();
  std::erase(state.scriptInstances, header);
  const bool last = state.scriptInstances.empty();
  TesselScriptFields* self = scriptFields(header);
  if (last) {
    // The session ends with the module's last instance, served through it.
    serveThrough(header);
    endSession();
  }
  if (state.scriptInstance == header) serveThrough(last ? nullptr : state.scriptInstances.back());
  releaseHostExtensions(*self);
  scriptShutdown(self);
  if (last) platform::setHostHooks(nullptr);
}

}  // namespace tessel::xtra
