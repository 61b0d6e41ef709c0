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
  EXPECT_EQ(file, "[Main]\nKey=1");  // a new file gets LF
  file = rewrite(file, "Main", "Other", "2");
  EXPECT_EQ(file, "[Main]\nKey=1\nOther=2");
  // Replacing takes the argument's spelling of the key; every copied line gets its line end.
  file = rewrite(file, "MAIN", "KEY", "new=value");
  EXPECT_EQ(file, "[Main]\nKEY=new=value\nOther=2\n");
  EXPECT_EQ(find(file, "main", "key"), "new=value");
  // An empty value keeps the key with nothing after "=".
  file = rewrite(file, "Main", "Other", "");
  EXPECT_EQ(file, "[Main]\nKEY=new=value\nOther=\n");
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
}

TEST(IniReader, MatchingRules) {
  const std::string file =
      "[Main]\rkey = spaced\r indented=1\rKEY=found\rkey=second\r[Next]\rnext=n";
  EXPECT_EQ(find(file, "Main", "key"), "found");
  EXPECT_EQ(find(file, "Main", "key "), " spaced");  // the key's own spaces count
  EXPECT_EQ(find(file, "Main", "indented"), std::nullopt);
  EXPECT_EQ(find(file, "Main", "next"), std::nullopt);  // stops at the next section
  EXPECT_EQ(find(file, "Next", "next"), "n");           // a last line without CR
  EXPECT_EQ(find(file, " Main", "key"), std::nullopt);  // headers compare whole
  EXPECT_EQ(find("[ Main ]\rk=1", "Main", "k"), std::nullopt);
  // A NUL cuts its line; the next line is read as usual.
  EXPECT_EQ(find(std::string("[A]\rk=1\0junk\rj=2", 16), "A", "k"), "1");
  EXPECT_EQ(find(std::string("[A]\rk=1\0junk\rj=2", 16), "A", "j"), "2");
}

TEST(IniFormat, LineEndsAndByte255) {
  // CR, LF and CR LF all end lines; the rewrite keeps the file's first line end.
  for (std::string_view eol : {"\r", "\n", "\r\n"}) {
    auto with = [eol](std::string text) {
      std::string out;
      for (char c : text) out += c == '|' ? std::string(eol) : std::string(1, c);
      return out;
    };
    const std::string file = with("[Main]|Key=1||Other=2|[Next]|n=3|");
    EXPECT_EQ(find(file, "Main", "Other"), "2");
    EXPECT_EQ(find(file, "Next", "n"), "3");
    EXPECT_EQ(rewrite(file, "Main", "Key", "5"), with("[Main]|Key=5|Other=2||[Next]|n=3|"));
    EXPECT_EQ(rewrite(with("[A]|"), "A", "k", "1"), with("[A]|k=1"));
  }
  // The first line end decides, also when it is found only after a first line too long to keep.
  EXPECT_EQ(rewrite("[A]\r\nk=1\nj=2\r", "A", "k", "5"), "[A]\r\nk=5\r\nj=2\r\n");
  EXPECT_EQ(rewrite("x\ry\r\n", "A", "k", "5"), "x\ry\r\r[A]\rk=5");
  const std::string longFirst = std::string(32101, 'a') + "b\r\n[A]";
  EXPECT_EQ(rewrite(longFirst, "A", "k", "1"),
            std::string(32100, 'a') + "\r\nb\r\n\r\n[A]\r\nk=1");
  // A first CR LF split over two blocks of the reader (64 KB) is one line end, and the section
  // after it is found in the second block: after two
  // cut lines (32,101 bytes each), a line of 1,333 bytes ends with CR at the block's last byte.
  const std::string split = std::string(65535, 'a') + "\r\n[A]";
  EXPECT_EQ(rewrite(split, "A", "k", "1"), std::string(32100, 'a') + "\r\n" +
                                              std::string(32100, 'a') + "\r\n" +
                                              std::string(1333, 'a') + "\r\n\r\n[A]\r\nk=1");
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
  // A full line ended by LF loses nothing: the LF is its line end.
  const std::string lf = "[A]\nk=" + std::string(32098, 'v') + "\nj=2";
  EXPECT_EQ(rewrite(lf, "A", "j", "3"), lf.substr(0, lf.size() - 1) + "3\n");
}

}  // namespace
}  // namespace tessel::formats
