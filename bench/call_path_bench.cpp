// The cost of one Lingo call of a trivial Tessel method (tsReturnUnixNames) along each stretch
// of the call path: a Lingo expression in the message window's interpreter, the host's
// callMethod (value conversion and call record), and IMoaMmXScript::Call straight from C++.
#include <benchmark/benchmark.h>

#include "host/host.h"
#include "host/lingo/interpreter.h"
#include "host/module.h"
#include "host/services.h"

namespace {

using namespace tessel;
using host::Value;

constexpr moa::MoaID kScriptClass =
    moa::makeID(0x7144B382, 0xE155, 0x11D6, 0x8525, 0x0056E435BF75);
constexpr int kReturnUnixNames = 77;

// The interpreter's view of the host's global methods.
class HostMethods : public lingo::Externals {
 public:
  explicit HostMethods(host::Host& host) : host_(host) {}
  int lookup(const std::string& name) override {
    const host::MethodInfo* m = host_.findMethod(name);
    if (m == nullptr) return -1;
    methods_.push_back(m);
    return static_cast<int>(methods_.size() - 1);
  }
  bool call(int id, const std::vector<Value>& args, Value& result, std::string& error) override {
    moa::MoaError err = host_.callMethod(*methods_[static_cast<size_t>(id)], args, result);
    if (err != 0) error = host::describeError(err);
    return err == 0;
  }
  std::optional<std::string> interfaceText(const std::string& xtra) override {
    return host_.messageTable(xtra);
  }

 private:
  host::Host& host_;
  std::vector<const host::MethodInfo*> methods_;
};

void BM_LingoCall(benchmark::State& state) {
  host::Host host;
  host.loadXtras(TESSEL_XTRAS_DIR);
  HostMethods methods(host);
  lingo::Interpreter lingo(&methods);
  host.setMovie(&lingo);
  auto expr = lingo.compile("tsReturnUnixNames(0)");
  if (!expr) {
    state.SkipWithError("the expression does not compile");
    return;
  }
  for (auto _ : state) {
    lingo::Outcome r = lingo.evaluate(*expr);
    benchmark::DoNotOptimize(r.ok);
  }
}
BENCHMARK(BM_LingoCall);

void BM_HostCallMethod(benchmark::State& state) {
  host::Host host;
  host.loadXtras(TESSEL_XTRAS_DIR);
  const host::MethodInfo* method = host.findMethod("tsReturnUnixNames");
  if (method == nullptr) {
    state.SkipWithError("the module is not loaded");
    return;
  }
  std::vector<Value> args{Value(int32_t{0})};
  Value result;
  for (auto _ : state) {
    benchmark::DoNotOptimize(host.callMethod(*method, args, result));
  }
}
BENCHMARK(BM_HostCallMethod);

// The dispatcher alone: a prepared call record handed to the module's Call.
void BM_InvokeDirect(benchmark::State& state) {
  std::string error;
  auto module = host::Module::open(std::string(TESSEL_XTRAS_DIR) + "/Tessel.so", &error);
  if (!module) {
    state.SkipWithError(error.c_str());
    return;
  }
  host::Host host;
  host::HostServices& services = host::services(host);
  moa::MoaObjectHeader* instance = nullptr;
  module->createInstance(kScriptClass, &services.callback, &services.calloc, &instance);
  void* p = nullptr;
  instance->QueryInterface(&moa::IID_IMoaMmXScript, &p);
  auto* script = static_cast<moa::IMoaMmXScript*>(p);

  moa::MoaMmValue arg{};
  services.value.IntegerToValue(0, &arg);
  moa::MoaMmCallInfo call{};
  call.methodSelector = kReturnUnixNames;
  call.nargs = 1;
  call.pArgs = &arg;
  for (auto _ : state) {
    call.resultValue = moa::MoaMmValue{};
    benchmark::DoNotOptimize(script->Call(&call));
  }
  script->Release();
  instance->Release();
}
BENCHMARK(BM_InvokeDirect);

}  // namespace

BENCHMARK_MAIN();
