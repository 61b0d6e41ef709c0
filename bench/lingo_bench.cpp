// The message window's interpreter: a repeat of 1,000,000 turns with a chunk expression inside,
// against the same loop calling a one-line handler; and chunk reads of a 1 MB string, which look
// at the text where it lies (no copy per read), so they cost the same as on a short string.
#include <benchmark/benchmark.h>

#include <string>

#include "host/lingo/interpreter.h"

namespace {

using tessel::lingo::Interpreter;

void runLoop(benchmark::State& state, const std::string& setup, const std::string& body) {
  Interpreter lingo;
  lingo.setOutput([](const std::string&) {});
  if (!lingo.run(setup).ok) state.SkipWithError("setup failed");
  std::string loop = "repeat with i = 1 to 1000000\n  " + body + "\nend repeat\n";
  for (auto _ : state) {
    auto o = lingo.run(loop);
    if (!o.ok) state.SkipWithError(o.errorText().c_str());
  }
  state.SetItemsProcessed(state.iterations() * 1000000);
}

void BM_RepeatChunk(benchmark::State& state) {
  runLoop(state, "s = \"alpha,beta,gamma delta\"", "x = item 2 of s");
}
BENCHMARK(BM_RepeatChunk)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_RepeatNestedChunk(benchmark::State& state) {
  runLoop(state, "s = \"alpha,beta,gamma delta\"", "x = char 2 of word 2 of item 3 of s");
}
BENCHMARK(BM_RepeatNestedChunk)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_RepeatCall(benchmark::State& state) {
  runLoop(state, "s = \"alpha,beta,gamma delta\"\non pick t\n  return t\nend", "x = pick(s)");
}
BENCHMARK(BM_RepeatCall)->Unit(benchmark::kMillisecond)->Iterations(3);

// 1,000,000 reads of item 2 of a 1 MB string: a copy per read would move a terabyte.
void BM_RepeatChunkOfMegabyte(benchmark::State& state) {
  runLoop(state, "s = \"alpha,beta,\"\nrepeat while length(s) < 1048576\n  put s after s\nend repeat",
          "x = item 2 of s");
}
BENCHMARK(BM_RepeatChunkOfMegabyte)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
