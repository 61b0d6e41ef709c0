// File queries and attributes through the host, on real temporary files: existence, sizes with
// resource forks, versions, bundles, Finder attributes, type and creator, permissions.
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "tests/boundary/boundary_support.h"

namespace tessel::testing {
namespace {

using host::Value;
namespace fs = std::filesystem;

void put32(std::string& out, uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<char>(v >> shift));
}
void put16(std::string& out, uint32_t v) {
  out.push_back(static_cast<char>(v >> 8));
  out.push_back(static_cast<char>(v));
}

// A resource fork holding one resource of `type` and `id`.
std::string resourceFork(uint32_t type, int16_t id, const std::string& body) {
  std::string data;
  put32(data, static_cast<uint32_t>(body.size()));
  data += body;
  std::string map(16, '\0');  // the header copy
  put32(map, 0);               // next map
  put16(map, 0);               // file reference
  put16(map, 0);               // attributes
  put16(map, 28);              // type list offset
  put16(map, 28 + 2 + 8 + 12); // name list offset
  put16(map, 0);               // one type
  put32(map, type);
  put16(map, 0);               // one resource
  put16(map, 2 + 8);           // its reference list, from the type list
  put16(map, static_cast<uint16_t>(id));
  put16(map, 0xFFFF);          // no name
  put32(map, 0);               // attributes 0, data offset 0
  put32(map, 0);
  std::string fork;
  put32(fork, 256);
  put32(fork, static_cast<uint32_t>(256 + data.size()));
  put32(fork, static_cast<uint32_t>(data.size()));
  put32(fork, static_cast<uint32_t>(map.size()));
  fork.resize(256, '\0');
  return fork + data + map;
}

// A 'vers' resource with the given short version string.
std::string versResource(const std::string& shortVersion) {
  std::string v = {1, 0x23, static_cast<char>(0x80), 0, 0, 0};
  v.push_back(static_cast<char>(shortVersion.size()));
  v += shortVersion;
  v.push_back(4);
  v += "long";
  return v;
}

// The "._name" companion (double-file format) holding `fork` as the resource fork entry.
void writeCompanion(const fs::path& file, const std::string& fork) {
  std::string out;
  put32(out, 0x00051607);
  put32(out, 0x00020000);
  out.append(16, '\0');
  put16(out, 1);
  put32(out, 2);
  put32(out, 26 + 12);
  put32(out, static_cast<uint32_t>(fork.size()));
  out += fork;
  std::ofstream(file.parent_path() / ("._" + file.filename().string()), std::ios::binary) << out;
}

class FileQueries : public XtraTest {
 protected:
  void TearDown() override {
    // Locked leftovers must not keep the temporary folder alive.
    std::error_code ec;
    for (auto& entry : fs::recursive_directory_iterator(dir_.path(), ec))
      call("tsSetFileAttributes", {Value(entry.path().string()), Value("-r")});
    XtraTest::TearDown();
  }

  // An application bundle with the given Info.plist entries (key, value pairs).
  fs::path bundle(const std::string& name, const std::vector<std::pair<std::string, std::string>>& keys,
                  bool withExecutable = true) {
    fs::path b = dir_.path() / name;
    fs::create_directories(b / "Contents" / "MacOS");
    std::string plist =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n";
    for (auto& [k, v] : keys) plist += "<key>" + k + "</key><string>" + v + "</string>\n";
    plist += "</dict>\n</plist>\n";
    std::ofstream(b / "Contents" / "Info.plist") << plist;
    if (withExecutable) std::ofstream(b / "Contents" / "MacOS" / "Player") << "#!/bin/sh\n";
    return b;
  }

  std::string s(const fs::path& p) const { return p.string(); }

  TempDir dir_;
};

// (Folders and missing files, -1, are the reference's example.)
TEST_F(FileQueries, SizesCountTheResourceFork) {
  fs::path file = dir_.file("clip.dat", "0123456789");
  writeCompanion(file, "12345");
  EXPECT_EQ(integer("tsFileSize", {Value(s(file))}), 15);
  EXPECT_EQ(call("tsFileSizeEx", {Value(s(file))}).real(), 15.0);

  // A file of more than 4 GB: the 32-bit sum wraps, the float does not.
  fs::path big = dir_.file("big.dat");
  fs::resize_file(big, (uint64_t{1} << 32) + 7);
  EXPECT_EQ(integer("tsFileSize", {Value(s(big))}), 7);
  EXPECT_EQ(call("tsFileSizeEx", {Value(s(big))}).real(), 4294967303.0);
}

TEST_F(FileQueries, VersionsFromVersResourcesAndBundles) {
  fs::path file = dir_.file("Player.bin", "x");
  writeCompanion(file, resourceFork(0x76657273, 1, versResource("1.2.3")));
  EXPECT_EQ(text("tsFileVersion", {Value(s(file))}), "1.2.3");

  // (Which resource counts is the unit tests'; a bundle's short version and a plain file the
  // reference's example.)
  fs::path empty = bundle("Empty.app", {{"CFBundleShortVersionString", ""},
                                        {"CFBundleVersion", "7.1b"}});
  EXPECT_EQ(text("tsFileVersion", {Value(s(empty))}), "7.1b");
  fs::path onlyLong = bundle("Long.app", {{"CFBundleVersion", "3.0 \xE2\x82\xAC"}});
  EXPECT_EQ(text("tsFileVersion", {Value(s(onlyLong))}), "3.0 \xE2\x82\xAC");  // € is in Roman
}

TEST_F(FileQueries, BundlesNeedAnExistingExecutable) {
  fs::path app = bundle("Player.app", {{"CFBundleExecutable", "Player"},
                                       {"CFBundlePackageType", "APPL"},
                                       {"CFBundleSignature", "TSPLxyz"}});
  // (A bundle and its executable are the reference's example.)
  EXPECT_EQ(text("tsFileType", {Value(s(app))}), "APPL");
  EXPECT_EQ(text("tsFileCreator", {Value(s(app))}), "TSPL");

  // No CFBundleExecutable: the bundle's name without its extension.
  fs::path unnamed = bundle("Player2.app", {});
  fs::rename(unnamed / "Contents" / "MacOS" / "Player", unnamed / "Contents" / "MacOS" / "Player2");
  EXPECT_EQ(integer("tsIsBundle", {Value(s(unnamed))}), 1);

  fs::path noExe = bundle("Broken.app", {{"CFBundleExecutable", "Player"}}, false);
  EXPECT_EQ(integer("tsIsBundle", {Value(s(noExe))}), 0);
  EXPECT_EQ(text("tsBundleApp", {Value(s(noExe))}), "");
  fs::path escape = bundle("Escape.app", {{"CFBundleExecutable", "../../Contents/Info.plist"}});
  EXPECT_EQ(integer("tsIsBundle", {Value(s(escape))}), 0);
  fs::path garbage = dir_.path() / "Garbage.app";
  fs::create_directories(garbage / "Contents" / "MacOS");
  std::ofstream(garbage / "Contents" / "Info.plist") << "<plist><dict><key>";
  std::ofstream(garbage / "Contents" / "MacOS" / "Garbage") << "x";
  EXPECT_EQ(integer("tsIsBundle", {Value(s(garbage))}), 0);
  EXPECT_EQ(integer("tsIsBundle", {Value(s(dir_.file("file.app", "x")))}), 0);
}

TEST_F(FileQueries, AttributeLettersAndTheirSideEffects) {
  fs::path file = dir_.file("Doc", "x");
  std::string f = s(file);
  // (That "h" hides the file from listings and "r" refuses its deletion is the reference's
  // example.) Rows, in order on the same file: the letters given, the answer, the letters then
  // read. The set form replaces the flags; the clear form ("-") acts on r, h and t only, and "t"
  // clears the name-locked bit, not stationery; letters are case-sensitive.
  struct Row {
    const char* letters;
    int32_t answer;
    const char* reads;
  };
  const Row rows[] = {
      {"ntcsbi", 1, "nctbsi"}, {"hr", 1, "rh"}, {"", 1, ""},   {"rhnt", 1, "rhnt"},
      {"-t", 1, "rht"},        {"-rh", 1, "t"}, {"-", 0, "t"}, {"-csb", 0, "t"},
      {"HR", 1, ""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value(row.letters)}), row.answer)
        << row.letters;
    EXPECT_EQ(text("tsFileAttributes", {Value(f)}), row.reads) << row.letters;
  }

  // A locked invisible alias: a symbolic link whose target is locked, listed in .hidden.
  fs::create_symlink(file, dir_.path() / "Doc alias");
  std::string alias = s(dir_.path() / "Doc alias");
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(alias), Value("hr")}), 1);
  EXPECT_EQ(text("tsFileAttributes", {Value(alias)}), "rhl");
  EXPECT_TRUE(fs::is_symlink(alias));

  // A "." name is always invisible; folders take the same letters.
  EXPECT_EQ(text("tsFileAttributes", {Value(s(dir_.file(".profile", "x")))}), "h");
  fs::path folder = dir_.path() / "Folder";
  fs::create_directory(folder);
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(s(folder)), Value("hc")}), 1);
  EXPECT_EQ(text("tsFileAttributes", {Value(s(folder) + "/")}), "hc");

  EXPECT_EQ(integer("tsSetFileAttributes", {Value(s(dir_.path() / "missing")), Value("h")}), 0);
}

// A file nobody may write (chmod a-w, or locked by a user who may not set the immutable flag)
// is locked, and every writer refuses it, whoever runs the host: root, who could write it, too.
TEST_F(FileQueries, AFileNobodyMayWriteIsLockedForEveryWriter) {
  fs::path file = dir_.file("Locked", "[Main]\rKey=old");
  std::string f = s(file);
  std::string other = s(dir_.file("Other", "new"));
  ASSERT_EQ(::chmod(f.c_str(), 0444), 0);
  EXPECT_EQ(text("tsFileAttributes", {Value(f)}), "r");
  EXPECT_EQ(integer("tsEncryptFile", {Value(f), Value("key")}), 0);
  EXPECT_EQ(integer("tsWriteIni", {Value("Main"), Value("Key"), Value("new"), Value(f)}), 0);
  EXPECT_EQ(integer("tsCopyFile", {Value(other), Value(f), Value("")}), 4);
  EXPECT_EQ(integer("tsRenameFile", {Value(f), Value(f + " renamed")}), 0);
  EXPECT_EQ(integer("tsDeleteFile", {Value(f)}), 0);
  EXPECT_EQ(slurp(file), "[Main]\rKey=old");
  // It still takes Finder flags, and stays locked.
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("rc")}), 1);
  EXPECT_EQ(text("tsFileAttributes", {Value(f)}), "rc");
  EXPECT_EQ(slurp(file), "[Main]\rKey=old");
  // Unlocked, every writer may.
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("-r")}), 1);
  EXPECT_EQ(integer("tsEncryptFile", {Value(f), Value("key")}), 1);
  EXPECT_NE(slurp(file), "[Main]\rKey=old");

  // A folder nobody may write is locked: it gains and loses no items; its files keep their own
  // lock state.
  fs::path box = dir_.path() / "Box";
  std::string inside = s(dir_.file("Box/inside", "in"));
  ASSERT_EQ(::chmod(s(box).c_str(), 0555), 0);
  EXPECT_EQ(text("tsFileAttributes", {Value(s(box))}), "r");
  EXPECT_EQ(integer("tsCreateFolder", {Value(s(box / "new"))}), 0);
  EXPECT_EQ(integer("tsCopyFile", {Value(other), Value(s(box / "copy")), Value("")}), 4);
  EXPECT_EQ(integer("tsWriteIni", {Value("Main"), Value("Key"), Value("v"), Value(s(box / "new.ini"))}),
            0);
  EXPECT_EQ(integer("tsRenameFile", {Value(inside), Value(inside + " renamed")}), 0);
  EXPECT_EQ(integer("tsDeleteFile", {Value(inside)}), 0);
  EXPECT_EQ(integer("tsEncryptFile", {Value(inside), Value("key")}), 1);
  std::vector<std::string> left;
  for (auto& entry : fs::directory_iterator(box)) left.push_back(entry.path().filename().string());
  EXPECT_EQ(left, std::vector<std::string>{"inside"});
}

// (Setting and reading codes, and the permission classes, are the reference's examples.)
TEST_F(FileQueries, CodesAndPermissionsBeyondTheReferencesExamples) {
  std::string f = s(dir_.file("Notes", "x"));
  // Only the first four characters count; the flags survive a change of type.
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("c")}), 1);
  EXPECT_EQ(integer("tsSetFileInfo", {Value(f), Value("PICTURE"), Value("")}), 1);
  EXPECT_EQ(text("tsFileType", {Value(f)}), "PICT");
  EXPECT_EQ(text("tsFileAttributes", {Value(f)}), "c");
  // Class words ignore case; one that is none of the three changes nothing; a missing file
  // takes nothing.
  ASSERT_EQ(::chmod(f.c_str(), 0644), 0);
  EXPECT_EQ(text("tsFilePermissions", {Value(f), Value("User")}), "rw");
  EXPECT_EQ(integer("tsSetFilePermissions", {Value(f), Value("world"), Value("rwx")}), 1);
  EXPECT_EQ(fs::status(f).permissions(), fs::perms(0644));
  EXPECT_EQ(integer("tsSetFilePermissions", {Value(f + "-missing"), Value("u"), Value("r")}), 0);
}

}  // namespace
}  // namespace tessel::testing
