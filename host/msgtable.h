// Parser of a scripting Xtra's method table (the "msgTable" text it registers).
//
//   xtra NAME                           first line: how Lingo refers to the Xtra
//   -- a title or comment               skipped
//   new object me                       definition 0 (selectors count definition lines from 0)
//   * globalFn string a, integer b -- comment
//   + parentFn object xt, any v
//   childFn object me, *                ("*" as a type: any number of further arguments)
//
// The parser is tolerant the way the authoring environment is: blanks and tabs may be doubled
// anywhere, type words are matched ignoring case ("String"), a comment may follow a definition
// after "--", and "\r\n" line ends are accepted. Lines it cannot read are reported in
// `problems` and do not take a selector.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/host.h"

namespace tessel::host {

struct MessageTable {
  std::string xtraName;             // empty when the "xtra NAME" line is missing
  std::vector<MethodInfo> methods;  // in selector order: methods[i].selector == i
  std::vector<std::string> problems;
};

MessageTable parseMessageTable(std::string_view text);

// Number of arguments a caller must be able to read: the declared ones, without a trailing
// "*" (variable arguments).
size_t declaredArgumentCount(const MethodInfo& method);

}  // namespace tessel::host
