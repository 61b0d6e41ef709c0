// Desktop figures, each next to what a shell user would run for the same answer: tsGetVolume
// against `pactl get-sink-volume`, tsPasteText of 63,999 bytes against `xclip -o`, and
// tsCopyText until another client (xclip) has read the text. Run inside a desktop session:
//   scripts/with-desktop build/bench/tessel_bench --benchmark_filter='Volume|Paste|Copy|Xclip'
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "host/host.h"

extern char** environ;

namespace {

using namespace tessel;
using host::Value;

// Runs a program with its output discarded (or read into `out`); its exit status.
int spawn(const std::vector<std::string>& argv, std::string* out = nullptr) {
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  int pipeFds[2] = {-1, -1};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (out != nullptr && pipe(pipeFds) == 0) {
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 1);
    posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
  } else {
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  }
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (pipeFds[1] >= 0) close(pipeFds[1]);
  if (out != nullptr && pipeFds[0] >= 0) {
    out->clear();
    char buffer[65536];
    ssize_t n;
    while ((n = read(pipeFds[0], buffer, sizeof buffer)) > 0) out->append(buffer, static_cast<size_t>(n));
    close(pipeFds[0]);
  }
  if (rc != 0) return -1;
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool haveDisplay() {
  const char* d = std::getenv("DISPLAY");
  return d != nullptr && *d != '\0';
}

struct Module {
  Module() { host.loadXtras(TESSEL_XTRAS_DIR); }
  Value call(const std::string& method, std::vector<Value> args = {}) {
    Value result;
    host.callMethod(method, args, result);
    return result;
  }
  host::Host host;
};

void BM_GetVolume(benchmark::State& state) {
  Module m;
  if (m.call("tsGetVolume", {Value("")}).integer() < 0) {
    state.SkipWithError("no sound server");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(m.call("tsGetVolume", {Value("")}).integer());
}
BENCHMARK(BM_GetVolume)->Unit(benchmark::kMillisecond)->MinTime(0.5);

void BM_PactlGetSinkVolume(benchmark::State& state) {
  for (auto _ : state)
    if (spawn({"pactl", "get-sink-volume", "@DEFAULT_SINK@"}) != 0) {
      state.SkipWithError("pactl failed");
      return;
    }
}
BENCHMARK(BM_PactlGetSinkVolume)->Unit(benchmark::kMillisecond)->MinTime(0.5);

// xclip owns 63,999 bytes of text for both paste figures.
bool ownByXclip() {
  std::string path = "/tmp/tessel-bench-paste.txt";
  std::ofstream(path) << std::string(63999, 'p');
  int rc = spawn({"xclip", "-i", "-selection", "clipboard", path});
  std::string out;
  spawn({"xclip", "-o", "-selection", "clipboard"}, &out);
  std::remove(path.c_str());
  return rc == 0 && out.size() == 63999;
}

void BM_PasteText63999(benchmark::State& state) {
  if (!haveDisplay() || !ownByXclip()) {
    state.SkipWithError("no display or no xclip");
    return;
  }
  Module m;
  for (auto _ : state)
    if (m.call("tsPasteText").string().size() != 63999) {
      state.SkipWithError("the paste came back short");
      return;
    }
}
BENCHMARK(BM_PasteText63999)->Unit(benchmark::kMillisecond)->MinTime(0.5);

void BM_XclipOut63999(benchmark::State& state) {
  if (!haveDisplay() || !ownByXclip()) {
    state.SkipWithError("no display or no xclip");
    return;
  }
  std::string out;
  for (auto _ : state) spawn({"xclip", "-o", "-selection", "clipboard"}, &out);
}
BENCHMARK(BM_XclipOut63999)->Unit(benchmark::kMillisecond)->MinTime(0.5);

// From tsCopyText until xclip, another client, has read the text.
void BM_CopyTextUntilRead(benchmark::State& state) {
  if (!haveDisplay()) {
    state.SkipWithError("no display");
    return;
  }
  Module m;
  std::string out;
  int n = 0;
  for (auto _ : state) {
    std::string text = "copy " + std::to_string(++n);
    m.call("tsCopyText", {Value(text)});
    spawn({"xclip", "-o", "-selection", "clipboard"}, &out);
    if (out != text) {
      state.SkipWithError("xclip read something else");
      return;
    }
  }
}
BENCHMARK(BM_CopyTextUntilRead)->Unit(benchmark::kMillisecond)->MinTime(0.5);

}  // namespace
