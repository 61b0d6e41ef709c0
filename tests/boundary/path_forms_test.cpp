// Every method that takes a path answers the same for the HFS form, the Unix form and an "@"
// form of one item, and leaves the same files behind: each row of the table is called once per
// form on a freshly made tree, in both settings of the style switch. Dialogs, and methods that
// change the desktop in a way a test cannot undo (opening documents, printing, ejecting), are
// left out.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <functional>

#include "tests/boundary/boundary_support.h"

namespace tessel::testing {
namespace {

using host::Value;

// A result as text, lists included, so that answers of any kind compare and print.
std::string show(const Value& v) {
  if (v.isVoid()) return "<void>";
  if (v.isInteger()) return std::to_string(v.integer());
  if (v.isFloat()) return std::to_string(v.real());
  if (v.isString()) return "\"" + v.string() + "\"";
  if (v.isList()) {
    std::string out = "[";
    for (const Value& item : v.listPtr()->items) out += show(item) + ",";
    return out + "]";
  }
  return "<other>";
}

// The path of an item below the tree in one form.
using Form = std::function<std::string(const std::string& relative)>;

struct Row {
  const char* method;
  std::vector<Value> args;
  // False where a missing item gives the same answer and files as the existing one, so only the
  // agreement of the forms is checked.
  bool differsWhenMissing = true;
};

class PathForms : public XtraTest {
 protected:
  void SetUp() override {
    XtraTest::SetUp();
    startup_ = startupVolumeName(*host_);
    ASSERT_FALSE(startup_.empty());
    tree_ = dir_.path() / "tree";
    movie_.folder = tree_.string() + "/";
  }

  // The tree every call starts from.
  void makeTree() {
    std::filesystem::remove_all(tree_);
    dir_.file("tree/file.txt", "hello world");
    dir_.file("tree/.hidden", "");
    dir_.file("tree/text.png", "not a picture");
    dir_.file("tree/s.ini", "[A]\nk=v\n");
    dir_.file("tree/run.sh", "#!/bin/sh\nexit 0\n");
    dir_.file("tree/sub/a.txt", "a");
    dir_.file("tree/sub/b.dat", std::string(2000, 'b'));
    dir_.file("tree/App.app/Contents/MacOS/App", "#!/bin/sh\nexit 0\n");
    dir_.file("tree/App.app/Contents/Info.plist",
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
              "<key>CFBundleExecutable</key><string>App</string></dict></plist>\n");
    std::filesystem::create_directories(tree_ / "sub/inner");
    std::filesystem::create_directories(tree_ / "dest");
    std::filesystem::permissions(tree_ / "run.sh", std::filesystem::perms(0755));
    std::filesystem::permissions(tree_ / "App.app/Contents/MacOS/App",
                                 std::filesystem::perms(0755));
    struct timespec times[2] = {{1577934245, 0}, {1577934245, 0}};  // 2 January 2020
    ::utimensat(AT_FDCWD, (tree_ / "file.txt").c_str(), times, 0);
  }

  // The method's result, then every item of the tree as it was left: name, kind, mode and
  // contents.
  std::string answer(const Row& row, const Form& form) {
    makeTree();
    std::vector<Value> args;
    for (const Value& arg : row.args) {
      bool path = arg.isString() && arg.string().starts_with('~');
      args.push_back(path ? Value(form(arg.string().substr(1))) : arg);
    }
    std::string out = show(call(row.method, std::move(args)));
    // A search that ran to its end starts the next one at its folder's first item.
    while (text("tsFindNextFile") != "") {
    }
    std::vector<std::string> items;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(tree_)) {
      std::string item = std::filesystem::relative(entry.path(), tree_).string();
      struct stat st {};
      ::lstat(entry.path().c_str(), &st);
      item += " " + std::to_string(st.st_mode);
      if (entry.is_symlink())
        item += " -> " + std::filesystem::read_symlink(entry.path()).string();
      else if (entry.is_regular_file())
        item += " " + slurp(entry.path());
      items.push_back(item);
    }
    std::sort(items.begin(), items.end());
    for (const std::string& item : items) out += "\n" + item;
    return out;
  }

  std::string startup_;
  TempDir dir_;
  std::filesystem::path tree_;
};

TEST_F(PathForms, EveryPathMethodAnswersTheSameForEachFormOfAPath) {
  // "~name" stands for the path of tree/name (":" between components) in the form under test.
  const std::vector<Row> rows = {
      {"tsDiskInfo", {"~sub", "type"}},
      {"tsReadIni", {"A", "k", "-", "~s.ini"}},
      {"tsWriteIni", {"A", "k", "w", "~s.ini"}},
      {"tsSetWallpaper", {"~text.png", 0}},
      {"tsRunProgram", {"~run.sh", "hidden", 1}},
      {"tsFileExists", {"~file.txt"}},
      {"tsFileAge", {"~file.txt"}},
      {"tsFileVersion", {"~file.txt"}, false},
      {"tsFolderExists", {"~sub"}},
      {"tsIsBundle", {"~App.app"}},
      {"tsBundleApp", {"~App.app"}},
      {"tsCreateFolder", {"~new"}},
      {"tsDeleteFolder", {"~sub:inner"}},
      {"tsDeleteFile", {"~file.txt"}},
      {"tsDeleteXFiles", {"~sub", ".txt"}},
      {"tsXDelete", {"~sub", ".dat"}},
      {"tsFileSize", {"~file.txt"}},
      {"tsFileSizeEx", {"~file.txt"}},
      {"tsFileDate", {"~file.txt", "dd.mm.yyyy", "hh:nn:ss"}},
      {"tsFileDateEx", {"~file.txt", "modified", "dd.mm.yyyy", "hh:nn"}},
      {"tsFileAttributes", {"~.hidden"}},
      {"tsSetFileAttributes", {"~file.txt", "h"}},
      {"tsCopyFile", {"~file.txt", "~dest:copy.txt", ""}},
      {"tsCopyXFiles", {"~sub", "~dest", "*.*", ""}},
      {"tsXCopy", {"~sub", "~dest", "*.*", "", 1}},
      {"tsFolderSize", {"~sub", "", 1}},
      {"tsRenameFile", {"~file.txt", "~renamed.txt"}},
      {"tsFileList", {"~sub", ""}},
      {"tsFolderList", {"~sub"}},
      {"tsFindFirstFile", {"~sub", "b.dat"}},
      {"tsEncryptFile", {"~file.txt", "key"}},
      {"tsShortFileName", {"~file.txt"}},
      {"tsLongFileName", {"~file.txt"}},
      // A path in its own style comes back as given, so these take a file (a folder would gain
      // its trailing separator in the other style only).
      {"tsUnixName", {"~file.txt"}},
      {"tsHFSName", {"~file.txt"}},
      {"tsShell", {"open", "~run.sh", "x", "~sub", ""}},
      {"tsMakeShortcut", {"~file.txt", "~sub", "link"}},
      {"tsFileCreator", {"~App.app"}, false},
      {"tsFileType", {"~App.app"}, false},
      {"tsSetFileInfo", {"~file.txt", "TEXT", "ttxt"}},
      {"tsFilePermissions", {"~run.sh", "u"}},
      {"tsSetFilePermissions", {"~run.sh", "g", "rw"}},
  };


  // Relative names are written with ":" between components and put in each form.
  std::string hfsTree = tree_.string();
  std::replace(hfsTree.begin(), hfsTree.end(), '/', ':');
  hfsTree = startup_ + hfsTree;
  auto with = [](std::string relative, char separator) {
    std::replace(relative.begin(), relative.end(), ':', separator);
    return relative;
  };
  const Form unixForm = [&](const std::string& r) { return tree_.string() + "/" + with(r, '/'); };
  const Form hfsForm = [&](const std::string& r) { return hfsTree + ":" + r; };
  const Form atHfs = [&](const std::string& r) { return "@:" + r; };
  const Form atUnix = [&](const std::string& r) { return "@/" + with(r, '/'); };
  const Form missing = [&](const std::string& r) { return unixForm("missing:" + r); };

  for (bool unixNamesOn : {false, true}) {
    unixNames(unixNamesOn);
    for (const Row& row : rows) {
      SCOPED_TRACE(std::string(row.method) + (unixNamesOn ? " (Unix names)" : " (HFS names)"));
      const std::string expected = answer(row, unixForm);
      EXPECT_EQ(answer(row, hfsForm), expected) << "HFS form";
      EXPECT_EQ(answer(row, unixNamesOn ? atUnix : atHfs), expected) << "\"@\" form";
      if (row.differsWhenMissing) {
        EXPECT_NE(answer(row, missing), expected) << "missing item";
      }
    }
  }
}

}  // namespace
}  // namespace tessel::testing
