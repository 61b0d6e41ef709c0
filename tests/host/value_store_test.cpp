#include "host/value_store.h"

#include <gtest/gtest.h>

using namespace moa;
using tessel::host::Value;
using tessel::host::ValueStore;

namespace {

MoaMmValue str(ValueStore& s, const char* text) {
  MoaMmValue v{};
  EXPECT_EQ(s.stringToValue(text, &v), 0);
  return v;
}

TEST(ValueStore, ZeroIsVoidAndSymbolsIgnoreCase) {
  ValueStore s;
  MoaMmValue zero{};  // zero-filled memory is VOID
  MoaMmValueType type = -1;
  EXPECT_EQ(s.valueType(&zero, &type), 0);
  EXPECT_EQ(type, kMoaMmValueType_Void);
  MoaMmSymbol a = s.intern("Foo");
  EXPECT_EQ(s.intern("FOO"), a);  // case-insensitive, first spelling kept
  EXPECT_NE(s.intern("bar"), a);
  EXPECT_EQ(*s.symbolName(a), "Foo");
  MoaMmValue sym{};
  EXPECT_EQ(s.symbolToValue(99, &sym), kMoaErr_BadParam);
  EXPECT_EQ(s.liveValues(), 0u);
}

// (Which kinds each conversion refuses: loader_test's matrix, and all_methods_test's.)
TEST(ValueStore, StringsMeasureAndCut) {
  ValueStore s;
  MoaMmValue text = str(s, "hello");
  MoaLong len = 0;
  EXPECT_EQ(s.stringLength(&text, &len), 0);
  EXPECT_EQ(len, 5);
  // A too-small buffer gets what fits, NUL-terminated.
  char small[4];
  EXPECT_EQ(s.toString(&text, small, sizeof small), 0);
  EXPECT_STREQ(small, "hel");
  EXPECT_EQ(s.toString(&text, small, 0), kMoaErr_BadParam);

  s.release(&text);
  EXPECT_EQ(s.liveValues(), 0u);
}

TEST(ValueStore, ReleasedAndForeignValuesAreRefusedNotRead) {
  ValueStore s;
  MoaMmValue a = str(s, "first");
  MoaMmValue stale = a;
  EXPECT_EQ(s.release(&a), 0);
  EXPECT_EQ(a.ty, 0);  // release leaves VOID behind
  MoaMmValue b = str(s, "second");  // reuses the slot with a new generation
  EXPECT_EQ(b.it, stale.it);

  char buf[16];
  MoaMmValueType type;
  EXPECT_EQ(s.toString(&stale, buf, sizeof buf), kMoaErr_BadParam);
  EXPECT_EQ(s.release(&stale), kMoaErr_BadParam);  // a double release does not free "second"
  EXPECT_EQ(s.toString(&b, buf, sizeof buf), 0);
  EXPECT_STREQ(buf, "second");

  MoaMmValue garbage[] = {{3, 12345}, {0x7FFFFF03, 0}, {0, 5}, {2, 77}, {9, 1}, {0x103, -1}};
  for (MoaMmValue& g : garbage) {
    EXPECT_EQ(s.valueType(&g, &type), kMoaErr_BadParam) << g.ty << "/" << g.it;
    EXPECT_EQ(s.addRef(&g), kMoaErr_BadParam);
  }
  EXPECT_EQ(s.valueType(nullptr, &type), kMoaErr_BadParam);
  s.release(&b);
  EXPECT_EQ(s.liveValues(), 0u);
}

TEST(ValueStore, BorrowedTextOutlivesItsValueUntilGivenBack) {
  ValueStore s;
  MoaMmValue v = str(s, "borrowed");
  MoaMmValue copy = v;
  const char* text = nullptr;
  ASSERT_EQ(s.toStringPtr(&v, &text), 0);
  EXPECT_EQ(s.outstandingBorrows(), 1u);
  s.release(&v);
  EXPECT_STREQ(text, "borrowed");  // still valid: the borrow keeps the slot
  EXPECT_EQ(s.liveValues(), 1u);
  EXPECT_EQ(s.toStringPtr(&copy, &text), kMoaErr_BadParam);  // but the value itself is gone
  EXPECT_EQ(s.releaseStringPtr(&copy), 0);
  EXPECT_EQ(s.outstandingBorrows(), 0u);
  EXPECT_EQ(s.liveValues(), 0u);
  EXPECT_EQ(s.releaseStringPtr(&copy), kMoaErr_BadParam);  // no borrow left to end
}

TEST(ValueStore, ListsCopyOnAppendAndHandOutNewReferences) {
  ValueStore s;
  MoaMmValue list{};
  ASSERT_EQ(s.newList(&list), 0);
  MoaMmValue item = str(s, "a");
  EXPECT_EQ(s.appendToList(&list, &item), 0);
  s.release(&item);  // the list keeps its own reference
  MoaMmValue n{};
  s.integerToValue(5, &n);
  EXPECT_EQ(s.appendToList(&list, &n), 0);
  EXPECT_EQ(s.countElements(&list), 2);

  MoaMmValue got{};
  EXPECT_EQ(s.getByIndex(&list, 1, &got), 0);
  char buf[8];
  EXPECT_EQ(s.toString(&got, buf, sizeof buf), 0);
  EXPECT_STREQ(buf, "a");
  s.release(&got);
  EXPECT_EQ(s.getByIndex(&list, 0, &got), kMoaMmErr_ArgOutOfRange);
  EXPECT_EQ(s.getByIndex(&list, 3, &got), kMoaMmErr_ArgOutOfRange);
  EXPECT_EQ(s.setByIndex(&list, 3, &n), 0);  // count + 1 appends
  EXPECT_EQ(s.setByIndex(&list, 5, &n), kMoaMmErr_ArgOutOfRange);
  EXPECT_EQ(s.setByIndex(&list, 1, &n), 0);  // replaces (and releases) "a"
  EXPECT_EQ(s.liveValues(), 1u);

  EXPECT_EQ(s.appendToList(&n, &n), kMoaMmErr_ValueTypeMismatch);
  EXPECT_EQ(s.countElements(&n), 0);
  MoaMmValue props{};
  s.newPropList(&props);
  EXPECT_EQ(s.appendToList(&props, &n), kMoaMmErr_ValueTypeMismatch);
  EXPECT_EQ(s.getByProperty(&list, &n, &got), kMoaMmErr_ValueTypeMismatch);

  s.release(&props);
  s.release(&list);
  EXPECT_EQ(s.liveValues(), 0u);
}

TEST(ValueStore, PropertyListsMatchPropertiesAsLingoDoes) {
  ValueStore s;
  MoaMmValue props{};
  s.newPropList(&props);
  MoaMmValue key{};
  s.symbolToValue(s.intern("Name"), &key);
  MoaMmValue value = str(s, "Ann");
  MoaMmValue textKey = str(s, "City");
  EXPECT_EQ(s.appendToPropList(&props, &key, &value), 0);
  EXPECT_EQ(s.appendToPropList(&props, &textKey, &value), 0);

  MoaMmValue lookup{};
  s.symbolToValue(s.intern("NAME"), &lookup);
  MoaMmValue got{};
  EXPECT_EQ(s.getByProperty(&props, &lookup, &got), 0);
  s.release(&got);
  MoaMmValue city = str(s, "city");  // strings ignore case
  EXPECT_EQ(s.getByProperty(&props, &city, &got), 0);
  s.release(&got);
  MoaMmValue missing{};
  s.symbolToValue(s.intern("age"), &missing);
  EXPECT_EQ(s.getByProperty(&props, &missing, &got), kMoaMmErr_PropertyNotFound);

  MoaMmValue n{};
  s.integerToValue(30, &n);
  EXPECT_EQ(s.setByProperty(&props, &missing, &n), 0);  // appended
  EXPECT_EQ(s.setByProperty(&props, &lookup, &n), 0);   // replaced
  EXPECT_EQ(s.countElements(&props), 3);
  EXPECT_EQ(s.getPropertyName(&props, 3, &got), 0);
  MoaMmSymbol sym = 0;
  EXPECT_EQ(s.toSymbol(&got, &sym), 0);
  EXPECT_EQ(*s.symbolName(sym), "age");
  EXPECT_EQ(s.getPropertyName(&props, 4, &got), kMoaMmErr_ArgOutOfRange);

  for (MoaMmValue* v : {&props, &value, &textKey, &city}) s.release(v);
  EXPECT_EQ(s.liveValues(), 0u);
}

TEST(ValueStore, HostValuesRoundTripKeepingSharingAndCycles) {
  ValueStore s;
  Value shared = Value::list({Value(1), Value("two")});
  Value outer = Value::list({shared, shared, Value(2.5), Value::symbol("Sym"), Value(),
                             Value::propList({{Value::symbol("k"), Value("v")}})});
  shared.listPtr()->items.push_back(outer);  // a cycle through both lists

  MoaMmValue v{};
  ASSERT_EQ(s.fromValue(outer, &v), 0);
  EXPECT_EQ(s.liveValues(), 6u);  // outer, shared, "two", 2.5, the prop list, "v"
  MoaMmValue first{};
  MoaMmValue second{};
  s.getByIndex(&v, 1, &first);
  s.getByIndex(&v, 2, &second);
  EXPECT_EQ(first.it, second.it);  // one store list for the shared one
  s.release(&first);
  s.release(&second);

  Value back;
  ASSERT_EQ(s.toValue(v, back), 0);
  const auto& items = back.listPtr()->items;
  ASSERT_EQ(items.size(), 6u);
  EXPECT_EQ(items[0].listPtr(), items[1].listPtr());
  EXPECT_EQ(items[0].listPtr()->items[1].string(), "two");
  EXPECT_EQ(items[0].listPtr()->items[2].listPtr(), back.listPtr());  // the cycle survives
  EXPECT_EQ(items[2].real(), 2.5);
  EXPECT_EQ(items[3].sym().name, "Sym");
  EXPECT_TRUE(items[4].isVoid());
  EXPECT_EQ(items[5].propListPtr()->items[0].second.string(), "v");
  shared.listPtr()->items.clear();  // break the host-side cycle
  back.listPtr()->items[0].listPtr()->items.clear();

  s.release(&v);
  // A store cycle keeps itself alive, as reference-counted Lingo lists do.
  EXPECT_GT(s.liveValues(), 0u);
}

TEST(ValueStore, DeepNestingNeedsNoStack) {
  ValueStore s;
  Value deep = Value::list();
  Value cursor = deep;
  for (int i = 0; i < 200000; ++i) {
    Value next = Value::list();
    cursor.listPtr()->items.push_back(next);
    cursor = next;
  }
  MoaMmValue v{};
  ASSERT_EQ(s.fromValue(deep, &v), 0);
  EXPECT_EQ(s.liveValues(), 200001u);
  Value back;
  EXPECT_EQ(s.toValue(v, back), 0);
  s.release(&v);
  EXPECT_EQ(s.liveValues(), 0u);
  // Let the host-side chain go without recursing through 200000 destructors.
  while (!back.listPtr()->items.empty()) {
    Value next = back.listPtr()->items.front();
    back.listPtr()->items.clear();
    back = next;
  }
  while (!deep.listPtr()->items.empty()) {
    Value next = deep.listPtr()->items.front();
    deep.listPtr()->items.clear();
    deep = next;
  }
}

}  // namespace
