// A program run by a test, ended with it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// Used by one thread, which lives as long as the child is to: the child is killed
/// when the thread that started it ends, however that happens.
class ChildProcess {
 public:
  /// Starts a program with standard output and error appended to a file.
  /// @param command     program and arguments; a program without a slash is looked for
  ///                    in PATH and in the directories of system programs.
  /// @param environment added to that of the test.
  /// Throws std::runtime_error when the program cannot be started.
  ChildProcess(const std::vector<std::string>& command, const std::string& output_file,
               const std::map<std::string, std::string>& environment = {});

  /// Kills the program if it still runs.
  ~ChildProcess();

  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return pid_; }

  bool IsRunning();

  /// Sends a signal; nothing once the program has ended.
  void Signal(int signal);

  /// Stops the program (SIGSTOP), and returns when it stands still.
  void Freeze();

  /// Lets a frozen program go on.
  void Thaw() { Signal(SIGCONT); }

  /// @return whether the program ended in time.
  bool WaitForExit(std::chrono::milliseconds deadline = std::chrono::milliseconds(20000));

  /// SIGTERM, and SIGKILL when that did not end it in time.
  /// @return whether it ended by itself.
  bool Terminate(std::chrono::milliseconds deadline = std::chrono::milliseconds(20000));

  /// SIGKILL, and waits for the end.
  void Kill();

  /// Exit code of a program that has ended; minus the signal that killed it.
  std::optional<int> exit_code() const { return exit_code_; }

  /// What the program has written so far.
  std::string Output() const;

 private:
  void Reap(int wait_flags);

  pid_t pid_ = -1;
  std::optional<int> exit_code_;
  std::string output_file_;
};

/// A program's full path, or an empty text when there is none.
std::string FindProgram(const std::string& name);
