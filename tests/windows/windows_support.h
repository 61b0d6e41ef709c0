// What the window tests share besides desktop_support.h: the record files the test application
// writes, and starting X clients.
#pragma once

#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace tessel::testing {

using namespace std::chrono_literals;

inline std::vector<std::string> readLines(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Starts a program found on PATH; `prepare` runs in the child just before it.
inline pid_t startProcess(const std::vector<std::string>& args, const std::function<void()>& prepare = {}) {
  pid_t pid = fork();
  if (pid == 0) {
    if (prepare) prepare();
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  return pid;
}

}  // namespace tessel::testing
