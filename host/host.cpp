#include "host/host.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <unordered_map>

#include "host/module.h"
#include "host/msgtable.h"
#include "host/services.h"
#include "support/text.h"

namespace tessel::host {

using namespace moa;

namespace {

using support::asciiLowered;

// Runs a call into an Xtra; an exception that escapes the module stops here.
template <class F>
MoaError intoXtra(F&& f) noexcept {
  try {
    return f();
  } catch (...) {
    return kMoaErr_InternalError;
  }
}

}  // namespace

struct Host::Impl {
  explicit Impl(HostOptions options) : services(std::move(options)) {}

  // What a module's ppcSetFileRef receives: the host's record of the module file.
  struct FileRecord {
    uint32_t magic = 0x54734652;  // "TsFR"
    std::string path;
  };
  struct LoadedModule {
    std::unique_ptr<Module> module;
    std::unique_ptr<FileRecord> fileRef;
    Dict* xtraDict = nullptr;
    std::vector<MoaClassInterfaceInfo> classes;
  };
  struct ScriptXtra {
    LoadedModule* owner = nullptr;
    MoaClassID cls{};
    std::string name;
    std::string text;
    std::vector<MethodInfo> methods;
    MoaObjectHeader* instance = nullptr;  // the instance serving global and parent methods
    IMoaMmXScript* script = nullptr;
  };
  struct Tool {
    LoadedModule* owner = nullptr;
    MoaClassID cls{};
    ToolInfo info;
  };

  HostServices services;  // first: outlives everything that points into it
  std::vector<std::string> diagnostics;
  std::vector<std::unique_ptr<LoadedModule>> modules;
  std::vector<std::unique_ptr<LoadedModule>> kept;  // unloaded, but the module is still in use
  std::vector<std::unique_ptr<ScriptXtra>> xtras;
  std::unordered_map<std::string, const MethodInfo*> globals;  // lower-case name -> method
  std::vector<Tool> tools;
  int callDepth = 0;

  void note(std::string text) { diagnostics.push_back(std::move(text)); }

  ScriptXtra* xtraNamed(const std::string& name) const {
    for (const auto& x : xtras) {
      if (equalsIgnoringCase(x->name, name)) return x.get();
    }
    return nullptr;
  }

  // The module that makes class `cls` (the newest class version when several do).
  LoadedModule* moduleOf(const MoaClassID& cls) const {
    LoadedModule* best = nullptr;
    MoaLong bestVersion = 0;
    for (const auto& m : modules) {
      for (const auto& rec : m->classes) {
        if (equalID(rec.classID, cls) && equalID(rec.interfaceID, IID_IMoaClassFactory) &&
            (best == nullptr || rec.classVersion > bestVersion)) {
          best = m.get();
          bestVersion = rec.classVersion;
        }
      }
    }
    return best;
  }

  MoaError createInstance(LoadedModule& m, const MoaClassID& cls, MoaObjectHeader** out) {
    return m.module->createInstance(cls, &services.callback, &services.calloc, out);
  }

  // A new instance of any loaded class, answering interface `iid` (MoaCreateInstance).
  MoaError createInterface(const MoaClassID& cls, const MoaInterfaceID& iid, void** out) {
    LoadedModule* m = moduleOf(cls);
    if (m == nullptr) return kMoaErr_BadClass;
    MoaObjectHeader* instance = nullptr;
    if (MoaError err = createInstance(*m, cls, &instance)) return err;
    MoaError err = intoXtra([&] { return instance->QueryInterface(&iid, out); });
    instance->Release();  // the interface holds the instance now
    return err;
  }

  MoaError ensureInstance(ScriptXtra& x) {
    if (x.script != nullptr) return kMoaErr_NoErr;
    MoaObjectHeader* instance = nullptr;
    if (MoaError err = createInstance(*x.owner, x.cls, &instance)) return err;
    void* script = nullptr;
    MoaError err = intoXtra([&] {
      return x.owner->module->getInterface(instance, &x.cls, &IID_IMoaMmXScript, &script);
    });
    if (err != 0 || script == nullptr) {
      instance->Release();
      return err != 0 ? err : kMoaErr_BadInterface;
    }
    x.instance = instance;
    x.script = static_cast<IMoaMmXScript*>(script);
    return kMoaErr_NoErr;
  }

  // Builds the call record, calls, and takes over the result. `args` become host values owned
  // by the host for the call; the array holds at least `minimum` values (VOID-padded).
  MoaError invoke(ScriptXtra& x, int32_t selector, const std::vector<Value>& args,
                  size_t leadingVoids, size_t minimum, Value& result) {
    result = Value();
    if (MoaError err = ensureInstance(x)) return err;
    ValueStore& store = services.values;
    size_t supplied = leadingVoids + args.size();
    std::vector<MoaMmValue> argv(std::max<size_t>({supplied, minimum, 1}), ValueStore::kVoid);
    for (size_t i = 0; i < args.size(); ++i) {
      if (MoaError err = store.fromValue(args[i], &argv[leadingVoids + i])) {
        for (auto& v : argv) store.release(&v);
        return err;
      }
    }
    const std::vector<MoaMmValue> owned = argv;  // released after the call, whatever the Xtra did

    MoaMmCallInfo call{};
    call.xinst = x.instance;
    call.methodFlags = 0;
    call.methodSelector = selector;
    call.resultValue = ValueStore::kVoid;
    call.nargs = static_cast<MoaLong>(supplied);
    call.pArgs = argv.data();
    ++callDepth;
    store.clearRefused();
    MoaError err = intoXtra([&] { return x.script->Call(&call); });
    --callDepth;
    refusedArgument.reset();
    if (auto r = store.refused(); r && err != 0) {
      // The first argument holding the value a conversion refused is the one that was wrong.
      for (size_t i = leadingVoids; i < owned.size(); ++i) {
        if (owned[i].ty == r->ty && owned[i].it == r->it) {
          refusedArgument = i - leadingVoids;
          break;
        }
      }
    }

    MoaMmValue answer = call.resultValue;
    Value converted;
    if (store.toValue(answer, converted) == 0) {
      store.release(&answer);
      if (err == 0) result = std::move(converted);
    } else {
      note(x.name + ": method " + std::to_string(selector) + " stored an invalid result value");
      if (err == 0) err = kMoaErr_BadParam;
    }
    for (MoaMmValue v : owned) store.release(&v);
    return err;
  }

  // Of the last call that failed: the caller's argument (from 0) whose value a conversion refused.
  std::optional<size_t> refusedArgument;

  bool registerModule(LoadedModule& lm) {
    Module& mod = *lm.module;
    bool registered = false;
    bool any = false;
    for (const auto& rec : lm.classes) {
      if (!equalID(rec.interfaceID, IID_IMoaRegister)) continue;
      any = true;
      MoaClassID cls = rec.classID;
      MoaObjectHeader* instance = nullptr;
      MoaError err = createInstance(lm, cls, &instance);
      if (err != 0) {
        note(mod.path() + ": cannot make an instance to register: " + describeError(err));
        continue;
      }
      void* reg = nullptr;
      err = intoXtra([&] { return mod.getInterface(instance, &cls, &IID_IMoaRegister, &reg); });
      if (err == 0 && reg != nullptr) {
        auto* registrar = static_cast<IMoaRegister*>(reg);
        err = intoXtra([&] { return registrar->Register(&services.cache, lm.xtraDict); });
        registrar->Release();
        if (err == 0) {
          registered = true;
        } else {
          note(mod.path() + ": registration failed: " + describeError(err));
        }
      } else {
        note(mod.path() + ": no IMoaRegister interface: " + describeError(err));
      }
      instance->Release();
    }
    if (!any) note(mod.path() + ": no class registers anything");
    return registered;
  }

  void readRegistry(LoadedModule& lm) {
    for (const Cache::RegistryEntry* e : services.cache.entries(lm.xtraDict)) {
      if (equalID(e->interfaceID, IID_IMoaMmXScript)) {
        auto text = e->dict->getString(kMoaMmDictKey_MessageTable);
        if (!text) {
          note(lm.module->path() + ": a scripting class registered no method table");
          continue;
        }
        MessageTable table = parseMessageTable(*text);
        for (const auto& p : table.problems) note(lm.module->path() + ": method table " + p);
        if (table.xtraName.empty()) {
          note(lm.module->path() + ": the method table names no Xtra; ignored");
          continue;
        }
        if (xtraNamed(table.xtraName) != nullptr) {
          note(lm.module->path() + ": an Xtra named \"" + table.xtraName +
               "\" is already loaded; ignored");
          continue;
        }
        auto x = std::make_unique<ScriptXtra>();
        x->owner = &lm;
        x->cls = e->classID;
        x->name = table.xtraName;
        x->text = *text;
        x->methods = std::move(table.methods);
        for (const auto& m : x->methods) {
          if (m.scope != '*') continue;
          if (!globals.emplace(asciiLowered(m.name), &m).second) {
            note(lm.module->path() + ": global method \"" + m.name + "\" is already defined");
          }
        }
        xtras.push_back(std::move(x));
      } else if (equalID(e->interfaceID, IID_IMoaMmXTool)) {
        Tool t;
        t.owner = &lm;
        t.cls = e->classID;
        t.info.displayName = e->dict->getString(kMoaMmDictKey_DisplayNameString).value_or("");
        t.info.category = e->dict->getString(kMoaMmDictKey_DisplayCategoryString).value_or("");
        t.info.alwaysEnabled = e->dict->getLong(kMoaMmDictKey_AlwaysEnabled).value_or(0) != 0;
        tools.push_back(std::move(t));
      }
    }
  }

  // Unloads a module that is no longer registered: closed when it allows it, kept otherwise.
  bool retire(std::unique_ptr<LoadedModule> lm) {
    if (lm->xtraDict != nullptr) {
      services.cache.removeXtraFile(lm->xtraDict);
      lm->xtraDict = nullptr;
    }
    MoaError can = intoXtra([&] { return lm->module->canUnloadNow(); });
    size_t live = lm->module->liveInstances();
    if (can == 0 && live == 0 && lm->module->close()) return true;
    note(lm->module->path() + ": still in use (" +
         (can != 0 ? describeError(can) : std::string("no error")) + ", " +
         std::to_string(live) + " live instance(s)); left loaded");
    kept.push_back(std::move(lm));
    return false;
  }
};

Host::Host(HostOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {
  Impl* impl = impl_.get();
  impl->services.createInstance = [impl](const MoaClassID& cls, const MoaInterfaceID& iid,
                                         void** out) {
    return impl->createInterface(cls, iid, out);
  };
  impl->services.cache.setInstanceMaker(
      [impl](const MoaClassID& cls, const MoaInterfaceID& iid, bool fresh, void** out) {
        if (!fresh) {
          for (const auto& x : impl->xtras) {
            if (!equalID(x->cls, cls)) continue;
            if (MoaError err = impl->ensureInstance(*x)) return err;
            return intoXtra([&] { return x->instance->QueryInterface(&iid, out); });
          }
        }
        return impl->createInterface(cls, iid, out);
      });
}

Host::~Host() {
  unloadAll();
  // Code of a module that is still in use may yet run: it is never unmapped.
  for (auto& lm : impl_->kept) lm->module->keepOpen();
}

void Host::setMovie(Movie* movie) { impl_->services.movie = movie; }
const HostOptions& Host::options() const { return impl_->services.options; }
const std::vector<std::string>& Host::diagnostics() const { return impl_->diagnostics; }

int Host::loadXtras(const std::string& folder) {
  namespace fs = std::filesystem;
  std::error_code ec;
  std::vector<fs::path> files;
  fs::directory_iterator it(folder, ec);
  if (ec) {
    impl_->note(folder + ": " + ec.message());
    return 0;
  }
  for (const auto& entry : it) {
    std::error_code fec;
    if (!entry.is_regular_file(fec)) continue;
    auto ext = entry.path().extension().string();
    if (ext == ".so" || ext == ".xtra") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end(),
            [](const fs::path& a, const fs::path& b) { return a.filename() < b.filename(); });
  int n = 0;
  for (const auto& f : files) {
    if (loadModule(f.string())) ++n;
  }
  return n;
}

bool Host::loadModule(const std::string& file) {
  Impl& im = *impl_;
  try {
    std::error_code ec;
    auto canonical = std::filesystem::weakly_canonical(file, ec);
    std::string path = ec ? file : canonical.string();
    for (const auto* list : {&im.modules, &im.kept}) {
      for (const auto& m : *list) {
        if (m->module->path() == path) {
          im.note(path + ": already loaded");
          return false;
        }
      }
    }
    std::string error;
    auto module = Module::open(path, &error);
    if (!module) {
      im.note(path + ": " + error);
      return false;
    }
    auto lm = std::make_unique<Impl::LoadedModule>();
    lm->module = std::move(module);
    lm->fileRef = std::make_unique<Impl::FileRecord>();
    lm->fileRef->path = path;
    intoXtra([&] {
      lm->module->setFileRef(lm->fileRef.get());
      return kMoaErr_NoErr;
    });
    std::string problem;
    MoaError err = lm->module->classList(im.services.calloc, lm->classes, &problem);
    if (!problem.empty()) im.note(path + ": " + problem);
    if (err != 0) {
      im.note(path + ": no class list: " + describeError(err));
      im.retire(std::move(lm));
      return false;
    }
    lm->xtraDict = im.services.cache.addXtraFile(path);
    // The module's classes must be findable (MoaCreateInstance) while it registers.
    im.modules.push_back(std::move(lm));
    Impl::LoadedModule& loaded = *im.modules.back();
    if (!im.registerModule(loaded)) {
      auto own = std::move(im.modules.back());
      im.modules.pop_back();
      im.retire(std::move(own));
      return false;
    }
    im.readRegistry(loaded);
    return true;
  } catch (const std::exception& e) {
    im.note(file + ": " + e.what());
    return false;
  }
}

std::optional<std::string> Host::messageTable(const std::string& xtraName) const {
  if (auto* x = impl_->xtraNamed(xtraName)) return x->text;
  return std::nullopt;
}

std::vector<std::string> Host::xtraNames() const {
  std::vector<std::string> names;
  for (const auto& x : impl_->xtras) names.push_back(x->name);
  return names;
}

const MethodInfo* Host::findMethod(const std::string& name) const {
  auto it = impl_->globals.find(asciiLowered(name));
  return it == impl_->globals.end() ? nullptr : it->second;
}

MoaError Host::callMethod(const MethodInfo& method, const std::vector<Value>& args,
                          Value& result) {
  result = Value();
  Impl::ScriptXtra* x = impl_->xtraNamed(method.xtraName);
  if (x == nullptr) return kMoaMmErr_FunctionNotFound;
  // Parent and child methods declare their object first; host values have no object type, so
  // that position is VOID and the caller's arguments follow it.
  size_t leading = method.scope == '*' ? 0 : 1;
  size_t declared = declaredArgumentCount(method);
  try {
    return impl_->invoke(*x, method.selector, args, leading, declared, result);
  } catch (const std::bad_alloc&) {
    return kMoaErr_OutOfMem;
  }
}

std::optional<size_t> Host::refusedArgument() const { return impl_->refusedArgument; }

MoaError Host::callMethod(const std::string& name, const std::vector<Value>& args, Value& result) {
  result = Value();
  const MethodInfo* method = findMethod(name);
  if (method == nullptr) return kMoaMmErr_FunctionNotFound;
  return callMethod(*method, args, result);
}

MoaError Host::callSelector(const std::string& xtraName, int32_t selector,
                            const std::vector<Value>& args, Value& result) {
  result = Value();
  Impl::ScriptXtra* x = impl_->xtraNamed(xtraName);
  if (x == nullptr) return kMoaMmErr_FunctionNotFound;
  try {
    return impl_->invoke(*x, selector, args, 0, 0, result);
  } catch (const std::bad_alloc&) {
    return kMoaErr_OutOfMem;
  }
}

std::vector<ToolInfo> Host::tools() const {
  std::vector<ToolInfo> out;
  for (const auto& t : impl_->tools) out.push_back(t.info);
  return out;
}

MoaError Host::invokeTool(const std::string& displayName) {
  Impl& im = *impl_;
  const Impl::Tool* tool = nullptr;
  for (const auto& t : im.tools) {
    if (equalsIgnoringCase(t.info.displayName, displayName)) {
      tool = &t;
      break;
    }
  }
  if (tool == nullptr) return kMoaMmErr_FunctionNotFound;
  MoaClassID cls = tool->cls;
  bool alwaysEnabled = tool->info.alwaysEnabled;
  Impl::LoadedModule& owner = *tool->owner;
  MoaObjectHeader* instance = nullptr;
  if (MoaError err = im.createInstance(owner, cls, &instance)) return err;
  void* p = nullptr;
  MoaError err = intoXtra(
      [&] { return owner.module->getInterface(instance, &cls, &IID_IMoaMmXTool, &p); });
  if (err == 0 && p != nullptr) {
    auto* xtool = static_cast<IMoaMmXTool*>(p);
    ++im.callDepth;
    if (!alwaysEnabled) {
      MoaLong enabled = 1;
      err = intoXtra([&] { return xtool->GetEnabled(&enabled); });
      if (err == 0 && enabled == 0) err = kMoaMmErr_ToolDisabled;
    }
    if (err == 0) err = intoXtra([&] { return xtool->Invoke(); });
    --im.callDepth;
    xtool->Release();
  } else if (err == 0) {
    err = kMoaErr_BadInterface;
  }
  instance->Release();
  return err;
}

HostCounters Host::counters() const { return impl_->services.counters; }
size_t Host::liveValues() const { return impl_->services.values.liveValues(); }
size_t Host::outstandingStringBorrows() const {
  return impl_->services.values.outstandingBorrows();
}
uint32_t Host::serviceReferences() const { return impl_->services.serviceReferences(); }

std::vector<std::string> Host::loadedModules() const {
  std::vector<std::string> out;
  for (const auto& m : impl_->modules) out.push_back(m->module->path());
  for (const auto& m : impl_->kept) out.push_back(m->module->path());
  return out;
}

bool Host::unloadAll() {
  Impl& im = *impl_;
  if (im.callDepth > 0) {
    im.note("cannot unload while an Xtra is being called");
    return false;
  }
  for (auto& x : im.xtras) {
    if (x->script != nullptr) x->script->Release();
    if (x->instance != nullptr) x->instance->Release();
    x->script = nullptr;
    x->instance = nullptr;
  }
  im.xtras.clear();
  im.globals.clear();
  im.tools.clear();
  std::vector<std::unique_ptr<Impl::LoadedModule>> all = std::move(im.modules);
  im.modules.clear();
  for (auto& k : im.kept) all.push_back(std::move(k));
  im.kept.clear();
  bool allUnloaded = true;
  for (auto& lm : all) allUnloaded = im.retire(std::move(lm)) && allUnloaded;
  return allUnloaded;
}

HostServices& services(Host& host) { return host.impl_->services; }

}  // namespace tessel::host
