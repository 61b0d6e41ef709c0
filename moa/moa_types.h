// Basic MOA types, identifiers and error codes, declared for a 64-bit Linux build.
//
// MOA's published "32-bit" types are C `long`, which is 64 bits on LP64; every such type is
// declared here with a fixed width so that a module and a host built with any compiler agree
// on record layouts. Both the Tessel module and the Tessel host include this file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace moa {

using MoaChar = char;
using MoaUnichar = uint16_t;
using MoaBool = uint8_t;
using MoaByte = uint8_t;
using MoaShort = int16_t;
using MoaUshort = uint16_t;
using MoaLong = int32_t;
using MoaUlong = uint32_t;
using MoaFixed = int32_t;
using MoaError = int32_t;
using MoaFloat = float;
using MoaDouble = double;
using MoaBoolParam = uint32_t;
using MoaCharParam = int32_t;
using MoaCoord = int32_t;
using MoaDictTypeID = uint32_t;
using MoaStreamPosition = uint32_t;
using MoaStreamCount = uint32_t;
using MoaMmSymbol = int32_t;
using MoaMmValueType = int32_t;
using MoaMmDialogCookie = int32_t;

using PMoaVoid = void*;
using ConstPMoaVoid = const void*;
using PPMoaVoid = void**;

// The module's file reference and the cookie of a resource bracket are opaque, pointer-sized.
using MoaFileRef = void*;
using XtraResourceCookie = intptr_t;
using MoaHandle = void*;

inline constexpr int kMoaMaxPathname = 1024;

// 64-bit integer as two halves, low word first (the little-endian order).
struct MoaWide {
  uint32_t lo;
  int32_t hi;
};

struct MoaPoint {
  MoaCoord y;
  MoaCoord x;
};

struct MoaRect {
  MoaCoord top;
  MoaCoord left;
  MoaCoord bottom;
  MoaCoord right;
};

struct MoaMmRGBTriple {
  uint8_t red;
  uint8_t green;
  uint8_t blue;
};

// 16-byte GUID. The text form AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE maps to Data1 = 0xAAAAAAAA,
// Data2 = 0xBBBB, Data3 = 0xCCCC and Data4 = the remaining eight bytes in text order; the first
// three fields are stored in the host's native byte order.
struct MoaID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
};
static_assert(sizeof(MoaID) == 16);

using MoaClassID = MoaID;
using MoaInterfaceID = MoaID;
using ConstPMoaClassID = const MoaClassID*;
using ConstPMoaInterfaceID = const MoaInterfaceID*;

// Equality compares the identifier as four 32-bit words, as MOA does.
inline bool equalID(const MoaID& a, const MoaID& b) {
  uint32_t wa[4];
  uint32_t wb[4];
  std::memcpy(wa, &a, 16);
  std::memcpy(wb, &b, 16);
  return wa[0] == wb[0] && wa[1] == wb[1] && wa[2] == wb[2] && wa[3] == wb[3];
}

inline bool isNullID(const MoaID& a) {
  static constexpr MoaID kNull{};
  return equalID(a, kNull);
}

// Builds an identifier from the fields of its text form.
constexpr MoaID makeID(uint32_t d1, uint16_t d2, uint16_t d3, uint16_t d4hi, uint64_t d4lo48) {
  return MoaID{d1,
               d2,
               d3,
               {static_cast<uint8_t>(d4hi >> 8), static_cast<uint8_t>(d4hi & 0xFF),
                static_cast<uint8_t>(d4lo48 >> 40), static_cast<uint8_t>(d4lo48 >> 32),
                static_cast<uint8_t>(d4lo48 >> 24), static_cast<uint8_t>(d4lo48 >> 16),
                static_cast<uint8_t>(d4lo48 >> 8), static_cast<uint8_t>(d4lo48)}};
}

// ---- Interface and class identifiers ---------------------------------------------------------

inline constexpr MoaID IID_IMoaUnknown = makeID(0x00000000, 0x0000, 0x0000, 0xC000, 0x000000000046);
inline constexpr MoaID IID_IMoaClassFactory = makeID(0x00000001, 0x0000, 0x0000, 0xC000, 0x000000000046);
inline constexpr MoaID IID_IMoaCallback = makeID(0xC00BFC80, 0x3164, 0x101C, 0x9A9C, 0x0000C0DDAA4B);
inline constexpr MoaID IID_IMoaCalloc = makeID(0x3A698C20, 0x39C3, 0x101C, 0x9A9F, 0x0000C0DDAA4B);
inline constexpr MoaID IID_IMoaHandle = makeID(0xAB9D9921, 0x7F02, 0x2F99, 0x487F, 0x080007160DC3);
inline constexpr MoaID IID_IMoaRegister = makeID(0xAC3E7803, 0x0002, 0x8FE5, 0x0000, 0x080007160DC3);
inline constexpr MoaID IID_IMoaCache = makeID(0xAC3E7803, 0x0002, 0x8FE3, 0x0000, 0x080007160DC3);
inline constexpr MoaID IID_IMoaDict = makeID(0xAC41A018, 0x0013, 0x4760, 0x0000, 0x08000737AF92);
inline constexpr MoaID IID_IMoaAppInfo = makeID(0xACC7E2B8, 0x000A, 0xB4D0, 0x0000, 0x080007160DC3);
inline constexpr MoaID IID_IMoaMmXScript = makeID(0xAC401FB6, 0x0001, 0xF9B0, 0x0000, 0x0800072C6326);
inline constexpr MoaID IID_IMoaMmXTool = makeID(0xACCFF6D4, 0x0018, 0x10D5, 0x0000, 0x080007FC20C1);
inline constexpr MoaID IID_IMoaMmValue = makeID(0x151A5780, 0x32BD, 0x11D0, 0x8151, 0x00AA005F3C08);
inline constexpr MoaID IID_IMoaMmUtils = makeID(0xAC96CF89, 0x0045, 0x5879, 0x0000, 0x0040105023FB);
inline constexpr MoaID IID_IMoaMmUtils2 = makeID(0x3F698780, 0x32BE, 0x11D0, 0x8151, 0x00AA005F3C08);
inline constexpr MoaID IID_IMoaMmList = makeID(0xAC96CF98, 0x0045, 0x5C0B, 0x0000, 0x0040105023FB);
inline constexpr MoaID IID_IMoaMmWndWin = makeID(0xD9088161, 0x32BF, 0x11D0, 0x8151, 0x00AA005F3C08);
inline constexpr MoaID IID_IMoaMmWndMac = makeID(0xD9088160, 0x32BF, 0x11D0, 0x8151, 0x00AA005F3C08);
inline constexpr MoaID IID_IMoaDrPlayer = makeID(0xAC401B78, 0x0000, 0xFA7D, 0x0000, 0x0800072C6326);
inline constexpr MoaID IID_IMoaDrMovie = makeID(0xAC401B61, 0x0000, 0xF576, 0x0000, 0x0800072C6326);
inline constexpr MoaID IID_IMoaDrMediaValue = makeID(0xBA9FA4A5, 0x363E, 0x11D2, 0xAA59, 0x00A0C9091428);
inline constexpr MoaID CLSID_AnyClass = makeID(0xAF107CE0, 0x31EA, 0x101C, 0x9A9F, 0x0000C0DDAA4B);

// ---- Error codes -------------------------------------------------------------------------------

constexpr MoaError makeMoaErr(uint32_t code) { return static_cast<MoaError>(0x80040000u + code); }

inline constexpr MoaError kMoaErr_NoErr = 0;
inline constexpr MoaError kMoaStatus_False = 1;
inline constexpr MoaError kMoaErr_BadParam = makeMoaErr(1);
inline constexpr MoaError kMoaErr_OutOfMem = makeMoaErr(2);
inline constexpr MoaError kMoaErr_XtraInUse = makeMoaErr(3);
inline constexpr MoaError kMoaErr_BadInterface = makeMoaErr(4);
inline constexpr MoaError kMoaErr_BadClass = makeMoaErr(5);
inline constexpr MoaError kMoaErr_FileNotFound = makeMoaErr(6);
inline constexpr MoaError kMoaErr_XtraNotFound = makeMoaErr(7);
inline constexpr MoaError kMoaErr_FuncNotFound = makeMoaErr(8);
inline constexpr MoaError kMoaErr_ClassInfoNotFound = makeMoaErr(9);
inline constexpr MoaError kMoaErr_NoSuchKey = makeMoaErr(19);
inline constexpr MoaError kMoaErr_InternalError = makeMoaErr(20);
inline constexpr MoaError kMoaErr_DeadObject = makeMoaErr(23);
inline constexpr MoaError kMoaErr_NotImplemented = static_cast<MoaError>(0x80004001u);

inline constexpr MoaError kMoaDictErr_NotFound = makeMoaErr(42);
inline constexpr MoaError kMoaDictErr_WrongType = makeMoaErr(43);
inline constexpr MoaError kMoaDictErr_CantWrite = makeMoaErr(44);
inline constexpr MoaError kMoaDictErr_BufferTooSmall = makeMoaErr(45);

inline constexpr MoaError kMoaMmErr_NotImplemented = makeMoaErr(2000);
inline constexpr MoaError kMoaMmErr_InterfaceNotFound = makeMoaErr(2001);
inline constexpr MoaError kMoaMmErr_InternalError = makeMoaErr(2002);
inline constexpr MoaError kMoaMmErr_PropertyNotFound = makeMoaErr(2005);
inline constexpr MoaError kMoaMmErr_CannotSetProperty = makeMoaErr(2006);
inline constexpr MoaError kMoaMmErr_NoMemForString = makeMoaErr(2007);
inline constexpr MoaError kMoaMmErr_ArgOutOfRange = makeMoaErr(2008);
inline constexpr MoaError kMoaMmErr_IntegerExpected = makeMoaErr(2009);
inline constexpr MoaError kMoaMmErr_SymbolExpected = makeMoaErr(2010);
inline constexpr MoaError kMoaMmErr_FloatExpected = makeMoaErr(2011);
inline constexpr MoaError kMoaMmErr_StringExpected = makeMoaErr(2012);
inline constexpr MoaError kMoaMmErr_PointExpected = makeMoaErr(2013);
inline constexpr MoaError kMoaMmErr_RectExpected = makeMoaErr(2014);
inline constexpr MoaError kMoaMmErr_FunctionNotFound = makeMoaErr(2015);
inline constexpr MoaError kMoaMmErr_WrongNumberOfArgs = makeMoaErr(2021);
inline constexpr MoaError kMoaMmErr_ValueTypeMismatch = makeMoaErr(2031);
inline constexpr MoaError kMoaMmErr_OperationNotAllowed = makeMoaErr(2039);
inline constexpr MoaError kMoaMmErr_ToolDisabled = makeMoaErr(3011);
inline constexpr MoaError kMoaDrErr_HandlerNotDefined = makeMoaErr(3017);
inline constexpr MoaError kMoaDrErr_MovieNotOpen = makeMoaErr(3018);

// ---- Value types (what ValueType reports) ------------------------------------------------------

enum : MoaMmValueType {
  kMoaMmValueType_Void = 0,
  kMoaMmValueType_Integer = 1,
  kMoaMmValueType_Symbol = 2,
  kMoaMmValueType_String = 3,
  kMoaMmValueType_Object = 4,
  kMoaMmValueType_Picture = 5,
  kMoaMmValueType_Float = 6,
  kMoaMmValueType_List = 7,
  kMoaMmValueType_Point = 8,
  kMoaMmValueType_Rect = 9,
  kMoaMmValueType_PropList = 10,
  kMoaMmValueType_Other = 21,
};

// ---- Dictionary types and registry keys ----------------------------------------------------------

enum : MoaDictTypeID {
  kMoaDictType_Bogus = 0,
  kMoaDictType_Dict = 1,
  kMoaDictType_PIMoaUnknown = 2,
  kMoaDictType_Long = 3,
  kMoaDictType_Float = 4,
  kMoaDictType_Wide = 5,
  kMoaDictType_Bool = 6,
  kMoaDictType_MoaID = 7,
  kMoaDictType_Bytes = 8,
  kMoaDictType_CString = 9,
  kMoaDictType_Double = 10,
  kMoaDictType_MoaPoint = 11,
  kMoaDictType_MoaRect = 12,
};

inline constexpr const char* kMoaMmDictKey_MessageTable = "msgTable";
inline constexpr const char* kMoaMmDictKey_DisplayNameString = "displayNameString";
inline constexpr const char* kMoaMmDictKey_DisplayCategoryString = "displayCategoryString";
inline constexpr const char* kMoaMmDictKey_AlwaysEnabled = "alwaysEnabled";

// ---- Application information items --------------------------------------------------------------

enum : MoaLong {
  kMoaAppInfo_SerialNumber = 0,
  kMoaAppInfo_RunMode = 1,
  kMoaAppInfo_UserName = 2,
  kMoaAppInfo_OrganizationName = 3,
  kMoaAppInfo_AppFileSpec = 4,
  kMoaAppInfo_ProductName = 5,
  kMoaAppInfo_ProductVersion = 6,
  kMoaAppInfo_ProductBuildVersion = 7,
  kMoaAppInfo_UILanguage = 8,
  kMoaAppInfo_OSLanguage = 9,
  kMoaAppInfo_AppFileRef = 10,
  kMoaAppInfo_ConfigFolder = 11,
};

// ---- Records shared by host and module ------------------------------------------------------------

#pragma pack(push, 2)
// A Lingo value as the host hands it out: a type word and a datum. The module never reads the
// fields; on a 64-bit host the datum cannot be a pointer, so the host's meaning of both is its own.
struct MoaMmValue {
  MoaLong ty;
  MoaLong it;
};

// The call record of IMoaMmXScript::Call.
struct MoaMmCallInfo {
  PMoaVoid xinst;
  MoaLong methodFlags;
  MoaMmSymbol methodSelector;
  MoaMmValue resultValue;
  MoaLong nargs;
  MoaMmValue* pArgs;
};
#pragma pack(pop)
static_assert(sizeof(MoaMmValue) == 8);
static_assert(sizeof(MoaMmCallInfo) == 36);
static_assert(offsetof(MoaMmCallInfo, methodSelector) == 12);
static_assert(offsetof(MoaMmCallInfo, resultValue) == 16);
static_assert(offsetof(MoaMmCallInfo, pArgs) == 28);

using PMoaMmCallInfo = MoaMmCallInfo*;
using PMoaMmValue = MoaMmValue*;
using ConstPMoaMmValue = const MoaMmValue*;

// One record of the class list a module hands out through DllGetClassInfo.
struct MoaClassInterfaceInfo {
  MoaClassID classID;
  MoaLong classVersion;
  MoaInterfaceID interfaceID;
  MoaLong interfaceVersion;
};
static_assert(sizeof(MoaClassInterfaceInfo) == 40);

}  // namespace moa
