#include "host/tessel/message_window.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
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

// ---- Reading a line at the prompt --------------------------------------------------------------

volatile std::sig_atomic_t promptInterrupted = 0;
extern "C" void onPromptInterrupt(int) { promptInterrupted = 1; }

bool lineDone = false;
char* lineText = nullptr;
extern "C" void onLine(char* text) {
  // Removed here, so that readline does not show the prompt again before the line runs.
  rl_callback_handler_remove();
  lineDone = true;
  lineText = text;
}

enum class Read { Line, Cleared, End };

// One line through readline's callback interface, so that Ctrl-C at the prompt only clears
// what was typed (as a shell does) instead of ending the window. Ctrl-D on an empty line ends.
Read readLine(const char* prompt, std::string& out) {
  struct sigaction sa {};
  struct sigaction old {};
  sa.sa_handler = onPromptInterrupt;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = 0;  // no SA_RESTART: poll returns at once
  sigaction(SIGINT, &sa, &old);
  promptInterrupted = 0;
  lineDone = false;
  lineText = nullptr;
  rl_callback_handler_install(prompt, onLine);
  Read result = Read::End;
  for (;;) {
    pollfd p{STDIN_FILENO, POLLIN, 0};
    int r = poll(&p, 1, -1);
    if (promptInterrupted) {
      rl_free_line_state();
      rl_replace_line("", 0);
      rl_point = rl_end = 0;
      rl_callback_handler_remove();
      std::fputs("^C\n", stdout);
      std::fflush(stdout);
      result = Read::Cleared;
      break;
    }
    if (r < 0) {
      if (errno == EINTR) continue;
      rl_callback_handler_remove();
      break;
    }
    rl_callback_read_char();
    if (lineDone) {
      if (lineText != nullptr) {
        out = lineText;
        if (*lineText) add_history(lineText);
        std::free(lineText);
        result = Read::Line;
      } else {
        std::fputc('\n', stdout);
      }
      break;
    }
  }
  sigaction(SIGINT, &old, nullptr);
  return result;
}

}  // namespace

bool runReported(lingo::Interpreter& lingo, const std::string& code, int firstLine,
                 const std::string& name) {
  interruptFlag = 0;
  lingo.setInterruptFlag(&interruptFlag);
  struct sigaction sa {};
  struct sigaction old {};
  sa.sa_handler = onInterrupt;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = SA_RESTART;
  sigaction(SIGINT, &sa, &old);
  lingo::Outcome o = lingo.run(code, firstLine, name);
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
      Read r = readLine(pending.empty() ? "> " : ". ", line);
      if (r == Read::End) break;
      if (r == Read::Cleared) {
        // The half-typed line goes, and with it a handler or block still being typed.
        pending.clear();
        continue;
      }
    } else if (!std::getline(std::cin, line)) {
      break;
    }
    ++lineNumber;
    if (pending.empty()) pendingStart = lineNumber;
    pending += line;
    pending += '\n';
    // An "on" handler, a block if, a repeat or a case is collected until its end.
    if (lingo::Interpreter::needsMoreInput(pending)) continue;
    runReported(lingo, pending, pendingStart, "");
    pending.clear();
  }
  // Input ended inside an open construct: run it, which reports what is missing.
  if (!pending.empty()) runReported(lingo, pending, pendingStart, "");
  return 0;
}

}  // namespace tessel::runner
