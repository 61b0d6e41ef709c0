// What the host's service implementations share: the guard that keeps exceptions out of an
// Xtra, interface identity, and answering text into a caller's buffer.
#pragma once

#include <cstring>
#include <new>
#include <string>

#include "moa/moa_interfaces.h"

namespace tessel::host {

// Runs a service operation, turning anything the host's own code throws into a MOA error.
template <class F>
inline moa::MoaError guarded(F&& f) noexcept {
  try {
    return f();
  } catch (const std::bad_alloc&) {
    return moa::kMoaErr_OutOfMem;
  } catch (...) {
    return moa::kMoaErr_InternalError;
  }
}

inline bool sameID(moa::ConstPMoaInterfaceID a, const moa::MoaID& b) { return a != nullptr && moa::equalID(*a, b); }

// Answers a text into a caller's buffer that must hold all of it.
inline moa::MoaError answerWhole(const std::string& text, char* buf, moa::MoaLong bufLen,
                                 moa::MoaError tooSmall) {
  if (text.size() + 1 > static_cast<size_t>(bufLen)) {
    buf[0] = '\0';
    return tooSmall;
  }
  std::memcpy(buf, text.c_str(), text.size() + 1);
  return moa::kMoaErr_NoErr;
}

}  // namespace tessel::host
