// The method reference: reads xtra/methods.txt and the entries in docs/methods/*.md (layout in
// docs/methods/README.md), checks them against each other, and renders them as HTML, plain text
// and a man page. Every face of the reference (Tessel Help.html, the message window's `help`, the
// man page, the doc tests) goes through this one reader.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace tessel::reference {

// A malformed table or entry: what() is "FILE:LINE: message".
class Error : public std::runtime_error {
 public:
  Error(const std::string& file, int line, const std::string& message)
      : std::runtime_error(file + ":" + std::to_string(line) + ": " + message) {}
};

// ---- The method table (xtra/methods.txt)

struct TableMethod {
  std::string name;
  std::string line;                   // the table line, byte for byte
  std::vector<std::string> argTypes;  // "string", "integer"...
  std::vector<std::string> args;      // the argument names, in order
  std::string summary;                // the text after " -- "
  std::string group;
};

struct TableGroup {
  std::string name;  // "Information Functions"
  std::vector<TableMethod> methods;
};

struct MethodTable {
  std::vector<TableGroup> groups;
  const TableMethod* find(const std::string& name) const;
  size_t count() const;
};

MethodTable parseMethodTable(const std::string& text, const std::string& file);
MethodTable readMethodTable(const std::string& path);

// ---- Markdown, the subset the entries use

struct Block {
  enum Kind { Paragraph, List, Code, Table } kind = Paragraph;
  std::string text;                        // Paragraph: the joined lines; Code: the code
  std::string language;                    // Code
  struct Item {
    std::string text;
    std::vector<Item> children;
  };
  std::vector<Item> items;                 // List
  std::vector<std::vector<std::string>> rows;  // Table: header first, the separator row left out
};

struct Line {
  int number = 0;
  std::string text;
};

// Parses lines of an entry's body into blocks; throws Error for an unclosed code fence.
std::vector<Block> parseBlocks(const std::vector<Line>& lines, const std::string& file);

// ---- The entries

struct Example {
  int line = 0;                       // the line of the opening fence
  std::vector<Block> prose;           // text before the block
  std::vector<Block> after;           // text after the last block of a section
  std::string code;                   // the block, as it runs
  std::vector<std::string> expected;  // its "-- " lines, in order (none: it prints nothing)
  bool desktop = false;
  std::vector<std::string> keys;      // xdotool key names pressed in the dialog
};

struct Entry {
  std::string file;
  int line = 0;                     // the "## name" line
  std::string name;
  std::string tableLine;
  std::string group;
  std::vector<Block> description;
  std::vector<std::string> argNames;  // from the Arguments list ("None." gives none)
  std::vector<Block> arguments;
  std::vector<Block> result;
  std::vector<Block> onLinux;
  std::vector<Example> examples;
};

struct Reference {
  std::vector<Entry> entries;  // in the table's order
  const Entry* find(const std::string& name) const;
};

// Parses one group file and checks every entry in it against the table: the group heading, each
// entry's table line (byte for byte), its order, its sections, its argument names, its example.
std::vector<Entry> parseGroupFile(const std::string& text, const std::string& file,
                                  const MethodTable& table);

// Reads every "*.md" of `folder` except README.md.
Reference readReference(const std::string& folder, const MethodTable& table);

// The problems that make the reference incomplete: a table method without an entry. Empty when
// every method has one.
std::vector<std::string> completenessProblems(const MethodTable& table, const Reference& ref);

// ---- Faces

std::string renderHtml(const MethodTable& table, const Reference& ref);
// One entry (or, without one, its table line) as text for the message window, lines of at most
// `width` columns.
std::string renderText(const TableMethod& method, const Entry* entry, int width = 78);
// The man page of `tessel`; `usage` is the text `tessel --help` prints.
std::string renderManPage(const MethodTable& table, const Reference& ref, const std::string& usage,
                          const std::string& version);
// The plain text of inline Markdown (backticks and emphasis dropped).
std::string plainInline(const std::string& text);

// "tsCopyFile(SourceFile, DestFile, Overwrite)".
std::string signature(const TableMethod& method);

// True when `actual` matches `expected`, in which each "…" stands for any text of the line.
bool matchesLine(const std::string& expected, const std::string& actual);

}  // namespace tessel::reference
