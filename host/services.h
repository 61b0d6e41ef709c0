// The host's MOA services: the objects an Xtra reaches through its instance's callback
// (pCallback->QueryInterface), each implementing one interface of moa_interfaces.h slot for
// slot.
//
// Reference counts are real and observable: QueryInterface adds a reference, Release removes
// one and answers the references still held by Xtras. The host owns every service object, so a
// count of 0 frees nothing; Release on a count of 0 is recorded as an over-release.
//
// Nothing here throws into an Xtra: every operation catches what the host's own code might
// throw and answers a MOA error instead (kMoaErr_OutOfMem for memory, kMoaErr_InternalError
// otherwise).
//
// The allocator, dictionary and cache (registry.h) can be used on their own; the other services
// live in one HostServices object per Host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/host.h"
#include "host/registry.h"
#include "host/value_store.h"
#include "moa/moa_interfaces.h"
#include "moa/tessel_interrupt.h"
#include "moa/tessel_stage.h"

namespace tessel::host {

// ---- Reference counting ---st ------------------------------------------------------------------

struct HostServices;

// Base of the services that belong to a host: QueryInterface is the callback's (every service
// is a face of the one callback object), AddRef/Release count.
template <class I>
class Service : public I {
 public:
  explicit Service(HostServices& host) : host_(host) {}
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  moa::MoaError QueryInterface(moa::ConstPMoaInterfaceID iid, moa::PPMoaVoid out) override;
  moa::MoaUlong AddRef() override { return refs_.add(); }
  moa::MoaUlong Release() override { return refs_.remove(); }
  const RefCount& refs() const { return refs_; }

 protected:
  ~Service() = default;
  HostServices& host_;

 private:
  RefCount refs_;
};

// Relocatable blocks: a MoaHandle is the address of a host record; handles that did not come
// from here are refused (null, 0 or no effect). A locked handle cannot be resized.
class HandleService final : public Service<moa::IMoaHandle> {
 public:
  using Service::Service;
  ~HandleService();
  moa::MoaHandle Alloc(moa::MoaLong size) override;
  moa::MoaHandle ZeroAlloc(moa::MoaLong size) override;
  void Free(moa::MoaHandle h) override;
  moa::MoaLong GetSize(moa::MoaHandle h) override;
  moa::MoaBoolParam Resize(moa::MoaHandle h, moa::MoaLong size) override;
  moa::PMoaVoid Lock(moa::MoaHandle h) override;
  void Unlock(moa::MoaHandle h) override;
  moa::MoaLong GetLargestFreeBlock() override;

  size_t liveHandles() const { return handles_.size(); }
  // Takes the text out of a handle and frees the handle (StringHandleToValue).
  std::optional<std::string> takeString(moa::MoaHandle h);

 private:
  struct Block {
    std::vector<uint8_t> data;
    int locks = 0;
  };
  Block* find(moa::MoaHandle h);
  std::unordered_map<void*, std::unique_ptr<Block>> handles_;
};

class AppInfoService final : public Service<moa::IMoaAppInfo> {
 public:
  using Service::Service;
  moa::MoaError GetInfo(moa::MoaLong item, char* buf, moa::MoaLong bufLen) override;
};

class ValueService final : public Service<moa::IMoaMmValue> {
 public:
  using Service::Service;
  moa::MoaError StringToSymbol(const char* text, moa::MoaMmSymbol* sym) override;
  moa::MoaError SymbolToString(moa::MoaMmSymbol sym, char* buf, moa::MoaLong bufLen) override;
  moa::MoaError ValueType(moa::ConstPMoaMmValue v, moa::MoaMmValueType* type) override;
  moa::MoaError ValueAddRef(moa::PMoaMmValue v) override;
  moa::MoaError ValueRelease(moa::PMoaMmValue v) override;
  moa::MoaError ValueToInteger(moa::ConstPMoaMmValue v, moa::MoaLong* out) override;
  moa::MoaError ValueToSymbol(moa::ConstPMoaMmValue v, moa::MoaMmSymbol* out) override;
  moa::MoaError ValueToFloat(moa::ConstPMoaMmValue v, moa::MoaDouble* out) override;
  moa::MoaError ValueStringLength(moa::ConstPMoaMmValue v, moa::MoaLong* len) override;
  moa::MoaError ValueToString(moa::ConstPMoaMmValue v, char* buf, moa::MoaLong bufLen) override;
  moa::MoaError ValueToStringPtr(moa::ConstPMoaMmValue v, const char** text) override;
  moa::MoaError ValueReleaseStringPtr(moa::ConstPMoaMmValue v) override;
  moa::MoaError ValueToPoint(moa::ConstPMoaMmValue v, moa::MoaPoint* out) override;
  moa::MoaError ValueToRect(moa::ConstPMoaMmValue v, moa::MoaRect* out) override;
  moa::MoaError IntegerToValue(moa::MoaLong n, moa::PMoaMmValue v) override;
  moa::MoaError SymbolToValue(moa::MoaMmSymbol sym, moa::PMoaMmValue v) override;
  moa::MoaError FloatToValue(moa::MoaDouble d, moa::PMoaMmValue v) override;
  moa::MoaError StringToValue(const char* text, moa::PMoaMmValue v) override;
  moa::MoaError StringHandleToValue(moa::MoaHandle h, moa::PMoaMmValue v) override;
  moa::MoaError PointToValue(const moa::MoaPoint* p, moa::PMoaMmValue v) override;
  moa::MoaError RectToValue(const moa::MoaRect* r, moa::PMoaMmValue v) override;
};

class UtilsService final : public Service<moa::IMoaMmUtils> {
 public:
  using Service::Service;
  moa::MoaError PrintMessage(const char* text) override;
  moa::MoaError PrintMessage1(const char* fmt, moa::MoaLong a) override;
  moa::MoaError PrintMessage2(const char* fmt, moa::MoaLong a, moa::MoaLong b) override;
  moa::MoaError PrintMessage3(const char* fmt, moa::MoaLong a, moa::MoaLong b,
                              moa::MoaLong c) override;
  moa::MoaError PrintMessage4(const char* fmt, moa::MoaLong a, moa::MoaLong b, moa::MoaLong c,
                              moa::MoaLong d) override;
  moa::MoaError StringToSymbol(const char* text, moa::MoaMmSymbol* sym) override;
  moa::MoaError SymbolToString(moa::MoaMmSymbol sym, char* buf, moa::MoaLong bufLen) override;
  moa::MoaError ValueType(moa::ConstPMoaMmValue v, moa::MoaMmValueType* type) override;
  moa::MoaError ValueAddRef(moa::PMoaMmValue v) override;
  moa::MoaError ValueRelease(moa::PMoaMmValue v) override;
  moa::MoaError ValueToInteger(moa::ConstPMoaMmValue v, moa::MoaLong* out) override;
  moa::MoaError ValueToSymbol(moa::ConstPMoaMmValue v, moa::MoaMmSymbol* out) override;
  moa::MoaError ValueToFloat(moa::ConstPMoaMmValue v, moa::MoaDouble* out) override;
  moa::MoaError ValueStringLength(moa::ConstPMoaMmValue v, moa::MoaLong* len) override;
  moa::MoaError ValueToString(moa::ConstPMoaMmValue v, char* buf, moa::MoaLong bufLen) override;
  moa::MoaError ValueToStringPtr(moa::ConstPMoaMmValue v, const char** text) override;
  moa::MoaError ValueReleaseStringPtr(moa::ConstPMoaMmValue v) override;
  moa::MoaError ValueToPoint(moa::ConstPMoaMmValue v, moa::MoaPoint* out) override;
  moa::MoaError ValueToRect(moa::ConstPMoaMmValue v, moa::MoaRect* out) override;
  moa::MoaError IntegerToValue(moa::MoaLong n, moa::PMoaMmValue v) override;
  moa::MoaError SymbolToValue(moa::MoaMmSymbol sym, moa::PMoaMmValue v) override;
  moa::MoaError FloatToValue(moa::MoaDouble d, moa::PMoaMmValue v) override;
  moa::MoaError StringToValue(const char* text, moa::PMoaMmValue v) override;
  moa::MoaError StringHandleToValue(moa::MoaHandle h, moa::PMoaMmValue v) override;
  moa::MoaError PointToValue(const moa::MoaPoint* p, moa::PMoaMmValue v) override;
  moa::MoaError RectToValue(const moa::MoaRect* r, moa::PMoaMmValue v) override;
  moa::MoaError NewGC(moa::PMoaVoid nativeGCInfo, moa::IMoaMmGC** gc) override;
  moa::MoaError MacHandleEvent(moa::PMoaVoid event) override;
  moa::MoaError MacPrepareModalDialog(moa::MoaMmDialogCookie* cookie) override;
  moa::MoaError MacModalDialog(moa::MoaMmDialogCookie cookie, moa::PMoaVoid filter,
                               moa::MoaShort* itemHit) override;
  moa::MoaError MacUnprepareModalDialog(moa::MoaMmDialogCookie cookie) override;
  moa::MoaLong MacAlert(moa::MoaLong alertID, moa::PMoaVoid filter) override;
  moa::MoaError MacRegisterWindow(moa::PMoaVoid handler, moa::PMoaVoid window, moa::MoaLong flags,
                                  moa::PMoaVoid refCon) override;
  moa::MoaError MacUnregisterWindow(moa::PMoaVoid handler) override;
  moa::MoaError MacDragWindow(moa::PMoaVoid window, const moa::MoaPoint* start,
                              const moa::MoaRect* limit) override;
  moa::MoaError MacSelectWindow(moa::PMoaVoid window) override;
  moa::MoaError MacXShowWindow(moa::PMoaVoid window) override;
  moa::MoaError MacHideWindow(moa::PMoaVoid window) override;
  moa::MoaLong WinDialogBox(moa::XtraResourceCookie res, const char* templ,
                            moa::PMoaVoid proc) override;
  moa::MoaError WinGetParent(moa::PMoaVoid* instance, moa::PMoaVoid* window) override;
  moa::MoaError RGBToIndex(const moa::MoaMmRGBTriple* rgb, moa::MoaLong* index) override;
  moa::MoaError IndexToRGB(moa::MoaLong index, moa::MoaMmRGBTriple* rgb) override;
  moa::MoaLong WinDialogBoxParam(moa::XtraResourceCookie res, const char* templ,
                                 moa::PMoaVoid proc, moa::MoaLong param) override;
  moa::MoaError WinPrepareDialogBox(moa::MoaMmDialogCookie* cookie) override;
  moa::MoaError WinUnprepareDialogBox(moa::MoaMmDialogCookie cookie) override;
};

class Utils2Service final : public Service<moa::IMoaMmUtils2> {
 public:
  using Service::Service;
  moa::MoaError PrintMessage(const char* text) override;
  moa::MoaError PrintMessage1(const char* fmt, moa::MoaLong a) override;
  moa::MoaError PrintMessage2(const char* fmt, moa::MoaLong a, moa::MoaLong b) override;
  moa::MoaError PrintMessage3(const char* fmt, moa::MoaLong a, moa::MoaLong b,
                              moa::MoaLong c) override;
  moa::MoaError PrintMessage4(const char* fmt, moa::MoaLong a, moa::MoaLong b, moa::MoaLong c,
                              moa::MoaLong d) override;
  moa::MoaError NewGC(moa::PMoaVoid nativeGCInfo, moa::IMoaMmGC** gc) override;
  moa::MoaError RGBToIndex(const moa::MoaMmRGBTriple* rgb, moa::MoaLong* index) override;
  moa::MoaError IndexToRGB(moa::MoaLong index, moa::MoaMmRGBTriple* rgb) override;
};

class WndWinService final : public Service<moa::IMoaMmWndWin> {
 public:
  using Service::Service;
  moa::MoaLong WinDialogBox(moa::XtraResourceCookie res, const char* templ,
                            moa::PMoaVoid proc) override;
  moa::MoaError WinGetParent(moa::PMoaVoid* instance, moa::PMoaVoid* window) override;
  moa::MoaLong WinDialogBoxParam(moa::XtraResourceCookie res, const char* templ,
                                 moa::PMoaVoid proc, moa::MoaLong param) override;
  moa::MoaError WinPrepareDialogBox(moa::MoaMmDialogCookie* cookie) override;
  moa::MoaError WinUnprepareDialogBox(moa::MoaMmDialogCookie cookie) override;
};

class WndMacService final : public Service<moa::IMoaMmWndMac> {
 public:
  using Service::Service;
  moa::MoaError MacHandleEvent(moa::PMoaVoid event) override;
  moa::MoaError MacPrepareModalDialog(moa::MoaMmDialogCookie* cookie) override;
  moa::MoaError MacModalDialog(moa::MoaMmDialogCookie cookie, moa::PMoaVoid filter,
                               moa::MoaShort* itemHit) override;
  moa::MoaError MacUnprepareModalDialog(moa::MoaMmDialogCookie cookie) override;
  moa::MoaLong MacAlert(moa::MoaLong alertID, moa::PMoaVoid filter) override;
  moa::MoaError MacRegisterWindow(moa::PMoaVoid handler, moa::PMoaVoid window, moa::MoaLong flags,
                                  moa::PMoaVoid refCon) override;
  moa::MoaError MacUnregisterWindow(moa::PMoaVoid handler) override;
  moa::MoaError MacDragWindow(moa::PMoaVoid window, const moa::MoaPoint* start,
                              const moa::MoaRect* limit) override;
  moa::MoaError MacSelectWindow(moa::PMoaVoid window) override;
  moa::MoaError MacXShowWindow(moa::PMoaVoid window) override;
  moa::MoaError MacHideWindow(moa::PMoaVoid window) override;
};

class ListService final : public Service<moa::IMoaMmList> {
 public:
  using Service::Service;
  moa::MoaError NewListValue(moa::PMoaMmValue list) override;
  moa::MoaError AppendValueToList(moa::PMoaMmValue list, moa::ConstPMoaMmValue item) override;
  moa::MoaLong CountElements(moa::ConstPMoaMmValue list) override;
  moa::MoaError GetValueByIndex(moa::ConstPMoaMmValue list, moa::MoaLong index,
                                moa::PMoaMmValue out) override;
  moa::MoaError SetValueByIndex(moa::PMoaMmValue list, moa::MoaLong index,
                                moa::ConstPMoaMmValue item) override;
  moa::MoaError NewPropListValue(moa::PMoaMmValue list) override;
  moa::MoaError AppendValueToPropList(moa::PMoaMmValue list, moa::ConstPMoaMmValue prop,
                                      moa::ConstPMoaMmValue item) override;
  moa::MoaError GetValueByProperty(moa::ConstPMoaMmValue list, moa::ConstPMoaMmValue prop,
                                   moa::PMoaMmValue out) override;
  moa::MoaError SetValueByProperty(moa::PMoaMmValue list, moa::ConstPMoaMmValue prop,
                                   moa::ConstPMoaMmValue item) override;
  moa::MoaError GetPropertyNameByIndex(moa::ConstPMoaMmValue list, moa::MoaLong index,
                                       moa::PMoaMmValue out) override;
};

// The running movie (the Movie set on the Host), reached through the player.
class MovieService final : public Service<moa::IMoaDrMovie> {
 public:
  using Service::Service;
  moa::MoaError GetProp(moa::MoaMmSymbol prop, moa::PMoaMmValue out) override;
  moa::MoaError SetProp(moa::MoaMmSymbol prop, moa::ConstPMoaMmValue value) override;
  moa::MoaError GetMedia(moa::MoaDrMediaInfo* info) override;
  moa::MoaError SetMedia(moa::MoaDrMediaInfo* info) override;
  moa::MoaError AttachMedia(moa::MoaDrMediaInfo* info) override;
  moa::MoaError CallHandler(moa::MoaMmSymbol name, moa::MoaLong nArgs, moa::PMoaMmValue args,
                            moa::PMoaMmValue result) override;
  moa::MoaError GetCastCount(moa::MoaLong* count) override;
  moa::MoaError GetNthCast(moa::MoaLong index, moa::IMoaDrCast** cast) override;
  moa::MoaError GetCastFromName(const char* name, moa::IMoaDrCast** cast) override;
  moa::MoaError GetCastIndexFromName(const char* name, moa::MoaLong* index) override;
  moa::MoaError NewCast(const char* name, moa::MoaBoolParam external, moa::MoaLong* index) override;
  moa::MoaError AddExternalCast(const char* name, const char* path, moa::MoaLong* index) override;
  moa::MoaError RemoveCast(moa::MoaLong index) override;
  moa::MoaError GetCMRefFromMemberName(const char* name, moa::MoaDrCMRef* ref) override;
  moa::MoaError GetCastMemFromCMRef(const moa::MoaDrCMRef* ref, moa::IMoaDrCastMem** mem) override;
  moa::MoaError UpdateStageRect(const moa::MoaRect* window, const moa::MoaRect* buffer) override;
  moa::MoaError GetStageWindowGC(moa::IMoaMmGC** gc) override;
  moa::MoaError GetStageBufferGC(moa::IMoaMmGC** gc) override;
  moa::MoaError GetFrameIndexFromLabel(const char* label, moa::MoaLong* frame) override;
  moa::MoaError GetFrameLabelFromIndex(moa::MoaLong frame, char* buf, moa::MoaLong len) override;
  moa::MoaError SetFrameLabel(moa::MoaLong frame, const char* label) override;
  moa::MoaError GetScoreAccess(moa::IMoaDrScoreAccess** access) override;
  moa::MoaError Save(const char* newPath, moa::MoaBoolParam saveExternalCasts) override;
  moa::MoaError SendSpriteMessage(moa::MoaLong channel, moa::MoaMmSymbol handler,
                                  moa::MoaLong nArgs, moa::PMoaMmValue args,
                                  moa::PMoaMmValue result, moa::MoaBool* handled) override;
};

class PlayerService final : public Service<moa::IMoaDrPlayer> {
 public:
  using Service::Service;
  moa::MoaError GetProp(moa::MoaMmSymbol prop, moa::PMoaMmValue out) override;
  moa::MoaError SetProp(moa::MoaMmSymbol prop, moa::ConstPMoaMmValue value) override;
  moa::MoaError CallHandler(moa::MoaMmSymbol name, moa::MoaLong nArgs, moa::PMoaMmValue args,
                            moa::PMoaMmValue result) override;
  moa::MoaError GetActiveMovie(moa::IMoaDrMovie** movie) override;
  moa::MoaError GetMovieCount(moa::MoaLong* count) override;
  moa::MoaError GetNthMovie(moa::MoaLong index, moa::IMoaDrMovie** movie) override;
  moa::MoaError ResolveFileName(const char* name, char* path, moa::MoaLong bufLen) override;
  moa::MoaError GetCastMemTypeCount(moa::MoaLong* count) override;
  moa::MoaError GetNthCastMemTypeSymbol(moa::MoaLong index, moa::MoaMmSymbol* type) override;
  moa::MoaError GetCastMemTypeDisplayName(moa::MoaMmSymbol type, char* buf,
                                          moa::MoaLong len) override;
  moa::MoaError GetGlobalVarValue(moa::MoaMmSymbol name, moa::PMoaMmValue out) override;
  moa::MoaError SetGlobalVarValue(moa::MoaMmSymbol name, moa::ConstPMoaMmValue value) override;
};

class MediaValueService final : public Service<moa::IMoaDrMediaValue> {
 public:
  using Service::Service;
  moa::MoaError ValueToMedia(moa::ConstPMoaMmValue v, moa::MoaHandle* media) override;
  moa::MoaError MediaToValue(const moa::MoaHandle media, moa::PMoaMmValue v) override;
  moa::MoaError ValueToPicture(moa::ConstPMoaMmValue v, moa::MoaHandle* picture) override;
  moa::MoaError PictureToValue(const moa::MoaHandle picture, moa::PMoaMmValue v) override;
};

// The callback object: QueryInterface hands out every service above (the player, movie-value
// service only to a host named "Director").
class CallbackService final : public Service<moa::IMoaCallback> {
 public:
  using Service::Service;
  moa::MoaError QueryInterface(moa::ConstPMoaInterfaceID iid, moa::PPMoaVoid out) override;
  moa::MoaError MoaCreateInstance(moa::ConstPMoaClassID cls, moa::ConstPMoaInterfaceID iid,
                                  moa::PPMoaVoid out) override;
  moa::IMoaCache* MoaGetCache() override;
  moa::XtraResourceCookie MoaBeginUsingResources(moa::MoaFileRef file,
                                                 moa::XtraResourceCookie* save) override;
  void MoaEndUsingResources(moa::MoaFileRef file, moa::XtraResourceCookie save) override;
};

// The presentation window's keyboard (served only when HostOptions::holdKeyboard is set).
class StageService final : public Service<moa::ITesselStage> {
 public:
  using Service::Service;
  moa::MoaError HoldKeyboard(moa::MoaBoolParam hold) override;
};

// The user's request to stop the running script (served only when
// HostOptions::interruptRequested is set).
class InterruptService final : public Service<moa::ITesselInterrupt> {
 public:
  using Service::Service;
  moa::MoaError InterruptRequested(moa::MoaBool* requested) override;
};

struct HostServices {
  explicit HostServices(HostOptions opts);
  HostServices(const HostServices&) = delete;
  HostServices& operator=(const HostServices&) = delete;

  // True when the product name is "Director" (ignoring case): only then are the player and
  // movie services served.
  bool isDirector() const;
  // References Xtras hold on the services, summed.
  uint32_t serviceReferences() const;
  // Writes a message-window text (the options' printMessage, or stdout).
  void print(const std::string& text);

  HostOptions options;
  Movie* movie = nullptr;
  HostCounters counters;
  // MoaCreateInstance: set by the Host that owns these services.
  std::function<moa::MoaError(const moa::MoaClassID&, const moa::MoaInterfaceID&, void**)>
      createInstance;

  ValueStore values;
  Allocator calloc;
  Cache cache;
  HandleService handles{*this};
  AppInfoService appInfo{*this};
  ValueService value{*this};
  UtilsService utils{*this};
  Utils2Service utils2{*this};
  WndWinService wndWin{*this};
  WndMacService wndMac{*this};
  ListService list{*this};
  PlayerService player{*this};
  MovieService movieService{*this};
  MediaValueService mediaValue{*this};
  StageService stage{*this};
  InterruptService interrupt{*this};
  CallbackService callback{*this};
};

// The services of a Host (for tests that drive them directly).
HostServices& services(Host& host);

// Formats a PrintMessage1-4 text: %d %i %u %x %X %c with an optional "l", and %%; %s and %v
// cannot carry a pointer in a 32-bit argument on this host and print as "?".
std::string formatMessage(const char* fmt, const moa::MoaLong* args, int nargs);

}  // namespace tessel::host
