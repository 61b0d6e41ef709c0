#include "host/msgtable.h"

#include <array>

#include "support/text.h"

namespace tessel::host {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

std::string_view trim(std::string_view s) {
  while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
  return s;
}

using support::asciiLowered;

// Splits off the first blank-separated word.
std::string_view firstWord(std::string_view s, std::string_view* rest) {
  s = trim(s);
  size_t end = 0;
  while (end < s.size() && !isBlank(s[end])) ++end;
  if (rest != nullptr) *rest = trim(s.substr(end));
  return s.substr(0, end);
}

constexpr std::array<std::string_view, 8> kTypes = {"string", "integer", "int",    "float",
                                                     "symbol", "object",  "any",    "*"};

bool knownType(const std::string& t) {
  for (auto k : kTypes) {
    if (t == k) return true;
  }
  return false;
}

}  // namespace

MessageTable parseMessageTable(std::string_view text) {
  MessageTable table;
  bool haveHeader = false;
  size_t lineNo = 0;
  size_t pos = 0;
  while (pos <= text.size()) {
    size_t nl = text.find('\n', pos);
    if (nl == std::string_view::npos) nl = text.size();
    std::string_view line = trim(text.substr(pos, nl - pos));
    pos = nl + 1;
    ++lineNo;
    auto problem = [&](const std::string& what) {
      table.problems.push_back("line " + std::to_string(lineNo) + ": " + what);
    };

    if (line.empty() || line.substr(0, 2) == "--") continue;

    if (!haveHeader) {
      haveHeader = true;
      std::string_view rest;
      std::string_view word = firstWord(line, &rest);
      if (asciiLowered(word) == "xtra") {
        std::string_view name = firstWord(rest, nullptr);
        if (name.substr(0, 2) == "--") name = {};
        if (name.empty()) problem("the \"xtra\" line names no Xtra");
        table.xtraName = std::string(name);
        continue;
      }
      problem("the table does not begin with an \"xtra NAME\" line");
    }

    // Definition: [*|+] name [type argname {, type argname}] [-- comment]
    std::string_view body = line;
    std::string comment;
    if (size_t dash = body.find("--"); dash != std::string_view::npos) {
      comment = std::string(trim(body.substr(dash + 2)));
      body = trim(body.substr(0, dash));
    }
    MethodInfo m;
    m.xtraName = table.xtraName;
    m.comment = std::move(comment);
    if (!body.empty() && (body.front() == '*' || body.front() == '+')) {
      m.scope = body.front();
      body = trim(body.substr(1));
    }
    size_t nameEnd = 0;
    while (nameEnd < body.size() && !isBlank(body[nameEnd]) && body[nameEnd] != ',') ++nameEnd;
    m.name = std::string(body.substr(0, nameEnd));
    if (m.name.empty()) {
      problem("a definition without a name");
      continue;
    }
    std::string_view args = trim(body.substr(nameEnd));
    while (!args.empty()) {
      size_t comma = args.find(',');
      std::string_view piece = trim(args.substr(0, comma));
      args = comma == std::string_view::npos ? std::string_view{} : trim(args.substr(comma + 1));
      if (piece.empty()) {
        problem("an empty argument in \"" + m.name + "\"");
        continue;
      }
      std::string_view rest;
      MethodInfo::Arg arg;
      arg.type = asciiLowered(firstWord(piece, &rest));
      arg.name = std::string(firstWord(rest, &rest));
      if (!rest.empty()) {
        problem("unexpected text \"" + std::string(rest) + "\" in \"" + m.name + "\"");
      }
      if (!knownType(arg.type)) {
        problem("unknown argument type \"" + arg.type + "\" in \"" + m.name + "\"");
      }
      m.args.push_back(std::move(arg));
    }
    m.selector = static_cast<int>(table.methods.size());
    table.methods.push_back(std::move(m));
  }
  if (!haveHeader) table.problems.push_back("the table is empty");
  return table;
}

size_t declaredArgumentCount(const MethodInfo& method) {
  size_t n = method.args.size();
  if (n > 0 && method.args.back().type == "*") --n;
  return n;
}

}  // namespace tessel::host
