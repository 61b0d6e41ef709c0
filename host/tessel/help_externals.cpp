#include "host/tessel/help_externals.h"

#include <algorithm>
#include <sstream>

#include "docs/tools/reference_text.h"
#include "support/text.h"

namespace tessel::runner {
namespace {

// An id far above the Xtras' method ids.
constexpr int kHelpId = 1 << 30;

using support::asciiLowered;

const reference::HelpMethod* byName(const std::string& name) {
  for (size_t i = 0; i < reference::kHelpMethodCount; ++i)
    if (asciiLowered(reference::kHelpMethods[i].name) == asciiLowered(name))
      return &reference::kHelpMethods[i];
  return nullptr;
}

std::string overview() {
  std::string out = "Tessel: " + std::to_string(reference::kHelpMethodCount) +
                    " methods. help \"tsCopyFile\" shows one, help \"copy\" finds the ones about copying.\n";
  std::string group, line;
  for (size_t i = 0; i < reference::kHelpMethodCount; ++i) {
    const auto& m = reference::kHelpMethods[i];
    if (m.group != group) {
      if (!line.empty()) out += line + "\n";
      group = m.group;
      out += "\n" + group + "\n";
      line = " ";
    }
    std::string name = m.name;
    if (line.size() + 1 + name.size() > 78) {
      out += line + "\n";
      line = " ";
    }
    line += " " + name;
  }
  if (!line.empty()) out += line + "\n";
  return out;
}

}  // namespace

HelpExternals::HelpExternals(lingo::Externals& inner, std::function<void(const std::string&)> print)
    : inner_(inner), print_(std::move(print)) {}

int HelpExternals::lookup(const std::string& name) {
  if (asciiLowered(name) == "help") return kHelpId;
  return inner_.lookup(name);
}

std::string HelpExternals::helpText(const std::string& query) {
  size_t first = query.find_first_not_of(" \t");
  std::string q = first == std::string::npos ? "" : query.substr(first, query.find_last_not_of(" \t") - first + 1);
  if (q.empty()) return overview();
  if (const reference::HelpMethod* m = byName(q)) return m->text;
  // Every word of the query in the name or the entry; names that match come first.
  std::vector<std::string> words;
  std::stringstream ss(asciiLowered(q));
  for (std::string w; ss >> w;) words.push_back(w);
  std::vector<const reference::HelpMethod*> byNameMatch, byText;
  for (size_t i = 0; i < reference::kHelpMethodCount; ++i) {
    const auto& m = reference::kHelpMethods[i];
    std::string name = asciiLowered(m.name), text = asciiLowered(m.text);
    bool inName = std::all_of(words.begin(), words.end(), [&](const std::string& w) { return name.find(w) != std::string::npos; });
    bool inText = std::all_of(words.begin(), words.end(), [&](const std::string& w) { return text.find(w) != std::string::npos; });
    if (inName) byNameMatch.push_back(&m);
    else if (inText) byText.push_back(&m);
  }
  size_t n = byNameMatch.size() + byText.size();
  if (n == 0) return "No method mentions \"" + q + "\". help lists them all.\n";
  std::string out = std::to_string(n) + (n == 1 ? " method mentions" : " methods mention") + " \"" + q +
                    "\" (help \"NAME\" shows one):\n";
  size_t width = 0;
  for (const auto* list : {&byNameMatch, &byText})
    for (const auto* m : *list) width = std::max(width, std::string(m->name).size());
  for (const auto* list : {&byNameMatch, &byText})
    for (const auto* m : *list) {
      std::string line = "  " + std::string(m->name) + std::string(width - std::string(m->name).size() + 2, ' ') + m->summary;
      if (line.size() > 100) line = line.substr(0, 97) + "...";
      out += line + "\n";
    }
  return out;
}

bool HelpExternals::call(int id, const std::vector<host::Value>& args, host::Value& result, std::string& error) {
  if (id != kHelpId) return inner_.call(id, args, result, error);
  std::string query;
  if (!args.empty() && args[0].isString()) query = args[0].string();
  else if (!args.empty() && args[0].isSymbol()) query = args[0].sym().name;
  else if (!args.empty() && !args[0].isVoid()) {
    error = "help takes a method's name or a word, in quotes";
    return false;
  }
  std::stringstream text(helpText(query));
  for (std::string line; std::getline(text, line);) print_(line);
  result = host::Value();
  return true;
}

std::optional<std::string> HelpExternals::interfaceText(const std::string& xtraName) {
  return inner_.interfaceText(xtraName);
}

}  // namespace tessel::runner
