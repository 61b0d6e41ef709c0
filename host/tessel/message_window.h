// The interactive message window: reads lines (through GNU readline on a terminal, plainly
// otherwise), collects multi-line constructs until they are complete, and runs each.
#pragma once

#include <csignal>
#include <string>

#include "host/lingo/interpreter.h"

namespace tessel::runner {

// Set by SIGINT while code runs; the interpreter stops with "Interrupted".
extern volatile std::sig_atomic_t interruptFlag;

// Runs `code` with Ctrl-C stopping it. Errors go to standard error as
// "error: NAME:LINE in handler H: message" (`name` is the file or "-e N", empty at the prompt).
bool runReported(lingo::Interpreter& lingo, const std::string& code, int firstLine,
                 const std::string& name);

// Runs the message window until the end of input. Returns the process exit status.
int messageWindow(lingo::Interpreter& lingo);

}  // namespace tessel::runner
