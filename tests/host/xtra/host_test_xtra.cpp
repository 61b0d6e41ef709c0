// HostTest: a small but complete scripting and tool Xtra that the host's tests load.
//
// Two classes: the scripting class (IMoaRegister, IMoaMmXScript) and a tool class
// (IMoaMmXTool). Instances keep the host services they acquire in fields that follow the
// standard header; interface objects count themselves so DllCanUnloadNow tells the truth.
// Every value the Xtra makes is released or handed to the host as a result.
//
// A few extra exports (HostTestXtra_*) let tests look inside; the host never uses them. Built
// with HOST_TEST_XTRA_NO_FILEREF it lacks one MOA entry point, so the host must refuse it.

#include <cstring>
#include <new>

#include "moa/moa_interfaces.h"

using namespace moa;

#define XTRA_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

constexpr MoaClassID kScriptClass = makeID(0x5E0A1B2C, 0x0001, 0x4A11, 0x8000, 0x0000000000A1);
constexpr MoaClassID kToolClass = makeID(0x5E0A1B2C, 0x0002, 0x4A11, 0x8000, 0x0000000000A2);
constexpr MoaLong kVersion = (1 << 24) | (3 << 6);  // 1.0.0 release

const char kMethodTable[] =
    "xtra HostTest\n"
    "new object me\n"
    "\n"
    "-- Values\n"
    "* htEcho any Value -- returns its argument\n"
    "* htHalf float X -- returns X / 2\n"
    "* htSymbolName Symbol S -- returns the name of S\n"
    "* htArgCount * -- returns the number of arguments passed\n"
    "\n"
    "-- Host\n"
    "* htHold -- keeps an interface object alive\n"
    "+ htParent object xt, integer N -- returns N\n";

enum Selector {
  m_new = 0,
  m_echo,
  m_half,
  m_symbolName,
  m_argCount,
  m_hold,
  m_parent,
  m_count
};

int32_t gLiveObjects = 0;  // interface objects alive
int32_t gCreated = 0;
int32_t gDestroyed = 0;
int32_t gToolInvocations = 0;
MoaLong gToolEnabled = 1;
MoaFileRef gFileRef = nullptr;
IMoaMmXScript* gHeld = nullptr;

// The scripting class's fields, right after the standard header.
struct ScriptFields {
  IMoaMmValue* value;
};

ScriptFields* fieldsOf(MoaObjectHeader* obj) {
  return reinterpret_cast<ScriptFields*>(reinterpret_cast<char*>(obj) + sizeof(MoaObjectHeader));
}

template <class T>
void release(T*& p) {
  if (p != nullptr) p->Release();
  p = nullptr;
}

MoaError createScript(MoaObjectHeader* obj) {
  ScriptFields* f = fieldsOf(obj);
  MoaError err =
      obj->pCallback->QueryInterface(&IID_IMoaMmValue, reinterpret_cast<void**>(&f->value));
  if (err == 0) ++gCreated;
  return err;
}

void destroyScript(MoaObjectHeader* obj) {
  release(fieldsOf(obj)->value);
  ++gDestroyed;
}

MoaError createTool(MoaObjectHeader*) { return kMoaErr_NoErr; }
void destroyTool(MoaObjectHeader*) {}

// ---- Interface objects: table, owner, count; each holds its owner as MOA's do. -------------------

template <class I>
struct InterfaceObject : I {
  MoaObjectHeader* pObj = nullptr;
  MoaLong refCount = 0;

  MoaError QueryInterface(ConstPMoaInterfaceID iid, PPMoaVoid out) override {
    return pObj->QueryInterface(iid, out);
  }
  MoaUlong AddRef() override {
    pObj->AddRef();
    return static_cast<MoaUlong>(++refCount);
  }
  MoaUlong Release() override {
    MoaObjectHeader* owner = pObj;
    MoaLong n = --refCount;
    if (n == 0) {
      owner->pCalloc->NRFree(this);
      --gLiveObjects;
      owner->Release();
    }
    owner->Release();
    return static_cast<MoaUlong>(n);
  }
};

template <class T>
MoaError build(MoaObjectHeader* obj, PPMoaVoid out) {
  void* mem = obj->pCalloc->NRAlloc(sizeof(T));
  if (mem == nullptr) return kMoaErr_OutOfMem;
  T* t = new (mem) T;
  t->pObj = obj;
  t->refCount = 1;
  obj->AddRef();
  obj->AddRef();
  ++gLiveObjects;
  *out = t;
  return kMoaErr_NoErr;
}

struct RegisterObject final : InterfaceObject<IMoaRegister> {
  MoaError Register(IMoaCache* cache, IMoaDict* xtraDict) override {
    IMoaDict* reg = nullptr;
    MoaError err = cache->AddRegistryEntry(xtraDict, &kScriptClass, &IID_IMoaMmXScript, &reg);
    if (err != 0) return err;
    // The text goes through a host block, as large Xtras build theirs.
    auto* text = static_cast<char*>(pObj->pCalloc->NRAlloc(sizeof kMethodTable));
    if (text == nullptr) return kMoaErr_OutOfMem;
    std::memcpy(text, kMethodTable, sizeof kMethodTable);
    err = reg->Put(kMoaDictType_CString, text, 0, kMoaMmDictKey_MessageTable);
    if (err == 0) {
      // The tool entry is optional: its failures do not fail registration.
      IMoaDict* tool = nullptr;
      MoaLong always = 0;
      if (cache->AddRegistryEntry(xtraDict, &kToolClass, &IID_IMoaMmXTool, &tool) == 0 &&
          tool->Put(kMoaDictType_CString, "Host Test Tool", 0,
                    kMoaMmDictKey_DisplayNameString) == 0 &&
          tool->Put(kMoaDictType_CString, "Testing", 0, kMoaMmDictKey_DisplayCategoryString) ==
              0) {
        tool->Put(kMoaDictType_Long, &always, sizeof always, kMoaMmDictKey_AlwaysEnabled);
      }
    }
    pObj->pCalloc->NRFree(text);
    return err;
  }
};

struct ToolObject final : InterfaceObject<IMoaMmXTool> {
  MoaError Invoke() override {
    ++gToolInvocations;
    return kMoaErr_NoErr;
  }
  MoaError GetEnabled(MoaLong* enabled) override {
    *enabled = gToolEnabled;
    return kMoaErr_NoErr;
  }
};

struct ScriptObject final : InterfaceObject<IMoaMmXScript> {
  // The test Xtra's methods, one case each.
  MoaError Call(PMoaMmCallInfo call) override {
    IMoaMmValue* v = fieldsOf(pObj)->value;
    MoaMmValue* args = call->pArgs;
    MoaMmValue* result = &call->resultValue;
    MoaError err = kMoaErr_NoErr;
    switch (call->methodSelector) {
      case m_new: return kMoaErr_NoErr;
      case m_echo:
        *result = args[0];
        return v->ValueAddRef(result);
      case m_half: {
        MoaDouble x = 0;
        if ((err = v->ValueToFloat(&args[0], &x)) != 0) return err;
        return v->FloatToValue(x / 2, result);
      }
      case m_symbolName: {
        MoaMmSymbol sym = 0;
        char name[64];
        if ((err = v->ValueToSymbol(&args[0], &sym)) != 0) return err;
        if ((err = v->SymbolToString(sym, name, sizeof name)) != 0) return err;
        return v->StringToValue(name, result);
      }
      case m_argCount: return v->IntegerToValue(call->nargs, result);
      case m_hold:
        if (gHeld == nullptr) {
          err = pObj->QueryInterface(&IID_IMoaMmXScript, reinterpret_cast<void**>(&gHeld));
        }
        return err;
      case m_parent: {
        MoaLong n = 0;
        if ((err = v->ValueToInteger(&args[1], &n)) != 0) return err;
        return v->IntegerToValue(n, result);
      }
      default: return kMoaMmErr_ArgOutOfRange;
    }
  }
};

bool classMatches(ConstPMoaClassID wanted, const MoaClassID& cls) {
  return wanted == nullptr || equalID(*wanted, cls) || equalID(*wanted, CLSID_AnyClass);
}

}  // namespace

// ---- MOA entry points ---------------------------------------------------------------------------

XTRA_EXPORT MoaError DllGetClassObject(ConstPMoaClassID, ConstPMoaInterfaceID, PPMoaVoid) {
  return kMoaErr_BadClass;
}

XTRA_EXPORT MoaError DllCanUnloadNow() { return gLiveObjects == 0 ? 0 : kMoaErr_XtraInUse; }

XTRA_EXPORT MoaError DllGetClassInfo(IMoaCalloc* calloc, MoaClassInterfaceInfo** list) {
  const MoaClassInterfaceInfo records[] = {
      {kScriptClass, kVersion, IID_IMoaClassFactory, 1},
      {kScriptClass, kVersion, IID_IMoaRegister, kVersion},
      {kScriptClass, kVersion, IID_IMoaMmXScript, kVersion},
      {kToolClass, kVersion, IID_IMoaClassFactory, 1},
      {kToolClass, kVersion, IID_IMoaMmXTool, kVersion},
  };
  constexpr size_t n = sizeof records / sizeof records[0];
  auto* out = static_cast<MoaClassInterfaceInfo*>(calloc->NRAlloc((n + 1) * sizeof records[0]));
  if (out == nullptr) return kMoaErr_OutOfMem;
  std::memcpy(out, records, sizeof records);  // the record after them stays zero: the terminator
  *list = out;
  return kMoaErr_NoErr;
}

XTRA_EXPORT MoaError DllGetClassForm(ConstPMoaClassID cls, MoaLong* size, MoaCreateProc* create,
                                     MoaDestroyProc* destroy) {
  if (cls != nullptr && equalID(*cls, kScriptClass)) {
    *size = sizeof(MoaObjectHeader) + sizeof(ScriptFields);
    *create = createScript;
    *destroy = destroyScript;
    return kMoaErr_NoErr;
  }
  if (cls != nullptr && equalID(*cls, kToolClass)) {
    *size = sizeof(MoaObjectHeader);
    *create = createTool;
    *destroy = destroyTool;
    return kMoaErr_NoErr;
  }
  return kMoaErr_BadClass;
}

XTRA_EXPORT MoaError DllGetInterface(MoaObjectHeader* instance, ConstPMoaClassID cls,
                                     ConstPMoaInterfaceID iid, PPMoaVoid out) {
  if (instance == nullptr || iid == nullptr || out == nullptr) return kMoaErr_BadParam;
  if (classMatches(cls, kScriptClass) && equalID(*instance->pClassID, kScriptClass)) {
    if (equalID(*iid, IID_IMoaRegister)) return build<RegisterObject>(instance, out);
    if (equalID(*iid, IID_IMoaMmXScript)) return build<ScriptObject>(instance, out);
  }
  if (classMatches(cls, kToolClass) && equalID(*instance->pClassID, kToolClass)) {
    if (equalID(*iid, IID_IMoaMmXTool)) return build<ToolObject>(instance, out);
  }
  return kMoaErr_BadInterface;
}

#ifndef HOST_TEST_XTRA_NO_FILEREF
XTRA_EXPORT void ppcSetFileRef(MoaFileRef file) { gFileRef = file; }
#endif

// ---- Test hooks --------------------------------------------------------------------------------

XTRA_EXPORT MoaFileRef HostTestXtra_FileRef() { return gFileRef; }
XTRA_EXPORT int32_t HostTestXtra_LiveObjects() { return gLiveObjects; }
XTRA_EXPORT int32_t HostTestXtra_Created() { return gCreated; }
XTRA_EXPORT int32_t HostTestXtra_Destroyed() { return gDestroyed; }
XTRA_EXPORT int32_t HostTestXtra_ToolInvocations() { return gToolInvocations; }
XTRA_EXPORT void HostTestXtra_SetToolEnabled(int32_t enabled) { gToolEnabled = enabled; }
XTRA_EXPORT void HostTestXtra_ReleaseHeld() { release(gHeld); }
XTRA_EXPORT const MoaClassID* HostTestXtra_ScriptClass() { return &kScriptClass; }
