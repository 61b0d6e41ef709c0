#include "host/tessel/message_window.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

// readline.h needs stdio declared first.
#include <readline/history.h>
#include <readline/readline.h>

namespace tessel::runner {

volatile std::sig_atomic_t interruptFlag = 0;

namespace {

extern "C" void onInterrupt(int) {
  // A second Ctrl-C while the first is not yet noticed (the script is inside an Xtra call)
  // ends the program the usual way.
  if (interruptFlag) {
    std::signal(SIGINT, SIG_DFL);
    std::raise(SIGINT);
    return;
  }
  interruptFlag = 1;
}

}  // namespace

bool runReported(lingo::Interpreter& lingo, const std::string& code, int firstLine) {
  interruptFlag = 0;
  lingo.setInterruptFlag(&interruptFlag);
  struct sigaction sa {};
  struct sigaction old {};
  sa.sa_handler = onInterrupt;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = SA_RESTART;
  sigaction(SIGINT, &sa, &old);
  lingo::Outcome o = lingo.run(code, firstLine);
  sigaction(SIGINT, &old, nullptr);
  lingo.setInterruptFlag(nullptr);
  std::fflush(stdout);
  if (!o.ok) std::fprintf(stderr, "error: %s\n", o.errorText().c_str());
  return o.ok;
}

int messageWindow(lingo::Interpreter& lingo) {
  const bool terminal = isatty(STDIN_FILENO) != 0;
  rl_readline_name = "tessel";  // for "$if tessel" in ~/.inputrc
  std::string pending;
  int pendingStart = 1;
  int lineNumber = 0;
  for (;;) {
    std::string line;
    if (terminal) {
      char* text = readline(pending.empty() ? "> " : ". ");
      if (!text) {
        std::fputc('\n', stdout);
        break;
      }
      line = text;
      if (*text) add_history(text);
      std::free(text);
    } else if (!std::getline(std::cin, line)) {
      break;
    }
    ++lineNumber;
    if (pending.empty()) pendingStart = lineNumber;
    pending += line;
    pending += '\n';
    // An "on" handler, a block if, a repeat or a case is collected until its end.
    if (lingo::Interpreter::needsMoreInput(pending)) continue;
    runReported(lingo, pending, pendingStart);
    pending.clear();
  }
  // Input ended inside an open construct: run it, which reports what is missing.
  if (!pending.empty()) runReported(lingo, pending, pendingStart);
  return 0;
}

}  // namespace tessel::runner
