#include "host/registry.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string_view>

#include "host/service_support.h"

namespace tessel::host {

using namespace moa;

namespace {

// The process-wide table of dictionary keys: FindKey's "fast keys" and the keys entries hold.
const char* internKey(const char* key) {
  static std::mutex mutex;
  static std::unordered_set<std::string> pool;
  std::lock_guard<std::mutex> lock(mutex);
  return pool.emplace(key).first->c_str();
}

size_t fixedSize(MoaDictTypeID type) {
  switch (type) {
    case kMoaDictType_Long: return sizeof(MoaLong);
    case kMoaDictType_Float: return sizeof(float);
    case kMoaDictType_Wide: return sizeof(MoaWide);
    case kMoaDictType_Bool: return sizeof(MoaBool);
    case kMoaDictType_MoaID: return sizeof(MoaID);
    case kMoaDictType_Double: return sizeof(double);
    case kMoaDictType_MoaPoint: return sizeof(MoaPoint);
    case kMoaDictType_MoaRect: return sizeof(MoaRect);
    default: return 0;
  }
}

bool holdsObject(MoaDictTypeID type) {
  return type == kMoaDictType_Dict || type == kMoaDictType_PIMoaUnknown;
}

}  // namespace

// ---- Allocator ---------------------------------------------------------------------------------

Allocator::~Allocator() {
  for (auto& [block, size] : blocks_) std::free(block);
}

MoaError Allocator::QueryInterface(ConstPMoaInterfaceID iid, PPMoaVoid out) {
  if (out == nullptr) return kMoaErr_BadParam;
  if (sameID(iid, IID_IMoaUnknown) || sameID(iid, IID_IMoaCalloc)) {
    AddRef();
    *out = static_cast<IMoaCalloc*>(this);
    return kMoaErr_NoErr;
  }
  *out = nullptr;
  return kMoaErr_BadInterface;
}

PMoaVoid Allocator::NRAlloc(MoaUlong size) {
  if (failNext_ > 0) {
    --failNext_;
    return nullptr;
  }
  void* block = std::calloc(1, size == 0 ? 1 : size);
  if (block == nullptr) return nullptr;
  try {
    blocks_.emplace(block, size);
  } catch (...) {
    std::free(block);
    return nullptr;
  }
  return block;
}

void Allocator::NRFree(PMoaVoid block) {
  if (block == nullptr) return;
  auto it = blocks_.find(block);
  if (it == blocks_.end()) {
    ++badFrees_;
    return;
  }
  blocks_.erase(it);
  std::free(block);
}

std::optional<size_t> Allocator::blockSize(const void* block) const {
  auto it = blocks_.find(const_cast<void*>(block));
  if (it == blocks_.end()) return std::nullopt;
  return it->second;
}

// ---- Dict --------------------------------------------------------------------------------------

Dict::Dict() : failures_(std::make_shared<PutFailures>()) {}
Dict::Dict(std::shared_ptr<PutFailures> failures) : failures_(std::move(failures)) {
  if (!failures_) failures_ = std::make_shared<PutFailures>();
}

Dict::~Dict() {
  for (auto& e : entries_) drop(e);
}

MoaError Dict::QueryInterface(ConstPMoaInterfaceID iid, PPMoaVoid out) {
  if (out == nullptr) return kMoaErr_BadParam;
  if (sameID(iid, IID_IMoaUnknown) || sameID(iid, IID_IMoaDict)) {
    AddRef();
    *out = static_cast<IMoaDict*>(this);
    return kMoaErr_NoErr;
  }
  *out = nullptr;
  return kMoaErr_BadInterface;
}

void Dict::drop(Entry& e) {
  if (e.object != nullptr && !e.child) e.object->Release();
  e.object = nullptr;
  e.child.reset();
}

const Dict::Entry* Dict::find(const char* key) const {
  auto it = index_.find(internKey(key));
  return it == index_.end() ? nullptr : &entries_[it->second];
}

MoaError Dict::store(Entry entry) {
  auto it = index_.find(entry.key);
  if (it != index_.end()) {
    drop(entries_[it->second]);
    entries_[it->second] = std::move(entry);
  } else {
    entries_.push_back(std::move(entry));
    index_.emplace(entries_.back().key, entries_.size() - 1);
  }
  return kMoaErr_NoErr;
}

MoaError Dict::SetSize(MoaUlong expectedCount) {
  return guarded([&] {
    size_t n = std::min<size_t>(expectedCount, 4096);  // a hint; never trust it with memory
    entries_.reserve(n);
    index_.reserve(n);
    return kMoaErr_NoErr;
  });
}

MoaError Dict::MakeDict(IMoaDict** out, const char* key) {
  return guarded([&] {
    if (out != nullptr) *out = nullptr;
    if (key == nullptr) return kMoaErr_BadParam;
    if (auto f = failures_->keys.find(key); f != failures_->keys.end()) return f->second;
    Entry e;
    e.key = internKey(key);
    e.type = kMoaDictType_Dict;
    e.child = std::make_unique<Dict>(failures_);
    e.object = e.child.get();
    Dict* child = e.child.get();
    store(std::move(e));
    if (out != nullptr) *out = child;
    return kMoaErr_NoErr;
  });
}

MoaError Dict::Get(MoaDictTypeID type, PMoaVoid buf, MoaLong size, const char* key) {
  return guarded([&] {
    if (key == nullptr || buf == nullptr || size < 0) return kMoaErr_BadParam;
    const Entry* e = find(key);
    if (e == nullptr) return kMoaDictErr_NotFound;
    if (e->type != type) return kMoaDictErr_WrongType;
    if (holdsObject(type)) {
      if (static_cast<size_t>(size) < sizeof(void*)) return kMoaDictErr_BufferTooSmall;
      if (e->object != nullptr) e->object->AddRef();
      std::memcpy(buf, &e->object, sizeof(void*));
      return kMoaErr_NoErr;
    }
    if (e->bytes.size() > static_cast<size_t>(size)) return kMoaDictErr_BufferTooSmall;
    if (!e->bytes.empty()) std::memcpy(buf, e->bytes.data(), e->bytes.size());
    return kMoaErr_NoErr;
  });
}

MoaError Dict::Put(MoaDictTypeID type, ConstPMoaVoid buf, MoaLong size, const char* key) {
  return guarded([&] {
    if (key == nullptr || type == kMoaDictType_Bogus || size < 0) return kMoaErr_BadParam;
    if (size > 0 && buf == nullptr) return kMoaErr_BadParam;
    if (auto f = failures_->keys.find(key); f != failures_->keys.end()) return f->second;
    Entry e;
    e.key = internKey(key);
    e.type = type;
    const auto* bytes = static_cast<const uint8_t*>(buf);
    if (holdsObject(type)) {
      if (buf == nullptr || (size != 0 && static_cast<size_t>(size) != sizeof(void*))) {
        return kMoaErr_BadParam;
      }
      std::memcpy(&e.object, buf, sizeof(void*));
      if (e.object != nullptr) e.object->AddRef();
    } else if (type == kMoaDictType_CString) {
      if (buf == nullptr) return kMoaErr_BadParam;
      // Size 0: the string is measured. Otherwise the text ends at the first NUL within `size`
      // bytes, or at `size`.
      size_t len = size == 0 ? std::strlen(static_cast<const char*>(buf))
                             : strnlen(static_cast<const char*>(buf), static_cast<size_t>(size));
      e.bytes.assign(bytes, bytes + len);
      e.bytes.push_back(0);
    } else if (size_t natural = fixedSize(type); natural != 0) {
      if (buf == nullptr || (size != 0 && static_cast<size_t>(size) != natural)) {
        return kMoaErr_BadParam;
      }
      e.bytes.assign(bytes, bytes + natural);
    } else {
      if (size > 0) e.bytes.assign(bytes, bytes + size);  // Bytes and run-time types
    }
    return store(std::move(e));
  });
}

MoaError Dict::Remove(const char* key) {
  return guarded([&] {
    if (key == nullptr) return kMoaErr_BadParam;
    auto it = index_.find(internKey(key));
    if (it == index_.end()) return kMoaDictErr_NotFound;
    size_t pos = it->second;
    drop(entries_[pos]);
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(pos));
    index_.erase(it);
    for (size_t i = pos; i < entries_.size(); ++i) index_[entries_[i].key] = i;
    return kMoaErr_NoErr;
  });
}

MoaError Dict::Count(MoaUlong* count) {
  if (count == nullptr) return kMoaErr_BadParam;
  *count = static_cast<MoaUlong>(entries_.size());
  return kMoaErr_NoErr;
}

MoaError Dict::GetNth(MoaUlong index, MoaDictTypeID* type, MoaLong* size, const char** key) {
  if (index >= entries_.size()) return kMoaErr_BadParam;
  const Entry& e = entries_[index];
  if (type != nullptr) *type = e.type;
  if (size != nullptr) {
    *size = static_cast<MoaLong>(holdsObject(e.type) ? sizeof(void*) : e.bytes.size());
  }
  if (key != nullptr) *key = e.key;
  return kMoaErr_NoErr;
}

MoaError Dict::GetInfo(MoaDictTypeID* type, MoaLong* size, const char* key) {
  return guarded([&] {
    if (key == nullptr) return kMoaErr_BadParam;
    const Entry* e = find(key);
    if (e == nullptr) return kMoaDictErr_NotFound;
    if (type != nullptr) *type = e->type;
    if (size != nullptr) {
      *size = static_cast<MoaLong>(holdsObject(e->type) ? sizeof(void*) : e->bytes.size());
    }
    return kMoaErr_NoErr;
  });
}

const char* Dict::FindKey(const char* key) {
  if (key == nullptr) return nullptr;
  try {
    return internKey(key);
  } catch (...) {
    return nullptr;
  }
}

void Dict::failPut(const std::string& key, MoaError err) { failures_->keys[key] = err; }

std::optional<std::string> Dict::getString(const std::string& key) const {
  const Entry* e = find(key.c_str());
  if (e == nullptr || e->type != kMoaDictType_CString || e->bytes.empty()) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(e->bytes.data()));
}

std::optional<int32_t> Dict::getLong(const std::string& key) const {
  const Entry* e = find(key.c_str());
  if (e == nullptr || e->type != kMoaDictType_Long || e->bytes.size() != sizeof(int32_t)) {
    return std::nullopt;
  }
  int32_t n;
  std::memcpy(&n, e->bytes.data(), sizeof n);
  return n;
}

// ---- Cache -------------------------------------------------------------------------------------

Cache::Cache() : failures_(std::make_shared<PutFailures>()) {}
Cache::~Cache() = default;

MoaError Cache::QueryInterface(ConstPMoaInterfaceID iid, PPMoaVoid out) {
  if (out == nullptr) return kMoaErr_BadParam;
  if (sameID(iid, IID_IMoaUnknown) || sameID(iid, IID_IMoaCache)) {
    AddRef();
    *out = static_cast<IMoaCache*>(this);
    return kMoaErr_NoErr;
  }
  *out = nullptr;
  return kMoaErr_BadInterface;
}

Cache::FileEntry* Cache::fileOf(const IMoaDict* xtraDict) const {
  auto it = byXtraDict_.find(xtraDict);
  return it == byXtraDict_.end() ? nullptr : it->second;
}

const Cache::RegistryEntry* Cache::entryOf(const IMoaDict* regDict) const {
  auto it = byRegDict_.find(regDict);
  return it == byRegDict_.end() ? nullptr : it->second;
}

Dict* Cache::addXtraFile(const std::string& path) {
  auto file = std::make_unique<FileEntry>();
  file->path = path;
  file->fileDict = std::make_unique<Dict>(failures_);
  file->xtraDict = std::make_unique<Dict>(failures_);
  Dict* xtra = file->xtraDict.get();
  byXtraDict_.emplace(xtra, file.get());
  files_.push_back(std::move(file));
  return xtra;
}

void Cache::removeXtraFile(const IMoaDict* xtraDict) {
  FileEntry* file = fileOf(xtraDict);
  if (file == nullptr) return;
  for (const auto& entry : file->registry) byRegDict_.erase(entry->dict.get());
  byXtraDict_.erase(xtraDict);
  for (auto it = files_.begin(); it != files_.end(); ++it) {
    if (it->get() == file) {
      files_.erase(it);
      break;
    }
  }
}

std::vector<const Cache::RegistryEntry*> Cache::entries(const IMoaDict* xtraDict) const {
  std::vector<const RegistryEntry*> out;
  for (const auto& file : files_) {
    if (xtraDict != nullptr && file->xtraDict.get() != xtraDict) continue;
    for (const auto& entry : file->registry) out.push_back(entry.get());
  }
  return out;
}

void Cache::failPut(const std::string& key, MoaError err) { failures_->keys[key] = err; }

MoaError Cache::EnumerateFileEntries(MoaCacheFileEntryProc proc, PMoaVoid refCon) {
  return guarded([&] {
    if (proc == nullptr) return kMoaErr_BadParam;
    std::vector<std::pair<Dict*, std::string>> snapshot;
    for (const auto& f : files_) snapshot.emplace_back(f->fileDict.get(), f->path);
    for (const auto& [dict, path] : snapshot) {
      if (MoaError err = proc(dict, path.c_str(), MoaWide{0, 0}, 0, refCon)) return err;
    }
    return kMoaErr_NoErr;
  });
}

MoaError Cache::EnumerateXtraEntries(MoaCacheXtraEntryProc proc, PMoaVoid refCon) {
  return guarded([&] {
    if (proc == nullptr) return kMoaErr_BadParam;
    std::vector<Dict*> snapshot;
    for (const auto& f : files_) snapshot.push_back(f->xtraDict.get());
    for (Dict* dict : snapshot) {
      if (MoaError err = proc(dict, refCon)) return err;
    }
    return kMoaErr_NoErr;
  });
}

MoaError Cache::EnumerateRegistryEntries(MoaCacheRegistryEntryProc proc, PMoaVoid refCon) {
  return guarded([&] {
    if (proc == nullptr) return kMoaErr_BadParam;
    struct Item {
      Dict* dict;
      MoaClassID cls;
      MoaInterfaceID iid;
    };
    std::vector<Item> snapshot;
    for (const RegistryEntry* e : entries()) {
      snapshot.push_back({e->dict.get(), e->classID, e->interfaceID});
    }
    for (const Item& item : snapshot) {
      if (MoaError err = proc(item.dict, &item.cls, &item.iid, refCon)) return err;
    }
    return kMoaErr_NoErr;
  });
}

MoaError Cache::SetXtraEntryNoncacheable(IMoaDict* xtraDict) {
  FileEntry* file = fileOf(xtraDict);
  if (file == nullptr) return kMoaErr_BadParam;
  file->cacheable = false;
  return kMoaErr_NoErr;
}

MoaError Cache::AddRegistryEntry(IMoaDict* xtraDict, ConstPMoaClassID cls, ConstPMoaInterfaceID iid,
                                 IMoaDict** regDict) {
  return guarded([&] {
    if (regDict == nullptr) return kMoaErr_BadParam;
    *regDict = nullptr;
    if (cls == nullptr || iid == nullptr) return kMoaErr_BadParam;
    FileEntry* file = fileOf(xtraDict);
    if (file == nullptr) return kMoaErr_BadParam;
    for (const auto& entry : file->registry) {
      if (equalID(entry->classID, *cls) && equalID(entry->interfaceID, *iid)) {
        *regDict = entry->dict.get();
        return kMoaErr_NoErr;
      }
    }
    auto entry = std::make_unique<RegistryEntry>(
        RegistryEntry{*cls, *iid, file->xtraDict.get(), std::make_unique<Dict>(failures_)});
    Dict* dict = entry->dict.get();
    byRegDict_.emplace(dict, entry.get());
    file->registry.push_back(std::move(entry));
    *regDict = dict;
    return kMoaErr_NoErr;
  });
}

MoaError Cache::instanceFromRegistry(IMoaDict* regDict, ConstPMoaInterfaceID iid, bool fresh,
                                     PPMoaVoid out) {
  return guarded([&] {
    if (out == nullptr) return kMoaErr_BadParam;
    *out = nullptr;
    const RegistryEntry* entry = entryOf(regDict);
    if (entry == nullptr || iid == nullptr) return kMoaErr_BadParam;
    if (!maker_) return kMoaErr_BadClass;
    MoaClassID cls = entry->classID;  // the maker may change the registry
    return maker_(cls, *iid, fresh, out);
  });
}

MoaError Cache::GetInstanceFromRegistry(IMoaDict* regDict, ConstPMoaInterfaceID iid,
                                        PPMoaVoid out) {
  return instanceFromRegistry(regDict, iid, false, out);
}

MoaError Cache::CreateNewInstanceFromRegistry(IMoaDict* regDict, ConstPMoaInterfaceID iid,
                                              PPMoaVoid out) {
  return instanceFromRegistry(regDict, iid, true, out);
}

MoaError Cache::EnumerateRegistryEntriesFromFile(const char* fileSpec, MoaLong maxDepth,
                                                 MoaCacheFromFileProc proc, PMoaVoid refCon) {
  return guarded([&] {
    if (fileSpec == nullptr || proc == nullptr) return kMoaErr_BadParam;
    std::string spec(fileSpec);
    while (spec.size() > 1 && spec.back() == '/') spec.pop_back();
    // The module itself, or the modules in the folder `spec` down to `maxDepth` folder levels
    // below it (negative: any depth).
    auto matches = [&](const std::string& path) {
      if (path == spec) return true;
      std::string prefix = spec == "/" ? spec : spec + "/";
      if (path.compare(0, prefix.size(), prefix) != 0) return false;
      auto depth = static_cast<MoaLong>(
          std::count(path.begin() + static_cast<std::ptrdiff_t>(prefix.size()), path.end(), '/'));
      return maxDepth < 0 || depth <= maxDepth;
    };
    struct Item {
      Dict* fileDict;
      std::string path;
      Dict* xtraDict;
      Dict* regDict;
      MoaClassID cls;
      MoaInterfaceID iid;
    };
    std::vector<Item> snapshot;
    for (const auto& f : files_) {
      if (!matches(f->path)) continue;
      for (const auto& e : f->registry) {
        snapshot.push_back({f->fileDict.get(), f->path, f->xtraDict.get(), e->dict.get(),
                            e->classID, e->interfaceID});
      }
    }
    for (const Item& it : snapshot) {
      if (MoaError err = proc(it.fileDict, it.path.c_str(), MoaWide{0, 0}, 0, it.xtraDict,
                              it.regDict, &it.cls, &it.iid, refCon)) {
        return err;
      }
    }
    return kMoaErr_NoErr;
  });
}

MoaError Cache::GetFileSpecFromFileDict(IMoaDict* fileDict, char* fileSpec, MoaLong bufLen) {
  if (fileSpec == nullptr || bufLen <= 0) return kMoaErr_BadParam;
  for (const auto& f : files_) {
    if (f->fileDict.get() == fileDict) {
      return answerWhole(f->path, fileSpec, bufLen, kMoaDictErr_BufferTooSmall);
    }
  }
  fileSpec[0] = '\0';
  return kMoaDictErr_NotFound;
}

}  // namespace tessel::host
