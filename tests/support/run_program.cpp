// run_program.cpp: forks, executes, and reads two pipes to their ends.
#include "run_program.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int notRun = 127;

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error("no pipe");
    }
    read = ends[0];
    write = ends[1];
  }
  ~Pipe() {
    close(read);
    CloseWriting();
  }
  Pipe(Pipe const&) = delete;
  Pipe& operator=(Pipe const&) = delete;
  void CloseWriting() {
    if (write >= 0) {
      close(write);
      write = -1;
    }
  }
  int read = -1;
  int write = -1;
};

// A program of root's has no power over files that is not in the set of what it may ever have.
bool dropPowerOverFiles() {
  return prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE) == 0 && prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH) == 0;
}

bool prepare(program_settings const& settings, int output, int errors) {
  if (!settings.folder.empty() && chdir(settings.folder.c_str()) != 0) {
    return false;
  }
  if (!settings.outputFile.empty()) {
    output = open(settings.outputFile.c_str(), O_WRONLY | O_CLOEXEC);
  }
  if (output < 0 || dup2(output, STDOUT_FILENO) < 0 || dup2(errors, STDERR_FILENO) < 0) {
    return false;
  }
  if (settings.fileSizeLimit) {
    rlimit const limit{*settings.fileSizeLimit, *settings.fileSizeLimit};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) {
      return false;
    }
  }
  return !settings.withoutPrivileges || geteuid() != 0 || dropPowerOverFiles();
}

void readAll(int outputEnd, std::string& output, int errorEnd, std::string& errors) {
  std::array<pollfd, 2> ends{{{outputEnd, POLLIN, 0}, {errorEnd, POLLIN, 0}}};
  std::array<std::string*, 2> const texts{&output, &errors};
  std::array<char, 65536> buffer{};
  for (int open = 2; open > 0;) {
    if (poll(ends.data(), ends.size(), -1) < 0 && errno != EINTR) {
      throw std::runtime_error("no answer");
    }
    for (std::size_t index = 0; index < ends.size(); ++index) {
      if (ends[index].fd < 0 || ends[index].revents == 0) {
        continue;
      }
      ssize_t const count = read(ends[index].fd, buffer.data(), buffer.size());
      if (count > 0) {
        texts[index]->append(buffer.data(), static_cast<std::size_t>(count));
      } else {
        ends[index].fd = -1; // poll passes over it from now on
        --open;
      }
    }
  }
}

} // namespace

program_result run_program(std::string const& program, std::vector<std::string> const& arguments,
                           program_settings const& settings) {
  std::vector<char*> words{const_cast<char*>(program.c_str())};
  for (std::string const& argument : arguments) {
    words.push_back(const_cast<char*>(argument.c_str()));
  }
  words.push_back(nullptr);

  Pipe output;
  Pipe errors;
  pid_t const process = fork();
  if (process < 0) {
    throw std::runtime_error("no process");
  }
  if (process == 0) {
    if (prepare(settings, output.write, errors.write)) {
      execv(program.c_str(), words.data());
    }
    _exit(notRun);
  }
  output.CloseWriting();
  errors.CloseWriting();
  program_result result;
  readAll(output.read, result.out, errors.read, result.err);
  int status = 0;
  waitpid(process, &status, 0);
  if (WIFEXITED(status)) {
    result.status = WEXITSTATUS(status);
  }
  if (result.status == notRun) {
    throw std::runtime_error(program + " cannot be run");
  }
  return result;
}
