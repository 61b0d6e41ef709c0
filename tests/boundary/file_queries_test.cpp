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

std::string readFile(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
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

TEST_F(FileQueries, ExistenceAndSizesCountTheResourceFork) {
  fs::path file = dir_.file("clip.dat", "0123456789");
  fs::path folder = dir_.path() / "Media";
  fs::create_directory(folder);
  writeCompanion(file, "12345");

  EXPECT_EQ(integer("tsFileExists", {Value(s(file))}), 1);
  EXPECT_EQ(integer("tsFileExists", {Value(s(folder))}), 0);
  EXPECT_EQ(integer("tsFolderExists", {Value(s(folder))}), 1);
  EXPECT_EQ(integer("tsFolderExists", {Value(s(file))}), 0);
  EXPECT_EQ(integer("tsFolderExists", {Value(s(folder) + "/")}), 1);

  EXPECT_EQ(integer("tsFileSize", {Value(s(file))}), 15);
  Value ex = call("tsFileSizeEx", {Value(s(file))});
  ASSERT_TRUE(ex.isFloat());
  EXPECT_EQ(ex.real(), 15.0);
  EXPECT_EQ(integer("tsFileSize", {Value(s(folder))}), -1);
  EXPECT_EQ(integer("tsFileSize", {Value(s(dir_.path() / "missing"))}), -1);
  EXPECT_EQ(call("tsFileSizeEx", {Value(s(folder))}).real(), -1.0);

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

  // Only 'vers' ID 1 counts; a file without a fork has no version.
  fs::path other = dir_.file("Other.bin", "x");
  writeCompanion(other, resourceFork(0x76657273, 2, versResource("9.9")));
  EXPECT_EQ(text("tsFileVersion", {Value(s(other))}), "");
  EXPECT_EQ(text("tsFileVersion", {Value(s(dir_.file("plain", "x")))}), "");

  fs::path both = bundle("Both.app", {{"CFBundleShortVersionString", "2.5"},
                                      {"CFBundleVersion", "250"}});
  EXPECT_EQ(text("tsFileVersion", {Value(s(both))}), "2.5");
  fs::path empty = bundle("Empty.app", {{"CFBundleShortVersionString", ""},
                                        {"CFBundleVersion", "7.1b"}});
  EXPECT_EQ(text("tsFileVersion", {Value(s(empty))}), "7.1b");
  fs::path onlyLong = bundle("Long.app", {{"CFBundleVersion", "3.0 \xE2\x82\xAC"}});
  EXPECT_EQ(text("tsFileVersion", {Value(s(onlyLong))}), "3.0 \xE2\x82\xAC");  // € is in Roman
  fs::path plainFolder = dir_.path() / "Folder";
  fs::create_directory(plainFolder);
  EXPECT_EQ(text("tsFileVersion", {Value(s(plainFolder))}), "");
}

TEST_F(FileQueries, BundlesNeedAnExistingExecutable) {
  fs::path app = bundle("Player.app", {{"CFBundleExecutable", "Player"},
                                       {"CFBundlePackageType", "APPL"},
                                       {"CFBundleSignature", "TSPLxyz"}});
  EXPECT_EQ(integer("tsIsBundle", {Value(s(app))}), 1);
  EXPECT_EQ(integer("tsIsBundle", {Value(s(app) + "/")}), 1);
  unixNames(true);
  EXPECT_EQ(text("tsBundleApp", {Value(s(app))}), s(app / "Contents" / "MacOS" / "Player"));
  unixNames(false);
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
  EXPECT_EQ(text("tsFileAttributes", {Value(f)}), "");

  // Set form: the flags are replaced; "r" locks; the invisible flag goes with the .hidden list.
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("ntcsbi")}), 1);
  EXPECT_EQ(text("tsFileAttributes", {Value(f)}), "nctbsi");
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("hr")}), 1);
  EXPECT_EQ(text("tsFileAttributes", {Value(f)}), "rh");
  EXPECT_EQ(readFile(dir_.path() / ".hidden"), "Doc\n");
  EXPECT_NE(::unlink(f.c_str()), 0);  // locked for real, even for root
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("")}), 1);
  EXPECT_EQ(text("tsFileAttributes", {Value(f)}), "");
  EXPECT_FALSE(fs::exists(dir_.path() / ".hidden"));

  // Clear form: only r, h and t act, and "t" clears the name-locked bit, not stationery.
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("rhnt")}), 1);
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("-t")}), 1);
  EXPECT_EQ(text("tsFileAttributes", {Value(f)}), "rht");
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("-rh")}), 1);
  EXPECT_EQ(text("tsFileAttributes", {Value(f)}), "t");
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("-")}), 0);
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("-csb")}), 0);

  // Letters are case-sensitive on input.
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("HR")}), 1);
  EXPECT_EQ(text("tsFileAttributes", {Value(f)}), "");

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

  EXPECT_EQ(text("tsFileAttributes", {Value(s(dir_.path() / "missing"))}), "");
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
  EXPECT_EQ(readFile(file), "[Main]\rKey=old");
  // It still takes Finder flags, and stays locked.
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("rc")}), 1);
  EXPECT_EQ(text("tsFileAttributes", {Value(f)}), "rc");
  EXPECT_EQ(readFile(file), "[Main]\rKey=old");
  // Unlocked, every writer may.
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("-r")}), 1);
  EXPECT_EQ(integer("tsEncryptFile", {Value(f), Value("key")}), 1);
  EXPECT_NE(readFile(file), "[Main]\rKey=old");

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

TEST_F(FileQueries, TypeAndCreator) {
  std::string f = s(dir_.file("Notes", "x"));
  EXPECT_EQ(text("tsFileType", {Value(f)}), "");
  EXPECT_EQ(integer("tsSetFileInfo", {Value(f), Value("TEXT"), Value("ttxt")}), 1);
  EXPECT_EQ(text("tsFileType", {Value(f)}), "TEXT");
  EXPECT_EQ(text("tsFileCreator", {Value(f)}), "ttxt");
  // Only the first four characters count; an empty code stores 0.
  EXPECT_EQ(integer("tsSetFileInfo", {Value(f), Value("PICTURE"), Value("")}), 1);
  EXPECT_EQ(text("tsFileType", {Value(f)}), "PICT");
  EXPECT_EQ(text("tsFileCreator", {Value(f)}), "");
  // The flags survive a change of type, and the type a change of flags.
  EXPECT_EQ(integer("tsSetFileAttributes", {Value(f), Value("c")}), 1);
  EXPECT_EQ(integer("tsSetFileInfo", {Value(f), Value("JPEG"), Value("prvw")}), 1);
  EXPECT_EQ(text("tsFileAttributes", {Value(f)}), "c");
  EXPECT_EQ(text("tsFileType", {Value(f)}), "JPEG");

  std::string missing = s(dir_.path() / "missing");
  EXPECT_EQ(text("tsFileType", {Value(missing)}), "");
  EXPECT_EQ(text("tsFileCreator", {Value(missing)}), "");
  EXPECT_EQ(integer("tsSetFileInfo", {Value(missing), Value("TEXT"), Value("ttxt")}), 0);
}

TEST_F(FileQueries, PermissionsByClass) {
  std::string f = s(dir_.file("script.sh", "x"));
  ASSERT_EQ(::chmod(f.c_str(), 0754), 0);
  EXPECT_EQ(text("tsFilePermissions", {Value(f), Value("group")}), "rx");
  EXPECT_EQ(text("tsFilePermissions", {Value(f), Value("world")}), "");
  EXPECT_EQ(text("tsFilePermissions", {Value(f), Value("others")}), "r");
  EXPECT_EQ(text("tsFilePermissions", {Value(f), Value("User")}), "rwx");

  auto mode = [&] {
    struct stat st {};
    ::stat(f.c_str(), &st);
    return st.st_mode & 07777;
  };
  ASSERT_EQ(::chmod(f.c_str(), 0644), 0);
  EXPECT_EQ(integer("tsSetFilePermissions", {Value(f), Value("u"), Value("+x")}), 1);
  EXPECT_EQ(mode(), 0744u);
  EXPECT_EQ(integer("tsSetFilePermissions", {Value(f), Value("u"), Value("rw")}), 1);
  EXPECT_EQ(mode(), 0644u);
  EXPECT_EQ(integer("tsSetFilePermissions", {Value(f), Value("g"), Value("-RW")}), 1);
  EXPECT_EQ(mode(), 0604u);
  EXPECT_EQ(integer("tsSetFilePermissions", {Value(f), Value("o"), Value("")}), 1);
  EXPECT_EQ(mode(), 0600u);
  EXPECT_EQ(integer("tsSetFilePermissions", {Value(f), Value("world"), Value("rwx")}), 1);
  EXPECT_EQ(mode(), 0600u);
  EXPECT_EQ(integer("tsSetFilePermissions", {Value(s(dir_.path() / "missing")), Value("u"),
                                             Value("r")}),
            0);
}

}  // namespace
}  // namespace tessel::testing
