// The host's registry and the objects it is built of: the allocator (IMoaCalloc), dictionaries
// (IMoaDict) and the cache of registered classes (IMoaCache). They can be used on their own
// (tests of registration and of class lists) as well as through a Host.
//
// Reference counts are real and observable, as for every host service (services.h); nothing here
// throws into an Xtra.
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

#include "moa/moa_interfaces.h"

namespace tessel::host {

// ---- Reference counting ------------------------------------------------------------------------

// Reference count of a host-owned interface object.
class RefCount {
 public:
  moa::MoaUlong add() { return ++count_; }
  moa::MoaUlong remove() {
    if (count_ == 0) {
      ++overReleases_;
      return 0;
    }
    return --count_;
  }
  uint32_t count() const { return count_; }
  uint32_t overReleases() const { return overReleases_; }

 private:
  uint32_t count_ = 0;
  uint32_t overReleases_ = 0;
};

// ---- Allocator (IMoaCalloc) --------------------------------------------------------------------

// Zero-filled fixed blocks from the C heap. Knows its live blocks (and their sizes), so a block
// that did not come from it is not freed, and can be told to refuse the next N requests.
class Allocator final : public moa::IMoaCalloc {
 public:
  Allocator() = default;
  Allocator(const Allocator&) = delete;
  Allocator& operator=(const Allocator&) = delete;
  ~Allocator();  // frees what is still live

  moa::MoaError QueryInterface(moa::ConstPMoaInterfaceID iid, moa::PPMoaVoid out) override;
  moa::MoaUlong AddRef() override { return refs_.add(); }
  moa::MoaUlong Release() override { return refs_.remove(); }
  moa::PMoaVoid NRAlloc(moa::MoaUlong size) override;
  void NRFree(moa::PMoaVoid block) override;

  size_t liveBlocks() const { return blocks_.size(); }
  // Size of a live block; nullopt for anything else.
  std::optional<size_t> blockSize(const void* block) const;
  // NRFree calls with a pointer that is no live block (ignored).
  size_t badFrees() const { return badFrees_; }
  // The next `n` NRAlloc calls answer null.
  void failNextAllocations(int n) { failNext_ = n; }
  const RefCount& refs() const { return refs_; }

 private:
  std::unordered_map<void*, size_t> blocks_;
  size_t badFrees_ = 0;
  int failNext_ = 0;
  RefCount refs_;
};

// ---- Dictionary (IMoaDict) ---------------------------------------------------------------------

// Keys whose Put should fail, shared by a cache and every dictionary it makes (a test hook).
struct PutFailures {
  std::map<std::string, moa::MoaError> keys;
};

// Typed entries in insertion order. Values are copied on Put; CString with size 0 is measured,
// a CString whose bytes lack a NUL gets one; fixed-size types take size 0 or their own size.
// Dict and PIMoaUnknown entries hold a reference (Put AddRefs, Remove and replacement Release)
// and Get hands out a new reference. GetNth counts from 0.
class Dict final : public moa::IMoaDict {
 public:
  Dict();
  explicit Dict(std::shared_ptr<PutFailures> failures);
  Dict(const Dict&) = delete;
  Dict& operator=(const Dict&) = delete;
  ~Dict();

  moa::MoaError QueryInterface(moa::ConstPMoaInterfaceID iid, moa::PPMoaVoid out) override;
  moa::MoaUlong AddRef() override { return refs_.add(); }
  moa::MoaUlong Release() override { return refs_.remove(); }
  moa::MoaError SetSize(moa::MoaUlong expectedCount) override;
  moa::MoaError MakeDict(moa::IMoaDict** out, const char* key) override;
  moa::MoaError Get(moa::MoaDictTypeID type, moa::PMoaVoid buf, moa::MoaLong size,
                    const char* key) override;
  moa::MoaError Put(moa::MoaDictTypeID type, moa::ConstPMoaVoid buf, moa::MoaLong size,
                    const char* key) override;
  moa::MoaError Remove(const char* key) override;
  moa::MoaError Count(moa::MoaUlong* count) override;
  moa::MoaError GetNth(moa::MoaUlong index, moa::MoaDictTypeID* type, moa::MoaLong* size,
                       const char** key) override;
  moa::MoaError GetInfo(moa::MoaDictTypeID* type, moa::MoaLong* size, const char* key) override;
  const char* FindKey(const char* key) override;

  // Makes Put of `key` fail with `err` (in this dictionary and the ones it makes later).
  void failPut(const std::string& key, moa::MoaError err = moa::kMoaDictErr_CantWrite);
  std::optional<std::string> getString(const std::string& key) const;
  std::optional<int32_t> getLong(const std::string& key) const;
  const RefCount& refs() const { return refs_; }

 private:
  struct Entry {
    const char* key = nullptr;  // interned
    moa::MoaDictTypeID type = 0;
    std::vector<uint8_t> bytes;
    moa::IMoaUnknown* object = nullptr;  // Dict / PIMoaUnknown entries (one reference held)
    std::unique_ptr<Dict> child;         // made by MakeDict
  };
  const Entry* find(const char* key) const;
  moa::MoaError store(Entry entry);
  void drop(Entry& entry);

  std::vector<Entry> entries_;
  std::unordered_map<const char*, size_t> index_;  // interned key -> position
  std::shared_ptr<PutFailures> failures_;
  RefCount refs_;
};

// ---- Registry (IMoaCache) ----------------------------------------------------------------------

// The host's registry: one file entry and one Xtra entry dictionary per loaded module, and the
// registry entries its Register call adds, keyed by (class, interface). The dictionaries belong
// to the cache.
class Cache final : public moa::IMoaCache {
 public:
  struct RegistryEntry {
    moa::MoaClassID classID;
    moa::MoaInterfaceID interfaceID;
    Dict* xtraDict;
    std::unique_ptr<Dict> dict;
  };
  // Makes (or gives access to) an instance of a registered class with one interface:
  // `fresh` = a new instance; otherwise the host's shared one.
  using InstanceMaker = std::function<moa::MoaError(const moa::MoaClassID&,
                                                    const moa::MoaInterfaceID&, bool fresh,
                                                    void** out)>;

  Cache();
  Cache(const Cache&) = delete;
  Cache& operator=(const Cache&) = delete;
  ~Cache();

  moa::MoaError QueryInterface(moa::ConstPMoaInterfaceID iid, moa::PPMoaVoid out) override;
  moa::MoaUlong AddRef() override { return refs_.add(); }
  moa::MoaUlong Release() override { return refs_.remove(); }
  moa::MoaError EnumerateFileEntries(moa::MoaCacheFileEntryProc proc,
                                     moa::PMoaVoid refCon) override;
  moa::MoaError EnumerateXtraEntries(moa::MoaCacheXtraEntryProc proc,
                                     moa::PMoaVoid refCon) override;
  moa::MoaError EnumerateRegistryEntries(moa::MoaCacheRegistryEntryProc proc,
                                         moa::PMoaVoid refCon) override;
  moa::MoaError SetXtraEntryNoncacheable(moa::IMoaDict* xtraDict) override;
  moa::MoaError AddRegistryEntry(moa::IMoaDict* xtraDict, moa::ConstPMoaClassID cls,
                                 moa::ConstPMoaInterfaceID iid,
                                 moa::IMoaDict** regDict) override;
  moa::MoaError GetInstanceFromRegistry(moa::IMoaDict* regDict, moa::ConstPMoaInterfaceID iid,
                                        moa::PPMoaVoid out) override;
  moa::MoaError CreateNewInstanceFromRegistry(moa::IMoaDict* regDict,
                                              moa::ConstPMoaInterfaceID iid,
                                              moa::PPMoaVoid out) override;
  moa::MoaError EnumerateRegistryEntriesFromFile(const char* fileSpec, moa::MoaLong maxDepth,
                                                 moa::MoaCacheFromFileProc proc,
                                                 moa::PMoaVoid refCon) override;
  moa::MoaError GetFileSpecFromFileDict(moa::IMoaDict* fileDict, char* fileSpec,
                                        moa::MoaLong bufLen) override;

  // A new file entry for the module at `path`; answers its Xtra entry dictionary, the one
  // handed to the module's Register.
  Dict* addXtraFile(const std::string& path);
  // Forgets a module's entries and dictionaries.
  void removeXtraFile(const moa::IMoaDict* xtraDict);
  // Registry entries of one module (all modules when null), in the order they were added.
  std::vector<const RegistryEntry*> entries(const moa::IMoaDict* xtraDict = nullptr) const;
  // Makes Put of `key` fail in every dictionary of this cache.
  void failPut(const std::string& key, moa::MoaError err = moa::kMoaDictErr_CantWrite);
  void setInstanceMaker(InstanceMaker maker) { maker_ = std::move(maker); }
  const RefCount& refs() const { return refs_; }

 private:
  struct FileEntry {
    std::string path;
    std::unique_ptr<Dict> fileDict;
    std::unique_ptr<Dict> xtraDict;
    bool cacheable = true;
    std::vector<std::unique_ptr<RegistryEntry>> registry;
  };
  FileEntry* fileOf(const moa::IMoaDict* xtraDict) const;
  const RegistryEntry* entryOf(const moa::IMoaDict* regDict) const;
  moa::MoaError instanceFromRegistry(moa::IMoaDict* regDict, moa::ConstPMoaInterfaceID iid,
                                     bool fresh, moa::PPMoaVoid out);

  std::vector<std::unique_ptr<FileEntry>> files_;
  std::unordered_map<const moa::IMoaDict*, FileEntry*> byXtraDict_;
  std::unordered_map<const moa::IMoaDict*, const RegistryEntry*> byRegDict_;
  std::shared_ptr<PutFailures> failures_;
  InstanceMaker maker_;
  RefCount refs_;
};

}  // namespace tessel::host
