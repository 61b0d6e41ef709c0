// The value store: symbols, the slots values live in, the operations on values, lists and
// property lists, and conversion to and from the host's own values. One file (a little over 600
// lines) because every part works on the same slot table and its reference counts.
#include "host/value_store.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "support/text.h"

namespace tessel::host {

using namespace moa;

namespace {

constexpr uint32_t kMaxGeneration = 0x7FFFFF;  // keeps `ty` positive

bool isHeapType(uint32_t type) {
  return type == kMoaMmValueType_String || type == kMoaMmValueType_Float ||
         type == kMoaMmValueType_List || type == kMoaMmValueType_PropList;
}

// Copies a C string into a caller's buffer, cut to fit, always NUL-terminated.
void copyCut(const char* text, size_t len, char* buf, MoaLong bufLen) {
  size_t n = std::min(len, static_cast<size_t>(bufLen) - 1);
  std::memcpy(buf, text, n);
  buf[n] = '\0';
}

}  // namespace

// ---- Symbols ---------------------------------------------------------------------------------

MoaMmSymbol ValueStore::intern(std::string_view name) {
  std::string key = support::asciiLowered(name);
  auto it = symbols_.find(key);
  if (it != symbols_.end()) return it->second;
  symbolNames_.emplace_back(name);
  auto sym = static_cast<MoaMmSymbol>(symbolNames_.size());
  symbols_.emplace(std::move(key), sym);
  return sym;
}

std::optional<std::string> ValueStore::symbolName(MoaMmSymbol sym) const {
  if (sym < 1 || static_cast<size_t>(sym) > symbolNames_.size()) return std::nullopt;
  return symbolNames_[static_cast<size_t>(sym) - 1];
}

MoaError ValueStore::stringToSymbol(const char* text, MoaMmSymbol* sym) {
  if (text == nullptr || sym == nullptr) return kMoaErr_BadParam;
  *sym = intern(text);
  return kMoaErr_NoErr;
}

MoaError ValueStore::symbolToString(MoaMmSymbol sym, char* buf, MoaLong bufLen) const {
  if (buf == nullptr || bufLen <= 0) return kMoaErr_BadParam;
  auto name = symbolName(sym);
  if (!name) {
    buf[0] = '\0';
    return kMoaErr_BadParam;
  }
  copyCut(name->c_str(), name->size(), buf, bufLen);
  return kMoaErr_NoErr;
}

// ---- Slots -------------------------------------------------------------------------------------

ValueStore::Ref ValueStore::decode(const MoaMmValue* v, bool allowZombie) const {
  Ref r;
  if (v == nullptr) return r;
  auto ty = static_cast<uint32_t>(v->ty);
  if (ty == 0) {
    if (v->it == 0) r.kind = Kind::Void;
    return r;
  }
  if (ty == kMoaMmValueType_Integer) {
    r.kind = Kind::Integer;
    return r;
  }
  if (ty == kMoaMmValueType_Symbol) {
    if (v->it >= 1 && static_cast<size_t>(v->it) <= symbolNames_.size()) r.kind = Kind::Symbol;
    return r;
  }
  uint32_t type = ty & 0xFF;
  uint32_t generation = ty >> 8;
  if (!isHeapType(type) || generation == 0 || v->it < 0) return r;
  auto index = static_cast<uint32_t>(v->it);
  if (index >= slots_.size()) return r;
  Slot& s = slots_[index];
  if (s.type != type || s.generation != generation) return r;
  if (s.refs == 0 && !(allowZombie && s.borrows > 0)) return r;
  r.kind = Kind::Heap;
  r.slot = &s;
  r.index = index;
  return r;
}

uint32_t ValueStore::allocate(uint8_t type, MoaMmValue* v) {
  uint32_t index;
  if (!free_.empty()) {
    index = free_.back();
    free_.pop_back();
  } else {
    slots_.emplace_back();
    index = static_cast<uint32_t>(slots_.size() - 1);
  }
  Slot& s = slots_[index];
  s.type = type;
  s.refs = 1;
  s.borrows = 0;
  ++live_;
  v->ty = static_cast<MoaLong>(type | (s.generation << 8));
  v->it = static_cast<MoaLong>(index);
  return index;
}

void ValueStore::retain(const MoaMmValue& v) {
  Ref r = decode(&v);
  if (r.kind == Kind::Heap) ++r.slot->refs;
}

void ValueStore::freeSlot(uint32_t index, std::vector<uint32_t>& pending) {
  Slot& s = slots_[index];
  auto push = [&](const MoaMmValue& child) {
    Ref c = decode(&child, true);
    if (c.kind == Kind::Heap) pending.push_back(c.index);
  };
  for (const auto& item : s.items) push(item);
  for (const auto& [prop, item] : s.pairs) {
    push(prop);
    push(item);
  }
  std::string().swap(s.text);
  std::vector<MoaMmValue>().swap(s.items);
  std::vector<std::pair<MoaMmValue, MoaMmValue>>().swap(s.pairs);
  s.number = 0;
  s.type = 0;
  s.refs = 0;
  s.generation = s.generation % kMaxGeneration + 1;
  free_.push_back(index);
  --live_;
}

// Drops one reference; freeing a list drops one reference on each element, with a work list in
// place of recursion.
void ValueStore::releaseIndex(uint32_t index) {
  std::vector<uint32_t> pending{index};
  while (!pending.empty()) {
    uint32_t i = pending.back();
    pending.pop_back();
    Slot& s = slots_[i];
    if (s.refs > 0) --s.refs;
    if (s.refs == 0 && s.borrows == 0 && s.type != 0) freeSlot(i, pending);
  }
}

// ---- Value operations ------------------------------------------------------------------------

MoaError ValueStore::valueType(const MoaMmValue* v, MoaMmValueType* type) const {
  if (type == nullptr) return kMoaErr_BadParam;
  Ref r = decode(v);
  switch (r.kind) {
    case Kind::Void: *type = kMoaMmValueType_Void; return kMoaErr_NoErr;
    case Kind::Integer: *type = kMoaMmValueType_Integer; return kMoaErr_NoErr;
    case Kind::Symbol: *type = kMoaMmValueType_Symbol; return kMoaErr_NoErr;
    case Kind::Heap: *type = r.slot->type; return kMoaErr_NoErr;
    case Kind::Invalid: break;
  }
  return kMoaErr_BadParam;
}

MoaError ValueStore::addRef(const MoaMmValue* v) {
  Ref r = decode(v);
  if (r.kind == Kind::Invalid) return kMoaErr_BadParam;
  if (r.kind == Kind::Heap) ++r.slot->refs;
  return kMoaErr_NoErr;
}

MoaError ValueStore::release(MoaMmValue* v) {
  Ref r = decode(v);
  if (r.kind == Kind::Invalid) return kMoaErr_BadParam;
  if (r.kind == Kind::Heap) releaseIndex(r.index);
  *v = kVoid;
  return kMoaErr_NoErr;
}

MoaError ValueStore::toInteger(const MoaMmValue* v, MoaLong* out) const {
  if (out == nullptr) return kMoaErr_BadParam;
  Ref r = decode(v);
  if (r.kind == Kind::Invalid) return kMoaErr_BadParam;
  if (r.kind != Kind::Integer) return refuse(v, kMoaMmErr_IntegerExpected);
  *out = v->it;
  return kMoaErr_NoErr;
}

MoaError ValueStore::toSymbol(const MoaMmValue* v, MoaMmSymbol* out) const {
  if (out == nullptr) return kMoaErr_BadParam;
  Ref r = decode(v);
  if (r.kind == Kind::Invalid) return kMoaErr_BadParam;
  if (r.kind != Kind::Symbol) return refuse(v, kMoaMmErr_SymbolExpected);
  *out = v->it;
  return kMoaErr_NoErr;
}

MoaError ValueStore::toFloat(const MoaMmValue* v, MoaDouble* out) const {
  if (out == nullptr) return kMoaErr_BadParam;
  Ref r = decode(v);
  if (r.kind == Kind::Invalid) return kMoaErr_BadParam;
  if (r.kind == Kind::Integer) {
    *out = v->it;
    return kMoaErr_NoErr;
  }
  if (r.kind != Kind::Heap || r.slot->type != kMoaMmValueType_Float) return refuse(v, kMoaMmErr_FloatExpected);
  *out = r.slot->number;
  return kMoaErr_NoErr;
}

MoaError ValueStore::stringLength(const MoaMmValue* v, MoaLong* len) const {
  if (len == nullptr) return kMoaErr_BadParam;
  Ref r = decode(v);
  if (r.kind == Kind::Invalid) return kMoaErr_BadParam;
  if (r.kind != Kind::Heap || r.slot->type != kMoaMmValueType_String) {
    return refuse(v, kMoaMmErr_StringExpected);
  }
  *len = static_cast<MoaLong>(r.slot->text.size());
  return kMoaErr_NoErr;
}

MoaError ValueStore::toString(const MoaMmValue* v, char* buf, MoaLong bufLen) const {
  if (buf == nullptr || bufLen <= 0) return kMoaErr_BadParam;
  Ref r = decode(v);
  if (r.kind == Kind::Invalid) return kMoaErr_BadParam;
  if (r.kind != Kind::Heap || r.slot->type != kMoaMmValueType_String) {
    return refuse(v, kMoaMmErr_StringExpected);
  }
  copyCut(r.slot->text.data(), r.slot->text.size(), buf, bufLen);
  return kMoaErr_NoErr;
}

MoaError ValueStore::toStringPtr(const MoaMmValue* v, const char** text) {
  if (text == nullptr) return kMoaErr_BadParam;
  Ref r = decode(v);
  if (r.kind == Kind::Invalid) return kMoaErr_BadParam;
  if (r.kind != Kind::Heap || r.slot->type != kMoaMmValueType_String) {
    return refuse(v, kMoaMmErr_StringExpected);
  }
  ++r.slot->borrows;
  ++borrows_;
  *text = r.slot->text.c_str();
  return kMoaErr_NoErr;
}

MoaError ValueStore::releaseStringPtr(const MoaMmValue* v) {
  Ref r = decode(v, true);
  if (r.kind == Kind::Invalid) return kMoaErr_BadParam;
  if (r.kind != Kind::Heap || r.slot->type != kMoaMmValueType_String) {
    return kMoaMmErr_StringExpected;
  }
  if (r.slot->borrows == 0) return kMoaErr_BadParam;  // no borrow to end
  --r.slot->borrows;
  --borrows_;
  if (r.slot->refs == 0 && r.slot->borrows == 0) {
    std::vector<uint32_t> pending;
    freeSlot(r.index, pending);
  }
  return kMoaErr_NoErr;
}

MoaError ValueStore::integerToValue(MoaLong n, MoaMmValue* v) {
  if (v == nullptr) return kMoaErr_BadParam;
  *v = MoaMmValue{kMoaMmValueType_Integer, n};
  return kMoaErr_NoErr;
}

MoaError ValueStore::symbolToValue(MoaMmSymbol sym, MoaMmValue* v) {
  if (v == nullptr || !symbolName(sym)) return kMoaErr_BadParam;
  *v = MoaMmValue{kMoaMmValueType_Symbol, sym};
  return kMoaErr_NoErr;
}

MoaError ValueStore::floatToValue(MoaDouble d, MoaMmValue* v) {
  if (v == nullptr) return kMoaErr_BadParam;
  uint32_t index = allocate(kMoaMmValueType_Float, v);
  slots_[index].number = d;
  return kMoaErr_NoErr;
}

MoaError ValueStore::stringToValue(const char* text, MoaMmValue* v) {
  if (text == nullptr || v == nullptr) return kMoaErr_BadParam;
  return stringToValue(std::string(text), v);
}

MoaError ValueStore::stringToValue(std::string text, MoaMmValue* v) {
  if (v == nullptr) return kMoaErr_BadParam;
  // Xtras see C strings: anything after an embedded NUL could never be read through MOA.
  if (auto nul = text.find('\0'); nul != std::string::npos) text.resize(nul);
  uint32_t index = allocate(kMoaMmValueType_String, v);
  slots_[index].text = std::move(text);
  return kMoaErr_NoErr;
}

// ---- Lists -------------------------------------------------------------------------------------

MoaError ValueStore::newList(MoaMmValue* v) {
  if (v == nullptr) return kMoaErr_BadParam;
  allocate(kMoaMmValueType_List, v);
  return kMoaErr_NoErr;
}

MoaError ValueStore::newPropList(MoaMmValue* v) {
  if (v == nullptr) return kMoaErr_BadParam;
  allocate(kMoaMmValueType_PropList, v);
  return kMoaErr_NoErr;
}

// A list operand: kMoaErr_BadParam when it is no value of this store,
// kMoaMmErr_ValueTypeMismatch when it is not a list of the wanted type (0 = either kind).
ValueStore::Ref ValueStore::listRef(const MoaMmValue* v, uint8_t type, MoaError* err) const {
  Ref r = decode(v);
  *err = kMoaErr_NoErr;
  if (r.kind == Kind::Invalid) {
    *err = kMoaErr_BadParam;
  } else if (r.kind != Kind::Heap ||
             (type != 0 && r.slot->type != type) ||
             (type == 0 && r.slot->type != kMoaMmValueType_List &&
              r.slot->type != kMoaMmValueType_PropList)) {
    *err = kMoaMmErr_ValueTypeMismatch;
  }
  return r;
}

MoaError ValueStore::appendToList(const MoaMmValue* list, const MoaMmValue* item) {
  MoaError err;
  Ref l = listRef(list, kMoaMmValueType_List, &err);
  if (err != 0) return err;
  if (decode(item).kind == Kind::Invalid) return kMoaErr_BadParam;
  l.slot->items.push_back(*item);
  retain(*item);
  return kMoaErr_NoErr;
}

MoaLong ValueStore::countElements(const MoaMmValue* list) const {
  MoaError err;
  Ref l = listRef(list, 0, &err);
  if (err != 0) return 0;
  size_t n = l.slot->type == kMoaMmValueType_List ? l.slot->items.size() : l.slot->pairs.size();
  return static_cast<MoaLong>(n);
}

MoaError ValueStore::getByIndex(const MoaMmValue* list, MoaLong index, MoaMmValue* out) {
  if (out == nullptr) return kMoaErr_BadParam;
  MoaError err;
  Ref l = listRef(list, 0, &err);
  if (err != 0) return err;
  bool linear = l.slot->type == kMoaMmValueType_List;
  size_t count = linear ? l.slot->items.size() : l.slot->pairs.size();
  if (index < 1 || static_cast<size_t>(index) > count) return kMoaMmErr_ArgOutOfRange;
  auto i = static_cast<size_t>(index) - 1;
  *out = linear ? l.slot->items[i] : l.slot->pairs[i].second;
  retain(*out);
  return kMoaErr_NoErr;
}

MoaError ValueStore::setByIndex(const MoaMmValue* list, MoaLong index, const MoaMmValue* item) {
  MoaError err;
  Ref l = listRef(list, 0, &err);
  if (err != 0) return err;
  if (decode(item).kind == Kind::Invalid) return kMoaErr_BadParam;
  bool linear = l.slot->type == kMoaMmValueType_List;
  size_t count = linear ? l.slot->items.size() : l.slot->pairs.size();
  if (index < 1 || static_cast<size_t>(index) > count + (linear ? 1 : 0)) {
    return kMoaMmErr_ArgOutOfRange;
  }
  auto i = static_cast<size_t>(index) - 1;
  retain(*item);
  if (i == count) {
    l.slot->items.push_back(*item);
    return kMoaErr_NoErr;
  }
  MoaMmValue& place = linear ? l.slot->items[i] : l.slot->pairs[i].second;
  MoaMmValue old = place;
  place = *item;
  Ref o = decode(&old);
  if (o.kind == Kind::Heap) releaseIndex(o.index);
  return kMoaErr_NoErr;
}

MoaError ValueStore::appendToPropList(const MoaMmValue* list, const MoaMmValue* prop,
                                      const MoaMmValue* item) {
  MoaError err;
  Ref l = listRef(list, kMoaMmValueType_PropList, &err);
  if (err != 0) return err;
  if (decode(prop).kind == Kind::Invalid || decode(item).kind == Kind::Invalid) {
    return kMoaErr_BadParam;
  }
  l.slot->pairs.emplace_back(*prop, *item);
  retain(*prop);
  retain(*item);
  return kMoaErr_NoErr;
}

// Property names match as Lingo matches them: symbols by number, strings ignoring case,
// numbers by value, lists by identity.
bool ValueStore::sameProperty(const MoaMmValue& a, const MoaMmValue& b) const {
  Ref ra = decode(&a);
  Ref rb = decode(&b);
  auto number = [](const Ref& r, const MoaMmValue& v, double* out) {
    if (r.kind == Kind::Integer) {
      *out = v.it;
      return true;
    }
    if (r.kind == Kind::Heap && r.slot->type == kMoaMmValueType_Float) {
      *out = r.slot->number;
      return true;
    }
    return false;
  };
  double na = 0;
  double nb = 0;
  if (number(ra, a, &na) && number(rb, b, &nb)) return na == nb;
  if (ra.kind != rb.kind) return false;
  switch (ra.kind) {
    case Kind::Void: return true;
    case Kind::Symbol: return a.it == b.it;
    case Kind::Heap:
      if (ra.slot == rb.slot) return true;
      return ra.slot->type == kMoaMmValueType_String && rb.slot->type == kMoaMmValueType_String &&
             equalsIgnoringCase(ra.slot->text, rb.slot->text);
    default: return false;
  }
}

MoaError ValueStore::getByProperty(const MoaMmValue* list, const MoaMmValue* prop,
                                   MoaMmValue* out) {
  if (out == nullptr) return kMoaErr_BadParam;
  MoaError err;
  Ref l = listRef(list, kMoaMmValueType_PropList, &err);
  if (err != 0) return err;
  if (decode(prop).kind == Kind::Invalid) return kMoaErr_BadParam;
  for (const auto& [p, item] : l.slot->pairs) {
    if (sameProperty(p, *prop)) {
      *out = item;
      retain(item);
      return kMoaErr_NoErr;
    }
  }
  return kMoaMmErr_PropertyNotFound;
}

MoaError ValueStore::setByProperty(const MoaMmValue* list, const MoaMmValue* prop,
                                   const MoaMmValue* item) {
  MoaError err;
  Ref l = listRef(list, kMoaMmValueType_PropList, &err);
  if (err != 0) return err;
  if (decode(prop).kind == Kind::Invalid || decode(item).kind == Kind::Invalid) {
    return kMoaErr_BadParam;
  }
  for (auto& pair : l.slot->pairs) {
    if (sameProperty(pair.first, *prop)) {
      retain(*item);
      MoaMmValue old = pair.second;
      pair.second = *item;
      Ref o = decode(&old);
      if (o.kind == Kind::Heap) releaseIndex(o.index);
      return kMoaErr_NoErr;
    }
  }
  l.slot->pairs.emplace_back(*prop, *item);
  retain(*prop);
  retain(*item);
  return kMoaErr_NoErr;
}

MoaError ValueStore::getPropertyName(const MoaMmValue* list, MoaLong index, MoaMmValue* out) {
  if (out == nullptr) return kMoaErr_BadParam;
  MoaError err;
  Ref l = listRef(list, kMoaMmValueType_PropList, &err);
  if (err != 0) return err;
  if (index < 1 || static_cast<size_t>(index) > l.slot->pairs.size()) {
    return kMoaMmErr_ArgOutOfRange;
  }
  *out = l.slot->pairs[static_cast<size_t>(index) - 1].first;
  retain(*out);
  return kMoaErr_NoErr;
}

// ---- Conversion --------------------------------------------------------------------------------

MoaError ValueStore::fromValue(const Value& value, MoaMmValue* out) {
  if (out == nullptr) return kMoaErr_BadParam;
  // Lists are made as empty shells first and filled from a work list, so shared and cyclic
  // lists map to one store list each and nesting depth costs no stack.
  std::unordered_map<const void*, uint32_t> made;
  struct Pending {
    uint32_t index;
    const List* list;
    const PropList* props;
  };
  std::vector<Pending> pending;

  auto convert = [&](const Value& v, MoaMmValue* dst) {
    std::visit(
        [&](const auto& x) {
          using T = std::decay_t<decltype(x)>;
          if constexpr (std::is_same_v<T, Void>) {
            *dst = kVoid;
          } else if constexpr (std::is_same_v<T, int32_t>) {
            *dst = MoaMmValue{kMoaMmValueType_Integer, x};
          } else if constexpr (std::is_same_v<T, double>) {
            floatToValue(x, dst);
          } else if constexpr (std::is_same_v<T, std::string>) {
            stringToValue(x, dst);
          } else if constexpr (std::is_same_v<T, Symbol>) {
            *dst = MoaMmValue{kMoaMmValueType_Symbol, intern(x.name)};
          } else {
            if (!x) {
              *dst = kVoid;
              return;
            }
            auto found = made.find(x.get());
            if (found != made.end()) {
              Slot& s = slots_[found->second];
              ++s.refs;
              dst->ty = static_cast<MoaLong>(s.type | (s.generation << 8));
              dst->it = static_cast<MoaLong>(found->second);
              return;
            }
            if constexpr (std::is_same_v<T, ListPtr>) {
              uint32_t index = allocate(kMoaMmValueType_List, dst);
              made.emplace(x.get(), index);
              pending.push_back({index, x.get(), nullptr});
            } else {
              uint32_t index = allocate(kMoaMmValueType_PropList, dst);
              made.emplace(x.get(), index);
              pending.push_back({index, nullptr, x.get()});
            }
          }
        },
        v.storage());
  };

  convert(value, out);
  while (!pending.empty()) {
    Pending p = pending.back();
    pending.pop_back();
    if (p.list != nullptr) {
      slots_[p.index].items.reserve(p.list->items.size());
      for (const Value& item : p.list->items) {
        MoaMmValue e{};
        convert(item, &e);
        slots_[p.index].items.push_back(e);
      }
    } else {
      slots_[p.index].pairs.reserve(p.props->items.size());
      for (const auto& [prop, item] : p.props->items) {
        MoaMmValue ep{};
        MoaMmValue ei{};
        convert(prop, &ep);
        convert(item, &ei);
        slots_[p.index].pairs.emplace_back(ep, ei);
      }
    }
  }
  return kMoaErr_NoErr;
}

MoaError ValueStore::toValue(const MoaMmValue& v, Value& out) const {
  Ref root = decode(&v);
  if (root.kind == Kind::Invalid) return kMoaErr_BadParam;

  std::unordered_map<uint32_t, Value> made;
  std::vector<uint32_t> pending;

  auto convert = [&](const MoaMmValue& e) -> Value {
    Ref r = decode(&e, true);
    switch (r.kind) {
      case Kind::Integer: return Value(static_cast<int32_t>(e.it));
      case Kind::Symbol: return Value::symbol(*symbolName(e.it));
      case Kind::Heap: break;
      default: return Value();
    }
    switch (r.slot->type) {
      case kMoaMmValueType_String: return Value(r.slot->text);
      case kMoaMmValueType_Float: return Value(r.slot->number);
      default: break;
    }
    auto found = made.find(r.index);
    if (found != made.end()) return found->second;
    Value shell = r.slot->type == kMoaMmValueType_List ? Value::list() : Value::propList();
    made.emplace(r.index, shell);
    pending.push_back(r.index);
    return shell;
  };

  out = convert(v);
  while (!pending.empty()) {
    uint32_t index = pending.back();
    pending.pop_back();
    const Slot& s = slots_[index];
    const Value& shell = made.at(index);
    if (s.type == kMoaMmValueType_List) {
      auto& items = shell.listPtr()->items;
      items.reserve(s.items.size());
      for (const auto& e : s.items) items.push_back(convert(e));
    } else {
      auto& items = shell.propListPtr()->items;
      items.reserve(s.pairs.size());
      for (const auto& [p, e] : s.pairs) items.emplace_back(convert(p), convert(e));
    }
  }
  return kMoaErr_NoErr;
}

}  // namespace tessel::host
