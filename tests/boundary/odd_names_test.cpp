// Names a movie may meet on a Linux disk but never on its own: bytes that are not UTF-8, ":"
// (which the HFS style shows as "/"), line ends, names of the longest length a name may have.
// Each goes through listings, the disk search, copies and deletes, in both path styles, on real
// files.
#include "tests/boundary/file_tree_support.h"

namespace tessel::testing {
namespace {

using host::Value;

struct OddName {
  const char* what;
  std::string name;
};

const std::vector<OddName>& oddNames() {
  static const std::vector<OddName> names = [] {
    std::string high = "high-";
    for (int b = 0x80; b <= 0xFF; ++b) high += static_cast<char>(b);
    return std::vector<OddName>{
        {"Latin-1 bytes", "caf\xe9 cr\xe8me.txt"},
        {"every byte from 0x80 to 0xFF", high},
        {"a colon", "a:b.txt"},
        {"a line feed and a return", "two\nlines\r.txt"},
        {"255 bytes", std::string(251, 'n') + ".txt"},
        {"255 bytes of two-byte characters", [] {
           std::string s;
           for (int i = 0; i < 125; ++i) s += "\xc3\xa9";
           return s + "12345";
         }()},
    };
  }();
  return names;
}

class OddNames : public FileTreeTest {
 protected:
  // How a Linux name shows in a path of the style: HFS swaps ":" and "/" inside a name.
  std::string shown(std::string name) const {
    if (!unix_)
      for (char& c : name) c = c == ':' ? '/' : c == '/' ? ':' : c;
    return name;
  }
  // The path of `name` in the folder `folder` (a plain relative path), in the style.
  std::string path(const std::string& folder, const std::string& name = "") const {
    std::string base = unix_ ? at(folder) : hfs(folder);
    return name.empty() ? base : base + (unix_ ? "/" : ":") + shown(name);
  }
  // A Unix path argument turns every ":" into "/": a name holding ":" cannot be named in it.
  bool nameable(const std::string& name) const {
    return !unix_ || name.find(':') == std::string::npos;
  }

  bool unix_ = false;
};

TEST_F(OddNames, ListSearchCopyAndDeleteInBothStyles) {
  const std::string folderName = "dir\xff:\n";
  const std::string inner = "inner\x80.txt";
  for (bool unix : {false, true}) {
    unix_ = unix;
    unixNames(unix);
    const std::string src = unix ? "u/src" : "h/src", dst = unix ? "u/dst" : "h/dst",
                      tree_ = unix ? "u/tree" : "h/tree";
    SCOPED_TRACE(unix ? "Unix style" : "HFS style");
    Strings listed, hits;
    for (const OddName& odd : oddNames()) {
      make(src + "/" + odd.name, odd.what);
      listed.push_back(shown(odd.name));
      hits.push_back(path(src, odd.name));
    }
    make(src + "/" + folderName + "/" + inner, "inner");
    hits.push_back(path(src) + (unix ? "/" : ":") + shown(folderName) + (unix ? "/" : ":") + inner);
    folder(dst);
    std::sort(listed.begin(), listed.end());
    std::sort(hits.begin(), hits.end());

    EXPECT_EQ(sorted(call("tsFileList", {Value(path(src)), Value("")})), listed);
    EXPECT_EQ(sorted(call("tsFolderList", {Value(path(src))})), Strings{shown(folderName)});

    // The search finds every file, its path in the style, and each by its own name.
    Strings found;
    for (Value hit = call("tsFindFirstFile", {Value(path(src)), Value("*.*")});
         hit.isString() && !hit.string().empty() && found.size() < 20;
         hit = call("tsFindNextFile"))
      found.push_back(hit.string());
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, hits);

    for (const OddName& odd : oddNames()) {
      SCOPED_TRACE(odd.what);
      EXPECT_EQ(text("tsFindFirstFile", {Value(path(src)), Value(shown(odd.name))}),
                path(src, odd.name));
      // Searched to its end, so that the next search starts at the folder's first item again.
      for (int i = 0; i < 20 && !text("tsFindNextFile").empty(); ++i) {
      }
      if (!nameable(odd.name)) continue;
      EXPECT_EQ(integer("tsFileExists", {Value(path(src, odd.name))}), 1);
      EXPECT_EQ(integer("tsCopyFile", {Value(path(src, odd.name)), Value(path(dst, odd.name)),
                                       Value("always")}),
                0);
      EXPECT_EQ(read(dst + "/" + odd.name), odd.what);
      EXPECT_EQ(integer("tsDeleteFile", {Value(path(dst, odd.name))}), 1);
      EXPECT_FALSE(exists(dst + "/" + odd.name));
    }
    call("tsFindClose");

    // The whole tree copies name for name.
    EXPECT_EQ(integer("tsXCopy", {Value(path(src)), Value(path(tree_)), Value(""),
                                  Value("always"), Value(1)}),
              0);
    EXPECT_EQ(tree(tree_), tree(src));
    // Deleting every file leaves every folder empty, and empty folders go too.
    EXPECT_EQ(integer("tsXDelete", {Value(path(tree_)), Value("")}), 1);
    EXPECT_FALSE(exists(tree_));
  }
}

}  // namespace
}  // namespace tessel::testing
