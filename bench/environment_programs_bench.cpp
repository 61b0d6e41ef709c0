// Figures for the environment and programs methods, each next to the plain system route:
// tsRunProgram against posix_spawn + waitpid of the same program, and a warm tsFontInstalled
// against running fc-list for the same family.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include "host/host.h"

extern char** environ;

namespace {

using namespace tessel;
using host::Value;

// Runs one method of the loaded module with fixed arguments in a loop.
void callInLoop(benchmark::State& state, const char* name, std::vector<Value> args) {
  host::Host host;
  host.loadXtras(TESSEL_XTRAS_DIR);
  const host::MethodInfo* method = host.findMethod(name);
  if (method == nullptr) {
    state.SkipWithError("the module is not loaded");
    return;
  }
  Value result;
  host.callMethod(*method, args, result);  // warms caches (the font list)
  for (auto _ : state) benchmark::DoNotOptimize(host.callMethod(*method, args, result));
}

// Starts a program with posix_spawn (stdout to /dev/null) and waits for it.
void spawnAndWait(benchmark::State& state, std::vector<const char*> argv) {
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  for (auto _ : state) {
    pid_t pid = 0;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, const_cast<char* const*>(argv.data()),
                    environ) != 0) {
      state.SkipWithError("posix_spawn failed");
      break;
    }
    int status = 0;
    waitpid(pid, &status, 0);
  }
  posix_spawn_file_actions_destroy(&actions);
}

void BM_TsRunProgramWait(benchmark::State& state) {
  callInLoop(state, "tsRunProgram", {Value("/bin/true"), Value(""), Value(int32_t{1})});
}
BENCHMARK(BM_TsRunProgramWait)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_PosixSpawnWait(benchmark::State& state) { spawnAndWait(state, {"/bin/true"}); }
BENCHMARK(BM_PosixSpawnWait)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_TsRunProgramNoWait(benchmark::State& state) {
  callInLoop(state, "tsRunProgram", {Value("/bin/true"), Value(""), Value(int32_t{0})});
}
BENCHMARK(BM_TsRunProgramNoWait)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_TsFontInstalledWarm(benchmark::State& state) {
  callInLoop(state, "tsFontInstalled", {Value("DejaVu Sans"), Value("")});
}
BENCHMARK(BM_TsFontInstalledWarm)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_FcList(benchmark::State& state) {
  spawnAndWait(state, {"/usr/bin/fc-list", "DejaVu Sans"});
}
BENCHMARK(BM_FcList)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace
