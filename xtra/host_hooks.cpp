// What the host does for the workers around a window and during a progress copy, given to them
// as plain calls (platform::HostHooks) so that below the frame nothing sees MOA.
#include <string>
#include <vector>

#include "platform/ui.h"
#include "xtra/host_extensions.h"
#include "xtra/module.h"

namespace tessel::xtra {
namespace {

class FrameHooks final : public platform::HostHooks {
 public:
  // The module's resource file is made current, then the host hears (through the utility
  // interface the instance holds, IMoaMmUtils) that a modal dialog begins.
  void beginWindow() override {
    Bracket b;
    ModuleState& state = moduleState();
    if (state.scriptInstance != nullptr && state.scriptInstance->pCallback != nullptr) {
      state.scriptInstance->pCallback->MoaBeginUsingResources(state.fileRef, &b.savedResources);
      b.resources = true;
    }
    if (IMoaMmUtils* utils = hostServices().lingoValue) {
      b.dialog = utils->MacPrepareModalDialog(&b.cookie) == kMoaErr_NoErr;
    }
    open_.push_back(b);
  }

  // The same steps undone, in the reverse order.
  void endWindow() override {
    if (open_.empty()) return;
    Bracket b = open_.back();
    open_.pop_back();
    if (b.dialog) {
      if (IMoaMmUtils* utils = hostServices().lingoValue) utils->MacUnprepareModalDialog(b.cookie);
    }
    ModuleState& state = moduleState();
    if (b.resources && state.scriptInstance != nullptr &&
        state.scriptInstance->pCallback != nullptr)
      state.scriptInstance->pCallback->MoaEndUsingResources(state.fileRef, b.savedResources);
  }

  // tsCopyProgressUpdate(value, fileName) in the current movie. A non-zero integer answer
  // cancels; a movie without the handler is no error; any other failure cancels, as every
  // later call-back in this call would fail too.
  HandlerAnswer progressUpdate(int32_t value, const std::string& name) override {
    HostServices& host = hostServices();
    if (host.player == nullptr || host.lingoValue == nullptr) return HandlerAnswer::Continue;
    IMoaDrMovie* movie = nullptr;
    if (host.player->GetActiveMovie(&movie) != kMoaErr_NoErr || movie == nullptr) {
      if (movie != nullptr) movie->Release();
      return HandlerAnswer::Cancel;
    }
    HandlerAnswer answer = HandlerAnswer::Cancel;
    MoaMmSymbol handler = 0;
    MoaMmValue args[2]{};
    MoaMmValue result{};
    if (host.lingoValue->StringToSymbol("tsCopyProgressUpdate", &handler) == kMoaErr_NoErr &&
        host.lingoValue->IntegerToValue(value, &args[0]) == kMoaErr_NoErr &&
        host.lingoValue->StringToValue(name.c_str(), &args[1]) == kMoaErr_NoErr) {
      const MoaError err = movie->CallHandler(handler, 2, args, &result);
      if (err == kMoaDrErr_HandlerNotDefined) {
        answer = HandlerAnswer::Continue;
      } else if (err == kMoaErr_NoErr) {
        answer = HandlerAnswer::Continue;
        MoaMmValueType type = 0;
        MoaLong n = 0;
        if (host.lingoValue->ValueType(&result, &type) == kMoaErr_NoErr &&
            type == kMoaMmValueType_Integer &&
            host.lingoValue->ValueToInteger(&result, &n) == kMoaErr_NoErr && n != 0)
          answer = HandlerAnswer::Cancel;
      }
      host.lingoValue->ValueRelease(&result);
    }
    host.lingoValue->ValueRelease(&args[0]);
    host.lingoValue->ValueRelease(&args[1]);
    movie->Release();
    return answer;
  }

  bool interruptRequested() override { return xtra::interruptRequested(); }

 private:
  struct Bracket {
    XtraResourceCookie savedResources{};
    MoaMmDialogCookie cookie{};
    bool resources = false;
    bool dialog = false;
  };
  std::vector<Bracket> open_;
};

}  // namespace

platform::HostHooks& frameHooks() {
  static FrameHooks hooks;
  return hooks;
}

}  // namespace tessel::xtra
