// Argument and result marshalling for the Lingo methods.
//
// Every method operation follows one pattern: read exactly the arguments its method line
// declares (texts into bounded buffers, path arguments through the path rule), call its worker,
// and store one result. A conversion the host refuses ends the method with the host's code and
// stores nothing; work failures are result values, never error codes.
//
//   MoaError TStdXtra_IMoaMmXScript::tsFileExists(PMoaMmCallInfo callInfo) {
//     return runMethod(callInfo, [](MethodCall& call) -> MoaError {
//       std::string file;
//       if (MoaError err = call.path(1, file)) return err;
//       return call.returnInteger(files::fileExists(file));
//     });
//   }
#pragma once

#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "xtra/module.h"

namespace tessel::xtra {

// Buffer sizes, in bytes of text (each buffer has room for its terminator beyond these).
inline constexpr size_t kPathLen = 1024;
inline constexpr size_t kCommandLineLen = 2047;  // tsShell's command lines
inline constexpr size_t kShortLen = 255;
inline constexpr size_t kKeywordLen = 64;
inline constexpr size_t kLongKeywordLen = 80;
// Long texts (INI values, cipher texts, messages): the workers cut them to their own sizes.
inline constexpr size_t kLongTextLen = 32101;
inline constexpr size_t kClipboardLen = 63999;
// Texts taken whole (up to their first NUL).
inline constexpr size_t kUnboundedLen = static_cast<size_t>(-1);

// Cuts a text at `limit` bytes (or at an embedded NUL, where a C string would end).
std::string bounded(std::string_view text, size_t limit);

class MethodCall {
 public:
  explicit MethodCall(PMoaMmCallInfo call);

  // Argument k, 1-based as in the method line.
  MoaError text(int k, std::string& out, size_t limit = kKeywordLen);
  MoaError path(int k, std::string& out, size_t limit = kPathLen);
  MoaError integer(int k, int32_t& out);

  MoaError returnInteger(int32_t n);
  MoaError returnFloat(double d);
  MoaError returnText(std::string_view text, size_t limit);
  // For results produced in Mac OS Roman: re-encoded to UTF-8 within the same buffer size.
  MoaError returnRomanText(std::string_view roman, size_t limit);
  MoaError returnList(const std::vector<std::string>& items);
  MoaError returnIntegerList(const std::vector<int32_t>& items);
  // A property list of string values under symbol names, in the given order.
  MoaError returnPropList(const std::vector<std::pair<std::string, std::string>>& items);
  MoaError returnNothing() { return kMoaErr_NoErr; }

  PMoaMmCallInfo record() const { return call_; }

 private:
  const MoaMmValue* argument(int k) const;
  PMoaMmCallInfo call_;
};

// Runs one method body; an exception thrown below it ends the call with an error code instead
// of unwinding into the host.
template <typename Body>
MoaError runMethod(PMoaMmCallInfo callInfo, Body&& body) noexcept {
  try {
    MethodCall call(callInfo);
    return body(call);
  } catch (const std::bad_alloc&) {
    return kMoaErr_OutOfMem;
  } catch (...) {
    return kMoaErr_InternalError;
  }
}

// The path rule applied to every argument that names a file, folder or disk: a leading "@" is
// the movie's folder (Director hosts only), and a Unix path has every ":" turned into "/".
std::string applyPathRule(std::string_view text, size_t limit = kPathLen);

// Evaluates a Lingo expression such as "the moviePath" in the current movie through its "value"
// handler; "" on any failure.
std::string evaluateLingo(const char* expression, size_t limit = kPathLen);

}  // namespace tessel::xtra
