// INI files and the file cipher through the host: a read and a write of one key in a 1 MB INI
// file (the key in the last section, so the whole file is scanned or rewritten), and
// tsEncryptFile over a page-cached file (bytes per second).
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "host/host.h"

namespace {

using namespace tessel;
using host::Value;

// A scratch folder under the system's temporary folder, removed afterwards.
class Scratch {
 public:
  Scratch() {
    std::string templ = (std::filesystem::temp_directory_path() / "tessel-bench.XXXXXX").string();
    if (::mkdtemp(templ.data()) != nullptr) path_ = templ;
  }
  ~Scratch() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
  }
  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

// About 1 MB: 1000 sections of 20 keys with 40-character values, CR line ends.
std::string megabyteIni() {
  std::string ini;
  for (int s = 0; s < 1000; ++s) {
    if (s > 0) ini += '\r';
    ini += "[Section" + std::to_string(s) + "]\r";
    for (int k = 0; k < 20; ++k)
      ini += "Key" + std::to_string(k) + "=" + std::string(40, static_cast<char>('a' + k)) + "\r";
  }
  return ini;
}

void writeFile(const std::string& path, const std::string& data) {
  std::ofstream(path, std::ios::binary) << data;
}

void BM_IniRead1MB(benchmark::State& state) {
  Scratch scratch;
  std::string path = scratch.file("big.ini");
  std::string ini = megabyteIni();
  writeFile(path, ini);
  host::Host host;
  host.loadXtras(TESSEL_XTRAS_DIR);
  std::vector<Value> args{Value("Section999"), Value("Key19"), Value("none"), Value(path)};
  for (auto _ : state) {
    Value result;
    host.callMethod("tsReadIni", args, result);
    if (!result.isString() || result.string() == "none") state.SkipWithError("key not found");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * ini.size()));
}
BENCHMARK(BM_IniRead1MB)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_IniWrite1MB(benchmark::State& state) {
  Scratch scratch;
  std::string path = scratch.file("big.ini");
  std::string ini = megabyteIni();
  writeFile(path, ini);
  host::Host host;
  host.loadXtras(TESSEL_XTRAS_DIR);
  int n = 0;
  for (auto _ : state) {
    Value result;
    host.callMethod("tsWriteIni",
                    {Value("Section999"), Value("Key19"), Value(std::to_string(n++)), Value(path)},
                    result);
    if (!result.isInteger() || result.integer() != 1) state.SkipWithError("write failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * ini.size()));
}
BENCHMARK(BM_IniWrite1MB)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_EncryptFile(benchmark::State& state) {
  Scratch scratch;
  std::string path = scratch.file("movie.dat");
  const size_t size = static_cast<size_t>(state.range(0)) << 20;
  std::string data(size, '\0');
  for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 2654435761u >> 13);
  writeFile(path, data);
  host::Host host;
  host.loadXtras(TESSEL_XTRAS_DIR);
  std::vector<Value> args{Value(path), Value("a key for the bench")};
  {
    Value warm;  // the file's pages are in the cache from here on
    host.callMethod("tsEncryptFile", args, warm);
  }
  for (auto _ : state) {
    Value result;
    host.callMethod("tsEncryptFile", args, result);
    if (!result.isInteger() || result.integer() != 1) state.SkipWithError("encrypt failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}
BENCHMARK(BM_EncryptFile)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
