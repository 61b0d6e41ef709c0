// Every writer killed with SIGKILL in the middle of its write. The call runs in a child of the
// test process (the host with the built module loaded, forked), which the module's pause seam
// stops at a named moment of the write (TESSEL_PAUSE_AT); the test then kills it and checks that
// the item written is the old one or the complete new one, that at most one partial file is left
// beside it (and not listed), and that the next call of the same method answers as usual and
// removes that file.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <set>

#include "tests/boundary/file_tree_support.h"

namespace tessel::testing {
namespace {

using host::Value;
namespace fs = std::filesystem;

class KillMidWrite : public FileTreeTest {
 protected:
  // Runs `write` in a child stopped at `point`, and kills it there. False when the child ended
  // without reaching the point.
  bool killAt(const char* point, const std::function<void()>& write) {
    pid_t pid = ::fork();
    if (pid == 0) {
      ::setenv("TESSEL_PAUSE_AT", point, 1);
      write();
      ::_exit(0);
    }
    int status = 0;
    if (pid < 0 || ::waitpid(pid, &status, WUNTRACED) != pid) return false;
    bool stopped = WIFSTOPPED(status);
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    return stopped;
  }

  // The names in a folder, companions of other names left out (they go with their item).
  std::set<std::string> names(const std::string& folderPath) const {
    std::set<std::string> all, out;
    for (auto& e : fs::directory_iterator(at(folderPath))) all.insert(e.path().filename());
    for (const std::string& n : all)
      if (!(n.starts_with("._") && all.count(n.substr(2)) != 0)) out.insert(n);
    return out;
  }
};

TEST_F(KillMidWrite, EveryWriterLeavesTheOldItemOrTheNew) {
  // Large enough for several blocks of the cipher and a copy that takes a moment.
  std::string big(4 << 20, '\0');
  for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>('a' + i % 23);
  using Files = std::vector<std::pair<const char*, std::string>>;
  struct Row {
    const char* what;
    const char* point;
    Files files;  // the tree before the call
    std::function<int32_t()> write;
    int32_t answer;
    const char* item;      // the item written, below the temporary folder
    std::string oldBytes;  // what it holds before
    std::string newBytes;  // what it holds after a complete write ("": the enciphered file)
  };
  auto copyFile = [&] {
    return integer("tsCopyFile", {Value(at("src/a.bin")), Value(at("dest/a.bin")), Value("")});
  };
  auto xCopy = [&] {
    return integer("tsXCopy",
                   {Value(at("src")), Value(at("dest")), Value(""), Value(""), Value(1)});
  };
  auto encrypt = [&] { return integer("tsEncryptFile", {Value(at("data/a.bin")), Value("key")}); };
  auto hide = [&] { return integer("tsSetFileAttributes", {Value(at("data/b.txt")), Value("h")}); };
  const Files copies = {{"src/a.bin", big}, {"dest/a.bin", "old"}};
  const Files plain = {{"data/a.bin", big}};
  const Row rows[] = {
      {"a copy, its data written", "copy.data", copies, copyFile, 0, "dest/a.bin", "old", big},
      {"a copy, complete but not yet renamed", "copy.replace", copies, copyFile, 0, "dest/a.bin",
       "old", big},
      {"a copy, its resource fork being written",
       "copy.companion",
       {{"src/a.bin", big},
        {"src/._a.bin", "new fork"},
        {"dest/a.bin", "old"},
        {"dest/._a.bin", "old fork"}},
       copyFile,
       0,
       "dest/._a.bin",
       "old fork",
       "new fork"},
      {"a tree copy",
       "copy.replace",
       {{"src/sub/a.bin", big}, {"dest/sub/a.bin", "old"}},
       xCopy,
       0,
       "dest/sub/a.bin",
       "old",
       big},
      {"the file cipher, a block written", "cipher.block", plain, encrypt, 1, "data/a.bin", big,
       ""},
      {"the file cipher, complete but not yet renamed", "cipher.replace", plain, encrypt, 1,
       "data/a.bin", big, ""},
      {"the folder's .hidden list",
       "rewrite.replace",
       {{"data/a.txt", "a"}, {"data/b.txt", "b"}, {"data/.hidden", "a.txt\n"}},
       hide,
       1,
       "data/.hidden",
       "a.txt\n",
       "a.txt\nb.txt\n"},
  };
  // The enciphered file, made by an uninterrupted call.
  make("reference/a.bin", big);
  ASSERT_EQ(integer("tsEncryptFile", {Value(at("reference/a.bin")), Value("key")}), 1);
  const std::string enciphered = read("reference/a.bin");
  ASSERT_NE(enciphered, big);

  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    for (const char* f : {"src", "dest", "data"}) fs::remove_all(at(f));
    for (const auto& [name, bytes] : row.files) make(name, bytes);
    const std::string folderPath = fs::path(row.item).parent_path();
    const std::set<std::string> before = names(folderPath);
    const std::string newBytes = row.newBytes.empty() ? enciphered : row.newBytes;

    if (!killAt(row.point, [&] { row.write(); })) {
      ADD_FAILURE() << "the writer never reached " << row.point;
      continue;
    }
    std::string now = read(row.item);
    EXPECT_TRUE(now == row.oldBytes || now == newBytes)
        << "neither the old item nor the new one: " << now.size() << " bytes";
    std::set<std::string> left = names(folderPath);
    std::vector<std::string> extra;
    for (const std::string& n : left)
      if (before.count(n) == 0) extra.push_back(n);
    EXPECT_LE(extra.size(), 1u) << ::testing::PrintToString(extra);
    const Strings listed = sorted(call("tsFileList", {Value(at(folderPath)), Value("")}));
    for (const std::string& n : extra)
      EXPECT_EQ(std::count(listed.begin(), listed.end(), n), 0) << n << " is listed";

    EXPECT_EQ(row.write(), row.answer);
    EXPECT_TRUE(read(row.item) == newBytes);
    EXPECT_EQ(names(folderPath), before) << "the partial file stays after the next call";
  }
}

// The enciphered file takes the plain one's place with what made it that file: its owner, mode,
// attributes and resource fork, the link that named it; a file with a second name is enciphered
// in place, so that both names keep showing the same data.
TEST_F(KillMidWrite, TheEncipheredFileKeepsWhatTheFileHad) {
  make("f.bin", "plain data");
  make("._f.bin", "fork");
  make("h1.bin", "plain data");
  fs::create_hard_link(at("h1.bin"), at("h2.bin"));
  fs::create_symlink("f.bin", at("link"));
  ::chmod(at("f.bin").c_str(), 0640);
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(at("f.bin").c_str(), 65534, 65534), 0);  // another user's file
  }
  struct stat was {};
  ASSERT_EQ(::stat(at("f.bin").c_str(), &was), 0);
  const bool attributes = setAttributes("f.bin", "h");
  for (const char* name : {"link", "h1.bin"})
    EXPECT_EQ(integer("tsEncryptFile", {Value(at(name)), Value("key")}), 1) << name;
  struct stat now {};
  ASSERT_EQ(::stat(at("f.bin").c_str(), &now), 0);
  EXPECT_NE(now.st_ino, was.st_ino);  // replaced, not rewritten
  EXPECT_EQ(now.st_mode, was.st_mode);
  EXPECT_EQ(now.st_uid, was.st_uid);
  EXPECT_EQ(now.st_gid, was.st_gid);
  EXPECT_TRUE(fs::is_symlink(at("link")));
  EXPECT_NE(read("f.bin"), "plain data");
  EXPECT_EQ(read("._f.bin"), "fork");
  if (attributes) {
    EXPECT_EQ(text("tsFileAttributes", {Value(at("f.bin"))}), "h");
  }
  EXPECT_NE(read("h1.bin"), "plain data");
  EXPECT_EQ(read("h2.bin"), read("h1.bin"));
}

}  // namespace
}  // namespace tessel::testing
