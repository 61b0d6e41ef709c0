// Lingo values as the host and the message window hold them.
//
// Integers are 32-bit, floats are doubles, strings are byte strings (UTF-8 in practice), symbols
// compare ignoring case. Lists and property lists are shared by reference, as in Lingo: copying
// a Value that holds a list copies the reference, and a change through one copy shows in all.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "support/text.h"

namespace tessel::host {

struct Void {
  bool operator==(const Void&) const = default;
};

struct Symbol {
  std::string name;
};

class Value;
struct List {
  std::vector<Value> items;
  bool sorted = false;  // after sort(): add() keeps the order
};
struct PropList {
  std::vector<std::pair<Value, Value>> items;  // property, value
  bool sorted = false;  // after sort(): addProp() keeps the order of the properties
  // Set for an instance of a parent script (the message window's objects): the script's name;
  // the items are its properties.
  std::string scriptName;
  // Set for a date value (#year, #month, #day), which counts in days.
  bool date = false;
};
using ListPtr = std::shared_ptr<List>;
using PropListPtr = std::shared_ptr<PropList>;

class Value {
 public:
  using Storage = std::variant<Void, int32_t, double, std::string, Symbol, ListPtr, PropListPtr>;

  Value() = default;
  Value(Void) {}
  Value(int32_t n) : v_(n) {}
  Value(double d) : v_(d) {}
  Value(std::string s) : v_(std::move(s)) {}
  Value(const char* s) : v_(std::string(s)) {}
  Value(Symbol s) : v_(std::move(s)) {}
  Value(ListPtr l) : v_(std::move(l)) {}
  Value(PropListPtr p) : v_(std::move(p)) {}

  static Value symbol(std::string name) { return Value(Symbol{std::move(name)}); }
  static Value list(std::vector<Value> items = {}) {
    return Value(std::make_shared<List>(List{std::move(items)}));
  }
  static Value propList(std::vector<std::pair<Value, Value>> items = {}) {
    return Value(std::make_shared<PropList>(PropList{std::move(items)}));
  }

  bool isVoid() const { return std::holds_alternative<Void>(v_); }
  bool isInteger() const { return std::holds_alternative<int32_t>(v_); }
  bool isFloat() const { return std::holds_alternative<double>(v_); }
  bool isString() const { return std::holds_alternative<std::string>(v_); }
  bool isSymbol() const { return std::holds_alternative<Symbol>(v_); }
  bool isList() const { return std::holds_alternative<ListPtr>(v_); }
  bool isPropList() const { return std::holds_alternative<PropListPtr>(v_); }

  int32_t integer() const { return std::get<int32_t>(v_); }
  double real() const { return std::get<double>(v_); }
  const std::string& string() const { return std::get<std::string>(v_); }
  const Symbol& sym() const { return std::get<Symbol>(v_); }
  const ListPtr& listPtr() const { return std::get<ListPtr>(v_); }
  const PropListPtr& propListPtr() const { return std::get<PropListPtr>(v_); }

  const Storage& storage() const { return v_; }

 private:
  Storage v_;
};

// Lingo compares symbols and property names ignoring ASCII case.
using support::equalsIgnoringCase;

}  // namespace tessel::host
