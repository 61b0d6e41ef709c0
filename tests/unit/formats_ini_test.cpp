// The INI line reader, the matching rules and the writer's output, on bytes in memory.
#include <gtest/gtest.h>

#include "formats/ini.h"

namespace tessel::formats {
namespace {

std::optional<std::string> find(std::string_view file, std::string_view section,
                                std::string_view key) {
  IniLineReader reader = memoryLineReader(file);
  return findIniValue(reader, section, key);
}

std::string rewrite(std::string_view file, std::string_view section, std::string_view key,
                    std::string_view value) {
  IniLineReader reader = memoryLineReader(file);
  return rewriteIni(reader, section, key, value);
}

TEST(IniWriter, CreateAddReplaceAndEmptyValue) {
  std::string file = rewrite("", "Main", "Key", "1");
  EXPECT_EQ(file, "[Main]\rKey=1");
  file = rewrite(file, "Main", "Other", "2");
  EXPECT_EQ(file, "[Main]\rKey=1\rOther=2");
  // Replacing takes the argument's spelling of the key; every copied line gets its CR.
  file = rewrite(file, "MAIN", "KEY", "new=value");
  EXPECT_EQ(file, "[Main]\rKEY=new=value\rOther=2\r");
  EXPECT_EQ(find(file, "main", "key"), "new=value");
  // An empty value keeps the key with nothing after "=".
  file = rewrite(file, "Main", "Other", "");
  EXPECT_EQ(file, "[Main]\rKEY=new=value\rOther=\r");
  EXPECT_EQ(find(file, "Main", "Other"), "");
  // A new section goes at the end after one blank line.
  EXPECT_EQ(rewrite("[A]\ra=1\r", "B", "b", "2"), "[A]\ra=1\r\r[B]\rb=2");
}

TEST(IniWriter, BlankLinesDuplicatesAndLinesBeforeTheFirstSection) {
  // Blank lines go, except one before each later section header.
  EXPECT_EQ(rewrite("\r\r[A]\r\r a=1\r\r\r[B]\rb=2\r\r", "A", "c", "3"),
            "[A]\r a=1\rc=3\r\r[B]\rb=2\r");
  // Only the first key of the first matching section is replaced...
  EXPECT_EQ(rewrite("[A]\rx=1\rx=2\r[A]\rx=3", "a", "X", "9"), "[A]\rX=9\rx=2\r\r[A]\rx=3\r");
  // ...and a missing key is added at the end of the first occurrence.
  EXPECT_EQ(rewrite("[A]\rx=1\r[B]\ry=2\r[A]\rz=3", "A", "z", "9"),
            "[A]\rx=1\rz=9\r\r[B]\ry=2\r\r[A]\rz=3\r");
  // Lines before the first section are copied; keys there are never found.
  EXPECT_EQ(rewrite("k=0\r;note\r[A]\rk=1", "A", "k", "2"), "k=0\r;note\r\r[A]\rk=2\r");
  EXPECT_EQ(find("k=0\r[A]\rj=1", "A", "k"), std::nullopt);
  // CR LF files read correctly; the LFs do not survive a rewrite.
  EXPECT_EQ(find("[A]\r\nk=v\r\n", "A", "k"), "v");
  EXPECT_EQ(rewrite("[A]\r\nk=v\r\n", "A", "j", "w"), "[A]\rk=v\rj=w");
}

TEST(IniReader, MatchingRules) {
  const std::string file =
      "[Main]\rkey = spaced\r indented=1\rKEY=found\rkey=second\r[Next]\rnext=n";
  EXPECT_EQ(find(file, "Main", "key"), "found");
  EXPECT_EQ(find(file, "main", "KEY"), "found");
  EXPECT_EQ(find(file, "Main", "key "), " spaced");  // the key's own spaces count
  EXPECT_EQ(find(file, "Main", "indented"), std::nullopt);
  EXPECT_EQ(find(file, "Main", "next"), std::nullopt);  // stops at the next section
  EXPECT_EQ(find(file, "Next", "next"), "n");           // a last line without CR
  EXPECT_EQ(find(file, " Main", "key"), std::nullopt);  // headers compare whole
  EXPECT_EQ(find("[ Main ]\rk=1", "Main", "k"), std::nullopt);
  EXPECT_EQ(find(file, "Missing", "key"), std::nullopt);
  // A NUL cuts its line; the next line is read as usual.
  EXPECT_EQ(find(std::string("[A]\rk=1\0junk\rj=2", 16), "A", "k"), "1");
  EXPECT_EQ(find(std::string("[A]\rk=1\0junk\rj=2", 16), "A", "j"), "2");
}

TEST(IniFormat, LfOnlyFilesAndByte255) {
  // LF-only line ends: one long line, no section found; the rewrite keeps it as one line.
  const std::string lf = "[Main]\nKey=1\nOther=2\n";
  EXPECT_EQ(find(lf, "Main", "Key"), std::nullopt);
  EXPECT_EQ(rewrite(lf, "Main", "Key", "5"), "[Main]Key=1Other=2\r\r[Main]\rKey=5");
  // A byte 255 ends the file for reading and for writing.
  const std::string ff = "[A]\ra=1\xFF[B]\rb=2";
  EXPECT_EQ(find(ff, "A", "a"), "1");
  EXPECT_EQ(find(ff, "B", "b"), std::nullopt);
  EXPECT_EQ(rewrite(ff, "A", "c", "2"), "[A]\ra=1\rc=2");
  EXPECT_EQ(rewrite("[A]\ra=1\r\xFF\r[B]", "B", "b", "2"), "[A]\ra=1\r\r[B]\rb=2");
}

TEST(IniFormat, LineLimits) {
  // A 32101-character line: the writer keeps 32100, the reader 32000.
  const std::string longValue(32101 - 2, 'v');
  const std::string file = "[A]\rk=" + longValue + "\rj=after";
  std::optional<std::string> value = find(file, "A", "k");
  ASSERT_TRUE(value);
  EXPECT_EQ(value->size(), 32000u - 2);
  EXPECT_EQ(find(file, "A", "j"), "after");
  EXPECT_EQ(rewrite(file, "A", "j", "x"), "[A]\rk=" + longValue.substr(1) + "\rj=x\r");
  // Without a CR after it, the character after a full line starts the next line.
  const std::string dropped = "[A]\r" + std::string(32100, 'a') + "bk=1";
  EXPECT_EQ(find(dropped, "A", "k"), "1");  // "b" is lost, "k=1" is a line of its own
  // LFs count towards the raw line before they are removed.
  const std::string lfs = "[A]\rk=" + std::string(32098, '\n') + "xy\rj=2";
  EXPECT_EQ(find(lfs, "A", "k"), "");
  EXPECT_EQ(find(lfs, "A", "j"), "2");
}

TEST(IniReader, ReadsAcrossBufferBoundaries) {
  std::string file = "[S]\r";
  for (int i = 0; i < 20000; ++i) file += "key" + std::to_string(i) + "=value" + std::to_string(i) + "\r";
  EXPECT_EQ(find(file, "S", "key19999"), "value19999");
  EXPECT_EQ(find(file, "S", "key7777"), "value7777");
}

}  // namespace
}  // namespace tessel::formats
