#include "support/child_process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/wait_until.h"

namespace {

/// A null-terminated array of pointers into `texts`, as exec takes it.
std::vector<char*> PointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> EnvironmentWith(const std::map<std::string, std::string>& added) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (added.count(text.substr(0, text.find('='))) == 0) {
      result.push_back(text);
    }
  }
  for (const auto& [name, value] : added) {
    result.emplace_back(name).append("=").append(value);
  }
  return result;
}

/// Runs in the child; between fork and exec only async-signal-safe calls are allowed.
[[noreturn]] void BecomeProgram(pid_t parent, int output, int error_pipe, char* const* arguments,
                                char* const* environment) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() == parent) {  // otherwise the parent died before the line above
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    // An MQTT client's socket that is open in a child as well stays open when the client closes it.
    close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    execve(arguments[0], arguments, environment);
    const int error = errno;
    (void)!write(error_pipe, &error, sizeof(error));
  }
  _exit(127);
}

}  // namespace

std::string FindProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) {
    return access(name.c_str(), X_OK) == 0 ? name : "";
  }
  const char* path = std::getenv("PATH");
  // Servers are often installed where an ordinary user's PATH does not look.
  std::istringstream directories(std::string(path == nullptr ? "" : path) +
                                 ":/usr/local/sbin:/usr/sbin:/sbin");
  std::string directory;
  while (std::getline(directories, directory, ':')) {
    std::string candidate = directory;
    candidate.append("/").append(name);
    if (!directory.empty() && access(candidate.c_str(), X_OK) == 0) {
      return candidate;
    }
  }
  return "";
}

ChildProcess::ChildProcess(const std::vector<std::string>& command, const std::string& output_file,
                           const std::map<std::string, std::string>& environment)
    : output_file_(output_file) {
  std::vector<std::string> arguments = command;
  arguments.at(0) = FindProgram(command.at(0));
  if (arguments[0].empty()) {
    throw std::runtime_error("no such program: " + command[0]);
  }
  std::vector<std::string> variables = EnvironmentWith(environment);
  const std::vector<char*> argument_pointers = PointersTo(arguments);
  const std::vector<char*> variable_pointers = PointersTo(variables);
  const int output =
      open(output_file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR);
  int error_pipe[2];
  if (output < 0 || pipe2(error_pipe, O_CLOEXEC) != 0) {
    throw std::runtime_error("cannot set up " + command[0]);
  }
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ == 0) {
    BecomeProgram(parent, output, error_pipe[1], argument_pointers.data(),
                  variable_pointers.data());
  }
  close(output);
  close(error_pipe[1]);
  int error = pid_ < 0 ? errno : 0;
  if (pid_ > 0 && read(error_pipe[0], &error, sizeof(error)) > 0) {
    Reap(0);
  }
  close(error_pipe[0]);
  if (error != 0) {
    throw std::runtime_error("cannot start " + command[0] + ": " + std::strerror(error));
  }
}

ChildProcess::~ChildProcess() { Kill(); }

void ChildProcess::Reap(int wait_flags) {
  int status = 0;
  if (!exit_code_ && waitpid(pid_, &status, wait_flags) == pid_) {
    exit_code_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
}

bool ChildProcess::IsRunning() {
  Reap(WNOHANG);
  return !exit_code_;
}

void ChildProcess::Signal(int signal) {
  if (IsRunning()) {
    kill(pid_, signal);
  }
}

void ChildProcess::Freeze() {
  Signal(SIGSTOP);
  if (!exit_code_) {
    siginfo_t ignored{};
    waitid(P_PID, static_cast<id_t>(pid_), &ignored, WSTOPPED | WEXITED | WNOWAIT);
  }
}

bool ChildProcess::WaitForExit(std::chrono::milliseconds deadline) {
  return WaitUntil([this] { return !IsRunning(); }, deadline);
}

bool ChildProcess::Terminate(std::chrono::milliseconds deadline) {
  Signal(SIGTERM);
  Signal(SIGCONT);  // a stopped program would not hear of it
  if (WaitForExit(deadline)) {
    return true;
  }
  Kill();
  return false;
}

void ChildProcess::Kill() {
  Signal(SIGKILL);
  Reap(0);
}

std::string ChildProcess::Output() const {
  std::ostringstream text;
  text << std::ifstream(output_file_, std::ios::binary).rdbuf();
  return text.str();
}
