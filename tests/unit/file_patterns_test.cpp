// The two file-spec languages: how a spec is classified and what a classification accepts.
#include <gtest/gtest.h>

#include "files/file_patterns.h"

namespace tessel::files {
namespace {

using Mode = FileSpec::Mode;

// (Which FileSpecs list everything, an extension compared in any ASCII case, the type code that
// "*.txt" is, and type codes needing Finder information are FileListings' rows on real files;
// file_pattern_fuzz checks the classification, the spread of high bytes and the length rules
// for any FileSpec and name.)
TEST(FileSpec, CornersOfBothLanguages) {
  EXPECT_EQ(classifyFileSpec(".").mode, Mode::Extension);
  EXPECT_EQ(classifyFileSpec(".longer-than-four").mode, Mode::Extension);
  EXPECT_EQ(classifyFileSpec("*.txt").code, 0x2A2E7478u);
  // Bytes beyond ASCII are compared as they are.
  FileSpec accented = classifyFileSpec(".\xC3\xA9");
  EXPECT_TRUE(specMatches(accented, "x.\xC3\xA9", nullptr));
  EXPECT_FALSE(specMatches(accented, "X.\xC3\x89", nullptr));
  uint32_t lower = 0x74657874;  // "text": type codes match exactly
  EXPECT_FALSE(specMatches(classifyFileSpec("TEXTual"), "anything", &lower));
  // The list language: "*." is the empty extension; ".txt" is no extension but a type code.
  FileSpec star = classifyListType("*.");
  EXPECT_EQ(star.mode, Mode::Extension);
  EXPECT_TRUE(specMatches(star, "name.", nullptr));
  EXPECT_EQ(classifyListType(".txt").mode, Mode::TypeCode);
  EXPECT_EQ(classifyListType("TEXT").code, 0x54455854u);
}

}  // namespace
}  // namespace tessel::files
