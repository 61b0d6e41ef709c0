// A loaded MOA module: the shared library with its six entry points, its class list, and the
// instances made of its classes.
//
// Instances follow MOA's creation sequence: DllGetClassForm gives the size and the create and
// destroy procedures; the host allocates the block zero-filled from its allocator, fills the
// standard header (its own IMoaUnknown table first, then magicCookie, pCallback, pCalloc,
// pClassID, refCount 1) and calls the create procedure. The object's QueryInterface builds
// interfaces through DllGetInterface; its Release at 0 calls the destroy procedure and frees the
// block. The header's magicCookie points at the host's record of the class, which is how the
// object finds its module again.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "host/services.h"
#include "moa/moa_interfaces.h"

namespace tessel::host {

class Module {
 public:
  // Opens the library at `path` and resolves DllGetClassObject, DllCanUnloadNow,
  // DllGetClassInfo, DllGetInterface, DllGetClassForm and ppcSetFileRef. Null, with the reason
  // in *error, when it cannot be opened or lacks any of them.
  static std::unique_ptr<Module> open(const std::string& path, std::string* error);
  ~Module();  // closes the library unless keepOpen() was called
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  const std::string& path() const { return path_; }

  // The entry points, called as they are.
  moa::MoaError getClassObject(moa::ConstPMoaClassID cls, moa::ConstPMoaInterfaceID iid,
                               moa::PPMoaVoid out) const;
  moa::MoaError canUnloadNow() const;
  moa::MoaError getClassInfo(moa::IMoaCalloc* calloc, moa::MoaClassInterfaceInfo** list) const;
  moa::MoaError getInterface(moa::MoaObjectHeader* instance, moa::ConstPMoaClassID cls,
                             moa::ConstPMoaInterfaceID iid, moa::PPMoaVoid out) const;
  moa::MoaError getClassForm(moa::ConstPMoaClassID cls, moa::MoaLong* size,
                             moa::MoaCreateProc* create, moa::MoaDestroyProc* destroy) const;
  void setFileRef(moa::MoaFileRef file) const;

  // The class list: DllGetClassInfo with `calloc`, records read up to the null terminator
  // (never past the block the module allocated), the block given back with NRFree.
  moa::MoaError classList(Allocator& calloc, std::vector<moa::MoaClassInterfaceInfo>& out,
                          std::string* problem = nullptr) const;

  // Makes an instance of class `cls` whose header carries `callback` and `calloc`; the caller
  // owns its one reference (Release it). kMoaErr_BadClass for a class the module does not make.
  moa::MoaError createInstance(const moa::MoaClassID& cls, moa::IMoaCallback* callback,
                               moa::IMoaCalloc* calloc, moa::MoaObjectHeader** out);
  // Instances made by createInstance and not yet destroyed.
  size_t liveInstances() const;

  // Closes the library now if no instance of it is alive; false (it stays open) otherwise.
  bool close();
  // Leaves the library loaded for good (it is still in use).
  void keepOpen() { keepOpen_ = true; }
  bool isOpen() const { return handle_ != nullptr; }

  // The host's record of one class, pointed at by each instance's magicCookie.
  struct ClassRecord {
    Module* module = nullptr;
    moa::MoaClassID id{};
    moa::MoaLong size = 0;
    moa::MoaCreateProc create = nullptr;
    moa::MoaDestroyProc destroy = nullptr;
    size_t live = 0;
  };

 private:
  Module() = default;
  ClassRecord* record(const moa::MoaClassID& cls);

  std::string path_;
  void* handle_ = nullptr;
  bool keepOpen_ = false;
  moa::DllGetClassObjectProc getClassObject_ = nullptr;
  moa::DllCanUnloadNowProc canUnloadNow_ = nullptr;
  moa::DllGetClassInfoProc getClassInfo_ = nullptr;
  moa::DllGetInterfaceProc getInterface_ = nullptr;
  moa::DllGetClassFormProc getClassForm_ = nullptr;
  moa::PpcSetFileRefProc setFileRef_ = nullptr;
  std::deque<ClassRecord> classes_;  // stable addresses: instances point at them
};

}  // namespace tessel::host
