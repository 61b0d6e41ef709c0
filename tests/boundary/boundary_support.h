// Shared pieces of the behaviour tests: a host with the built module loaded, a movie whose
// handlers the tests control, and temporary folders.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/host.h"

namespace tessel::testing {

// A movie with a folder and optional script handlers, for the Xtra's call-backs.
class TestMovie : public host::Movie {
 public:
  std::string folder;  // with a trailing "/"
  std::map<std::string, std::function<host::Value(const std::vector<host::Value>&)>> handlers;
  int valueCalls = 0;

  moa::MoaError callHandler(const std::string& name, const std::vector<host::Value>& args,
                            host::Value& result) override;
  std::string moviePath() const override { return folder; }
};

// A temporary folder removed with everything in it at the end of the test.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::filesystem::path& path() const { return path_; }
  std::string str() const { return path_.string(); }
  std::filesystem::path file(const std::string& name, const std::string& content = "") const;

 private:
  std::filesystem::path path_;
};

// The module loaded into a fresh host; the style switch is set off again before each test.
class XtraTest : public ::testing::Test {
 protected:
  explicit XtraTest(host::HostOptions options = {});
  void SetUp() override;
  void TearDown() override;

  // Calls a method by name; fails the test on a host error.
  host::Value call(const std::string& method, std::vector<host::Value> args = {});
  moa::MoaError callError(const std::string& method, std::vector<host::Value> args,
                          host::Value& result);
  std::string text(const std::string& method, std::vector<host::Value> args = {});
  int32_t integer(const std::string& method, std::vector<host::Value> args = {});
  void unixNames(bool on);

  TestMovie movie_;
  std::unique_ptr<host::Host> host_;
  host::HostOptions options_;
};

// Runs `work` in a child process that has first become the unprivileged user "nobody" when the
// test runs as root (CI does, and root reads and writes every file), with `folder` and all in it
// given to that user. Answers what `work` answered ("" for success), or why it could not run.
std::string asUnprivilegedUser(const std::filesystem::path& folder,
                               const std::function<std::string()>& work);

// Environment variables set or unset for a scope, each put back as it was at its end (the time
// zone re-read too).
class ScopedEnvironment {
 public:
  ScopedEnvironment() = default;
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
  ~ScopedEnvironment();
  void set(const std::string& name, const std::string& value);
  void unset(const std::string& name);

 private:
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

// Runs a shell command line (tests build it from fixed words and temporary paths); its standard
// output, or nothing when it could not run or exited non-zero.
std::optional<std::string> run(const std::string& command);

// Polls `condition` every 10 ms until it holds or `limit` passes.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds limit = std::chrono::milliseconds(5000));

// A file's whole contents ("" when it cannot be read).
std::string slurp(const std::filesystem::path& path);

// The start-up volume's name as the module reports it ("Name:" in HFS style).
std::string startupVolumeName(host::Host& host);

// The path of the built module and of its folder.
std::string modulePath();
std::string xtrasFolder();

}  // namespace tessel::testing
