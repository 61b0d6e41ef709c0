#include "host/msgtable.h"

#include <gtest/gtest.h>


using tessel::host::MessageTable;
using tessel::host::parseMessageTable;

namespace {

// (The module's own table, names, types, comments and the blanks it has, is read through the host
// in the boundary tests.)
TEST(MessageTable, NumbersDefinitionLinesFromNewAndSkipsTitles) {
  MessageTable t = parseMessageTable(
      "xtra Demo -- a demo\n"
      "new object me\n"
      "\n"
      "-- Group one\n"
      "+ fnB object xt\n"
      "fnC object me, any V, *\n");
  EXPECT_TRUE(t.problems.empty());
  EXPECT_EQ(t.xtraName, "Demo");
  ASSERT_EQ(t.methods.size(), 3u);
  EXPECT_EQ(t.methods[0].scope, ' ');
  EXPECT_EQ(t.methods[1].selector, 1);
  EXPECT_EQ(t.methods[1].scope, '+');
  EXPECT_EQ(t.methods[2].args.back().type, "*");
  EXPECT_EQ(tessel::host::declaredArgumentCount(t.methods[2]), 2u);
}

TEST(MessageTable, ToleratesIrregularBlanksCaseAndLineEnds) {
  MessageTable t = parseMessageTable(
      "xtra Odd\r\n"
      "new object me\r\n"
      "* tsRunProgram string Program, string State, integer Wait  -- runs Program\r\n"
      "*\ttsTabbed\tString\tText--no blank before the comment\n"
      "*tsTight integer N\n"
      "   -- an indented comment\n"
      "* tsNoTrailingNewline float F");
  EXPECT_TRUE(t.problems.empty()) << t.problems.front();
  ASSERT_EQ(t.methods.size(), 5u);
  EXPECT_EQ(t.methods[1].comment, "runs Program");  // after a CR LF line end
  EXPECT_EQ(t.methods[2].name, "tsTabbed");
  EXPECT_EQ(t.methods[2].args[0].type, "string");  // "String" read ignoring case
  EXPECT_EQ(t.methods[2].comment, "no blank before the comment");
  EXPECT_EQ(t.methods[3].name, "tsTight");
  EXPECT_EQ(t.methods[4].selector, 4);
  EXPECT_EQ(t.methods[4].args[0].type, "float");
}

TEST(MessageTable, ReportsWhatItCannotRead) {
  MessageTable noHeader = parseMessageTable("* fn integer A\n");
  EXPECT_EQ(noHeader.xtraName, "");
  EXPECT_FALSE(noHeader.problems.empty());
  ASSERT_EQ(noHeader.methods.size(), 1u);  // still read
  EXPECT_FALSE(parseMessageTable("").problems.empty());

  MessageTable odd = parseMessageTable(
      "xtra X\n"
      "*  -- a line without a name\n"
      "* fn blob B, , integer C extra\n");
  EXPECT_EQ(odd.problems.size(), 4u);  // nameless line, unknown type, empty argument, extra word
  ASSERT_EQ(odd.methods.size(), 1u);
  EXPECT_EQ(odd.methods[0].selector, 0);  // the nameless line takes no selector
  EXPECT_EQ(odd.methods[0].args.size(), 2u);
}

}  // namespace
