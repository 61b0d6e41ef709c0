// Lingo methods 90-101: other applications' windows, keys and mouse clicks.
#include "windows/input.h"
#include "windows/window_functions.h"
#include "xtra/marshal.h"

namespace tessel::xtra {

using T = TStdXtra_IMoaMmXScript;

namespace {

template <typename Worker>
MoaError handleToInteger(PMoaMmCallInfo info, Worker worker) {
  return runMethod(info, [&](MethodCall& call) -> MoaError {
    int32_t n = 0;
    if (MoaError err = call.integer(1, n)) return err;
    return call.returnInteger(worker(n));
  });
}

}  // namespace

MoaError T::tsFindWindow(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string creator, title;
    if (MoaError err = call.text(1, creator)) return err;
    if (MoaError err = call.text(2, title, kShortLen)) return err;
    return call.returnInteger(windows::findWindow(creator, title));
  });
}

MoaError T::tsWindowInfo(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    int32_t handle = 0;
    std::string type;
    if (MoaError err = call.integer(1, handle)) return err;
    if (MoaError err = call.text(2, type)) return err;
    return call.returnText(windows::windowInfo(handle, type), kPathLen);
  });
}

MoaError T::tsActiveWindow(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    return call.returnInteger(windows::activeWindow());
  });
}

MoaError T::tsCloseWindow(PMoaMmCallInfo info) {
  return handleToInteger(info, windows::closeWindow);
}
MoaError T::tsActivateWindow(PMoaMmCallInfo info) {
  return handleToInteger(info, windows::activateWindow);
}
MoaError T::tsNextActiveWindow(PMoaMmCallInfo info) {
  return handleToInteger(info, windows::nextActiveWindow);
}
MoaError T::tsWindowExists(PMoaMmCallInfo info) {
  return handleToInteger(info, windows::windowExists);
}

MoaError T::tsWaitForWindow(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    int32_t handle = 0, timeout = 0;
    std::string state;
    if (MoaError err = call.integer(1, handle)) return err;
    if (MoaError err = call.text(2, state)) return err;
    if (MoaError err = call.integer(3, timeout)) return err;
    return call.returnInteger(windows::waitForWindow(handle, state, timeout));
  });
}

MoaError T::tsWindowList(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string windowClass, caption;
    int32_t match = 0;
    if (MoaError err = call.text(1, windowClass, kShortLen)) return err;
    if (MoaError err = call.text(2, caption, kShortLen)) return err;
    if (MoaError err = call.integer(3, match)) return err;
    return call.returnIntegerList(windows::windowList(windowClass, caption, match));
  });
}

MoaError T::tsSendKeys(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string keys;
    if (MoaError err = call.text(1, keys, kPathLen)) return err;
    return call.returnInteger(windows::sendKeys(keys));
  });
}

MoaError T::tsMouseClick(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string type;
    if (MoaError err = call.text(1, type)) return err;
    return call.returnInteger(windows::mouseClick(type));
  });
}

MoaError T::tsWinHandle(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    return call.returnInteger(windows::winHandle());
  });
}

}  // namespace tessel::xtra
