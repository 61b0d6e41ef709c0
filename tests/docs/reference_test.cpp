// The reference reader: what it accepts, what it rejects (and where it says the fault is), and
// what it makes of the method table.
#include <gtest/gtest.h>

#include <string>

#include "docs/tools/reference.h"

using namespace tessel::reference;

namespace {

const char* kTable =
    "new object me\n\n"
    "-- Information Functions\n"
    "* tsDiskList -- returns list of mounted Disks\n"
    "* tsReadIni string Section, string Keyname, string Default, string IniFile -- reads ini file\n\n"
    "-- File Functions\n"
    "* tsFileExists string Filename -- returns 1 if Filename exists\n";

const std::string kGood =
    "# File Functions\n"
    "\n"
    "## tsFileExists\n"
    "\n"
    "`* tsFileExists string Filename -- returns 1 if Filename exists`\n"
    "\n"
    "Answers whether a file exists.\n"
    "\n"
    "### Arguments\n"
    "\n"
    "- `Filename`: the file;\n"
    "  a second line.\n"
    "  - \"@\": the movie's folder.\n"
    "\n"
    "### Result\n"
    "\n"
    "- `1`: it exists.\n"
    "- `0`: it does not.\n"
    "\n"
    "### Example\n"
    "\n"
    "```lingo\n"
    "put tsFileExists(\"@:notes.txt\")\n"
    "-- 1\n"
    "```\n"
    "\n"
    "### Example\n"
    "\n"
    "A second one.\n"
    "\n"
    "<!-- needs: desktop; keys: Tab Return -->\n"
    "```lingo\n"
    "put tsFileExists(\"@:photos\")\n"
    "-- 0\n"
    "```\n";

std::string replaced(std::string s, const std::string& from, const std::string& to) {
  size_t at = s.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) s.replace(at, from.size(), to);
  return s;
}

std::string parseError(const std::string& text) {
  MethodTable table = parseMethodTable(kTable, "methods.txt");
  try {
    parseGroupFile(text, "files.md", table);
  } catch (const Error& e) {
    return e.what();
  }
  return "";
}

}  // namespace

// (The real method table's reading, whole names and signatures are doc.complete's and
// doc.help_command's; the help page's anchors doc.complete's and its sections doc.help_page's.)
TEST(Reference, ReadsAnEntry) {
  MethodTable table = parseMethodTable(kTable, "methods.txt");
  auto entries = parseGroupFile(kGood, "files.md", table);
  ASSERT_EQ(entries.size(), 1u);
  const Entry& e = entries[0];
  EXPECT_EQ(e.line, 3);
  EXPECT_EQ(e.argNames, std::vector<std::string>{"Filename"});
  ASSERT_EQ(e.arguments[0].items.size(), 1u);
  EXPECT_EQ(e.arguments[0].items[0].text, "`Filename`: the file; a second line.");
  EXPECT_EQ(e.arguments[0].items[0].children.at(0).text, "\"@\": the movie's folder.");
  ASSERT_EQ(e.examples.size(), 2u);
  EXPECT_EQ(e.examples[0].code, "put tsFileExists(\"@:notes.txt\")\n-- 1\n");
  EXPECT_EQ(e.examples[0].expected, std::vector<std::string>{"-- 1"});
  EXPECT_FALSE(e.examples[0].desktop);
  EXPECT_TRUE(e.examples[1].desktop);
  EXPECT_EQ(e.examples[1].keys, (std::vector<std::string>{"Tab", "Return"}));
  EXPECT_EQ(e.examples[1].line, 32);

  // Two blocks in one section are two examples; a block that prints nothing expects nothing.
  std::string two = replaced(kGood, "-- 0\n```\n", "-- 0\n```\n\n```lingo\ntsReturnUnixNames(1)\n```\n\nAfter.\n");
  two = replaced(two, "### Example\n\nA second", "### Examples\n\nA second");
  auto more = parseGroupFile(two, "files.md", table);
  ASSERT_EQ(more[0].examples.size(), 3u);
  EXPECT_TRUE(more[0].examples[2].expected.empty());
  EXPECT_FALSE(more[0].examples[2].desktop);
  EXPECT_EQ(more[0].examples[2].after.at(0).text, "After.");

  Reference ref{entries};
  // (The heading with the arguments: doc.help_command's, on the real reference.)
  std::string text = renderText(*table.find("tsFileExists"), &e);
  EXPECT_NE(text.find("- Filename: the file; a second line."), std::string::npos) << text;
  EXPECT_NE(text.find("    -- 1"), std::string::npos) << text;
  // Incomplete: two methods have no entry.
  EXPECT_EQ(completenessProblems(table, ref).size(), 3u);
}

TEST(Reference, RejectsMalformedEntriesWithTheirLine) {
  struct Case {
    std::string text;
    std::string where;
    std::string says;
  };
  std::vector<Case> cases = {
      {replaced(kGood, "if Filename exists`", "if Filename is there`"), "files.md:5:", "differs from xtra/methods.txt"},
      {replaced(kGood, "# File Functions", "# Files"), "files.md:1:", "no group of the method table"},
      {replaced(kGood, "## tsFileExists", "## tsFileExist"), "files.md:3:", "not a method"},
      {replaced(kGood, "# File Functions\n", "# Information Functions\n"), "files.md:3:", "belongs to \"File Functions\""},
      {replaced(kGood, "- `Filename`:", "- `FileName`:"), "files.md:9:", "arguments in order: Filename"},
      {replaced(kGood, "### Result", "### Results"), "files.md:15:", "unknown section"},
      {replaced(kGood, "A second one.\n\n<!-- needs: desktop; keys: Tab Return -->\n",
                "<!-- needs: desktop; keys: Tab Return -->\n\nA second one.\n"),
       "files.md:29:", "right before"},
      {replaced(kGood, "```lingo\nput tsFileExists(\"@:notes", "```\nput tsFileExists(\"@:notes"), "files.md:22:", "say the language"},
      {replaced(kGood, "<!-- needs: desktop; keys:", "<!-- needs: network; keys:"), "files.md:31:", "only need"},
      {replaced(kGood, "-- 0\n```\n", "-- 0\n"), "files.md:32:", "never closed"},
      {kGood.substr(0, kGood.find("### Example")), "files.md:3:", "has no example"},
      {replaced(kGood, "### Arguments", "### Result\n\n- 1.\n\n### Arguments"), "files.md:9:", "comes before Result"},
      {kGood + "\n## tsFileExists\n", "files.md:37:", "documented twice"},
  };
  for (const auto& c : cases) {
    std::string error = parseError(c.text);
    EXPECT_EQ(error.rfind(c.where, 0), 0u) << error << "\n(expected " << c.where << " " << c.says << ")";
    EXPECT_NE(error.find(c.says), std::string::npos) << error;
  }
  MethodTable table = parseMethodTable(kTable, "methods.txt");
  // Entries follow the table's order.
  std::string info =
      "# Information Functions\n\n## tsReadIni\n\n`* tsReadIni string Section, string Keyname, string Default, "
      "string IniFile -- reads ini file`\n\nReads.\n\n### Arguments\n\n- `Section`: a.\n- `Keyname`: b.\n"
      "- `Default`: c.\n- `IniFile`: d.\n\n### Result\n\nText.\n\n### Example\n\n```lingo\nput 1\n-- 1\n```\n"
      "\n## tsDiskList\n\n`* tsDiskList -- returns list of mounted Disks`\n\nLists.\n\n### Arguments\n\nNone.\n\n"
      "### Result\n\nA list.\n\n### Example\n\n```lingo\nput 1\n-- 1\n```\n";
  try {
    parseGroupFile(info, "information.md", table);
    ADD_FAILURE() << "out of order accepted";
  } catch (const Error& e) {
    EXPECT_STREQ(e.what(), "information.md:27: tsDiskList comes before tsReadIni in the method table");
  }
}

// (Lines the wildcard matches are in the entries' own examples, which doc.* runs.)
TEST(Reference, ExampleLinesMatchWithTheWildcard) {
  EXPECT_FALSE(matchesLine("-- 1", "-- 10"));
  EXPECT_TRUE(matchesLine("-- \xE2\x80\xA6", "-- "));
  EXPECT_FALSE(matchesLine("-- [\xE2\x80\xA6, \xE2\x80\xA6]", "-- [\"a\"]"));
  EXPECT_FALSE(matchesLine("-- a\xE2\x80\xA6" "a", "-- a"));
}
