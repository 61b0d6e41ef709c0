#include "docs/tools/reference.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "support/text.h"

namespace tessel::reference {
namespace {

std::string trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r");
  if (b == std::string::npos) return "";
  size_t e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

bool startsWith(const std::string& s, const std::string& prefix) {
  return s.compare(0, prefix.size(), prefix) == 0;
}

std::vector<Line> splitLines(const std::string& text) {
  std::vector<Line> lines;
  std::string cur;
  int n = 1;
  for (char c : text) {
    if (c == '\n') {
      if (!cur.empty() && cur.back() == '\r') cur.pop_back();
      lines.push_back({n++, cur});
      cur.clear();
    } else {
      cur += c;
    }
  }
  if (!cur.empty()) lines.push_back({n, cur});
  return lines;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Error(path, 0, "cannot be read");
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

size_t indentOf(const std::string& s) {
  size_t i = 0;
  while (i < s.size() && s[i] == ' ') ++i;
  return i;
}

bool isBlank(const std::string& s) { return trim(s).empty(); }

bool isListLine(const std::string& s) {
  size_t i = indentOf(s);
  return s.compare(i, 2, "- ") == 0;
}

bool isFence(const std::string& s) { return startsWith(trim(s), "```"); }

bool isTableRow(const std::string& s) { return startsWith(trim(s), "|"); }

std::vector<std::string> tableCells(const std::string& row) {
  std::string r = trim(row);
  if (!r.empty() && r.front() == '|') r.erase(0, 1);
  if (!r.empty() && r.back() == '|') r.pop_back();
  std::vector<std::string> cells;
  std::string cur;
  bool inCode = false;
  for (char c : r) {
    if (c == '`') inCode = !inCode;
    if (c == '|' && !inCode) {
      cells.push_back(trim(cur));
      cur.clear();
    } else {
      cur += c;
    }
  }
  cells.push_back(trim(cur));
  return cells;
}

bool isTableSeparator(const std::string& row) {
  std::string r = trim(row);
  return r.size() > 1 && r.find_first_not_of("|:- ") == std::string::npos;
}

}  // namespace

// ---- The method table

const TableMethod* MethodTable::find(const std::string& name) const {
  for (const auto& g : groups)
    for (const auto& m : g.methods)
      if (m.name == name) return &m;
  return nullptr;
}

size_t MethodTable::count() const {
  size_t n = 0;
  for (const auto& g : groups) n += g.methods.size();
  return n;
}

MethodTable parseMethodTable(const std::string& text, const std::string& file) {
  MethodTable table;
  for (const Line& l : splitLines(text)) {
    const std::string& s = l.text;
    if (startsWith(s, "-- ")) {
      table.groups.push_back({trim(s.substr(3)), {}});
    } else if (startsWith(s, "* ")) {
      if (table.groups.empty()) throw Error(file, l.number, "a method before the first group");
      TableMethod m;
      m.line = s;
      m.group = table.groups.back().name;
      size_t nameEnd = s.find(' ', 2);
      m.name = s.substr(2, nameEnd == std::string::npos ? std::string::npos : nameEnd - 2);
      std::string rest = nameEnd == std::string::npos ? "" : s.substr(nameEnd);
      size_t dash = rest.find("-- ");
      if (dash == std::string::npos) throw Error(file, l.number, m.name + " has no \" -- \" description");
      m.summary = trim(rest.substr(dash + 3));
      std::string args = trim(rest.substr(0, dash));
      std::stringstream ss(args);
      std::string arg;
      while (!args.empty() && std::getline(ss, arg, ',')) {
        std::stringstream words(trim(arg));
        std::string w, first, last;
        while (words >> w) {
          if (first.empty()) first = w;
          last = w;
        }
        if (first.empty() || first == last)
          throw Error(file, l.number, m.name + ": an argument without a type and a name");
        m.argTypes.push_back(first);
        m.args.push_back(last);
      }
      if (table.find(m.name)) throw Error(file, l.number, m.name + " is listed twice");
      table.groups.back().methods.push_back(std::move(m));
    }
  }
  if (table.count() == 0) throw Error(file, 1, "no methods");
  return table;
}

MethodTable readMethodTable(const std::string& path) { return parseMethodTable(readFile(path), path); }

// ---- Markdown blocks

namespace {

void parseList(const std::vector<Line>& lines, size_t& i, std::vector<Block::Item>& out) {
  // A stack of the open item lists by indentation.
  std::vector<std::pair<size_t, std::vector<Block::Item>*>> stack{{indentOf(lines[i].text), &out}};
  Block::Item* last = nullptr;
  for (; i < lines.size(); ++i) {
    const std::string& s = lines[i].text;
    if (isBlank(s)) {
      // A list goes on after a blank line only with another item or an indented line.
      if (i + 1 < lines.size() && !isBlank(lines[i + 1].text) &&
          (isListLine(lines[i + 1].text) || indentOf(lines[i + 1].text) > 0))
        continue;
      break;
    }
    size_t ind = indentOf(s);
    if (isListLine(s)) {
      while (stack.size() > 1 && ind < stack.back().first) stack.pop_back();
      if (ind > stack.back().first && last) {
        stack.push_back({ind, &last->children});
      }
      stack.back().second->push_back({trim(s.substr(ind + 2)), {}});
      last = &stack.back().second->back();
    } else if (ind > 0 && last) {
      last->text += " " + trim(s);
    } else {
      break;
    }
  }
}

}  // namespace

std::vector<Block> parseBlocks(const std::vector<Line>& lines, const std::string& file) {
  std::vector<Block> blocks;
  size_t i = 0;
  while (i < lines.size()) {
    const std::string& s = lines[i].text;
    if (isBlank(s) || startsWith(trim(s), "<!--")) {
      ++i;
    } else if (isFence(s)) {
      Block b;
      b.kind = Block::Code;
      b.language = trim(trim(s).substr(3));
      int open = lines[i].number;
      ++i;
      while (i < lines.size() && !isFence(lines[i].text)) b.text += lines[i++].text + "\n";
      if (i == lines.size()) throw Error(file, open, "a code block that is never closed (```)");
      ++i;
      blocks.push_back(std::move(b));
    } else if (isTableRow(s)) {
      Block b;
      b.kind = Block::Table;
      for (; i < lines.size() && isTableRow(lines[i].text); ++i)
        if (!isTableSeparator(lines[i].text)) b.rows.push_back(tableCells(lines[i].text));
      blocks.push_back(std::move(b));
    } else if (isListLine(s)) {
      Block b;
      b.kind = Block::List;
      parseList(lines, i, b.items);
      blocks.push_back(std::move(b));
    } else {
      Block b;
      for (; i < lines.size(); ++i) {
        const std::string& t = lines[i].text;
        if (isBlank(t) || isFence(t) || isListLine(t) || isTableRow(t) || startsWith(trim(t), "<!--"))
          break;
        if (!b.text.empty()) b.text += " ";
        b.text += trim(t);
      }
      blocks.push_back(std::move(b));
    }
  }
  return blocks;
}

// ---- The entries

const Entry* Reference::find(const std::string& name) const {
  for (const auto& e : entries)
    if (e.name == name) return &e;
  return nullptr;
}

namespace {

struct Section {
  std::string title;
  int line;
  std::vector<Line> body;
};

// <!-- needs: desktop --> or <!-- needs: desktop; keys: Tab Return -->
void readNeeds(const std::string& directive, int line, const std::string& file, Example& ex) {
  const std::string prefix = "<!-- needs:";
  if (!startsWith(directive, prefix) || directive.size() < prefix.size() + 3 ||
      directive.substr(directive.size() - 3) != "-->")
    throw Error(file, line, "write the line as <!-- needs: desktop --> or <!-- needs: desktop; keys: Return -->");
  std::string inner = trim(directive.substr(prefix.size(), directive.size() - prefix.size() - 3));
  size_t semi = inner.find(';');
  if (semi != std::string::npos) {
    std::string keys = trim(inner.substr(semi + 1));
    inner = trim(inner.substr(0, semi));
    if (!startsWith(keys, "keys:")) throw Error(file, line, "after \"desktop;\" comes \"keys: KEY KEY...\"");
    std::stringstream ks(keys.substr(5));
    for (std::string k; ks >> k;) ex.keys.push_back(k);
    if (ex.keys.empty()) throw Error(file, line, "\"keys:\" names no key");
  }
  if (inner != "desktop") throw Error(file, line, "the only need is \"desktop\", not \"" + inner + "\"");
  ex.desktop = true;
}

// An Example section: each ```lingo block in it is one example, with the text before it and the
// needs line right before it; text after the last block goes with that one.
std::vector<Example> parseExamples(const Section& sec, const std::string& file, const std::string& method) {
  std::vector<Example> examples;
  std::vector<Line> prose;
  std::string directive;
  int directiveLine = 0;
  for (size_t i = 0; i < sec.body.size(); ++i) {
    const std::string t = trim(sec.body[i].text);
    if (startsWith(t, "<!--") && t.find("needs") != std::string::npos) {
      directive = t;
      directiveLine = sec.body[i].number;
      continue;
    }
    if (!isFence(t)) {
      if (!directive.empty() && !isBlank(t))
        throw Error(file, directiveLine, "the needs line must come right before the ```lingo block");
      prose.push_back(sec.body[i]);
      continue;
    }
    std::string lang = trim(t.substr(3));
    int open = sec.body[i].number;
    size_t close = i + 1;
    while (close < sec.body.size() && !isFence(sec.body[close].text)) ++close;
    if (close == sec.body.size()) throw Error(file, open, method + ": the ```" + lang + " block is never closed");
    std::string lower = support::asciiLowered(lang);
    if (lower.empty()) throw Error(file, open, method + ": an example is a ```lingo block (say the language)");
    if (lower != "lingo") {
      // Another kind of block (a shell line, a file's text) is part of the prose.
      if (!directive.empty()) throw Error(file, directiveLine, "a needs line goes before a ```lingo block");
      for (size_t k = i; k <= close; ++k) prose.push_back(sec.body[k]);
      i = close;
      continue;
    }
    Example ex;
    ex.line = open;
    if (!directive.empty()) {
      if (directiveLine + 1 != open)
        throw Error(file, directiveLine, "the needs line must come right before the ```lingo block");
      readNeeds(directive, directiveLine, file, ex);
      directive.clear();
    }
    for (size_t k = i + 1; k < close; ++k) {
      const std::string& c = sec.body[k].text;
      ex.code += c + "\n";
      if (startsWith(c, "-- ")) {
        std::string e = c;
        while (!e.empty() && (e.back() == ' ' || e.back() == '\r')) e.pop_back();
        ex.expected.push_back(e);
      }
    }
    ex.prose = parseBlocks(prose, file);
    prose.clear();
    examples.push_back(std::move(ex));
    i = close;
  }
  if (!directive.empty()) throw Error(file, directiveLine, "a needs line goes right before a ```lingo block");
  if (examples.empty()) throw Error(file, sec.line, method + ": the Example section has no ```lingo block");
  examples.back().after = parseBlocks(prose, file);
  return examples;
}

// One method's entry, read top to bottom as it is written: the method-table line, the
// description, then the sections in their fixed order, each error naming the line it is about.
// Splitting it would separate each check from the place in the entry it checks.
Entry parseEntry(const std::string& name, int headingLine, const std::vector<Line>& body,
                 const std::string& file, const TableMethod& tm) {
  Entry e;
  e.file = file;
  e.line = headingLine;
  e.name = name;
  e.group = tm.group;
  size_t i = 0;
  while (i < body.size() && isBlank(body[i].text)) ++i;
  if (i == body.size()) throw Error(file, headingLine, name + ": the entry is empty");
  std::string first = body[i].text;
  if (first.size() < 2 || first.front() != '`' || first.back() != '`')
    throw Error(file, body[i].number,
                name + ": the first line is the method table's line in backticks: `" + tm.line + "`");
  e.tableLine = first.substr(1, first.size() - 2);
  if (e.tableLine != tm.line)
    throw Error(file, body[i].number,
                name + ": the table line differs from xtra/methods.txt, which says\n  `" + tm.line + "`");
  ++i;
  std::vector<Line> description;
  std::vector<Section> sections;
  for (; i < body.size(); ++i) {
    const std::string& s = body[i].text;
    if (startsWith(s, "### ")) {
      sections.push_back({trim(s.substr(4)), body[i].number, {}});
    } else if (startsWith(s, "#### ") || (startsWith(s, "#") && s.find_first_not_of('#') != std::string::npos &&
                                          s[s.find_first_not_of('#')] == ' ' && !startsWith(s, "### "))) {
      throw Error(file, body[i].number, name + ": only \"### \" sections belong in an entry");
    } else if (sections.empty()) {
      description.push_back(body[i]);
    } else {
      sections.back().body.push_back(body[i]);
    }
  }
  e.description = parseBlocks(description, file);
  if (e.description.empty())
    throw Error(file, headingLine, name + ": say what the method does after the table line");
  // The sections, in this order: Arguments, Result, On Linux (optional), Example (one or more).
  const std::vector<std::string> order = {"Arguments", "Result", "On Linux", "Example"};
  int at = -1;
  bool args = false, result = false;
  for (const Section& sec : sections) {
    std::string title = sec.title;
    if (title == "Examples" || startsWith(title, "Example ") || startsWith(title, "Example:")) title = "Example";
    auto it = std::find(order.begin(), order.end(), title);
    if (it == order.end())
      throw Error(file, sec.line, name + ": unknown section \"" + sec.title +
                                      "\" (Arguments, Result, On Linux, Example)");
    int idx = static_cast<int>(it - order.begin());
    if (idx < at || (idx == at && title != "Example"))
      throw Error(file, sec.line, name + ": sections come in the order Arguments, Result, On Linux, Example");
    if (idx > 1 && !result)
      throw Error(file, sec.line, name + ": the " + title + " section comes after Arguments and Result");
    at = idx;
    if (title == "Arguments") {
      args = true;
      e.arguments = parseBlocks(sec.body, file);
      if (tm.args.empty()) {
        if (e.arguments.size() != 1 || e.arguments[0].kind != Block::Paragraph ||
            (e.arguments[0].text != "None." && e.arguments[0].text != "None"))
          throw Error(file, sec.line, name + " takes no arguments: the section says \"None.\"");
        continue;
      }
      if (e.arguments.empty() || e.arguments[0].kind != Block::List)
        throw Error(file, sec.line, name + ": the Arguments section is a list, one \"- `Name`: ...\" item each");
      for (const auto& item : e.arguments[0].items) {
        if (item.text.size() < 3 || item.text[0] != '`' || item.text.find("`:") == std::string::npos)
          throw Error(file, sec.line, name + ": an argument item starts with \"`Name`:\", not \"" +
                                          item.text.substr(0, 40) + "\"");
        e.argNames.push_back(item.text.substr(1, item.text.find("`:") - 1));
      }
      if (e.argNames != tm.args) {
        std::string want;
        for (const auto& a : tm.args) want += (want.empty() ? "" : ", ") + a;
        throw Error(file, sec.line, name + ": the Arguments list names the table's arguments in order: " + want);
      }
    } else if (title == "Result") {
      if (!args) throw Error(file, sec.line, name + ": the Arguments section comes before Result");
      result = true;
      e.result = parseBlocks(sec.body, file);
      if (e.result.empty()) throw Error(file, sec.line, name + ": the Result section is empty");
    } else if (title == "On Linux") {
      e.onLinux = parseBlocks(sec.body, file);
      if (e.onLinux.empty()) throw Error(file, sec.line, name + ": an empty On Linux section (leave it out)");
    } else {
      for (auto& ex : parseExamples(sec, file, name)) e.examples.push_back(std::move(ex));
    }
  }
  if (!args) throw Error(file, headingLine, name + " has no Arguments section");
  if (!result) throw Error(file, headingLine, name + " has no Result section");
  if (e.examples.empty()) throw Error(file, headingLine, name + " has no example (### Example)");
  return e;
}

size_t tableIndex(const MethodTable& table, const std::string& name) {
  size_t n = 0;
  for (const auto& g : table.groups)
    for (const auto& m : g.methods) {
      if (m.name == name) return n;
      ++n;
    }
  return n;
}

}  // namespace

std::vector<Entry> parseGroupFile(const std::string& text, const std::string& file,
                                  const MethodTable& table) {
  std::vector<Line> lines = splitLines(text);
  size_t i = 0;
  while (i < lines.size() && isBlank(lines[i].text)) ++i;
  if (i == lines.size() || !startsWith(lines[i].text, "# "))
    throw Error(file, i < lines.size() ? lines[i].number : 1, "a group file begins with \"# Group name\"");
  std::string group = trim(lines[i].text.substr(2));
  const TableGroup* tg = nullptr;
  std::string groups;
  for (const auto& g : table.groups) {
    if (g.name == group) tg = &g;
    groups += (groups.empty() ? "\"" : ", \"") + g.name + "\"";
  }
  if (!tg) throw Error(file, lines[i].number, "\"" + group + "\" is no group of the method table (" + groups + ")");
  std::vector<Entry> entries;
  std::string name;
  int headingLine = 0;
  std::vector<Line> body;
  size_t lastIndex = 0;
  bool inFence = false;
  auto finish = [&] {
    if (name.empty()) return;
    const TableMethod* tm = table.find(name);
    entries.push_back(parseEntry(name, headingLine, body, file, *tm));
  };
  for (++i; i < lines.size(); ++i) {
    const std::string& s = lines[i].text;
    if (isFence(s)) inFence = !inFence;
    if (!inFence && startsWith(s, "# "))
      throw Error(file, lines[i].number, "one group per file (a second \"# \" heading)");
    if (inFence || !startsWith(s, "## ")) {
      if (!name.empty()) body.push_back(lines[i]);
      continue;
    }
    finish();
    name = trim(s.substr(3));
    headingLine = lines[i].number;
    body.clear();
    const TableMethod* tm = table.find(name);
    if (!tm) throw Error(file, headingLine, "\"" + name + "\" is not a method of xtra/methods.txt");
    if (tm->group != group)
      throw Error(file, headingLine, name + " belongs to \"" + tm->group + "\", not \"" + group + "\"");
    for (const auto& e : entries)
      if (e.name == name) throw Error(file, headingLine, name + " is documented twice (first at line " + std::to_string(e.line) + ")");
    size_t index = tableIndex(table, name);
    if (!entries.empty() && index < lastIndex)
      throw Error(file, headingLine, name + " comes before " + entries.back().name + " in the method table");
    lastIndex = index;
  }
  finish();
  return entries;
}

Reference readReference(const std::string& folder, const MethodTable& table) {
  namespace fs = std::filesystem;
  std::vector<std::string> files;
  std::error_code ec;
  for (const auto& de : fs::directory_iterator(folder, ec)) {
    std::string n = de.path().filename().string();
    if (de.path().extension() == ".md" && n != "README.md") files.push_back(de.path().string());
  }
  if (ec) throw Error(folder, 0, "cannot be listed: " + ec.message());
  std::sort(files.begin(), files.end());
  Reference ref;
  std::map<std::string, std::string> groupFile;
  for (const auto& f : files) {
    auto entries = parseGroupFile(readFile(f), f, table);
    for (auto& e : entries) {
      if (const Entry* other = ref.find(e.name))
        throw Error(f, e.line, e.name + " is documented twice (also " + other->file + ":" + std::to_string(other->line) + ")");
      ref.entries.push_back(std::move(e));
    }
  }
  std::stable_sort(ref.entries.begin(), ref.entries.end(), [&](const Entry& a, const Entry& b) {
    return tableIndex(table, a.name) < tableIndex(table, b.name);
  });
  return ref;
}

std::vector<std::string> completenessProblems(const MethodTable& table, const Reference& ref) {
  std::vector<std::string> problems;
  for (const auto& g : table.groups)
    for (const auto& m : g.methods) {
      const Entry* e = ref.find(m.name);
      if (!e) {
        problems.push_back(m.name + " has no entry in docs/methods/");
        continue;
      }
      if (e->tableLine != m.line) problems.push_back(m.name + ": the table line differs");
      if (e->argNames != m.args) problems.push_back(m.name + ": the argument names differ");
      if (e->examples.empty()) problems.push_back(m.name + " has no example");
    }
  if (ref.entries.size() != table.count())
    problems.push_back(std::to_string(ref.entries.size()) + " entries for " + std::to_string(table.count()) +
                       " methods");
  return problems;
}

std::string signature(const TableMethod& m) {
  std::string s = m.name + "(";
  for (size_t i = 0; i < m.args.size(); ++i) s += (i ? ", " : "") + m.args[i];
  return s + ")";
}

bool matchesLine(const std::string& expected, const std::string& actual) {
  static const std::string ell = "\xE2\x80\xA6";  // …
  std::vector<std::string> parts;
  size_t from = 0;
  for (size_t at; (at = expected.find(ell, from)) != std::string::npos; from = at + ell.size())
    parts.push_back(expected.substr(from, at - from));
  parts.push_back(expected.substr(from));
  if (parts.size() == 1) return expected == actual;
  if (!startsWith(actual, parts.front())) return false;
  size_t pos = parts.front().size();
  for (size_t k = 1; k + 1 < parts.size(); ++k) {
    size_t found = actual.find(parts[k], pos);
    if (found == std::string::npos) return false;
    pos = found + parts[k].size();
  }
  const std::string& last = parts.back();
  return actual.size() >= pos + last.size() && actual.compare(actual.size() - last.size(), last.size(), last) == 0;
}

}  // namespace tessel::reference
