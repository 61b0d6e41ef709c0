// MOA interfaces as C++ abstract classes.
//
// Each interface repeats the operations it inherits, in table order, through single inheritance,
// so that the object's first word points at a table whose slot 0 is QueryInterface. No interface
// declares a destructor: that would add table entries. On x86-64 Linux there is one calling
// convention; module and host only have to agree with each other.
#pragma once

#include "moa_types.h"

namespace moa {

struct IMoaUnknown {
  virtual MoaError QueryInterface(ConstPMoaInterfaceID iid, PPMoaVoid out) = 0;  // 0
  virtual MoaUlong AddRef() = 0;                                                 // 1
  virtual MoaUlong Release() = 0;                                                // 2
};

struct IMoaDict;
struct IMoaCache;
struct IMoaCalloc;
struct IMoaDrMovie;
struct IMoaDrCast;
struct IMoaDrCastMem;
struct IMoaDrScoreAccess;
struct IMoaMmGC;

// The host's callback object, reached through an instance's pCallback.
struct IMoaCallback : IMoaUnknown {
  virtual MoaError MoaCreateInstance(ConstPMoaClassID cls, ConstPMoaInterfaceID iid,
                                     PPMoaVoid out) = 0;                                  // 3
  virtual IMoaCache* MoaGetCache() = 0;                                                   // 4
  virtual XtraResourceCookie MoaBeginUsingResources(MoaFileRef file,
                                                    XtraResourceCookie* save) = 0;        // 5
  virtual void MoaEndUsingResources(MoaFileRef file, XtraResourceCookie save) = 0;        // 6
};

struct IMoaCalloc : IMoaUnknown {
  virtual PMoaVoid NRAlloc(MoaUlong size) = 0;  // 3: zero-filled, fixed block
  virtual void NRFree(PMoaVoid block) = 0;      // 4
};

struct IMoaHandle : IMoaUnknown {
  virtual MoaHandle Alloc(MoaLong size) = 0;                 // 3
  virtual MoaHandle ZeroAlloc(MoaLong size) = 0;             // 4
  virtual void Free(MoaHandle h) = 0;                        // 5
  virtual MoaLong GetSize(MoaHandle h) = 0;                  // 6
  virtual MoaBoolParam Resize(MoaHandle h, MoaLong size) = 0;  // 7
  virtual PMoaVoid Lock(MoaHandle h) = 0;                    // 8
  virtual void Unlock(MoaHandle h) = 0;                      // 9
  virtual MoaLong GetLargestFreeBlock() = 0;                 // 10
};

// ---- The MOA class instance header ----------------------------------------------------------------

// Every class instance begins with this header, filled in by the host before the class's
// constructor runs. Its first word is the object's own IMoaUnknown table, supplied by the host.
struct MoaObjectHeader : IMoaUnknown {
  PMoaVoid magicCookie;
  IMoaCallback* pCallback;
  IMoaCalloc* pCalloc;
  const MoaClassID* pClassID;
  MoaLong refCount;
};
static_assert(sizeof(MoaObjectHeader) == 48);

using MoaCreateProc = MoaError (*)(MoaObjectHeader* instance);
using MoaDestroyProc = void (*)(MoaObjectHeader* instance);

// ---- Registration -----------------------------------------------------------------------------------

struct IMoaDict : IMoaUnknown {
  virtual MoaError SetSize(MoaUlong expectedCount) = 0;                                   // 3
  virtual MoaError MakeDict(IMoaDict** out, const char* key) = 0;                          // 4
  virtual MoaError Get(MoaDictTypeID type, PMoaVoid buf, MoaLong size, const char* key) = 0;  // 5
  virtual MoaError Put(MoaDictTypeID type, ConstPMoaVoid buf, MoaLong size,
                       const char* key) = 0;                                               // 6
  virtual MoaError Remove(const char* key) = 0;                                            // 7
  virtual MoaError Count(MoaUlong* count) = 0;                                             // 8
  virtual MoaError GetNth(MoaUlong index, MoaDictTypeID* type, MoaLong* size,
                          const char** key) = 0;                                           // 9
  virtual MoaError GetInfo(MoaDictTypeID* type, MoaLong* size, const char* key) = 0;       // 10
  virtual const char* FindKey(const char* key) = 0;                                        // 11
};

using MoaCacheFileEntryProc = MoaError (*)(IMoaDict* fileDict, const char* fileSpec, MoaWide date,
                                           MoaUlong macFileType, PMoaVoid refCon);
using MoaCacheXtraEntryProc = MoaError (*)(IMoaDict* xtraDict, PMoaVoid refCon);
using MoaCacheRegistryEntryProc = MoaError (*)(IMoaDict* regDict, ConstPMoaClassID cls,
                                               ConstPMoaInterfaceID iid, PMoaVoid refCon);
using MoaCacheFromFileProc = MoaError (*)(IMoaDict* fileDict, const char* fileSpec, MoaWide date,
                                          MoaUlong macFileType, IMoaDict* xtraDict,
                                          IMoaDict* regDict, ConstPMoaClassID cls,
                                          ConstPMoaInterfaceID iid, PMoaVoid refCon);

struct IMoaCache : IMoaUnknown {
  virtual MoaError EnumerateFileEntries(MoaCacheFileEntryProc proc, PMoaVoid refCon) = 0;      // 3
  virtual MoaError EnumerateXtraEntries(MoaCacheXtraEntryProc proc, PMoaVoid refCon) = 0;      // 4
  virtual MoaError EnumerateRegistryEntries(MoaCacheRegistryEntryProc proc,
                                            PMoaVoid refCon) = 0;                              // 5
  virtual MoaError SetXtraEntryNoncacheable(IMoaDict* xtraDict) = 0;                           // 6
  virtual MoaError AddRegistryEntry(IMoaDict* xtraDict, ConstPMoaClassID cls,
                                    ConstPMoaInterfaceID iid, IMoaDict** regDict) = 0;         // 7
  virtual MoaError GetInstanceFromRegistry(IMoaDict* regDict, ConstPMoaInterfaceID iid,
                                           PPMoaVoid out) = 0;                                 // 8
  virtual MoaError CreateNewInstanceFromRegistry(IMoaDict* regDict, ConstPMoaInterfaceID iid,
                                                 PPMoaVoid out) = 0;                           // 9
  virtual MoaError EnumerateRegistryEntriesFromFile(const char* fileSpec, MoaLong maxDepth,
                                                    MoaCacheFromFileProc proc,
                                                    PMoaVoid refCon) = 0;                      // 10
  virtual MoaError GetFileSpecFromFileDict(IMoaDict* fileDict, char* fileSpec,
                                           MoaLong bufLen) = 0;                                // 11
};

struct IMoaRegister : IMoaUnknown {
  virtual MoaError Register(IMoaCache* cache, IMoaDict* xtraDict) = 0;  // 3
};

// ---- Scripting and tool Xtras -----------------------------------------------------------------------

struct IMoaMmXScript : IMoaUnknown {
  virtual MoaError Call(PMoaMmCallInfo call) = 0;  // 3
};

struct IMoaMmXTool : IMoaUnknown {
  virtual MoaError Invoke() = 0;                    // 3
  virtual MoaError GetEnabled(MoaLong* enabled) = 0;  // 4
};

// ---- Host information --------------------------------------------------------------------------------

struct IMoaAppInfo : IMoaUnknown {
  virtual MoaError GetInfo(MoaLong item, char* buf, MoaLong bufLen) = 0;  // 3
};

// ---- Values ------------------------------------------------------------------------------------------

struct IMoaMmValue : IMoaUnknown {
  virtual MoaError StringToSymbol(const char* text, MoaMmSymbol* sym) = 0;           // 3
  virtual MoaError SymbolToString(MoaMmSymbol sym, char* buf, MoaLong bufLen) = 0;   // 4
  virtual MoaError ValueType(ConstPMoaMmValue v, MoaMmValueType* type) = 0;          // 5
  virtual MoaError ValueAddRef(PMoaMmValue v) = 0;                                   // 6
  virtual MoaError ValueRelease(PMoaMmValue v) = 0;                                  // 7
  virtual MoaError ValueToInteger(ConstPMoaMmValue v, MoaLong* out) = 0;             // 8
  virtual MoaError ValueToSymbol(ConstPMoaMmValue v, MoaMmSymbol* out) = 0;          // 9
  virtual MoaError ValueToFloat(ConstPMoaMmValue v, MoaDouble* out) = 0;             // 10
  virtual MoaError ValueStringLength(ConstPMoaMmValue v, MoaLong* len) = 0;          // 11
  virtual MoaError ValueToString(ConstPMoaMmValue v, char* buf, MoaLong bufLen) = 0;  // 12
  virtual MoaError ValueToStringPtr(ConstPMoaMmValue v, const char** text) = 0;      // 13
  virtual MoaError ValueReleaseStringPtr(ConstPMoaMmValue v) = 0;                    // 14
  virtual MoaError ValueToPoint(ConstPMoaMmValue v, MoaPoint* out) = 0;              // 15
  virtual MoaError ValueToRect(ConstPMoaMmValue v, MoaRect* out) = 0;                // 16
  virtual MoaError IntegerToValue(MoaLong n, PMoaMmValue v) = 0;                     // 17
  virtual MoaError SymbolToValue(MoaMmSymbol sym, PMoaMmValue v) = 0;                // 18
  virtual MoaError FloatToValue(MoaDouble d, PMoaMmValue v) = 0;                     // 19
  virtual MoaError StringToValue(const char* text, PMoaMmValue v) = 0;               // 20
  virtual MoaError StringHandleToValue(MoaHandle h, PMoaMmValue v) = 0;              // 21
  virtual MoaError PointToValue(const MoaPoint* p, PMoaMmValue v) = 0;               // 22
  virtual MoaError RectToValue(const MoaRect* r, PMoaMmValue v) = 0;                 // 23
};

// The older all-in-one utility interface: messages, the value operations of IMoaMmValue in slots
// 8-28, graphics contexts and the platform dialog helpers.
struct IMoaMmUtils : IMoaUnknown {
  virtual MoaError PrintMessage(const char* text) = 0;                                    // 3
  virtual MoaError PrintMessage1(const char* fmt, MoaLong a) = 0;                         // 4
  virtual MoaError PrintMessage2(const char* fmt, MoaLong a, MoaLong b) = 0;              // 5
  virtual MoaError PrintMessage3(const char* fmt, MoaLong a, MoaLong b, MoaLong c) = 0;   // 6
  virtual MoaError PrintMessage4(const char* fmt, MoaLong a, MoaLong b, MoaLong c,
                                 MoaLong d) = 0;                                          // 7
  virtual MoaError StringToSymbol(const char* text, MoaMmSymbol* sym) = 0;                // 8
  virtual MoaError SymbolToString(MoaMmSymbol sym, char* buf, MoaLong bufLen) = 0;        // 9
  virtual MoaError ValueType(ConstPMoaMmValue v, MoaMmValueType* type) = 0;               // 10
  virtual MoaError ValueAddRef(PMoaMmValue v) = 0;                                        // 11
  virtual MoaError ValueRelease(PMoaMmValue v) = 0;                                       // 12
  virtual MoaError ValueToInteger(ConstPMoaMmValue v, MoaLong* out) = 0;                  // 13
  virtual MoaError ValueToSymbol(ConstPMoaMmValue v, MoaMmSymbol* out) = 0;               // 14
  virtual MoaError ValueToFloat(ConstPMoaMmValue v, MoaDouble* out) = 0;                  // 15
  virtual MoaError ValueStringLength(ConstPMoaMmValue v, MoaLong* len) = 0;               // 16
  virtual MoaError ValueToString(ConstPMoaMmValue v, char* buf, MoaLong bufLen) = 0;      // 17
  virtual MoaError ValueToStringPtr(ConstPMoaMmValue v, const char** text) = 0;           // 18
  virtual MoaError ValueReleaseStringPtr(ConstPMoaMmValue v) = 0;                         // 19
  virtual MoaError ValueToPoint(ConstPMoaMmValue v, MoaPoint* out) = 0;                   // 20
  virtual MoaError ValueToRect(ConstPMoaMmValue v, MoaRect* out) = 0;                     // 21
  virtual MoaError IntegerToValue(MoaLong n, PMoaMmValue v) = 0;                          // 22
  virtual MoaError SymbolToValue(MoaMmSymbol sym, PMoaMmValue v) = 0;                     // 23
  virtual MoaError FloatToValue(MoaDouble d, PMoaMmValue v) = 0;                          // 24
  virtual MoaError StringToValue(const char* text, PMoaMmValue v) = 0;                    // 25
  virtual MoaError StringHandleToValue(MoaHandle h, PMoaMmValue v) = 0;                   // 26
  virtual MoaError PointToValue(const MoaPoint* p, PMoaMmValue v) = 0;                    // 27
  virtual MoaError RectToValue(const MoaRect* r, PMoaMmValue v) = 0;                      // 28
  virtual MoaError NewGC(PMoaVoid nativeGCInfo, IMoaMmGC** gc) = 0;                       // 29
  virtual MoaError MacHandleEvent(PMoaVoid event) = 0;                                    // 30
  virtual MoaError MacPrepareModalDialog(MoaMmDialogCookie* cookie) = 0;                  // 31
  virtual MoaError MacModalDialog(MoaMmDialogCookie cookie, PMoaVoid filter,
                                  MoaShort* itemHit) = 0;                                 // 32
  virtual MoaError MacUnprepareModalDialog(MoaMmDialogCookie cookie) = 0;                 // 33
  virtual MoaLong MacAlert(MoaLong alertID, PMoaVoid filter) = 0;                         // 34
  virtual MoaError MacRegisterWindow(PMoaVoid handler, PMoaVoid window, MoaLong flags,
                                     PMoaVoid refCon) = 0;                                // 35
  virtual MoaError MacUnregisterWindow(PMoaVoid handler) = 0;                             // 36
  virtual MoaError MacDragWindow(PMoaVoid window, const MoaPoint* start,
                                 const MoaRect* limit) = 0;                               // 37
  virtual MoaError MacSelectWindow(PMoaVoid window) = 0;                                  // 38
  virtual MoaError MacXShowWindow(PMoaVoid window) = 0;                                   // 39
  virtual MoaError MacHideWindow(PMoaVoid window) = 0;                                    // 40
  virtual MoaLong WinDialogBox(XtraResourceCookie res, const char* templ, PMoaVoid proc) = 0;  // 41
  virtual MoaError WinGetParent(PMoaVoid* instance, PMoaVoid* window) = 0;                // 42
  virtual MoaError RGBToIndex(const MoaMmRGBTriple* rgb, MoaLong* index) = 0;             // 43
  virtual MoaError IndexToRGB(MoaLong index, MoaMmRGBTriple* rgb) = 0;                    // 44
  virtual MoaLong WinDialogBoxParam(XtraResourceCookie res, const char* templ, PMoaVoid proc,
                                    MoaLong param) = 0;                                   // 45
  virtual MoaError WinPrepareDialogBox(MoaMmDialogCookie* cookie) = 0;                    // 46
  virtual MoaError WinUnprepareDialogBox(MoaMmDialogCookie cookie) = 0;                   // 47
};

struct IMoaMmUtils2 : IMoaUnknown {
  virtual MoaError PrintMessage(const char* text) = 0;                                    // 3
  virtual MoaError PrintMessage1(const char* fmt, MoaLong a) = 0;                         // 4
  virtual MoaError PrintMessage2(const char* fmt, MoaLong a, MoaLong b) = 0;              // 5
  virtual MoaError PrintMessage3(const char* fmt, MoaLong a, MoaLong b, MoaLong c) = 0;   // 6
  virtual MoaError PrintMessage4(const char* fmt, MoaLong a, MoaLong b, MoaLong c,
                                 MoaLong d) = 0;                                          // 7
  virtual MoaError NewGC(PMoaVoid nativeGCInfo, IMoaMmGC** gc) = 0;                       // 8
  virtual MoaError RGBToIndex(const MoaMmRGBTriple* rgb, MoaLong* index) = 0;             // 9
  virtual MoaError IndexToRGB(MoaLong index, MoaMmRGBTriple* rgb) = 0;                    // 10
};

struct IMoaMmWndWin : IMoaUnknown {
  virtual MoaLong WinDialogBox(XtraResourceCookie res, const char* templ, PMoaVoid proc) = 0;  // 3
  virtual MoaError WinGetParent(PMoaVoid* instance, PMoaVoid* window) = 0;                    // 4
  virtual MoaLong WinDialogBoxParam(XtraResourceCookie res, const char* templ, PMoaVoid proc,
                                    MoaLong param) = 0;                                       // 5
  virtual MoaError WinPrepareDialogBox(MoaMmDialogCookie* cookie) = 0;                        // 6
  virtual MoaError WinUnprepareDialogBox(MoaMmDialogCookie cookie) = 0;                       // 7
};

struct IMoaMmWndMac : IMoaUnknown {
  virtual MoaError MacHandleEvent(PMoaVoid event) = 0;                                    // 3
  virtual MoaError MacPrepareModalDialog(MoaMmDialogCookie* cookie) = 0;                  // 4
  virtual MoaError MacModalDialog(MoaMmDialogCookie cookie, PMoaVoid filter,
                                  MoaShort* itemHit) = 0;                                 // 5
  virtual MoaError MacUnprepareModalDialog(MoaMmDialogCookie cookie) = 0;                 // 6
  virtual MoaLong MacAlert(MoaLong alertID, PMoaVoid filter) = 0;                         // 7
  virtual MoaError MacRegisterWindow(PMoaVoid handler, PMoaVoid window, MoaLong flags,
                                     PMoaVoid refCon) = 0;                                // 8
  virtual MoaError MacUnregisterWindow(PMoaVoid handler) = 0;                             // 9
  virtual MoaError MacDragWindow(PMoaVoid window, const MoaPoint* start,
                                 const MoaRect* limit) = 0;                               // 10
  virtual MoaError MacSelectWindow(PMoaVoid window) = 0;                                  // 11
  virtual MoaError MacXShowWindow(PMoaVoid window) = 0;                                   // 12
  virtual MoaError MacHideWindow(PMoaVoid window) = 0;                                    // 13
};

struct IMoaMmList : IMoaUnknown {
  virtual MoaError NewListValue(PMoaMmValue list) = 0;                                     // 3
  virtual MoaError AppendValueToList(PMoaMmValue list, ConstPMoaMmValue item) = 0;         // 4
  virtual MoaLong CountElements(ConstPMoaMmValue list) = 0;                                // 5
  virtual MoaError GetValueByIndex(ConstPMoaMmValue list, MoaLong index,
                                   PMoaMmValue out) = 0;                                   // 6
  virtual MoaError SetValueByIndex(PMoaMmValue list, MoaLong index,
                                   ConstPMoaMmValue item) = 0;                             // 7
  virtual MoaError NewPropListValue(PMoaMmValue list) = 0;                                 // 8
  virtual MoaError AppendValueToPropList(PMoaMmValue list, ConstPMoaMmValue prop,
                                         ConstPMoaMmValue item) = 0;                       // 9
  virtual MoaError GetValueByProperty(ConstPMoaMmValue list, ConstPMoaMmValue prop,
                                      PMoaMmValue out) = 0;                                // 10
  virtual MoaError SetValueByProperty(PMoaMmValue list, ConstPMoaMmValue prop,
                                      ConstPMoaMmValue item) = 0;                          // 11
  virtual MoaError GetPropertyNameByIndex(ConstPMoaMmValue list, MoaLong index,
                                          PMoaMmValue out) = 0;                            // 12
};

// ---- Director's player and movie ------------------------------------------------------------------

#pragma pack(push, 2)
struct MoaDrCMRef {
  MoaLong castIndex;
  MoaLong memberIndex;
};

struct MoaDrMediaInfo {
  MoaMmSymbol labelSymbol;
  MoaMmSymbol formatSymbol;
  PMoaVoid mediaData;
  MoaLong options;
  PMoaVoid aux;
  PMoaVoid refCon;
};
#pragma pack(pop)

struct IMoaDrPlayer : IMoaUnknown {
  virtual MoaError GetProp(MoaMmSymbol prop, PMoaMmValue out) = 0;                          // 3
  virtual MoaError SetProp(MoaMmSymbol prop, ConstPMoaMmValue value) = 0;                   // 4
  virtual MoaError CallHandler(MoaMmSymbol name, MoaLong nArgs, PMoaMmValue args,
                               PMoaMmValue result) = 0;                                     // 5
  virtual MoaError GetActiveMovie(IMoaDrMovie** movie) = 0;                                 // 6
  virtual MoaError GetMovieCount(MoaLong* count) = 0;                                       // 7
  virtual MoaError GetNthMovie(MoaLong index, IMoaDrMovie** movie) = 0;                     // 8
  virtual MoaError ResolveFileName(const char* name, char* path, MoaLong bufLen) = 0;       // 9
  virtual MoaError GetCastMemTypeCount(MoaLong* count) = 0;                                 // 10
  virtual MoaError GetNthCastMemTypeSymbol(MoaLong index, MoaMmSymbol* type) = 0;           // 11
  virtual MoaError GetCastMemTypeDisplayName(MoaMmSymbol type, char* buf, MoaLong len) = 0;  // 12
  virtual MoaError GetGlobalVarValue(MoaMmSymbol name, PMoaMmValue out) = 0;                // 13
  virtual MoaError SetGlobalVarValue(MoaMmSymbol name, ConstPMoaMmValue value) = 0;         // 14
};

struct IMoaDrMovie : IMoaUnknown {
  virtual MoaError GetProp(MoaMmSymbol prop, PMoaMmValue out) = 0;                          // 3
  virtual MoaError SetProp(MoaMmSymbol prop, ConstPMoaMmValue value) = 0;                   // 4
  virtual MoaError GetMedia(MoaDrMediaInfo* info) = 0;                                      // 5
  virtual MoaError SetMedia(MoaDrMediaInfo* info) = 0;                                      // 6
  virtual MoaError AttachMedia(MoaDrMediaInfo* info) = 0;                                   // 7
  virtual MoaError CallHandler(MoaMmSymbol name, MoaLong nArgs, PMoaMmValue args,
                               PMoaMmValue result) = 0;                                     // 8
  virtual MoaError GetCastCount(MoaLong* count) = 0;                                        // 9
  virtual MoaError GetNthCast(MoaLong index, IMoaDrCast** cast) = 0;                        // 10
  virtual MoaError GetCastFromName(const char* name, IMoaDrCast** cast) = 0;                // 11
  virtual MoaError GetCastIndexFromName(const char* name, MoaLong* index) = 0;              // 12
  virtual MoaError NewCast(const char* name, MoaBoolParam external, MoaLong* index) = 0;    // 13
  virtual MoaError AddExternalCast(const char* name, const char* path, MoaLong* index) = 0;  // 14
  virtual MoaError RemoveCast(MoaLong index) = 0;                                           // 15
  virtual MoaError GetCMRefFromMemberName(const char* name, MoaDrCMRef* ref) = 0;           // 16
  virtual MoaError GetCastMemFromCMRef(const MoaDrCMRef* ref, IMoaDrCastMem** mem) = 0;     // 17
  virtual MoaError UpdateStageRect(const MoaRect* window, const MoaRect* buffer) = 0;       // 18
  virtual MoaError GetStageWindowGC(IMoaMmGC** gc) = 0;                                     // 19
  virtual MoaError GetStageBufferGC(IMoaMmGC** gc) = 0;                                     // 20
  virtual MoaError GetFrameIndexFromLabel(const char* label, MoaLong* frame) = 0;           // 21
  virtual MoaError GetFrameLabelFromIndex(MoaLong frame, char* buf, MoaLong len) = 0;       // 22
  virtual MoaError SetFrameLabel(MoaLong frame, const char* label) = 0;                     // 23
  virtual MoaError GetScoreAccess(IMoaDrScoreAccess** access) = 0;                          // 24
  virtual MoaError Save(const char* newPath, MoaBoolParam saveExternalCasts) = 0;           // 25
  virtual MoaError SendSpriteMessage(MoaLong channel, MoaMmSymbol handler, MoaLong nArgs,
                                     PMoaMmValue args, PMoaMmValue result,
                                     MoaBool* handled) = 0;                                 // 26
};

struct IMoaDrMediaValue : IMoaUnknown {
  virtual MoaError ValueToMedia(ConstPMoaMmValue v, MoaHandle* media) = 0;     // 3
  virtual MoaError MediaToValue(const MoaHandle media, PMoaMmValue v) = 0;     // 4
  virtual MoaError ValueToPicture(ConstPMoaMmValue v, MoaHandle* picture) = 0;  // 5
  virtual MoaError PictureToValue(const MoaHandle picture, PMoaMmValue v) = 0;  // 6
};

// ---- Module entry points ----------------------------------------------------------------------------

// The six functions a module exports with C linkage.
using DllGetClassObjectProc = MoaError (*)(ConstPMoaClassID, ConstPMoaInterfaceID, PPMoaVoid);
using DllCanUnloadNowProc = MoaError (*)();
using DllGetClassInfoProc = MoaError (*)(IMoaCalloc* calloc, MoaClassInterfaceInfo** list);
using DllGetInterfaceProc = MoaError (*)(MoaObjectHeader* instance, ConstPMoaClassID cls,
                                         ConstPMoaInterfaceID iid, PPMoaVoid out);
using DllGetClassFormProc = MoaError (*)(ConstPMoaClassID cls, MoaLong* instanceSize,
                                         MoaCreateProc* create, MoaDestroyProc* destroy);
using PpcSetFileRefProc = void (*)(MoaFileRef file);

}  // namespace moa
