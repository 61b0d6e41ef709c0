#include "tests/boundary/boundary_support.h"

#include <grp.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <thread>

namespace tessel::testing {

void ScopedEnvironment::set(const std::string& name, const std::string& value) {
  unset(name);
  ::setenv(name.c_str(), value.c_str(), 1);
  ::tzset();
}

void ScopedEnvironment::unset(const std::string& name) {
  const char* old = ::getenv(name.c_str());
  saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
  ::unsetenv(name.c_str());
  ::tzset();
}

ScopedEnvironment::~ScopedEnvironment() {
  for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
    if (it->second) ::setenv(it->first.c_str(), it->second->c_str(), 1);
    else ::unsetenv(it->first.c_str());
  }
  ::tzset();
}

std::optional<std::string> run(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return std::nullopt;
  std::string out;
  char buffer[65536];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
  int status = pclose(pipe);
  if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
  return out;
}

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

std::string slurp(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string asUnprivilegedUser(const std::filesystem::path& folder,
                               const std::function<std::string()>& work) {
  constexpr uid_t kNobody = 65534;
  if (::geteuid() == 0) {
    std::error_code ec;
    if (::chown(folder.c_str(), kNobody, kNobody) != 0) return "chown " + folder.string();
    for (const auto& e : std::filesystem::recursive_directory_iterator(folder, ec))
      if (::lchown(e.path().c_str(), kNobody, kNobody) != 0) return "chown " + e.path().string();
  }
  int pipes[2];
  if (::pipe(pipes) != 0) return "pipe";
  pid_t child = ::fork();
  if (child < 0) return "fork";
  if (child == 0) {
    ::close(pipes[0]);
    std::string answer = "could not become nobody";
    if (::geteuid() != 0 ||
        (::setgroups(0, nullptr) == 0 && ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0))
      answer = work();
    (void)!::write(pipes[1], answer.data(), answer.size());
    ::_exit(0);
  }
  ::close(pipes[1]);
  std::string answer;
  char buffer[512];
  for (ssize_t n; (n = ::read(pipes[0], buffer, sizeof buffer)) > 0;)
    answer.append(buffer, static_cast<size_t>(n));
  ::close(pipes[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  return answer;
}

moa::MoaError TestMovie::callHandler(const std::string& name,
                                     const std::vector<host::Value>& args,
                                     host::Value& result) {
  if (host::equalsIgnoringCase(name, "value")) {
    ++valueCalls;
    // The only expressions the Xtra evaluates are the movie's and the application's folder.
    std::string expr = args.empty() || !args[0].isString() ? "" : args[0].string();
    if (host::equalsIgnoringCase(expr, "the moviePath")) {
      result = host::Value(folder);
    } else if (host::equalsIgnoringCase(expr, "the applicationPath")) {
      result = host::Value(std::string("/usr/bin/"));
    } else {
      result = host::Value();
    }
    return moa::kMoaErr_NoErr;
  }
  for (auto& [handler, fn] : handlers) {
    if (host::equalsIgnoringCase(handler, name)) {
      result = fn(args);
      return moa::kMoaErr_NoErr;
    }
  }
  return moa::kMoaDrErr_HandlerNotDefined;
}

TempDir::TempDir() {
  std::string templ = (std::filesystem::temp_directory_path() / "tessel-test.XXXXXX").string();
  char* made = mkdtemp(templ.data());
  path_ = made ? std::filesystem::path(made) : std::filesystem::path();
}

TempDir::~TempDir() {
  std::error_code ec;
  if (!path_.empty()) std::filesystem::remove_all(path_, ec);
}

std::filesystem::path TempDir::file(const std::string& name, const std::string& content) const {
  std::filesystem::path p = path_ / name;
  std::filesystem::create_directories(p.parent_path());
  FILE* f = fopen(p.c_str(), "wb");
  if (f) {
    fwrite(content.data(), 1, content.size(), f);
    fclose(f);
  }
  return p;
}

XtraTest::XtraTest(host::HostOptions options) : options_(std::move(options)) {}

void XtraTest::SetUp() {
  host_ = std::make_unique<host::Host>(options_);
  host_->setMovie(&movie_);
  ASSERT_EQ(host_->loadXtras(xtrasFolder()), 1)
      << (host_->diagnostics().empty() ? "" : host_->diagnostics().front());
  unixNames(false);
}

void XtraTest::TearDown() {
  if (host_) {
    unixNames(false);
    EXPECT_EQ(host_->liveValues(), 0u) << "values left alive after the test's calls";
  }
  host_.reset();
}

moa::MoaError XtraTest::callError(const std::string& method, std::vector<host::Value> args,
                                  host::Value& result) {
  return host_->callMethod(method, args, result);
}

host::Value XtraTest::call(const std::string& method, std::vector<host::Value> args) {
  host::Value result;
  moa::MoaError err = host_->callMethod(method, args, result);
  EXPECT_EQ(err, moa::kMoaErr_NoErr) << method << ": " << host::describeError(err);
  return result;
}

std::string XtraTest::text(const std::string& method, std::vector<host::Value> args) {
  host::Value v = call(method, std::move(args));
  EXPECT_TRUE(v.isString()) << method << " did not answer a string";
  return v.isString() ? v.string() : std::string();
}

int32_t XtraTest::integer(const std::string& method, std::vector<host::Value> args) {
  host::Value v = call(method, std::move(args));
  EXPECT_TRUE(v.isInteger()) << method << " did not answer an integer";
  return v.isInteger() ? v.integer() : 0;
}

void XtraTest::unixNames(bool on) {
  host::Value result;
  host_->callMethod("tsReturnUnixNames", {host::Value(static_cast<int32_t>(on ? 1 : 0))}, result);
}

std::string startupVolumeName(host::Host& host) {
  host::Value off;
  host.callMethod("tsReturnUnixNames", {host::Value(0)}, off);
  host::Value list;
  host.callMethod("tsDiskList", {}, list);
  if (!list.isList() || list.listPtr()->items.empty()) return "";
  std::string first = list.listPtr()->items.front().string();
  if (!first.empty() && first.back() == ':') first.pop_back();
  return first;
}

std::string modulePath() { return TESSEL_MODULE_PATH; }
std::string xtrasFolder() { return TESSEL_XTRAS_DIR; }

}  // namespace tessel::testing
