// Lingo's built-in functions: lists, property lists, strings, conversions and type tests.
#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>

#include "host/lingo/builtins.h"
#include "host/lingo/chunks.h"
#include "host/lingo/values.h"

namespace tessel::lingo {

struct Builtins {
  using B = Interpreter::Builtin;

  // ---- Helpers ----------------------------------------------------------------------------------

  static std::string what(const Value& v) {
    try {
      return literalText(v, 60);
    } catch (const ScriptError&) {
      return std::string("a ") + ilkName(v);
    }
  }
  [[noreturn]] static void expected(Interpreter& in, const char* fn, const char* kind,
                                    const Value& v) {
    in.fail(std::string(fn) + ": " + kind + " expected, found " + what(v));
  }
  static host::List& list(Interpreter& in, const char* fn, const Value& v) {
    if (!v.isList()) expected(in, fn, "list", v);
    return *v.listPtr();
  }
  static host::PropList& propList(Interpreter& in, const char* fn, const Value& v) {
    if (!v.isPropList()) expected(in, fn, "property list", v);
    return *v.propListPtr();
  }
  static size_t position(Interpreter& in, const char* fn, const Value& index, size_t count) {
    int32_t i = in.toInt(index, fn);
    if (i < 1 || static_cast<size_t>(i) > count)
      in.fail(std::string(fn) + ": index out of range: " + std::to_string(i) + " (the list has " +
              std::to_string(count) + " items)");
    return static_cast<size_t>(i) - 1;
  }
  static long findProp(const host::PropList& p, const Value& prop) {
    for (size_t i = 0; i < p.items.size(); ++i) {
      if (samePropName(p.items[i].first, prop)) return static_cast<long>(i);
    }
    return -1;
  }
  static bool equal(Interpreter& in, const Value& a, const Value& b) {
    size_t budget = in.compareBudget();
    return lingoEquals(a, b, budget);
  }
  static Value boolean(bool b) { return Value(int32_t{b ? 1 : 0}); }

  // ---- Lists ----------------------------------------------------------------------------------

  static Value count(Interpreter& in, Value* a, size_t) {
    if (a[0].isList()) return Value(static_cast<int32_t>(a[0].listPtr()->items.size()));
    if (a[0].isPropList()) return Value(static_cast<int32_t>(a[0].propListPtr()->items.size()));
    expected(in, "count", "list", a[0]);
  }

  static Value getAt(Interpreter& in, Value* a, size_t) {
    if (a[0].isPropList()) {
      auto& p = a[0].propListPtr()->items;
      return p[position(in, "getAt", a[1], p.size())].second;
    }
    auto& l = list(in, "getAt", a[0]).items;
    return l[position(in, "getAt", a[1], l.size())];
  }

  static Value setAt(Interpreter& in, Value* a, size_t) {
    if (a[0].isPropList()) {
      auto& p = a[0].propListPtr()->items;
      p[position(in, "setAt", a[1], p.size())].second = a[2];
      return Value();
    }
    list(in, "setAt", a[0]);
    in.indexSet(a[0], a[1], a[2]);
    return Value();
  }

  // append always adds at the end (a sorted list is then no longer sorted); add keeps a sorted
  // list's order.
  static Value append(Interpreter& in, Value* a, size_t) {
    auto& ls = list(in, "append", a[0]);
    in.checkItems(ls.items.size() + 1);
    ls.items.push_back(a[1]);
    ls.sorted = false;
    return Value();
  }

  static Value add(Interpreter& in, Value* a, size_t) {
    auto& ls = list(in, "add", a[0]);
    in.checkItems(ls.items.size() + 1);
    if (ls.sorted) {
      ls.items.insert(std::upper_bound(ls.items.begin(), ls.items.end(), a[1], sortsBefore), a[1]);
    } else {
      ls.items.push_back(a[1]);
    }
    return Value();
  }

  static Value addAt(Interpreter& in, Value* a, size_t) {
    auto& ls = list(in, "addAt", a[0]);
    ls.sorted = false;
    auto& l = ls.items;
    int32_t i = in.toInt(a[1], "addAt");
    if (i < 1) in.fail("addAt: index out of range: " + std::to_string(i));
    auto n = static_cast<size_t>(i);
    in.checkItems(std::max(n, l.size() + 1));
    if (n > l.size() + 1) l.resize(n - 1, Value(int32_t{0}));
    l.insert(l.begin() + static_cast<long>(n - 1), a[2]);
    return Value();
  }

  static Value addProp(Interpreter& in, Value* a, size_t) {
    auto& pl = propList(in, "addProp", a[0]);
    auto& p = pl.items;
    in.checkItems(p.size() + 1);
    auto at = p.end();
    if (pl.sorted) {
      at = std::upper_bound(p.begin(), p.end(), a[1],
                            [](const Value& prop, const auto& kv) { return sortsBefore(prop, kv.first); });
    }
    p.emplace(at, a[1], a[2]);
    return Value();
  }

  static Value getProp(Interpreter& in, Value* a, size_t) {
    if (a[0].isList()) {
      auto& l = a[0].listPtr()->items;
      return l[position(in, "getProp", a[1], l.size())];
    }
    auto& p = propList(in, "getProp", a[0]);
    long i = findProp(p, a[1]);
    if (i < 0) in.fail("getProp: property not found: " + what(a[1]));
    return p.items[static_cast<size_t>(i)].second;
  }

  static Value getaProp(Interpreter& in, Value* a, size_t) {
    if (a[0].isList()) {
      auto& l = a[0].listPtr()->items;
      int32_t i = 0;
      if ((a[1].isInteger() || a[1].isFloat()) && (i = in.toInt(a[1], "getaProp")) >= 1 &&
          static_cast<size_t>(i) <= l.size())
        return l[static_cast<size_t>(i) - 1];
      return Value();
    }
    auto& p = propList(in, "getaProp", a[0]);
    long i = findProp(p, a[1]);
    return i < 0 ? Value() : p.items[static_cast<size_t>(i)].second;
  }

  static Value setProp(Interpreter& in, Value* a, size_t) {
    if (a[0].isList()) {
      auto& l = a[0].listPtr()->items;
      l[position(in, "setProp", a[1], l.size())] = a[2];
      return Value();
    }
    auto& p = propList(in, "setProp", a[0]);
    long i = findProp(p, a[1]);
    if (i < 0) in.fail("setProp: property not found: " + what(a[1]));
    p.items[static_cast<size_t>(i)].second = a[2];
    return Value();
  }

  static Value setaProp(Interpreter& in, Value* a, size_t) {
    if (a[0].isList()) {
      in.indexSet(a[0], a[1], a[2]);
      return Value();
    }
    auto& p = propList(in, "setaProp", a[0]);
    long i = findProp(p, a[1]);
    if (i >= 0) {
      p.items[static_cast<size_t>(i)].second = a[2];
    } else {
      in.checkItems(p.items.size() + 1);
      p.items.emplace_back(a[1], a[2]);
    }
    return Value();
  }

  static Value deleteAt(Interpreter& in, Value* a, size_t) {
    if (a[0].isPropList()) {
      auto& p = a[0].propListPtr()->items;
      p.erase(p.begin() + static_cast<long>(position(in, "deleteAt", a[1], p.size())));
      return Value();
    }
    auto& l = list(in, "deleteAt", a[0]).items;
    l.erase(l.begin() + static_cast<long>(position(in, "deleteAt", a[1], l.size())));
    return Value();
  }

  static Value deleteProp(Interpreter& in, Value* a, size_t) {
    if (a[0].isList()) {
      auto& l = a[0].listPtr()->items;
      l.erase(l.begin() + static_cast<long>(position(in, "deleteProp", a[1], l.size())));
      return Value();
    }
    auto& p = propList(in, "deleteProp", a[0]);
    long i = findProp(p, a[1]);
    if (i >= 0) p.items.erase(p.items.begin() + i);
    return Value();
  }

  static Value deleteOne(Interpreter& in, Value* a, size_t) {
    if (a[0].isPropList()) {
      auto& p = a[0].propListPtr()->items;
      for (size_t i = 0; i < p.size(); ++i) {
        if (equal(in, p[i].second, a[1])) {
          p.erase(p.begin() + static_cast<long>(i));
          break;
        }
      }
      return Value();
    }
    auto& l = list(in, "deleteOne", a[0]).items;
    for (size_t i = 0; i < l.size(); ++i) {
      if (equal(in, l[i], a[1])) {
        l.erase(l.begin() + static_cast<long>(i));
        break;
      }
    }
    return Value();
  }

  static Value getPos(Interpreter& in, Value* a, size_t) {
    if (a[0].isPropList()) {
      auto& p = a[0].propListPtr()->items;
      for (size_t i = 0; i < p.size(); ++i) {
        if (equal(in, p[i].second, a[1])) return Value(static_cast<int32_t>(i + 1));
      }
      return Value(int32_t{0});
    }
    auto& l = list(in, "getPos", a[0]).items;
    for (size_t i = 0; i < l.size(); ++i) {
      if (equal(in, l[i], a[1])) return Value(static_cast<int32_t>(i + 1));
    }
    return Value(int32_t{0});
  }

  static Value getOne(Interpreter& in, Value* a, size_t n) {
    if (a[0].isPropList()) {
      auto& p = a[0].propListPtr()->items;
      for (const auto& kv : p) {
        if (equal(in, kv.second, a[1])) return kv.first;
      }
      return Value(int32_t{0});
    }
    return getPos(in, a, n);
  }

  static Value findPos(Interpreter& in, Value* a, size_t) {
    if (a[0].isList()) return Value();
    auto& p = propList(in, "findPos", a[0]);
    long i = findProp(p, a[1]);
    return i < 0 ? Value() : Value(static_cast<int32_t>(i + 1));
  }

  static Value getPropAt(Interpreter& in, Value* a, size_t) {
    auto& p = propList(in, "getPropAt", a[0]).items;
    return p[position(in, "getPropAt", a[1], p.size())].first;
  }

  static Value getLast(Interpreter& in, Value* a, size_t) {
    if (a[0].isPropList()) {
      auto& p = a[0].propListPtr()->items;
      return p.empty() ? Value() : p.back().second;
    }
    auto& l = list(in, "getLast", a[0]).items;
    return l.empty() ? Value() : l.back();
  }

  static Value copyDeep(Interpreter& in, const Value& v, size_t& budget) {
    if (!v.isList() && !v.isPropList()) return v;
    in.checkStack();
    if (v.isList()) {
      const auto& src = v.listPtr()->items;
      if (src.size() > budget) in.fail("duplicate: list too large");
      budget -= src.size();
      std::vector<Value> out;
      out.reserve(src.size());
      for (const Value& item : src) out.push_back(copyDeep(in, item, budget));
      Value copy = in.newList(std::move(out));
      copy.listPtr()->sorted = v.listPtr()->sorted;
      return copy;
    }
    const auto& src = v.propListPtr()->items;
    if (src.size() > budget) in.fail("duplicate: list too large");
    budget -= src.size();
    std::vector<std::pair<Value, Value>> out;
    out.reserve(src.size());
    for (const auto& kv : src) out.emplace_back(kv.first, copyDeep(in, kv.second, budget));
    Value copy = in.newPropList(std::move(out));
    copy.propListPtr()->sorted = v.propListPtr()->sorted;
    return copy;
  }

  static Value duplicate(Interpreter& in, Value* a, size_t) {
    size_t budget = in.limits_.maxListItems;
    return copyDeep(in, a[0], budget);
  }

  static Value sort(Interpreter& in, Value* a, size_t) {
    if (a[0].isPropList()) {
      auto& p = a[0].propListPtr()->items;
      std::stable_sort(p.begin(), p.end(),
                       [](const auto& x, const auto& y) { return sortsBefore(x.first, y.first); });
      a[0].propListPtr()->sorted = true;
      return Value();
    }
    auto& ls = list(in, "sort", a[0]);
    std::stable_sort(ls.items.begin(), ls.items.end(), sortsBefore);
    ls.sorted = true;
    return Value();
  }

  static Value makeList(Interpreter& in, Value* a, size_t n) {
    return in.newList(std::vector<Value>(a, a + n));
  }

  // ---- Strings --------------------------------------------------------------------------------

  static std::string stringArg(Interpreter& in, const char* fn, const Value& v) {
    if (v.isList() || v.isPropList()) expected(in, fn, "string", v);
    return in.textOf(v);
  }

  // Strings count characters, not bytes.
  static Value length(Interpreter& in, Value* a, size_t) {
    if (a[0].isString()) return Value(static_cast<int32_t>(countChars(a[0].string())));
    return Value(static_cast<int32_t>(countChars(stringArg(in, "length", a[0]))));
  }

  static Value chars(Interpreter& in, Value* a, size_t) {
    std::string s = stringArg(in, "chars", a[0]);
    int64_t from = std::max<int64_t>(in.toInt(a[1], "chars"), 1);
    int64_t to = in.toInt(a[2], "chars");
    if (from > to) return Value("");
    Span span = findChunk(s, ChunkType::Char, from, to, ",");
    if (!span.found) return Value("");
    return Value(s.substr(span.begin, span.end - span.begin));
  }

  static Value offset(Interpreter& in, Value* a, size_t) {
    std::string needle = stringArg(in, "offset", a[0]);
    std::string hay = stringArg(in, "offset", a[1]);
    if (needle.empty()) return Value(int32_t{0});
    size_t at = findNoCase(hay, needle);
    if (at == std::string_view::npos) return Value(int32_t{0});
    return Value(static_cast<int32_t>(countChars(std::string_view(hay).substr(0, at)) + 1));
  }

  static Value string(Interpreter& in, Value* a, size_t) { return Value(in.textOf(a[0])); }

  static Value numToChar(Interpreter& in, Value* a, size_t) {
    int32_t c = in.toInt(a[0], "numToChar");
    // Strings hold UTF-8: a code above 127 becomes its UTF-8 bytes; surrogates are no character.
    if (c <= 0 || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return Value("");
    std::string s;
    appendUtf8(s, static_cast<uint32_t>(c));
    return Value(std::move(s));
  }

  static Value charToNum(Interpreter& in, Value* a, size_t) {
    std::string s = stringArg(in, "charToNum", a[0]);
    if (s.empty()) return Value(int32_t{0});
    // The first character's code; a byte that is not UTF-8 gives its own value.
    return Value(static_cast<int32_t>(decodeChar(s, 0, nullptr)));
  }

  // ---- Conversions and tests ------------------------------------------------------------------

  static Value integer(Interpreter&, Value* a, size_t) {
    Value n = a[0];
    if (n.isString() && !parseNumber(n.string(), n)) return Value();
    if (n.isInteger()) return n;
    int32_t out = 0;
    if (n.isFloat() && roundToInt32(n.real(), out)) return Value(out);
    return Value();
  }

  static Value toFloat(Interpreter&, Value* a, size_t) {
    Value n = a[0];
    if (n.isString() && !parseNumber(n.string(), n)) return Value();
    if (n.isInteger()) return Value(static_cast<double>(n.integer()));
    if (n.isFloat()) return n;
    return Value();
  }

  static Value value(Interpreter& in, Value* a, size_t) {
    Value arg = a[0];  // copied: evaluating may move the interpreter's stack
    return in.valueOf(arg);
  }

  static Value symbol(Interpreter&, Value* a, size_t) {
    if (a[0].isSymbol()) return a[0];
    if (a[0].isString() && !a[0].string().empty()) return Value::symbol(a[0].string());
    return Value();
  }

  static Value ilk(Interpreter& in, Value* a, size_t n) {
    const char* name = ilkName(a[0]);
    if (n == 1) return Value::symbol(name);
    if (!a[1].isSymbol()) expected(in, "ilk", "symbol", a[1]);
    const std::string& want = a[1].sym().name;
    if (equalNoCase(want, name)) return boolean(true);
    if (equalNoCase(want, "list") && a[0].isPropList()) return boolean(true);
    if (equalNoCase(want, "number") && (a[0].isInteger() || a[0].isFloat())) return boolean(true);
    return boolean(false);
  }

  static Value voidP(Interpreter&, Value* a, size_t) { return boolean(a[0].isVoid()); }
  static Value listP(Interpreter&, Value* a, size_t) {
    return boolean(a[0].isList() || a[0].isPropList());
  }
  static Value stringP(Interpreter&, Value* a, size_t) { return boolean(a[0].isString()); }
  static Value integerP(Interpreter&, Value* a, size_t) { return boolean(a[0].isInteger()); }
  static Value floatP(Interpreter&, Value* a, size_t) { return boolean(a[0].isFloat()); }
  static Value symbolP(Interpreter&, Value* a, size_t) { return boolean(a[0].isSymbol()); }
  // Lists and parent scripts' instances (property lists too) are the objects a script makes.
  static Value objectP(Interpreter&, Value* a, size_t) {
    return boolean(a[0].isList() || a[0].isPropList());
  }

  // date(2026, 11, 23) or date(20261123).
  static Value date(Interpreter& in, Value* a, size_t n) {
    Value d;
    if (n == 3) {
      d = makeDate(in.toInt(a[0], "date"), in.toInt(a[1], "date"), in.toInt(a[2], "date"));
    } else {
      int32_t v = in.toInt(a[0], "date");
      d = makeDate(v / 10000, v / 100 % 100, v % 100);
    }
    d = makeDate(daysOf(d));  // months and days out of range carry over
    in.trackResult(d);
    return d;
  }

  static Value newObject(Interpreter& in, Value* a, size_t n) {
    return in.newObject(std::vector<Value>(a, a + n));  // copied: the new handler runs
  }

  static Value startTimer(Interpreter& in, Value*, size_t) {
    in.timerStart_ = std::chrono::steady_clock::now();
    return Value();
  }

  // ---- Numbers --------------------------------------------------------------------------------

  static Value abs(Interpreter& in, Value* a, size_t) {
    Value n = in.toNumber(a[0]);
    if (n.isInteger()) {
      int32_t v = n.integer();
      return Value(v < 0 ? static_cast<int32_t>(0u - static_cast<uint32_t>(v)) : v);
    }
    return Value(std::fabs(n.real()));
  }

  static Value extreme(Interpreter& in, Value* a, size_t n, bool wantMax) {
    const Value* items = a;
    size_t count = n;
    if (n == 1 && a[0].isList()) {
      items = a[0].listPtr()->items.data();
      count = a[0].listPtr()->items.size();
    }
    if (count == 0) return Value();
    Value best = items[0];
    for (size_t i = 1; i < count; ++i) {
      int c = lingoCompare(items[i], best);
      if (wantMax ? c == 1 : c == -1) best = items[i];
    }
    (void)in;
    return best;
  }
  static Value min(Interpreter& in, Value* a, size_t n) { return extreme(in, a, n, false); }
  static Value max(Interpreter& in, Value* a, size_t n) { return extreme(in, a, n, true); }

  static double real(Interpreter& in, const Value& v) {
    Value n = in.toNumber(v);
    return n.isInteger() ? n.integer() : n.real();
  }
  static Value sqrt(Interpreter& in, Value* a, size_t) { return Value(std::sqrt(real(in, a[0]))); }
  static Value power(Interpreter& in, Value* a, size_t) {
    return Value(std::pow(real(in, a[0]), real(in, a[1])));
  }
  static Value random(Interpreter& in, Value* a, size_t) {
    int32_t n = in.toInt(a[0], "random");
    if (n < 1) return Value(int32_t{0});
    std::uniform_int_distribution<int32_t> dist(1, n);
    return Value(dist(in.random_));
  }

  // ---- Xtras ------------------------------------------------------------------------------------

  static Value interface(Interpreter& in, Value* a, size_t) {
    if (!a[0].isString()) expected(in, "interface", "Xtra", a[0]);
    std::string name = a[0].string();
    std::optional<std::string> text;
    if (in.externals_) text = in.externals_->interfaceText(name);
    if (!text) in.fail("Xtra not found: " + name);
    return Value(std::move(*text));
  }

  static const std::vector<B>& table() {
    static const std::vector<B> t = {
        {"count", 1, 1, count},         {"getat", 2, 2, getAt},
        {"setat", 3, 3, setAt},         {"append", 2, 2, append},
        {"add", 2, 2, add},             {"addat", 3, 3, addAt},
        {"addprop", 3, 3, addProp},     {"getprop", 2, 2, getProp},
        {"getaprop", 2, 2, getaProp},   {"setprop", 3, 3, setProp},
        {"setaprop", 3, 3, setaProp},   {"deleteat", 2, 2, deleteAt},
        {"deleteprop", 2, 2, deleteProp}, {"deleteone", 2, 2, deleteOne},
        {"getpos", 2, 2, getPos},       {"getone", 2, 2, getOne},
        {"findpos", 2, 2, findPos},     {"getpropat", 2, 2, getPropAt},
        {"getlast", 1, 1, getLast},     {"duplicate", 1, 1, duplicate},
        {"sort", 1, 1, sort},           {"list", 0, -1, makeList},
        {"length", 1, 1, length},       {"chars", 3, 3, chars},
        {"offset", 2, 2, offset},       {"string", 1, 1, string},
        {"numtochar", 1, 1, numToChar}, {"chartonum", 1, 1, charToNum},
        {"integer", 1, 1, integer},     {"float", 1, 1, toFloat},
        {"value", 1, 1, value},         {"symbol", 1, 1, symbol},
        {"ilk", 1, 2, ilk},             {"voidp", 1, 1, voidP},
        {"listp", 1, 1, listP},         {"stringp", 1, 1, stringP},
        {"integerp", 1, 1, integerP},   {"floatp", 1, 1, floatP},
        {"symbolp", 1, 1, symbolP},     {"objectp", 1, 1, objectP},
        {"starttimer", 0, 0, startTimer}, {"abs", 1, 1, abs},
        {"new", 1, -1, newObject},    {"date", 1, 3, date},
        {"min", 0, -1, min},            {"max", 0, -1, max},
        {"sqrt", 1, 1, sqrt},           {"power", 2, 2, power},
        {"random", 1, 1, random},       {"interface", 1, 1, interface},
    };
    return t;
  }
};

const Interpreter::Builtin* Interpreter::findBuiltin(const std::string& lowerName) {
  static const std::unordered_map<std::string, const Builtin*> byName = [] {
    std::unordered_map<std::string, const Builtin*> m;
    for (const auto& b : Builtins::table()) m.emplace(b.name, &b);
    return m;
  }();
  auto it = byName.find(lowerName);
  return it == byName.end() ? nullptr : it->second;
}

}  // namespace tessel::lingo
