// The host's store of Lingo values as Xtras see them (MoaMmValue), and its symbol table.
//
// A MoaMmValue is two 32-bit words and cannot carry a pointer on a 64-bit host, so every value
// that needs storage lives in a slot table and the value names its slot:
//
//   VOID     {ty 0, it 0}                 all-zero: a zero-filled value reads as VOID
//   integer  {ty 1, it n}
//   symbol   {ty 2, it symbol number}     numbers from 1, session-local, case-insensitive names
//   string, float, list, property list:
//            {ty = type | (generation << 8), it = slot index}
//
// `type` is the MoaMmValueType code (3 string, 6 float, 7 list, 10 property list). Each slot
// has a reference count and a generation that changes whenever the slot is freed, so a value
// that was already released, or that never came from this store, is recognised and refused
// with kMoaErr_BadParam instead of reaching freed memory. Lists hold one reference on each of
// their elements; freeing a list releases them (iteratively, so deep nesting cannot exhaust the
// stack).
//
// Borrowed string pointers (ValueToStringPtr) keep their slot alive until the matching
// ValueReleaseStringPtr, even if the value itself is released in between.
//
// Not thread-safe: Xtras are called on the host's one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/value.h"
#include "moa/moa_types.h"

namespace tessel::host {

class ValueStore {
 public:
  ValueStore() = default;
  ValueStore(const ValueStore&) = delete;
  ValueStore& operator=(const ValueStore&) = delete;

  static constexpr moa::MoaMmValue kVoid{0, 0};

  // ---- Symbols ----
  // The symbol for `name` (ignoring ASCII case), made on first use.
  moa::MoaMmSymbol intern(std::string_view name);
  // The spelling a symbol was first made with; nullopt for an unknown number.
  std::optional<std::string> symbolName(moa::MoaMmSymbol sym) const;
  moa::MoaError stringToSymbol(const char* text, moa::MoaMmSymbol* sym);
  // Copies the name, cut to fit and NUL-terminated.
  moa::MoaError symbolToString(moa::MoaMmSymbol sym, char* buf, moa::MoaLong bufLen) const;

  // ---- Value operations with MOA semantics ----
  moa::MoaError valueType(const moa::MoaMmValue* v, moa::MoaMmValueType* type) const;
  moa::MoaError addRef(const moa::MoaMmValue* v);
  // Releases one reference and sets *v to VOID.
  moa::MoaError release(moa::MoaMmValue* v);
  moa::MoaError toInteger(const moa::MoaMmValue* v, moa::MoaLong* out) const;
  moa::MoaError toSymbol(const moa::MoaMmValue* v, moa::MoaMmSymbol* out) const;
  moa::MoaError toFloat(const moa::MoaMmValue* v, moa::MoaDouble* out) const;
  moa::MoaError stringLength(const moa::MoaMmValue* v, moa::MoaLong* len) const;
  // Copies what fits (cut, NUL-terminated) and returns 0, like every fixed-buffer copy of the
  // Xtras it serves; a buffer of length <= 0 is kMoaErr_BadParam.
  moa::MoaError toString(const moa::MoaMmValue* v, char* buf, moa::MoaLong bufLen) const;
  moa::MoaError toStringPtr(const moa::MoaMmValue* v, const char** text);
  moa::MoaError releaseStringPtr(const moa::MoaMmValue* v);

  // The "...ToValue" operations overwrite *v without releasing it; the caller owns the result.
  moa::MoaError integerToValue(moa::MoaLong n, moa::MoaMmValue* v);
  moa::MoaError symbolToValue(moa::MoaMmSymbol sym, moa::MoaMmValue* v);
  moa::MoaError floatToValue(moa::MoaDouble d, moa::MoaMmValue* v);
  moa::MoaError stringToValue(const char* text, moa::MoaMmValue* v);
  moa::MoaError stringToValue(std::string text, moa::MoaMmValue* v);

  // ---- Lists (1-based indexes, as in Lingo) ----
  moa::MoaError newList(moa::MoaMmValue* v);
  moa::MoaError newPropList(moa::MoaMmValue* v);
  moa::MoaError appendToList(const moa::MoaMmValue* list, const moa::MoaMmValue* item);
  // Number of top-level elements of a list or property list; 0 for anything else.
  moa::MoaLong countElements(const moa::MoaMmValue* list) const;
  moa::MoaError getByIndex(const moa::MoaMmValue* list, moa::MoaLong index, moa::MoaMmValue* out);
  // Replaces element `index`; count + 1 appends to a linear list.
  moa::MoaError setByIndex(const moa::MoaMmValue* list, moa::MoaLong index,
                           const moa::MoaMmValue* item);
  moa::MoaError appendToPropList(const moa::MoaMmValue* list, const moa::MoaMmValue* prop,
                                 const moa::MoaMmValue* item);
  moa::MoaError getByProperty(const moa::MoaMmValue* list, const moa::MoaMmValue* prop,
                              moa::MoaMmValue* out);
  // Replaces the value of the first matching property, or appends the pair.
  moa::MoaError setByProperty(const moa::MoaMmValue* list, const moa::MoaMmValue* prop,
                              const moa::MoaMmValue* item);
  moa::MoaError getPropertyName(const moa::MoaMmValue* list, moa::MoaLong index,
                                moa::MoaMmValue* out);

  // ---- Conversion to and from the host's Lingo values ----
  // A new store value (the caller owns one reference). Shared and cyclic lists keep their shape.
  moa::MoaError fromValue(const Value& value, moa::MoaMmValue* out);
  // Reads a store value without consuming it. kMoaErr_BadParam for a value not from this store.
  moa::MoaError toValue(const moa::MoaMmValue& v, Value& out) const;

  // Heap slots in use: values handed out and not yet released (plus borrowed strings whose value
  // was released before the borrow ended).
  size_t liveValues() const { return live_; }
  // ValueToStringPtr borrows not yet ended.
  size_t outstandingBorrows() const { return borrows_; }

  // The value a conversion (ValueToInteger, ValueToString...) last refused with "... expected",
  // so that the host can say which argument of a call was wrong. Cleared before each call.
  void clearRefused() { refused_.reset(); }
  std::optional<moa::MoaMmValue> refused() const { return refused_; }

 private:
  struct Slot {
    uint32_t generation = 1;
    uint32_t refs = 0;
    uint32_t borrows = 0;
    uint8_t type = 0;  // 0 = free
    std::string text;
    double number = 0;
    std::vector<moa::MoaMmValue> items;                                // linear list
    std::vector<std::pair<moa::MoaMmValue, moa::MoaMmValue>> pairs;  // property list
  };
  enum class Kind { Void, Integer, Symbol, Heap, Invalid };
  struct Ref {
    Kind kind = Kind::Invalid;
    Slot* slot = nullptr;
    uint32_t index = 0;
  };

  Ref decode(const moa::MoaMmValue* v, bool allowZombie = false) const;
  uint32_t allocate(uint8_t type, moa::MoaMmValue* v);
  void retain(const moa::MoaMmValue& v);  // v must be valid
  void releaseIndex(uint32_t index);
  void freeSlot(uint32_t index, std::vector<uint32_t>& pending);
  bool sameProperty(const moa::MoaMmValue& a, const moa::MoaMmValue& b) const;
  Ref listRef(const moa::MoaMmValue* v, uint8_t type, moa::MoaError* err) const;

  mutable std::deque<Slot> slots_;  // deque: growing keeps references to other slots valid
  std::vector<uint32_t> free_;
  size_t live_ = 0;
  size_t borrows_ = 0;
  mutable std::optional<moa::MoaMmValue> refused_;
  moa::MoaError refuse(const moa::MoaMmValue* v, moa::MoaError err) const {
    if (!refused_) refused_ = *v;
    return err;
  }

  std::vector<std::string> symbolNames_;                   // number n is at n - 1
  std::unordered_map<std::string, moa::MoaMmSymbol> symbols_;  // key: lower-case name
};

}  // namespace tessel::host
