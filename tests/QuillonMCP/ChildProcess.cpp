#include "ChildProcess.hpp"

#include <fcntl.h>
#include <poll.h>

#include <csignal>
#include <cstring>
#include <stdexcept>

namespace quillon::test {

ChildProcess::ChildProcess(const std::string& path, const std::map<std::string, std::string>& extraEnvironment,
                           Inherit inherit, const std::vector<std::string>& arguments) {
  ::signal(SIGPIPE, SIG_IGN);
  int in[2], out[2], err[2];
  // Close-on-exec, so that no other child started meanwhile holds this one's pipes open.
  if (::pipe2(in, O_CLOEXEC) || ::pipe2(out, O_CLOEXEC) || ::pipe2(err, O_CLOEXEC)) throw std::runtime_error("pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);
  for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) posix_spawn_file_actions_addclose(&actions, fd);

  std::vector<std::string> env;
  for (char** e = environ; inherit == Inherit::everything && *e; ++e) {
    const std::string entry = *e;
    const std::string name = entry.substr(0, entry.find('='));
    if (!extraEnvironment.count(name)) env.push_back(entry);
  }
  for (const auto& [name, value] : extraEnvironment) env.push_back(name + "=" + value);
  std::vector<char*> envp;
  for (auto& entry : env) envp.push_back(entry.data());
  envp.push_back(nullptr);
  std::vector<std::string> words{path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  if (posix_spawn(&pid_, path.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0)
    throw std::runtime_error("spawn " + path);
  posix_spawn_file_actions_destroy(&actions);
  ::close(in[0]);
  ::close(out[1]);
  ::close(err[1]);
  in_ = in[1];
  out_ = out[0];
  err_ = err[0];
}

ChildProcess::~ChildProcess() {
  for (int fd : {in_, out_, err_})
    if (fd >= 0) ::close(fd);
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
}

void ChildProcess::write(const std::string& bytes) {
  std::size_t at = 0;
  while (at < bytes.size()) {
    const ssize_t n = ::write(in_, bytes.data() + at, bytes.size() - at);
    if (n <= 0) return;
    at += static_cast<std::size_t>(n);
  }
}

void ChildProcess::closeInput() {
  if (in_ >= 0) ::close(in_);
  in_ = -1;
}

void ChildProcess::closeOutput() {
  if (out_ >= 0) ::close(out_);
  out_ = -1;
}

std::string ChildProcess::readLine(bool* ok, int timeoutMs) {
  for (;;) {
    if (const auto feed = buffered_.find('\n'); feed != std::string::npos) {
      std::string line = buffered_.substr(0, feed);
      buffered_.erase(0, feed + 1);
      if (ok) *ok = true;
      return line;
    }
    pollfd p{out_, POLLIN, 0};
    char chunk[65536];
    ssize_t n = -1;
    if (::poll(&p, 1, timeoutMs) > 0) n = ::read(out_, chunk, sizeof chunk);
    if (n <= 0) {
      if (ok) *ok = false;
      return {};
    }
    buffered_.append(chunk, static_cast<std::size_t>(n));
  }
}

std::string ChildProcess::readRemainingOutput() {
  std::string all = std::move(buffered_);
  buffered_.clear();
  char chunk[65536];
  ssize_t n;
  while (out_ >= 0 && (n = ::read(out_, chunk, sizeof chunk)) > 0) all.append(chunk, static_cast<std::size_t>(n));
  return all;
}

std::string ChildProcess::readAllErrors() {
  std::string all;
  char chunk[4096];
  ssize_t n;
  while ((n = ::read(err_, chunk, sizeof chunk)) > 0) all.append(chunk, static_cast<std::size_t>(n));
  return all;
}

int ChildProcess::wait() {
  int status = -1;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  return status;
}

}  // namespace quillon::test
