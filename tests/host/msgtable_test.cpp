#include "host/msgtable.h"

#include <gtest/gtest.h>


using tessel::host::MessageTable;
using tessel::host::parseMessageTable;

namespace {

TEST(MessageTable, NumbersDefinitionLinesFromNewAndSkipsTitles) {
  MessageTable t = parseMessageTable(
      "xtra Demo -- a demo\n"
      "new object me\n"
      "\n"
      "-- Group one\n"
      "* fnA string Name, integer Count -- does A\n"
      "+ fnB object xt\n"
      "fnC object me, any V, *\n"
      "* fnD\n");
  EXPECT_TRUE(t.problems.empty());
  EXPECT_EQ(t.xtraName, "Demo");
  ASSERT_EQ(t.methods.size(), 5u);
  EXPECT_EQ(t.methods[0].name, "new");
  EXPECT_EQ(t.methods[0].scope, ' ');
  const auto& a = t.methods[1];
  EXPECT_EQ(a.selector, 1);
  EXPECT_EQ(a.scope, '*');
  EXPECT_EQ(a.xtraName, "Demo");
  ASSERT_EQ(a.args.size(), 2u);
  EXPECT_EQ(a.args[0].type, "string");
  EXPECT_EQ(a.args[0].name, "Name");
  EXPECT_EQ(a.args[1].type, "integer");
  EXPECT_EQ(a.comment, "does A");
  EXPECT_EQ(t.methods[2].scope, '+');
  EXPECT_EQ(t.methods[3].args.back().type, "*");
  EXPECT_EQ(tessel::host::declaredArgumentCount(t.methods[3]), 2u);
  EXPECT_EQ(t.methods[4].name, "fnD");
  EXPECT_TRUE(t.methods[4].args.empty());
}

TEST(MessageTable, ToleratesIrregularBlanksCaseAndLineEnds) {
  MessageTable t = parseMessageTable(
      "xtra Odd\r\n"
      "new object me\r\n"
      "* tsRunProgram string Program, string State, integer Wait  -- runs Program\r\n"
      "* tsGetFilename  string Operation,  string Filter, int X   -- gets filename\n"
      "*\ttsTabbed\tString\tText--no blank before the comment\n"
      "*tsTight integer N\n"
      "   -- an indented comment\n"
      "* tsNoTrailingNewline float F");
  EXPECT_TRUE(t.problems.empty()) << t.problems.front();
  ASSERT_EQ(t.methods.size(), 6u);
  const auto& run = t.methods[1];
  EXPECT_EQ(run.args[2].name, "Wait");
  EXPECT_EQ(run.comment, "runs Program");
  const auto& get = t.methods[2];
  EXPECT_EQ(get.name, "tsGetFilename");
  ASSERT_EQ(get.args.size(), 3u);
  EXPECT_EQ(get.args[1].name, "Filter");
  EXPECT_EQ(get.args[2].type, "int");
  EXPECT_EQ(t.methods[3].name, "tsTabbed");
  EXPECT_EQ(t.methods[3].args[0].type, "string");  // "String" read ignoring case
  EXPECT_EQ(t.methods[3].comment, "no blank before the comment");
  EXPECT_EQ(t.methods[4].name, "tsTight");
  EXPECT_EQ(t.methods[5].selector, 5);
  EXPECT_EQ(t.methods[5].args[0].type, "float");
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
