#include "host/module.h"

#include <dlfcn.h>

#include <cstring>
#include <new>

namespace tessel::host {

using namespace moa;

namespace {

// The object-level IMoaUnknown of every instance. It adds no fields: the class's own fields
// follow the standard header directly, so everything the host needs is reached through the
// header (magicCookie -> the class record).
class HostObject final : public MoaObjectHeader {
 public:
  MoaError QueryInterface(ConstPMoaInterfaceID iid, PPMoaVoid out) override {
    if (out == nullptr) return kMoaErr_BadParam;
    if (iid == nullptr) {
      *out = nullptr;
      return kMoaErr_BadParam;
    }
    if (equalID(*iid, IID_IMoaUnknown)) {
      AddRef();
      *out = static_cast<IMoaUnknown*>(this);
      return kMoaErr_NoErr;
    }
    try {
      return record()->module->getInterface(this, pClassID, iid, out);
    } catch (...) {
      return kMoaErr_InternalError;
    }
  }

  MoaUlong AddRef() override { return static_cast<MoaUlong>(++refCount); }

  MoaUlong Release() override {
    if (refCount <= 0) return 0;  // already destroyed or never counted: nothing to do
    if (--refCount > 0) return static_cast<MoaUlong>(refCount);
    Module::ClassRecord* rec = record();
    try {
      if (rec->destroy != nullptr) rec->destroy(this);
    } catch (...) {
    }
    --rec->live;
    pCalloc->NRFree(this);
    return 0;
  }

 private:
  Module::ClassRecord* record() const { return static_cast<Module::ClassRecord*>(magicCookie); }
};
static_assert(sizeof(HostObject) == sizeof(MoaObjectHeader));

template <class F>
F symbol(void* handle, const char* name) {
  void* p = dlsym(handle, name);
  F f = nullptr;
  static_assert(sizeof f == sizeof p);
  std::memcpy(&f, &p, sizeof f);
  return f;
}

}  // namespace

std::unique_ptr<Module> Module::open(const std::string& path, std::string* error) {
  std::unique_ptr<Module> m(new Module);
  m->path_ = path;
  dlerror();
  m->handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (m->handle_ == nullptr) {
    const char* why = dlerror();
    if (error != nullptr) *error = why != nullptr ? why : "cannot be opened";
    return nullptr;
  }
  m->getClassObject_ = symbol<DllGetClassObjectProc>(m->handle_, "DllGetClassObject");
  m->canUnloadNow_ = symbol<DllCanUnloadNowProc>(m->handle_, "DllCanUnloadNow");
  m->getClassInfo_ = symbol<DllGetClassInfoProc>(m->handle_, "DllGetClassInfo");
  m->getInterface_ = symbol<DllGetInterfaceProc>(m->handle_, "DllGetInterface");
  m->getClassForm_ = symbol<DllGetClassFormProc>(m->handle_, "DllGetClassForm");
  m->setFileRef_ = symbol<PpcSetFileRefProc>(m->handle_, "ppcSetFileRef");
  std::string missing;
  auto need = [&](bool present, const char* name) {
    if (present) return;
    if (!missing.empty()) missing += ", ";
    missing += name;
  };
  need(m->getClassObject_ != nullptr, "DllGetClassObject");
  need(m->canUnloadNow_ != nullptr, "DllCanUnloadNow");
  need(m->getClassInfo_ != nullptr, "DllGetClassInfo");
  need(m->getInterface_ != nullptr, "DllGetInterface");
  need(m->getClassForm_ != nullptr, "DllGetClassForm");
  need(m->setFileRef_ != nullptr, "ppcSetFileRef");
  if (!missing.empty()) {
    if (error != nullptr) *error = "not a MOA module: no " + missing;
    return nullptr;  // the destructor closes the library
  }
  return m;
}

Module::~Module() {
  if (handle_ != nullptr && !keepOpen_) dlclose(handle_);
}

MoaError Module::getClassObject(ConstPMoaClassID cls, ConstPMoaInterfaceID iid, PPMoaVoid out) const {
  return getClassObject_(cls, iid, out);
}
MoaError Module::canUnloadNow() const { return canUnloadNow_(); }
MoaError Module::getClassInfo(IMoaCalloc* calloc, MoaClassInterfaceInfo** list) const {
  return getClassInfo_(calloc, list);
}
MoaError Module::getInterface(MoaObjectHeader* instance, ConstPMoaClassID cls,
                              ConstPMoaInterfaceID iid, PPMoaVoid out) const {
  return getInterface_(instance, cls, iid, out);
}
MoaError Module::getClassForm(ConstPMoaClassID cls, MoaLong* size, MoaCreateProc* create,
                              MoaDestroyProc* destroy) const {
  return getClassForm_(cls, size, create, destroy);
}
void Module::setFileRef(MoaFileRef file) const { setFileRef_(file); }

MoaError Module::classList(Allocator& calloc, std::vector<MoaClassInterfaceInfo>& out,
                           std::string* problem) const {
  out.clear();
  MoaClassInterfaceInfo* list = nullptr;
  MoaError err;
  try {
    err = getClassInfo_(&calloc, &list);
  } catch (...) {
    err = kMoaErr_InternalError;
  }
  if (err != 0) return err;
  if (list == nullptr) {
    if (problem != nullptr) *problem = "DllGetClassInfo gave no class list";
    return kMoaErr_ClassInfoNotFound;
  }
  // Read up to the terminator, but never past the block the list was allocated in.
  auto block = calloc.blockSize(list);
  size_t capacity = block ? *block / sizeof(MoaClassInterfaceInfo) : 1024;
  bool terminated = false;
  for (size_t i = 0; i < capacity; ++i) {
    MoaClassInterfaceInfo rec;
    std::memcpy(&rec, reinterpret_cast<const unsigned char*>(list) + i * sizeof rec, sizeof rec);
    if (isNullID(rec.classID) && isNullID(rec.interfaceID)) {
      terminated = true;
      break;
    }
    out.push_back(rec);
  }
  if (block) {
    calloc.NRFree(list);
  } else if (problem != nullptr) {
    *problem = "the class list was not allocated with the host allocator";
  }
  if (!terminated) {
    out.clear();
    if (problem != nullptr) *problem = "the class list has no terminating record";
    return kMoaErr_ClassInfoNotFound;
  }
  return kMoaErr_NoErr;
}

Module::ClassRecord* Module::record(const MoaClassID& cls) {
  for (auto& rec : classes_) {
    if (equalID(rec.id, cls)) return &rec;
  }
  return nullptr;
}

MoaError Module::createInstance(const MoaClassID& cls, IMoaCallback* callback, IMoaCalloc* calloc,
                                MoaObjectHeader** out) {
  if (out == nullptr || calloc == nullptr) return kMoaErr_BadParam;
  *out = nullptr;
  if (handle_ == nullptr) return kMoaErr_BadClass;
  ClassRecord* rec = record(cls);
  if (rec == nullptr) {
    ClassRecord form;
    form.module = this;
    form.id = cls;
    MoaError err;
    try {
      err = getClassForm_(&form.id, &form.size, &form.create, &form.destroy);
    } catch (...) {
      err = kMoaErr_InternalError;
    }
    if (err != 0) return err;
    classes_.push_back(form);
    rec = &classes_.back();
  }
  if (rec->size < static_cast<MoaLong>(sizeof(MoaObjectHeader))) return kMoaErr_BadClass;

  void* block = calloc->NRAlloc(static_cast<MoaUlong>(rec->size));
  if (block == nullptr) return kMoaErr_OutOfMem;
  auto* obj = new (block) HostObject;
  obj->magicCookie = rec;
  obj->pCallback = callback;
  obj->pCalloc = calloc;
  obj->pClassID = &rec->id;
  obj->refCount = 1;
  ++rec->live;
  MoaError err = kMoaErr_NoErr;
  try {
    if (rec->create != nullptr) err = rec->create(obj);
  } catch (...) {
    err = kMoaErr_InternalError;
  }
  if (err != 0) {
    // A failed constructor is not followed by the destructor.
    --rec->live;
    calloc->NRFree(block);
    return err;
  }
  *out = obj;
  return kMoaErr_NoErr;
}

size_t Module::liveInstances() const {
  size_t n = 0;
  for (const auto& rec : classes_) n += rec.live;
  return n;
}

bool Module::close() {
  if (handle_ == nullptr) return true;
  if (liveInstances() > 0) return false;
  dlclose(handle_);
  handle_ = nullptr;
  return true;
}

}  // namespace tessel::host
