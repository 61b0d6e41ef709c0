#include "host/services.h"

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

// Runs a service operation, turning anything the host's own code throws into a MOA error.
template <class F>
MoaError guarded(F&& f) noexcept {
  try {
    return f();
  } catch (const std::bad_alloc&) {
    return kMoaErr_OutOfMem;
  } catch (...) {
    return kMoaErr_InternalError;
  }
}

bool sameID(ConstPMoaInterfaceID a, const MoaID& b) { return a != nullptr && equalID(*a, b); }

// The process-wide table of dictionary keys: FindKey's "fast keys" and the keys entries hold.
const char* internKey(const char* key) {
  static std::mutex mutex;
  static std::unordered_set<std::string> pool;
  std::lock_guard<std::mutex> lock(mutex);
  return pool.emplace(key).first->c_str();
}

// Answers a text into a caller's buffer that must hold all of it.
MoaError answerWhole(const std::string& text, char* buf, MoaLong bufLen, MoaError tooSmall) {
  if (text.size() + 1 > static_cast<size_t>(bufLen)) {
    buf[0] = '\0';
    return tooSmall;
  }
  std::memcpy(buf, text.c_str(), text.size() + 1);
  return kMoaErr_NoErr;
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

bool Cache::isCacheable(const IMoaDict* xtraDict) const {
  FileEntry* file = fileOf(xtraDict);
  return file != nullptr && file->cacheable;
}

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

// ---- Movie ---------------------------------------------------------------------------------------

MoaError MovieService::CallHandler(MoaMmSymbol name, MoaLong nArgs, PMoaMmValue args,
                                   PMoaMmValue result) {
  return guarded([&] {
    if (result != nullptr) *result = ValueStore::kVoid;
    if (host_.movie == nullptr) return kMoaDrErr_MovieNotOpen;
    auto handler = host_.values.symbolName(name);
    if (!handler || nArgs < 0 || (nArgs > 0 && args == nullptr)) return kMoaErr_BadParam;
    std::vector<Value> argv(static_cast<size_t>(nArgs));
    for (MoaLong i = 0; i < nArgs; ++i) {
      if (MoaError err = host_.values.toValue(args[i], argv[static_cast<size_t>(i)])) return err;
    }
    Value answer;
    if (MoaError err = host_.movie->callHandler(*handler, argv, answer)) return err;
    if (result != nullptr) return host_.values.fromValue(answer, result);
    return kMoaErr_NoErr;
  });
}

MoaError MovieService::GetProp(MoaMmSymbol prop, PMoaMmValue out) {
  return guarded([&] {
    if (out == nullptr) return kMoaErr_BadParam;
    if (host_.movie == nullptr) return kMoaDrErr_MovieNotOpen;
    auto name = host_.values.symbolName(prop);
    if (!name) return kMoaErr_BadParam;
    if (equalsIgnoringCase(*name, "moviePath") || equalsIgnoringCase(*name, "path")) {
      return host_.values.stringToValue(host_.movie->moviePath(), out);
    }
    return kMoaMmErr_PropertyNotFound;
  });
}

// Casts, media, the score and the stage belong to a movie file; the host's movie is only the
// running script context.
MoaError MovieService::SetProp(MoaMmSymbol, ConstPMoaMmValue) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetMedia(MoaDrMediaInfo*) { return kMoaErr_NotImplemented; }
MoaError MovieService::SetMedia(MoaDrMediaInfo*) { return kMoaErr_NotImplemented; }
MoaError MovieService::AttachMedia(MoaDrMediaInfo*) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetCastCount(MoaLong*) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetNthCast(MoaLong, IMoaDrCast**) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetCastFromName(const char*, IMoaDrCast**) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetCastIndexFromName(const char*, MoaLong*) { return kMoaErr_NotImplemented; }
MoaError MovieService::NewCast(const char*, MoaBoolParam, MoaLong*) { return kMoaErr_NotImplemented; }
MoaError MovieService::AddExternalCast(const char*, const char*, MoaLong*) { return kMoaErr_NotImplemented; }
MoaError MovieService::RemoveCast(MoaLong) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetCMRefFromMemberName(const char*, MoaDrCMRef*) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetCastMemFromCMRef(const MoaDrCMRef*, IMoaDrCastMem**) { return kMoaErr_NotImplemented; }
MoaError MovieService::UpdateStageRect(const MoaRect*, const MoaRect*) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetStageWindowGC(IMoaMmGC**) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetStageBufferGC(IMoaMmGC**) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetFrameIndexFromLabel(const char*, MoaLong*) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetFrameLabelFromIndex(MoaLong, char*, MoaLong) { return kMoaErr_NotImplemented; }
MoaError MovieService::SetFrameLabel(MoaLong, const char*) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetScoreAccess(IMoaDrScoreAccess**) { return kMoaErr_NotImplemented; }
MoaError MovieService::Save(const char*, MoaBoolParam) { return kMoaErr_NotImplemented; }
MoaError MovieService::SendSpriteMessage(MoaLong, MoaMmSymbol, MoaLong, PMoaMmValue, PMoaMmValue,
                                         MoaBool*) {
  return kMoaErr_NotImplemented;
}

// ---- Player --------------------------------------------------------------------------------------

MoaError PlayerService::GetProp(MoaMmSymbol, PMoaMmValue) { return kMoaErr_NotImplemented; }
MoaError PlayerService::SetProp(MoaMmSymbol, ConstPMoaMmValue) { return kMoaErr_NotImplemented; }

MoaError PlayerService::CallHandler(MoaMmSymbol name, MoaLong nArgs, PMoaMmValue args,
                                    PMoaMmValue result) {
  return host_.movieService.CallHandler(name, nArgs, args, result);
}

MoaError PlayerService::GetActiveMovie(IMoaDrMovie** movie) {
  if (movie == nullptr) return kMoaErr_BadParam;
  *movie = nullptr;
  if (host_.movie == nullptr) return kMoaDrErr_MovieNotOpen;
  host_.movieService.AddRef();
  *movie = &host_.movieService;
  return kMoaErr_NoErr;
}

MoaError PlayerService::GetMovieCount(MoaLong* count) {
  if (count == nullptr) return kMoaErr_BadParam;
  *count = host_.movie != nullptr ? 1 : 0;
  return kMoaErr_NoErr;
}

MoaError PlayerService::GetNthMovie(MoaLong index, IMoaDrMovie** movie) {
  if (movie == nullptr) return kMoaErr_BadParam;
  *movie = nullptr;
  if (host_.movie == nullptr) return kMoaDrErr_MovieNotOpen;
  if (index != 1) return kMoaMmErr_ArgOutOfRange;
  return GetActiveMovie(movie);
}

// Resolves a file name the way the player searches: "@" names the movie's folder ("@/a",
// "@:a" and "@\a" alike; every further leading separator goes one folder up), a plain relative
// name is looked for beside the movie, an absolute one as it is. Only an existing regular file
// is an answer.
MoaError PlayerService::ResolveFileName(const char* name, char* path, MoaLong bufLen) {
  return guarded([&] {
    if (name == nullptr || path == nullptr || bufLen <= 0) return kMoaErr_BadParam;
    path[0] = '\0';
    std::string n(name);
    if (n == "@" && host_.options.playerResolvesAt) {
      return answerWhole(*host_.options.playerResolvesAt, path, bufLen,
                         kMoaDictErr_BufferTooSmall);
    }
    std::string base = host_.movie != nullptr ? host_.movie->moviePath() : std::string();
    if (!base.empty() && base.back() != '/') base += '/';
    auto isSep = [](char c) { return c == '/' || c == ':' || c == '\\'; };
    std::string candidate;
    if (!n.empty() && n[0] == '@') {
      if (base.empty()) return kMoaErr_FileNotFound;
      std::string_view rest(n);
      rest.remove_prefix(1);
      if (!rest.empty() && isSep(rest.front())) rest.remove_prefix(1);
      while (!rest.empty() && isSep(rest.front())) {
        rest.remove_prefix(1);
        if (base.size() > 1) {
          base.pop_back();
          base.erase(base.rfind('/') + 1);
        }
      }
      std::string tail(rest);
      for (char& c : tail) {
        if (c == ':' || c == '\\') c = '/';
      }
      candidate = base + tail;
    } else if (!n.empty() && n[0] == '/') {
      candidate = n;
    } else {
      if (base.empty() || n.empty()) return kMoaErr_FileNotFound;
      candidate = base + n;
    }
    struct stat st {};
    if (::stat(candidate.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return kMoaErr_FileNotFound;
    return answerWhole(candidate, path, bufLen, kMoaDictErr_BufferTooSmall);
  });
}

// Cast member types and global variables live in a movie file the host does not have.
MoaError PlayerService::GetCastMemTypeCount(MoaLong*) { return kMoaErr_NotImplemented; }
MoaError PlayerService::GetNthCastMemTypeSymbol(MoaLong, MoaMmSymbol*) { return kMoaErr_NotImplemented; }
MoaError PlayerService::GetCastMemTypeDisplayName(MoaMmSymbol, char*, MoaLong) { return kMoaErr_NotImplemented; }
MoaError PlayerService::GetGlobalVarValue(MoaMmSymbol, PMoaMmValue) { return kMoaErr_NotImplemented; }
MoaError PlayerService::SetGlobalVarValue(MoaMmSymbol, ConstPMoaMmValue) { return kMoaErr_NotImplemented; }

// ---- Media values --------------------------------------------------------------------------------

// Media and pictures are cast-member data the host does not keep.
MoaError MediaValueService::ValueToMedia(ConstPMoaMmValue, MoaHandle*) { return kMoaErr_NotImplemented; }
MoaError MediaValueService::MediaToValue(const MoaHandle, PMoaMmValue) { return kMoaErr_NotImplemented; }
MoaError MediaValueService::ValueToPicture(ConstPMoaMmValue, MoaHandle*) { return kMoaErr_NotImplemented; }
MoaError MediaValueService::PictureToValue(const MoaHandle, PMoaMmValue) { return kMoaErr_NotImplemented; }

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
