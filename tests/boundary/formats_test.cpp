// INI files, the cipher and dates through the host, on real files in temporary folders.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>
#include <random>

#include "tests/boundary/boundary_support.h"

namespace tessel::testing {
namespace {

using host::Value;

void setModified(const std::filesystem::path& path, time_t t) {
  struct timespec times[2] = {{t, 0}, {t, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

class Formats : public XtraTest {
 protected:
  std::string readIni(const std::string& section, const std::string& key,
                      const std::string& fallback, const std::string& file) {
    return text("tsReadIni", {Value(section), Value(key), Value(fallback), Value(file)});
  }
  int32_t writeIni(const std::string& section, const std::string& key, const std::string& value,
                   const std::string& file) {
    return integer("tsWriteIni", {Value(section), Value(key), Value(value), Value(file)});
  }
  TempDir dir_;
};

// ---- INI files --------------------------------------------------------------------------------

TEST_F(Formats, IniLimitsPathsAndFolders) {
  const std::string ini = dir_.str() + "/limits.ini";
  // A default is cut to 32001 characters. (A missing file's default is the reference's example,
  // the forms of the path the path-form table's.)
  EXPECT_EQ(readIni("A", "None", std::string(40000, 'd'), ini).size(), 32001u);
  // Missing folders are made.
  EXPECT_EQ(writeIni("S", "k", "1", dir_.str() + "/deep/er/movie.ini"), 1);
  EXPECT_EQ(slurp(dir_.path() / "deep/er/movie.ini"), "[S]\nk=1");

  // A name under a file is a failure (a folder in the file's place is the reference's example).
  ASSERT_EQ(writeIni("S", "k", "1", ini), 1);
  EXPECT_EQ(writeIni("S", "k", "1", ini + "/below.ini"), 0);
}

TEST_F(Formats, IniRewriteKeepsPermissionsAndFollowsLinks) {
  auto ini = dir_.file("private.ini", "[A]\ra=1");
  ::chmod(ini.c_str(), 0600);
  ASSERT_EQ(writeIni("A", "a", "2", ini.string()), 1);
  struct stat st {};
  ASSERT_EQ(::stat(ini.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0600u);
  // Through a symbolic link the file behind it is rewritten; the link stays a link.
  std::filesystem::create_symlink("private.ini", dir_.path() / "link.ini");
  ASSERT_EQ(writeIni("A", "a", "3", dir_.str() + "/link.ini"), 1);
  EXPECT_TRUE(std::filesystem::is_symlink(dir_.path() / "link.ini"));
  EXPECT_EQ(slurp(ini), "[A]\ra=3\r");
  ::chmod(ini.c_str(), 0444);
  EXPECT_EQ(asUnprivilegedUser(dir_.path(), [&]() -> std::string {
              int32_t done = writeIni("A", "a", "4", ini.string());
              return done == 0 ? "" : "a file without write permission was rewritten";
            }),
            "");
  EXPECT_EQ(slurp(ini), "[A]\ra=3\r");
}

// A writer killed at any point leaves either the old or the new file, never a part of one.
TEST_F(Formats, IniReaderNeverSeesAPartialFile) {
  const std::string ini = dir_.str() + "/atomic.ini";
  const std::string a(30000, 'a'), b(30000, 'b');
  ASSERT_EQ(writeIni("Main", "Key", a, ini), 1);
  ASSERT_EQ(writeIni("Main", "End", "1", ini), 1);
  const std::string withA = "[Main]\nKey=" + a + "\nEnd=1";
  const std::string withB = "[Main]\nKey=" + b + "\nEnd=1\n";
  const std::string withA2 = withA + "\n";
  ASSERT_EQ(slurp(ini), withA);

  const auto started = std::filesystem::file_time_type::clock::now() - std::chrono::seconds(2);
  std::mt19937 rng(42);
  std::uniform_int_distribution<int> delay(0, 20000);
  int sawNew = 0;
  for (int round = 0; round < 40; ++round) {
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (int i = 0;; ++i) {
        host::Value result;
        host_->callMethod("tsWriteIni",
                          {Value("Main"), Value("Key"), Value(i % 2 == 0 ? b : a), Value(ini)},
                          result);
      }
    }
    ::usleep(static_cast<useconds_t>(delay(rng)));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    const std::string now = slurp(ini);
    ASSERT_TRUE(now == withA || now == withA2 || now == withB)
        << "round " << round << ": " << now.size() << " bytes";
    if (now != withA) ++sawNew;
  }
  EXPECT_GT(sawNew, 0);  // the writer did get through sometimes
  // Temporary files of killed writers (empty, or holding this test's file) made during the
  // test: removed from the temporary folder.
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::temp_directory_path())) {
    std::string name = entry.path().filename().string();
    if (name.rfind("gg", 0) != 0 || !entry.is_regular_file() || entry.last_write_time() < started)
      continue;
    std::string data = slurp(entry.path());
    if (data.empty() || data.rfind("[Main]\nKey=", 0) == 0) std::filesystem::remove(entry.path());
  }
}

// A fresh account: no ~/.config yet. A bare INI name lands in the user's own folder, which is
// made with mode 0700, never in a machine folder.
TEST_F(Formats, BareIniNameOnAFreshAccountGoesToTheUsersConfigFolder) {
  const std::filesystem::path home = dir_.path() / "home";
  std::filesystem::create_directories(home);
  const std::string runner = std::filesystem::path(xtrasFolder()).parent_path() / "tessel";
  std::string command =
      "env -u XDG_CONFIG_HOME -u XDG_DATA_HOME -u XDG_CACHE_HOME -u XDG_STATE_HOME HOME='" +
      home.string() + "' '" + runner + "'" +
      " -e 'tsReturnUnixNames(1)'"
      " -e 'put tsWriteIni(\"Main\", \"Key\", \"1\", \"fresh.ini\")'"
      " -e 'put tsReadIni(\"Main\", \"Key\", \"none\", \"fresh.ini\")'"
      " -e 'put tsSysFolder(\"prefs\")' 2>&1";
  std::optional<std::string> output = run(command);
  ASSERT_TRUE(output) << command;
  EXPECT_EQ(*output, "-- 1\n-- \"1\"\n-- \"" + home.string() + "/.config/\"\n");
  EXPECT_EQ(slurp(home / ".config/fresh.ini"), "[Main]\nKey=1");
  struct stat st {};
  ASSERT_EQ(::stat((home / ".config").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0700u);
}

// ---- The cipher -------------------------------------------------------------------------------

// The cipher's arithmetic is the unit tests'; here its arguments and answers cross the host.
TEST_F(Formats, CiphersThroughTheHost) {
  std::string plain;
  for (int i = 0; i < 24001; ++i) plain += static_cast<char>(1 + (i * 7919) % 255);
  std::string cipher = text("tsEncryptText", {Value(plain), Value("a rather long key")});
  EXPECT_EQ(cipher.size(), 4u * (24001 / 3 + 1));
  EXPECT_EQ(text("tsDecryptText", {Value(cipher), Value("a rather long key")}), plain);

  // An empty file, and an empty key, change nothing. (A file enciphered and restored, and a
  // missing one, are the reference's example.)
  auto empty = dir_.file("empty.dat");
  EXPECT_EQ(integer("tsEncryptFile", {Value(empty.string()), Value("k")}), 1);
  EXPECT_EQ(std::filesystem::file_size(empty), 0u);
  auto unchanged = dir_.file("plain.dat", "unchanged");
  EXPECT_EQ(integer("tsEncryptFile", {Value(unchanged.string()), Value("")}), 1);
  EXPECT_EQ(slurp(unchanged), "unchanged");
}

// ---- Dates and times --------------------------------------------------------------------------

std::string strftimeNow(const char* format, time_t t) {
  struct tm local {};
  localtime_r(&t, &local);
  char buffer[128];
  size_t n = std::strftime(buffer, sizeof buffer, format, &local);
  return std::string(buffer, n);
}

TEST_F(Formats, FileDatesAndAges) {
  ScopedEnvironment env;
  env.set("TZ", "XST-5:30");  // 5 h 30 east of UTC (the module shares the C library's zone)
  auto file = dir_.file("dated.txt", "x");
  const time_t t = 1772719629;  // 2026-03-05 14:07:09 UTC, 19:37:09 local
  setModified(file, t);
  const Value path(file.string());
  // (The date and time tokens are the reference's example; here the time zone.)
  EXPECT_EQ(text("tsFileDate", {path, Value("dd.mm.yyyy "), Value("hh:nn:ss")}),
            "05.03.2026 19:37:09");
  for (const char* modified : {"modified", "accessed", "", "m"})
    EXPECT_EQ(text("tsFileDateEx", {path, Value(modified), Value("yyyy"), Value("hh")}), "202619")
        << modified;
  // Creation: the birth time where the filesystem keeps one, else the modification time.
  struct statx sx {};
  ASSERT_EQ(::statx(AT_FDCWD, file.c_str(), 0, STATX_BTIME, &sx), 0);
  std::string created = (sx.stx_mask & STATX_BTIME) != 0
                            ? strftimeNow("%Y%m%d%H%M%S", static_cast<time_t>(sx.stx_btime.tv_sec))
                            : "20260305193709";
  for (const char* creation : {"creation", "Created", "c"})
    EXPECT_EQ(text("tsFileDateEx", {path, Value(creation), Value("yyyymmdd"), Value("hhnnss")}),
              created);
  // The result holds at most 300 characters.
  EXPECT_EQ(text("tsFileDate", {path, Value(std::string(255, 'd')), Value(std::string(255, 'h'))})
                .size(),
            300u);

  // tsFileAge: local seconds since 1904 less 2,000,000,000, wrapped to 32 bits.
  const int64_t local1904 = int64_t{t} + 19800 + 2082844800;
  EXPECT_EQ(integer("tsFileAge", {path}),
            static_cast<int32_t>(static_cast<uint32_t>(local1904) - 2000000000u));
  // A file stamped at 2,000,000,000 local seconds answers 0, like a missing one.
  auto later = dir_.file("later.txt", "y");
  setModified(later, static_cast<time_t>(2000000000 - 2082844800 - 19800));
  EXPECT_EQ(integer("tsFileAge", {Value(later.string())}), 0);

  EXPECT_EQ(text("tsFileDateEx", {Value(dir_.str() + "/missing"), Value("c"), Value("yyyy"),
                                    Value("hh")}),
            "");
  // The age is a file's only: a folder answers 0, as a missing item does.
  EXPECT_EQ(integer("tsFileAge", {Value(dir_.str())}), 0);
  EXPECT_EQ(integer("tsFileAge", {Value(dir_.str() + "/")}), 0);
}

}  // namespace
}  // namespace tessel::testing
