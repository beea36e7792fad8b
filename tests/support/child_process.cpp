// child_process.cpp: forks, and talks over two pipes.
#include "child_process.h"

#include <array>
#include <csignal>
#include <exception>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr unsigned nobody = 65534;
constexpr char readyByte = '\1';

void writeAll(int descriptor, std::string const& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    ssize_t const written = write(descriptor, text.data() + done, text.size() - done);
    if (written <= 0) {
      _exit(99);
    }
    done += static_cast<std::size_t>(written);
  }
}

} // namespace

child_process::child_process(std::function<std::string(child_process&)> const& work) {
  std::array<int, 2> up{};
  std::array<int, 2> down{};
  if (pipe(up.data()) != 0 || pipe(down.data()) != 0) {
    throw std::runtime_error("no pipe");
  }
  process = fork();
  if (process < 0) {
    throw std::runtime_error("no process");
  }
  if (process == 0) {
    close(up[0]);
    close(down[1]);
    fromChild = up[1];
    toChild = down[0];
    std::string answer;
    try {
      answer = work(*this);
    } catch (std::exception const& failure) {
      answer = std::string("exception: ") + failure.what();
    }
    writeAll(fromChild, answer);
    _exit(0);
  }
  close(up[1]);
  close(down[0]);
  fromChild = up[0];
  toChild = down[1];
}

child_process::~child_process() {
  if (process > 0) {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
  }
  close(fromChild);
  close(toChild);
}

void child_process::ready() {
  writeAll(fromChild, std::string(1, readyByte));
}

void child_process::wait_for_go() {
  char byte = 0;
  if (read(toChild, &byte, 1) != 1) {
    _exit(98);
  }
}

void child_process::wait_until_ready() {
  char byte = 0;
  if (read(fromChild, &byte, 1) != 1 || byte != readyByte) {
    throw std::runtime_error("the child ended too early");
  }
}

void child_process::go() {
  writeAll(toChild, "g");
}

std::string child_process::result() {
  std::string answer;
  std::array<char, 4096> buffer{};
  ssize_t count = 0;
  while ((count = read(fromChild, buffer.data(), buffer.size())) > 0) {
    answer.append(buffer.data(), static_cast<std::size_t>(count));
  }
  int status = 0;
  waitpid(process, &status, 0);
  process = -1;
  if (WIFSIGNALED(status)) {
    return WTERMSIG(status) == SIGKILL ? "killed" : "signal " + std::to_string(WTERMSIG(status));
  }
  return WEXITSTATUS(status) == 0 ? answer : "exit status " + std::to_string(WEXITSTATUS(status));
}

std::string in_child(std::function<std::string()> const& work) {
  child_process child([&](child_process&) { return work(); });
  return child.result();
}

std::string in_child_without_rights(std::function<std::string()> const& work) {
  return in_child([&] {
    if (geteuid() == 0 && (setgid(nobody) != 0 || setuid(nobody) != 0)) {
      return std::string("the user cannot be changed");
    }
    return work();
  });
}
