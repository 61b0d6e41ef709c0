// The two file-spec languages: how a spec is classified and what a classification accepts.
#include <gtest/gtest.h>

#include "files/file_patterns.h"

namespace tessel::files {
namespace {

using Mode = FileSpec::Mode;

TEST(FileSpec, GeneralLanguageClassifiesByFirstCharacterAndLength) {
  EXPECT_EQ(classifyFileSpec("").mode, Mode::All);
  for (const char* all : {"*", "*.*", "ab", "txt"}) EXPECT_EQ(classifyFileSpec(all).mode, Mode::All) << all;
  EXPECT_EQ(classifyFileSpec(".").mode, Mode::Extension);
  EXPECT_EQ(classifyFileSpec(".longer-than-four").mode, Mode::Extension);
  // "*.txt" is a type code, '*.tx', that no real file has.
  FileSpec star = classifyFileSpec("*.txt");
  EXPECT_EQ(star.mode, Mode::TypeCode);
  EXPECT_EQ(star.code, 0x2A2E7478u);
  EXPECT_EQ(classifyFileSpec("TEXT").code, 0x54455854u);
}

TEST(FileSpec, ExtensionsCompareIgnoringAsciiCaseOnly) {
  FileSpec txt = classifyFileSpec(".txt");
  EXPECT_TRUE(specMatches(txt, "a.TXT", nullptr));
  EXPECT_TRUE(specMatches(txt, ".txt", nullptr));  // as long as the FileSpec will do
  EXPECT_FALSE(specMatches(txt, "txt", nullptr));
  EXPECT_FALSE(specMatches(txt, "a.txt.bak", nullptr));
  // Bytes beyond ASCII are compared as they are.
  FileSpec accented = classifyFileSpec(".\xC3\xA9");
  EXPECT_TRUE(specMatches(accented, "x.\xC3\xA9", nullptr));
  EXPECT_FALSE(specMatches(accented, "X.\xC3\x89", nullptr));
}

TEST(FileSpec, TypeCodesNeedFinderInformationAndMatchExactly) {
  FileSpec text = classifyFileSpec("TEXTual");
  uint32_t type = 0x54455854;
  EXPECT_TRUE(specMatches(text, "anything", &type));
  EXPECT_FALSE(specMatches(text, "anything", nullptr));
  uint32_t lower = 0x74657874;
  EXPECT_FALSE(specMatches(text, "anything", &lower));
}

TEST(FileSpec, HighBytesAfterTheFirstSpreadOverTheBytesAbove) {
  EXPECT_EQ(classifyFileSpec("\xB5" "doc").code, 0xB5646F63u);  // the first byte stays as it is
  EXPECT_EQ(classifyFileSpec("a\x80" "bc").code, 0xFF806263u);
  EXPECT_EQ(classifyListType("ab\xE9" "d").code, 0xFFFFE964u);
}

TEST(FileSpec, ListLanguageHasItsOwnRules) {
  for (const char* all : {"*.*", "*.*", "", "*", "x", "ab", "abc", "*.*"})
    EXPECT_EQ(classifyListType(all).mode, Mode::All) << all;
  EXPECT_EQ(classifyListType("*.*").mode, Mode::All);
  FileSpec txt = classifyListType("*.TXT");
  ASSERT_EQ(txt.mode, Mode::Extension);
  EXPECT_TRUE(specMatches(txt, "b.txt", nullptr));
  EXPECT_FALSE(specMatches(txt, ".txt", nullptr));  // strictly longer than ".txt"
  FileSpec star = classifyListType("*.");
  EXPECT_EQ(star.mode, Mode::Extension);
  EXPECT_TRUE(specMatches(star, "name.", nullptr));
  // ".txt" is no extension here: four characters make a type code.
  EXPECT_EQ(classifyListType(".txt").mode, Mode::TypeCode);
  EXPECT_EQ(classifyListType("TEXT").code, 0x54455854u);
}

}  // namespace
}  // namespace tessel::files
