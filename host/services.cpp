#include "host/services.h"

#include "host/service_support.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string_view>

namespace tessel::host {

using namespace moa;

namespace {

std::string osLanguage() {
  const char* vars[] = {"LC_ALL", "LC_MESSAGES", "LANG"};
  std::string lang;
  for (const char* var : vars) {
    const char* v = std::getenv(var);
    if (v != nullptr && *v != '\0') {
      lang = v;
      break;
    }
  }
  if (lang.empty() || lang == "C" || lang == "POSIX" || lang.rfind("C.", 0) == 0) {
    return "English";
  }
  std::string code = lang.substr(0, 2);
  static const std::pair<const char*, const char*> kNames[] = {
      {"en", "English"}, {"ja", "Japanese"},   {"fr", "French"},  {"de", "German"},
      {"pt", "Portuguese"}, {"it", "Italian"}, {"es", "Spanish"}, {"sv", "Swedish"},
      {"zh", "Chinese"}, {"ko", "Korean"},     {"ar", "Arabic"},  {"he", "Hebrew"}};
  for (const auto& [c, name] : kNames) {
    if (code == c) return name;
  }
  return "Other";
}

}  // namespace

// ---- Service base --------------------------------------------------------------------------------

template <class I>
MoaError Service<I>::QueryInterface(ConstPMoaInterfaceID iid, PPMoaVoid out) {
  return host_.callback.QueryInterface(iid, out);
}

template class Service<IMoaHandle>;
template class Service<IMoaAppInfo>;
template class Service<IMoaMmValue>;
template class Service<IMoaMmUtils>;
template class Service<IMoaMmUtils2>;
template class Service<IMoaMmWndWin>;
template class Service<IMoaMmWndMac>;
template class Service<IMoaMmList>;
template class Service<IMoaDrMovie>;
template class Service<IMoaDrPlayer>;
template class Service<IMoaDrMediaValue>;
template class Service<IMoaCallback>;

// ---- Handles -----------------------------------------------------------------------------------

HandleService::~HandleService() = default;

HandleService::Block* HandleService::find(MoaHandle h) {
  auto it = handles_.find(h);
  return it == handles_.end() ? nullptr : it->second.get();
}

MoaHandle HandleService::Alloc(MoaLong size) {
  if (size < 0) return nullptr;
  try {
    auto block = std::make_unique<Block>();
    block->data.reserve(static_cast<size_t>(size) + 1);  // Lock never answers null
    block->data.resize(static_cast<size_t>(size));
    void* h = block.get();
    handles_.emplace(h, std::move(block));
    return h;
  } catch (...) {
    return nullptr;
  }
}

MoaHandle HandleService::ZeroAlloc(MoaLong size) { return Alloc(size); }  // blocks start zeroed

void HandleService::Free(MoaHandle h) { handles_.erase(h); }

MoaLong HandleService::GetSize(MoaHandle h) {
  Block* b = find(h);
  return b == nullptr ? 0 : static_cast<MoaLong>(b->data.size());
}

MoaBoolParam HandleService::Resize(MoaHandle h, MoaLong size) {
  Block* b = find(h);
  if (b == nullptr || size < 0 || b->locks > 0) return 0;
  try {
    b->data.resize(static_cast<size_t>(size));
    return 1;
  } catch (...) {
    return 0;
  }
}

PMoaVoid HandleService::Lock(MoaHandle h) {
  Block* b = find(h);
  if (b == nullptr) return nullptr;
  ++b->locks;
  return b->data.data();
}

void HandleService::Unlock(MoaHandle h) {
  Block* b = find(h);
  if (b != nullptr && b->locks > 0) --b->locks;
}

MoaLong HandleService::GetLargestFreeBlock() { return 0x7FFFFFFF; }

std::optional<std::string> HandleService::takeString(MoaHandle h) {
  Block* b = find(h);
  if (b == nullptr) return std::nullopt;
  const auto* text = reinterpret_cast<const char*>(b->data.data());
  std::string s(text, strnlen(text, b->data.size()));
  handles_.erase(h);
  return s;
}

// ---- Application information -------------------------------------------------------------------

MoaError AppInfoService::GetInfo(MoaLong item, char* buf, MoaLong bufLen) {
  return guarded([&] {
    if (buf == nullptr || bufLen <= 0) return kMoaErr_BadParam;
    std::string text;
    switch (item) {
      case kMoaAppInfo_RunMode: text = host_.options.runMode; break;
      case kMoaAppInfo_ProductName: text = host_.options.productName; break;
      case kMoaAppInfo_ProductVersion: text = host_.options.productVersion; break;
      case kMoaAppInfo_UILanguage: text = "English"; break;
      case kMoaAppInfo_OSLanguage: text = osLanguage(); break;
      default: buf[0] = '\0'; return kMoaErr_NoSuchKey;
    }
    return answerWhole(text, buf, bufLen, kMoaErr_BadParam);
  });
}

// ---- Values --------------------------------------------------------------------------------------

MoaError ValueService::StringToSymbol(const char* text, MoaMmSymbol* sym) {
  return guarded([&] { return host_.values.stringToSymbol(text, sym); });
}
MoaError ValueService::SymbolToString(MoaMmSymbol sym, char* buf, MoaLong bufLen) {
  return guarded([&] { return host_.values.symbolToString(sym, buf, bufLen); });
}
MoaError ValueService::ValueType(ConstPMoaMmValue v, MoaMmValueType* type) {
  return guarded([&] { return host_.values.valueType(v, type); });
}
MoaError ValueService::ValueAddRef(PMoaMmValue v) {
  return guarded([&] { return host_.values.addRef(v); });
}
MoaError ValueService::ValueRelease(PMoaMmValue v) {
  return guarded([&] { return host_.values.release(v); });
}
MoaError ValueService::ValueToInteger(ConstPMoaMmValue v, MoaLong* out) {
  return guarded([&] { return host_.values.toInteger(v, out); });
}
MoaError ValueService::ValueToSymbol(ConstPMoaMmValue v, MoaMmSymbol* out) {
  return guarded([&] { return host_.values.toSymbol(v, out); });
}
MoaError ValueService::ValueToFloat(ConstPMoaMmValue v, MoaDouble* out) {
  return guarded([&] { return host_.values.toFloat(v, out); });
}
MoaError ValueService::ValueStringLength(ConstPMoaMmValue v, MoaLong* len) {
  return guarded([&] { return host_.values.stringLength(v, len); });
}
MoaError ValueService::ValueToString(ConstPMoaMmValue v, char* buf, MoaLong bufLen) {
  return guarded([&] { return host_.values.toString(v, buf, bufLen); });
}
MoaError ValueService::ValueToStringPtr(ConstPMoaMmValue v, const char** text) {
  return guarded([&] { return host_.values.toStringPtr(v, text); });
}
MoaError ValueService::ValueReleaseStringPtr(ConstPMoaMmValue v) {
  return guarded([&] { return host_.values.releaseStringPtr(v); });
}
// The host's values have no point or rectangle type: a valid value is simply not one.
MoaError ValueService::ValueToPoint(ConstPMoaMmValue v, MoaPoint* out) {
  MoaMmValueType type;
  if (out == nullptr || host_.values.valueType(v, &type) != 0) return kMoaErr_BadParam;
  return kMoaMmErr_PointExpected;
}
MoaError ValueService::ValueToRect(ConstPMoaMmValue v, MoaRect* out) {
  MoaMmValueType type;
  if (out == nullptr || host_.values.valueType(v, &type) != 0) return kMoaErr_BadParam;
  return kMoaMmErr_RectExpected;
}
MoaError ValueService::IntegerToValue(MoaLong n, PMoaMmValue v) {
  return host_.values.integerToValue(n, v);
}
MoaError ValueService::SymbolToValue(MoaMmSymbol sym, PMoaMmValue v) {
  return guarded([&] { return host_.values.symbolToValue(sym, v); });
}
MoaError ValueService::FloatToValue(MoaDouble d, PMoaMmValue v) {
  return guarded([&] { return host_.values.floatToValue(d, v); });
}
MoaError ValueService::StringToValue(const char* text, PMoaMmValue v) {
  return guarded([&] { return host_.values.stringToValue(text, v); });
}
MoaError ValueService::StringHandleToValue(MoaHandle h, PMoaMmValue v) {
  return guarded([&] {
    if (v == nullptr) return kMoaErr_BadParam;
    auto text = host_.handles.takeString(h);
    if (!text) return kMoaErr_BadParam;
    return host_.values.stringToValue(std::move(*text), v);
  });
}
MoaError ValueService::PointToValue(const MoaPoint*, PMoaMmValue) { return kMoaErr_NotImplemented; }
MoaError ValueService::RectToValue(const MoaRect*, PMoaMmValue) { return kMoaErr_NotImplemented; }

// ---- Messages ------------------------------------------------------------------------------------

std::string formatMessage(const char* fmt, const MoaLong* args, int nargs) {
  std::string out;
  if (fmt == nullptr) return out;
  int next = 0;
  for (const char* p = fmt; *p != '\0'; ++p) {
    if (*p != '%') {
      out += *p;
      continue;
    }
    const char* start = p++;
    std::string spec = "%";
    while (*p != '\0' && std::strchr("-+ 0#", *p) != nullptr) spec += *p++;
    int digits = 0;
    while (*p >= '0' && *p <= '9' && digits < 3) spec += *p++, ++digits;
    if (*p == '.') {
      spec += *p++;
      digits = 0;
      while (*p >= '0' && *p <= '9' && digits < 3) spec += *p++, ++digits;
    }
    while (*p == 'l' || *p == 'h') ++p;  // arguments are 32-bit whatever the length says
    char conv = *p;
    if (conv == '\0') {
      out.append(start);
      break;
    }
    if (conv == '%') {
      out += '%';
      continue;
    }
    if (std::strchr("diuxXoc", conv) == nullptr && conv != 's' && conv != 'v') {
      out.append(start, static_cast<size_t>(p - start + 1));
      continue;
    }
    if (next >= nargs) {
      out += '?';
      continue;
    }
    MoaLong arg = args[next++];
    if (conv == 's' || conv == 'v') {
      out += '?';  // a pointer does not fit in a 32-bit argument on this host
      continue;
    }
    spec += conv;
    char buf[64];
    if (conv == 'd' || conv == 'i' || conv == 'c') {
      std::snprintf(buf, sizeof buf, spec.c_str(), static_cast<int>(arg));
    } else {
      std::snprintf(buf, sizeof buf, spec.c_str(), static_cast<unsigned>(arg));
    }
    out += buf;
  }
  return out;
}

MoaError UtilsService::PrintMessage(const char* text) {
  return guarded([&] {
    if (text == nullptr) return kMoaErr_BadParam;
    host_.print(text);
    return kMoaErr_NoErr;
  });
}
MoaError UtilsService::PrintMessage1(const char* fmt, MoaLong a) {
  MoaLong args[] = {a};
  return guarded([&] {
    if (fmt == nullptr) return kMoaErr_BadParam;
    host_.print(formatMessage(fmt, args, 1));
    return kMoaErr_NoErr;
  });
}
MoaError UtilsService::PrintMessage2(const char* fmt, MoaLong a, MoaLong b) {
  MoaLong args[] = {a, b};
  return guarded([&] {
    if (fmt == nullptr) return kMoaErr_BadParam;
    host_.print(formatMessage(fmt, args, 2));
    return kMoaErr_NoErr;
  });
}
MoaError UtilsService::PrintMessage3(const char* fmt, MoaLong a, MoaLong b, MoaLong c) {
  MoaLong args[] = {a, b, c};
  return guarded([&] {
    if (fmt == nullptr) return kMoaErr_BadParam;
    host_.print(formatMessage(fmt, args, 3));
    return kMoaErr_NoErr;
  });
}
MoaError UtilsService::PrintMessage4(const char* fmt, MoaLong a, MoaLong b, MoaLong c, MoaLong d) {
  MoaLong args[] = {a, b, c, d};
  return guarded([&] {
    if (fmt == nullptr) return kMoaErr_BadParam;
    host_.print(formatMessage(fmt, args, 4));
    return kMoaErr_NoErr;
  });
}

// Slots 8-28 are the value service's.
MoaError UtilsService::StringToSymbol(const char* t, MoaMmSymbol* s) { return host_.value.StringToSymbol(t, s); }
MoaError UtilsService::SymbolToString(MoaMmSymbol s, char* b, MoaLong n) { return host_.value.SymbolToString(s, b, n); }
MoaError UtilsService::ValueType(ConstPMoaMmValue v, MoaMmValueType* t) { return host_.value.ValueType(v, t); }
MoaError UtilsService::ValueAddRef(PMoaMmValue v) { return host_.value.ValueAddRef(v); }
MoaError UtilsService::ValueRelease(PMoaMmValue v) { return host_.value.ValueRelease(v); }
MoaError UtilsService::ValueToInteger(ConstPMoaMmValue v, MoaLong* o) { return host_.value.ValueToInteger(v, o); }
MoaError UtilsService::ValueToSymbol(ConstPMoaMmValue v, MoaMmSymbol* o) { return host_.value.ValueToSymbol(v, o); }
MoaError UtilsService::ValueToFloat(ConstPMoaMmValue v, MoaDouble* o) { return host_.value.ValueToFloat(v, o); }
MoaError UtilsService::ValueStringLength(ConstPMoaMmValue v, MoaLong* l) { return host_.value.ValueStringLength(v, l); }
MoaError UtilsService::ValueToString(ConstPMoaMmValue v, char* b, MoaLong n) { return host_.value.ValueToString(v, b, n); }
MoaError UtilsService::ValueToStringPtr(ConstPMoaMmValue v, const char** t) { return host_.value.ValueToStringPtr(v, t); }
MoaError UtilsService::ValueReleaseStringPtr(ConstPMoaMmValue v) { return host_.value.ValueReleaseStringPtr(v); }
MoaError UtilsService::ValueToPoint(ConstPMoaMmValue v, MoaPoint* o) { return host_.value.ValueToPoint(v, o); }
MoaError UtilsService::ValueToRect(ConstPMoaMmValue v, MoaRect* o) { return host_.value.ValueToRect(v, o); }
MoaError UtilsService::IntegerToValue(MoaLong n, PMoaMmValue v) { return host_.value.IntegerToValue(n, v); }
MoaError UtilsService::SymbolToValue(MoaMmSymbol s, PMoaMmValue v) { return host_.value.SymbolToValue(s, v); }
MoaError UtilsService::FloatToValue(MoaDouble d, PMoaMmValue v) { return host_.value.FloatToValue(d, v); }
MoaError UtilsService::StringToValue(const char* t, PMoaMmValue v) { return host_.value.StringToValue(t, v); }
MoaError UtilsService::StringHandleToValue(MoaHandle h, PMoaMmValue v) { return host_.value.StringHandleToValue(h, v); }
MoaError UtilsService::PointToValue(const MoaPoint* p, PMoaMmValue v) { return host_.value.PointToValue(p, v); }
MoaError UtilsService::RectToValue(const MoaRect* r, PMoaMmValue v) { return host_.value.RectToValue(r, v); }

MoaError UtilsService::NewGC(PMoaVoid info, IMoaMmGC** gc) { return host_.utils2.NewGC(info, gc); }
MoaError UtilsService::MacHandleEvent(PMoaVoid e) { return host_.wndMac.MacHandleEvent(e); }
MoaError UtilsService::MacPrepareModalDialog(MoaMmDialogCookie* c) { return host_.wndMac.MacPrepareModalDialog(c); }
MoaError UtilsService::MacModalDialog(MoaMmDialogCookie c, PMoaVoid f, MoaShort* i) { return host_.wndMac.MacModalDialog(c, f, i); }
MoaError UtilsService::MacUnprepareModalDialog(MoaMmDialogCookie c) { return host_.wndMac.MacUnprepareModalDialog(c); }
MoaLong UtilsService::MacAlert(MoaLong id, PMoaVoid f) { return host_.wndMac.MacAlert(id, f); }
MoaError UtilsService::MacRegisterWindow(PMoaVoid h, PMoaVoid w, MoaLong fl, PMoaVoid r) { return host_.wndMac.MacRegisterWindow(h, w, fl, r); }
MoaError UtilsService::MacUnregisterWindow(PMoaVoid h) { return host_.wndMac.MacUnregisterWindow(h); }
MoaError UtilsService::MacDragWindow(PMoaVoid w, const MoaPoint* s, const MoaRect* l) { return host_.wndMac.MacDragWindow(w, s, l); }
MoaError UtilsService::MacSelectWindow(PMoaVoid w) { return host_.wndMac.MacSelectWindow(w); }
MoaError UtilsService::MacXShowWindow(PMoaVoid w) { return host_.wndMac.MacXShowWindow(w); }
MoaError UtilsService::MacHideWindow(PMoaVoid w) { return host_.wndMac.MacHideWindow(w); }
MoaLong UtilsService::WinDialogBox(XtraResourceCookie r, const char* t, PMoaVoid p) { return host_.wndWin.WinDialogBox(r, t, p); }
MoaError UtilsService::WinGetParent(PMoaVoid* i, PMoaVoid* w) { return host_.wndWin.WinGetParent(i, w); }
MoaError UtilsService::RGBToIndex(const MoaMmRGBTriple* rgb, MoaLong* i) { return host_.utils2.RGBToIndex(rgb, i); }
MoaError UtilsService::IndexToRGB(MoaLong i, MoaMmRGBTriple* rgb) { return host_.utils2.IndexToRGB(i, rgb); }
MoaLong UtilsService::WinDialogBoxParam(XtraResourceCookie r, const char* t, PMoaVoid p, MoaLong a) { return host_.wndWin.WinDialogBoxParam(r, t, p, a); }
MoaError UtilsService::WinPrepareDialogBox(MoaMmDialogCookie* c) { return host_.wndWin.WinPrepareDialogBox(c); }
MoaError UtilsService::WinUnprepareDialogBox(MoaMmDialogCookie c) { return host_.wndWin.WinUnprepareDialogBox(c); }

MoaError Utils2Service::PrintMessage(const char* t) { return host_.utils.PrintMessage(t); }
MoaError Utils2Service::PrintMessage1(const char* f, MoaLong a) { return host_.utils.PrintMessage1(f, a); }
MoaError Utils2Service::PrintMessage2(const char* f, MoaLong a, MoaLong b) { return host_.utils.PrintMessage2(f, a, b); }
MoaError Utils2Service::PrintMessage3(const char* f, MoaLong a, MoaLong b, MoaLong c) { return host_.utils.PrintMessage3(f, a, b, c); }
MoaError Utils2Service::PrintMessage4(const char* f, MoaLong a, MoaLong b, MoaLong c, MoaLong d) { return host_.utils.PrintMessage4(f, a, b, c, d); }
// Graphics contexts and palette indexes belong to platforms with a host-drawn stage.
MoaError Utils2Service::NewGC(PMoaVoid, IMoaMmGC** gc) {
  if (gc != nullptr) *gc = nullptr;
  return kMoaErr_NotImplemented;
}
MoaError Utils2Service::RGBToIndex(const MoaMmRGBTriple*, MoaLong*) { return kMoaErr_NotImplemented; }
MoaError Utils2Service::IndexToRGB(MoaLong, MoaMmRGBTriple*) { return kMoaErr_NotImplemented; }

// ---- Platform window helpers ---------------------------------------------------------------------

// Dialog resources and parent windows of another platform: there is nothing to show or
// answer. The prepare/unprepare brackets are counted so tests can see an Xtra uses them.
MoaLong WndWinService::WinDialogBox(XtraResourceCookie, const char*, PMoaVoid) { return -1; }
MoaError WndWinService::WinGetParent(PMoaVoid* instance, PMoaVoid* window) {
  if (instance != nullptr) *instance = nullptr;
  if (window != nullptr) *window = nullptr;
  return kMoaErr_NotImplemented;
}
MoaLong WndWinService::WinDialogBoxParam(XtraResourceCookie, const char*, PMoaVoid, MoaLong) { return -1; }
MoaError WndWinService::WinPrepareDialogBox(MoaMmDialogCookie* cookie) {
  ++host_.counters.modalDialogsBegun;
  if (cookie != nullptr) *cookie = host_.counters.modalDialogsBegun;
  return kMoaErr_NoErr;
}
MoaError WndWinService::WinUnprepareDialogBox(MoaMmDialogCookie) {
  ++host_.counters.modalDialogsEnded;
  return kMoaErr_NoErr;
}

MoaError WndMacService::MacHandleEvent(PMoaVoid) { return kMoaErr_NotImplemented; }
MoaError WndMacService::MacPrepareModalDialog(MoaMmDialogCookie* cookie) {
  ++host_.counters.modalDialogsBegun;
  if (cookie != nullptr) *cookie = host_.counters.modalDialogsBegun;
  return kMoaErr_NoErr;
}
MoaError WndMacService::MacModalDialog(MoaMmDialogCookie, PMoaVoid, MoaShort* itemHit) {
  if (itemHit != nullptr) *itemHit = 0;
  return kMoaErr_NotImplemented;
}
MoaError WndMacService::MacUnprepareModalDialog(MoaMmDialogCookie) {
  ++host_.counters.modalDialogsEnded;
  return kMoaErr_NoErr;
}
MoaLong WndMacService::MacAlert(MoaLong, PMoaVoid) { return -1; }
MoaError WndMacService::MacRegisterWindow(PMoaVoid, PMoaVoid, MoaLong, PMoaVoid) { return kMoaErr_NotImplemented; }
MoaError WndMacService::MacUnregisterWindow(PMoaVoid) { return kMoaErr_NotImplemented; }
MoaError WndMacService::MacDragWindow(PMoaVoid, const MoaPoint*, const MoaRect*) { return kMoaErr_NotImplemented; }
MoaError WndMacService::MacSelectWindow(PMoaVoid) { return kMoaErr_NotImplemented; }
MoaError WndMacService::MacXShowWindow(PMoaVoid) { return kMoaErr_NotImplemented; }
MoaError WndMacService::MacHideWindow(PMoaVoid) { return kMoaErr_NotImplemented; }

// ---- Lists ---------------------------------------------------------------------------------------

MoaError ListService::NewListValue(PMoaMmValue list) {
  return guarded([&] { return host_.values.newList(list); });
}
MoaError ListService::AppendValueToList(PMoaMmValue list, ConstPMoaMmValue item) {
  return guarded([&] { return host_.values.appendToList(list, item); });
}
MoaLong ListService::CountElements(ConstPMoaMmValue list) { return host_.values.countElements(list); }
MoaError ListService::GetValueByIndex(ConstPMoaMmValue list, MoaLong index, PMoaMmValue out) {
  return guarded([&] { return host_.values.getByIndex(list, index, out); });
}
MoaError ListService::SetValueByIndex(PMoaMmValue list, MoaLong index, ConstPMoaMmValue item) {
  return guarded([&] { return host_.values.setByIndex(list, index, item); });
}
MoaError ListService::NewPropListValue(PMoaMmValue list) {
  return guarded([&] { return host_.values.newPropList(list); });
}
MoaError ListService::AppendValueToPropList(PMoaMmValue list, ConstPMoaMmValue prop,
                                            ConstPMoaMmValue item) {
  return guarded([&] { return host_.values.appendToPropList(list, prop, item); });
}
MoaError ListService::GetValueByProperty(ConstPMoaMmValue list, ConstPMoaMmValue prop,
                                         PMoaMmValue out) {
  return guarded([&] { return host_.values.getByProperty(list, prop, out); });
}
MoaError ListService::SetValueByProperty(PMoaMmValue list, ConstPMoaMmValue prop,
                                         ConstPMoaMmValue item) {
  return guarded([&] { return host_.values.setByProperty(list, prop, item); });
}
MoaError ListService::GetPropertyNameByIndex(ConstPMoaMmValue list, MoaLong index,
                                             PMoaMmValue out) {
  return guarded([&] { return host_.values.getPropertyName(list, index, out); });
}

// ---- Callback ------------------------------------------------------------------------------------

MoaError CallbackService::QueryInterface(ConstPMoaInterfaceID iid, PPMoaVoid out) {
  if (out == nullptr) return kMoaErr_BadParam;
  *out = nullptr;
  if (iid == nullptr) return kMoaErr_BadParam;
  const MoaID& id = *iid;
  IMoaUnknown* service = nullptr;
  void* face = nullptr;
  auto serve = [&](auto* s) {
    service = s;
    face = s;
  };
  if (equalID(id, IID_IMoaUnknown) || equalID(id, IID_IMoaCallback)) {
    serve(static_cast<IMoaCallback*>(this));
  } else if (equalID(id, IID_IMoaCalloc)) {
    serve(static_cast<IMoaCalloc*>(&host_.calloc));
  } else if (equalID(id, IID_IMoaHandle)) {
    serve(static_cast<IMoaHandle*>(&host_.handles));
  } else if (equalID(id, IID_IMoaCache)) {
    serve(static_cast<IMoaCache*>(&host_.cache));
  } else if (equalID(id, IID_IMoaAppInfo)) {
    serve(static_cast<IMoaAppInfo*>(&host_.appInfo));
  } else if (equalID(id, IID_IMoaMmValue)) {
    serve(static_cast<IMoaMmValue*>(&host_.value));
  } else if (equalID(id, IID_IMoaMmUtils)) {
    serve(static_cast<IMoaMmUtils*>(&host_.utils));
  } else if (equalID(id, IID_IMoaMmUtils2)) {
    serve(static_cast<IMoaMmUtils2*>(&host_.utils2));
  } else if (equalID(id, IID_IMoaMmWndWin)) {
    serve(static_cast<IMoaMmWndWin*>(&host_.wndWin));
  } else if (equalID(id, IID_IMoaMmWndMac)) {
    serve(static_cast<IMoaMmWndMac*>(&host_.wndMac));
  } else if (equalID(id, IID_IMoaMmList)) {
    serve(static_cast<IMoaMmList*>(&host_.list));
  } else if (host_.isDirector() && equalID(id, IID_IMoaDrPlayer)) {
    serve(static_cast<IMoaDrPlayer*>(&host_.player));
  } else if (host_.isDirector() && equalID(id, IID_IMoaDrMediaValue)) {
    serve(static_cast<IMoaDrMediaValue*>(&host_.mediaValue));
  } else if (host_.options.holdKeyboard && equalID(id, IID_ITesselStage)) {
    serve(static_cast<ITesselStage*>(&host_.stage));
  } else if (host_.options.interruptRequested && equalID(id, IID_ITesselInterrupt)) {
    serve(static_cast<ITesselInterrupt*>(&host_.interrupt));
  } else {
    return kMoaErr_BadInterface;
  }
  service->AddRef();
  *out = face;
  return kMoaErr_NoErr;
}

MoaError InterruptService::InterruptRequested(MoaBool* requested) {
  if (requested == nullptr) return kMoaErr_BadParam;
  return guarded([&] {
    *requested = host_.options.interruptRequested && host_.options.interruptRequested() ? 1 : 0;
    return kMoaErr_NoErr;
  });
}

MoaError StageService::HoldKeyboard(MoaBoolParam hold) {
  return guarded([&] {
    if (!host_.options.holdKeyboard) return kMoaErr_NotImplemented;
    return host_.options.holdKeyboard(hold != 0) ? kMoaErr_NoErr : kMoaErr_InternalError;
  });
}

MoaError CallbackService::MoaCreateInstance(ConstPMoaClassID cls, ConstPMoaInterfaceID iid,
                                            PPMoaVoid out) {
  return guarded([&] {
    if (out == nullptr) return kMoaErr_BadParam;
    *out = nullptr;
    if (cls == nullptr || iid == nullptr) return kMoaErr_BadParam;
    if (!host_.createInstance) return kMoaErr_BadClass;
    return host_.createInstance(*cls, *iid, out);
  });
}

IMoaCache* CallbackService::MoaGetCache() { return &host_.cache; }

XtraResourceCookie CallbackService::MoaBeginUsingResources(MoaFileRef, XtraResourceCookie* save) {
  ++host_.counters.resourcesBegun;
  if (save != nullptr) *save = 0;
  return 0;
}

void CallbackService::MoaEndUsingResources(MoaFileRef, XtraResourceCookie) {
  ++host_.counters.resourcesEnded;
}

// ---- HostServices --------------------------------------------------------------------------------

HostServices::HostServices(HostOptions opts) : options(std::move(opts)) {}

bool HostServices::isDirector() const { return equalsIgnoringCase(options.productName, "Director"); }

uint32_t HostServices::serviceReferences() const {
  return calloc.refs().count() + cache.refs().count() + handles.refs().count() +
         appInfo.refs().count() + value.refs().count() + utils.refs().count() +
         utils2.refs().count() + wndWin.refs().count() + wndMac.refs().count() +
         list.refs().count() + player.refs().count() + movieService.refs().count() +
         mediaValue.refs().count() + stage.refs().count() + interrupt.refs().count() +
         callback.refs().count();
}

void HostServices::print(const std::string& text) {
  if (options.printMessage) {
    options.printMessage(text);
    return;
  }
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

}  // namespace tessel::host
