// Lingo's rules for values: how they print, how they turn into text and numbers, how they compare.
//
// Two text forms exist. The literal form is what `put` shows: strings in quotes, symbols with "#",
// floats with four decimals, VOID as <Void>. The text form is what `string()` and `&` give: a
// string is itself, a symbol its bare name, VOID the empty string; lists use the literal form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/value.h"
#include "support/text.h"

namespace tessel::lingo {

using host::List;
using host::ListPtr;
using host::PropList;
using host::PropListPtr;
using host::Symbol;
using host::Value;
using host::Void;

// ---- ASCII case folding (Lingo names, symbols and string comparison ignore case) -------------
std::string lowerCase(std::string_view s);
bool equalNoCase(std::string_view a, std::string_view b);
// <0, 0 or >0, comparing byte by byte after folding case.
int compareNoCase(std::string_view a, std::string_view b);
// Position of `needle` in `hay` ignoring case, or npos. Linear time.
size_t findNoCase(std::string_view hay, std::string_view needle);

// ---- Numbers ------------------------------------------------------------------------------------
// Lingo's float display: `precision` decimals (the floatPrecision, 0 to 15; "3.1416" with the
// default 4), "INF", "-INF", "NAN"; independent of locale.
std::string formatFloat(double d, int precision = 4);
// Reads a whole text (blanks around it allowed) as a Lingo number: an integer when it is digits
// that fit 32 bits, a float otherwise. False when the text is not a number.
bool parseNumber(std::string_view text, Value& out);
// Rounds half away from zero, as integer() does; false for NaN and values beyond 32 bits.
bool roundToInt32(double d, int32_t& out);

// ---- Text forms ---------------------------------------------------------------------------------
// Both throw ScriptError when the text would grow beyond `maxBytes`; lists nested deeper than a
// fixed depth (a list that holds itself) print as "...".
std::string literalText(const Value& v, size_t maxBytes, int precision = 4);
std::string plainText(const Value& v, size_t maxBytes, int precision = 4);

// ---- Comparison ---------------------------------------------------------------------------------
// Lingo's "=": numbers by value, strings and symbols ignoring case, a number and a numeric string
// as numbers, lists item by item. `budget` counts the items visited; running out is an error.
bool lingoEquals(const Value& a, const Value& b, size_t& budget);
// Lingo's ordering for < > <= >=: -1, 0 or 1, or 2 when unordered (NaN). Throws ScriptError for
// values that have no order (lists, symbols against numbers).
int lingoCompare(const Value& a, const Value& b);
// A total order over all values (used by sort(), never throws): VOID, numbers, strings, symbols,
// lists, property lists; NaN after all other numbers.
bool sortsBefore(const Value& a, const Value& b);
// Equality of property names: same kind, symbols ignoring case, strings exactly, numbers by value.
bool samePropName(const Value& a, const Value& b);

// A short description of a value for error messages: its literal form cut to 80 bytes, or its
// kind ("a #list") when longer.
std::string describeValue(const Value& v);

// ---- Dates ----------------------------------------------------------------------------------
// A date value is a property list [#year:, #month:, #day:] marked as a date: it prints as
// date( 2026, 11, 23 ), orders and subtracts by days, and adds whole days.
bool isDate(const Value& v);
Value makeDate(int64_t days);  // days since 1 January 1970
Value makeDate(int32_t year, int32_t month, int32_t day);
int64_t daysOf(const Value& date);

// #integer, #float, #string, #symbol, #list, #propList or #void.
const char* ilkName(const Value& v);

}  // namespace tessel::lingo
