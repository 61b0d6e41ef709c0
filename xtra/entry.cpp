// The module's entry points, its class list and the interface makers.
#include <new>

#include "xtra/module.h"

namespace tessel::xtra {

HostServices& hostServices() {
  static HostServices services;
  return services;
}

ModuleState& moduleState() {
  static ModuleState state;
  return state;
}

namespace {

MoaError helpCreate(MoaObjectHeader*) { return kMoaErr_NoErr; }
void helpDestroy(MoaObjectHeader*) {}

using InterfaceMaker = MoaError (*)(MoaObjectHeader* owner, PPMoaVoid out);

// One entry of the class list: a class record (interface = the class factory) or an interface
// record with the maker of its interface object.
struct ClassListEntry {
  const MoaClassID* classID;
  const MoaInterfaceID* interfaceID;  // the class-factory ID for a class record
  MoaLong interfaceVersion;
  MoaLong instanceSize;      // class records
  MoaCreateProc create;      // class records
  MoaDestroyProc destroy;    // class records
  InterfaceMaker maker;      // interface records
};

constexpr ClassListEntry kClassList[] = {
    {&CLSID_TesselScript, &IID_IMoaClassFactory, 1, kScriptInstanceSize, scriptCreate,
     scriptDestroy, nullptr},
    {&CLSID_TesselScript, &IID_IMoaRegister, kTesselVersion, 0, nullptr, nullptr, makeRegister},
    {&CLSID_TesselScript, &IID_IMoaMmXScript, kTesselVersion, 0, nullptr, nullptr, makeScript},
    {&CLSID_TesselHelpTool, &IID_IMoaClassFactory, 1, kHelpInstanceSize, helpCreate,
     helpDestroy, nullptr},
    {&CLSID_TesselHelpTool, &IID_IMoaMmXTool, kTesselVersion, 0, nullptr, nullptr, makeTool},
};

bool isClassRecord(const ClassListEntry& e) { return e.maker == nullptr; }

// A null class ID walks every record; any other restricts the walk to that class's records.
bool classMatches(const ClassListEntry& e, ConstPMoaClassID cls) {
  return cls == nullptr || isNullID(*cls) || equalID(*cls, CLSID_AnyClass) ||
         equalID(*cls, *e.classID);
}

template <typename Object>
MoaError makeInterface(MoaObjectHeader* owner, PPMoaVoid out) {
  if (owner == nullptr || out == nullptr) return kMoaErr_BadParam;
  void* block = owner->pCalloc->NRAlloc(sizeof(Object));
  if (block == nullptr) return kMoaErr_OutOfMem;
  auto* object = new (block) Object(owner);
  owner->AddRef();  // the object's hold on its owner
  owner->AddRef();  // matching the object's initial count
  ++moduleState().liveObjects;
  *out = static_cast<IMoaUnknown*>(object);
  return kMoaErr_NoErr;
}

}  // namespace

template <typename Interface>
MoaUlong InterfaceObject<Interface>::Release() {
  MoaObjectHeader* owner = owner_;
  MoaLong count = --refCount_;
  if (count == 0) {
    // Interface objects are trivially destructible: returning the block is all there is to do.
    owner->pCalloc->NRFree(this);
    --moduleState().liveObjects;
    owner->Release();  // the object's hold on its owner
  }
  owner->Release();  // the reference AddRef forwarded
  return static_cast<MoaUlong>(count);
}

template class InterfaceObject<IMoaRegister>;
template class InterfaceObject<IMoaMmXScript>;
template class InterfaceObject<IMoaMmXTool>;

MoaError makeRegister(MoaObjectHeader* owner, PPMoaVoid out) {
  return makeInterface<TStdXtra_IMoaRegister>(owner, out);
}
MoaError makeScript(MoaObjectHeader* owner, PPMoaVoid out) {
  return makeInterface<TStdXtra_IMoaMmXScript>(owner, out);
}
MoaError makeTool(MoaObjectHeader* owner, PPMoaVoid out) {
  return makeInterface<CTool_IMoaMmXTool>(owner, out);
}

}  // namespace tessel::xtra

using namespace tessel::xtra;

extern "C" {

__attribute__((visibility("default"))) MoaError DllGetClassObject(ConstPMoaClassID,
                                                                   ConstPMoaInterfaceID,
                                                                   PPMoaVoid) {
  return kMoaErr_BadClass;
}

__attribute__((visibility("default"))) MoaError DllCanUnloadNow() {
  return moduleState().liveObjects == 0 ? kMoaErr_NoErr : kMoaErr_XtraInUse;
}

__attribute__((visibility("default"))) MoaError DllGetClassInfo(IMoaCalloc* calloc,
                                                                 MoaClassInterfaceInfo** list) {
  if (calloc == nullptr || list == nullptr) return kMoaErr_BadParam;
  MoaUlong count = 0;
  for ([[maybe_unused]] const auto& entry : kClassList) ++count;
  auto* records = static_cast<MoaClassInterfaceInfo*>(
      calloc->NRAlloc((count + 1) * sizeof(MoaClassInterfaceInfo)));
  if (records == nullptr) return kMoaErr_OutOfMem;
  MoaClassInterfaceInfo* r = records;
  for (const auto& entry : kClassList) {
    r->classID = *entry.classID;
    r->classVersion = kTesselVersion;
    r->interfaceID = *entry.interfaceID;
    r->interfaceVersion = entry.interfaceVersion;
    ++r;
  }
  // The terminator: null class and interface IDs.
  r->classID = MoaID{};
  r->interfaceID = MoaID{};
  *list = records;
  return kMoaErr_NoErr;
}

__attribute__((visibility("default"))) MoaError DllGetClassForm(ConstPMoaClassID cls,
                                                                 MoaLong* instanceSize,
                                                                 MoaCreateProc* create,
                                                                 MoaDestroyProc* destroy) {
  for (const auto& entry : kClassList) {
    if (!isClassRecord(entry) || !classMatches(entry, cls)) continue;
    if (instanceSize) *instanceSize = entry.instanceSize;
    if (create) *create = entry.create;
    if (destroy) *destroy = entry.destroy;
    return kMoaErr_NoErr;
  }
  return kMoaErr_BadClass;
}

__attribute__((visibility("default"))) MoaError DllGetInterface(MoaObjectHeader* instance,
                                                                 ConstPMoaClassID cls,
                                                                 ConstPMoaInterfaceID iid,
                                                                 PPMoaVoid out) {
  if (iid == nullptr) return kMoaErr_BadInterface;
  for (const auto& entry : kClassList) {
    if (isClassRecord(entry) || !classMatches(entry, cls)) continue;
    if (equalID(*iid, *entry.interfaceID)) return entry.maker(instance, out);
  }
  return kMoaErr_BadInterface;
}

__attribute__((visibility("default"))) void ppcSetFileRef(MoaFileRef file) {
  moduleState().fileRef = file;
}

}  // extern "C"
