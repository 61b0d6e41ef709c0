#include <cstdio>

#include "host/host.h"

namespace tessel::host {

using namespace moa;

std::string describeError(MoaError err) {
  switch (static_cast<uint32_t>(err)) {
    case 0x00000000: return "no error";
    case 0x00000001: return "false";
    case 0x80004001: return "not implemented";
    case 0x80040001: return "bad parameter";
    case 0x80040002: return "out of memory";
    case 0x80040003: return "Xtra in use";
    case 0x80040004: return "interface not supported";
    case 0x80040005: return "class not supported";
    case 0x80040006: return "file not found";
    case 0x80040007: return "Xtra not found";
    case 0x80040008: return "function not found";
    case 0x80040009: return "class information not found";
    case 0x8004000A: return "connection not open";
    case 0x8004000B: return "not enough CPU";
    case 0x8004000C: return "not enough FPU";
    case 0x8004000D: return "not enough hardware";
    case 0x8004000E: return "not enough system software";
    case 0x8004000F: return "extra system software needed";
    case 0x80040010: return "not enough disk space";
    case 0x80040011: return "no unused space freed";
    case 0x80040012: return "required callback missing";
    case 0x80040013: return "no such key";
    case 0x80040014: return "internal error";
    case 0x80040015: return "unsupported code type";
    case 0x80040016: return "duplicate classes";
    case 0x80040017: return "dead object";
    case 0x8004002A: return "dictionary entry not found";
    case 0x8004002B: return "dictionary entry of another type";
    case 0x8004002C: return "dictionary cannot be written";
    case 0x8004002D: return "buffer too small";
    case 0x800407D0: return "not implemented";
    case 0x800407D1: return "interface not found";
    case 0x800407D2: return "internal error";
    case 0x800407D3: return "unknown asset type";
    case 0x800407D4: return "graphics context type not supported";
    case 0x800407D5: return "property not found";
    case 0x800407D6: return "cannot set property";
    case 0x800407D7: return "no memory for string";
    case 0x800407D8: return "argument out of range";
    case 0x800407D9: return "integer expected";
    case 0x800407DA: return "symbol expected";
    case 0x800407DB: return "float expected";
    case 0x800407DC: return "string expected";
    case 0x800407DD: return "point expected";
    case 0x800407DE: return "rect expected";
    case 0x800407DF: return "handler not found";
    case 0x800407E0: return "no argument expected";
    case 0x800407E1: return "one argument expected";
    case 0x800407E2: return "two arguments expected";
    case 0x800407E3: return "three arguments expected";
    case 0x800407E4: return "four arguments expected";
    case 0x800407E5: return "wrong number of arguments";
    case 0x800407E6: return "not registered";
    case 0x800407EF: return "value type mismatch";
    case 0x800407F0: return "color expected";
    case 0x800407F7: return "operation not allowed";
    case 0x80040BC3: return "tool disabled";
    case 0x80040BC9: return "handler not defined";
    case 0x80040BCA: return "movie not open";
    default: break;
  }
  char buf[32];
  std::snprintf(buf, sizeof buf, "error 0x%08X", static_cast<unsigned>(err));
  return buf;
}

}  // namespace tessel::host
