// PipedChild: a program started with its standard input and output on pipes, for the process
// benchmarks. The pipes are close-on-exec, so a child started later holds no end of an earlier
// one's, and closing `in` is an end of input the child sees.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <cstdio>
#include <string>

struct PipedChild {
  pid_t pid = -1;
  int in = -1, out = -1;
  std::string buffered;

  // `argument` is passed when not empty.
  PipedChild(const std::string& path, const std::string& argument, char** environment) {
    int toChild[2], fromChild[2];
    if (::pipe2(toChild, O_CLOEXEC) != 0 || ::pipe2(fromChild, O_CLOEXEC) != 0) std::perror("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, toChild[0], 0);
    posix_spawn_file_actions_adddup2(&actions, fromChild[1], 1);
    std::string program = path, arg = argument;
    char* argv[] = {program.data(), argument.empty() ? nullptr : arg.data(), nullptr};
    if (posix_spawn(&pid, path.c_str(), &actions, nullptr, argv, environment) != 0) std::perror(("spawn " + path).c_str());
    posix_spawn_file_actions_destroy(&actions);
    ::close(toChild[0]);
    ::close(fromChild[1]);
    in = toChild[1];
    out = fromChild[0];
  }

  void send(const std::string& line) {
    std::size_t at = 0;
    while (at < line.size()) {
      const ssize_t n = ::write(in, line.data() + at, line.size() - at);
      if (n <= 0) return;
      at += static_cast<std::size_t>(n);
    }
  }

  // The next line without its line feed; empty at end of output.
  std::string receive() {
    char chunk[1 << 16];
    for (;;) {
      if (const auto feed = buffered.find('\n'); feed != std::string::npos) {
        std::string line = buffered.substr(0, feed);
        buffered.erase(0, feed + 1);
        return line;
      }
      const ssize_t n = ::read(out, chunk, sizeof chunk);
      if (n <= 0) return {};
      buffered.append(chunk, static_cast<std::size_t>(n));
    }
  }
};
