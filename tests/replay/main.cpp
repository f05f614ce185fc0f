// adapter_replay: what a capture makes of one build of the plug-in, and what of another. Each
// library runs in a process of its own, so that a crash is a line of the transcript, and two of
// them share nothing.
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "capture/capture.h"
#include "library_file.h"
#include "player.h"
#include "transcript.h"

namespace {

constexpr int kDiffers = 1;
constexpr int kUnusable = 2;
constexpr char kUsage[] =
    "usage: adapter_replay CAPTURE... --plugin LIBRARY [--against LIBRARY|TRANSCRIPT]\n"
    "                      [--timeout SECONDS]\n"
    "Runs what a plug-in was given on a device through LIBRARY, a libmqttadapter.so, and prints\n"
    "what it does. With --against it prints how that differs from what another library does, or\n"
    "from what was printed before. A library has 300 seconds for a capture, or those of "
    "--timeout.\n"
    "exit status: 0 no difference, 1 a difference, or LIBRARY does not come to the end,\n"
    "             2 a file cannot be used\n";

struct Arguments {
  std::vector<std::string> captures;
  std::string plugin;
  std::string against;
  unsigned int timeout_s = 300;
};

struct NamedCapture {
  std::string name;
  capture::Capture capture;
};

/// The output of a child process, and how it ended.
struct ChildResult {
  std::string output;
  std::string failure;  ///< empty: it came to its end
};

void Write(int file, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t written = write(file, text.data() + done, text.size() - done);
    if (written <= 0) {
      _exit(kUnusable);
    }
    done += static_cast<std::size_t>(written);
  }
}

std::string FailureOf(int status) {
  if (WIFSIGNALED(status)) {
    return WTERMSIG(status) == SIGALRM
               ? "does not come to its end in time"
               : std::string("ends the process: ") + strsignal(WTERMSIG(status));
  }
  return WEXITSTATUS(status) == 0
             ? ""
             : "ends the process with exit status " + std::to_string(WEXITSTATUS(status));
}

/// @param task writes its output to the file that it is given.
ChildResult InChild(const std::function<void(int output)>& task) {
  int ends[2];
  if (pipe(ends) != 0) {
    throw std::runtime_error("no pipe");
  }
  const pid_t child = fork();
  if (child < 0) {
    throw std::runtime_error("no process");
  }
  if (child == 0) {
    close(ends[0]);
    task(ends[1]);
    _exit(0);
  }
  close(ends[1]);
  ChildResult result;
  char buffer[65536];
  for (ssize_t length = 0; (length = read(ends[0], buffer, sizeof(buffer))) > 0;) {
    result.output.append(buffer, static_cast<std::size_t>(length));
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  result.failure = FailureOf(status);
  return result;
}

void CheckLibrary(const std::string& library) {
  const ChildResult check = InChild([&](int output) { Write(output, WhatIsWrong(library)); });
  const std::string wrong = check.failure.empty() ? check.output : check.failure;
  if (!wrong.empty()) {
    throw std::runtime_error(library + " " + wrong);
  }
}

replay::Transcript Played(const NamedCapture& named, const std::string& library,
                          unsigned int timeout_s, bool* came_to_its_end) {
  const ChildResult play = InChild([&](int output) {
    alarm(timeout_s);
    const auto say = [output](const std::string& line) { Write(output, line + "\n"); };
    say("capture " + named.name + ", camera " + replay::Escaped(named.capture.header.sn));
    try {
      replay::Player(named.capture, say).Play(library);
    } catch (const std::exception& error) {
      say(std::string("  cannot be played: ") + error.what());
      _exit(kDiffers);
    }
  });
  std::istringstream text(play.output);
  replay::Transcript transcript = replay::ReadTranscript(text);
  if (!play.failure.empty() && !transcript.empty()) {
    transcript.back().lines.push_back("  " + play.failure);
    *came_to_its_end = false;
  }
  return transcript;
}

replay::Transcript PlayedAll(const std::vector<NamedCapture>& captures, const std::string& library,
                             unsigned int timeout_s, bool* came_to_its_end) {
  replay::Transcript all;
  for (const NamedCapture& named : captures) {
    const replay::Transcript one = Played(named, library, timeout_s, came_to_its_end);
    all.insert(all.end(), one.begin(), one.end());
  }
  return all;
}

replay::Transcript ReadEarlier(const std::string& path) {
  std::ifstream file(path);
  if (!file) {
    throw std::runtime_error(path + " cannot be read");
  }
  replay::Transcript transcript = replay::ReadTranscript(file);
  if (transcript.empty() || transcript[0].title.compare(0, 8, "capture ") != 0) {
    throw std::runtime_error(path + " is neither a library nor a transcript");
  }
  return transcript;
}

std::vector<NamedCapture> ReadCaptures(const std::vector<std::string>& paths) {
  std::vector<NamedCapture> captures;
  for (const std::string& path : paths) {
    std::ifstream file(path);
    captures.push_back({path.substr(path.rfind('/') + 1), capture::ReadCapture(file, path)});
  }
  return captures;
}

int Run(const Arguments& arguments) {
  const std::vector<NamedCapture> captures = ReadCaptures(arguments.captures);
  CheckLibrary(arguments.plugin);
  const bool is_against_library = IsLibrary(arguments.against);
  if (is_against_library) {
    CheckLibrary(arguments.against);
  }
  bool came_to_its_end = true;
  const auto played = [&](const std::string& library) {
    return PlayedAll(captures, library, arguments.timeout_s, &came_to_its_end);
  };
  if (arguments.against.empty()) {
    std::cout << replay::Text(played(arguments.plugin));
    return came_to_its_end ? 0 : kDiffers;
  }
  const replay::Transcript before =
      is_against_library ? played(arguments.against) : ReadEarlier(arguments.against);
  const replay::Transcript after = played(arguments.plugin);
  const replay::Difference difference = replay::Compare(before, after);
  if (difference.steps == 0) {
    std::string names;
    for (const NamedCapture& named : captures) {
      names += (names.empty() ? "" : ", ") + named.name;
    }
    std::cout << names << ": no difference in " << after.size() << " steps\n";
    return came_to_its_end ? 0 : kDiffers;
  }
  std::cout << "--- " << arguments.against << "\n+++ " << arguments.plugin << "\n"
            << difference.text << difference.steps << " of " << after.size() << " steps differ\n";
  return kDiffers;
}

/// Throws std::runtime_error.
unsigned int Seconds(const std::string& word) {
  const bool is_number = !word.empty() && word.size() <= 6 &&
                         word.find_first_not_of("0123456789") == std::string::npos;
  if (!is_number || std::stoul(word) == 0) {
    throw std::runtime_error("--timeout takes whole seconds, not " + word);
  }
  return static_cast<unsigned int>(std::stoul(word));
}

/// Throws std::runtime_error.
Arguments Read(int argc, char** argv) {
  Arguments arguments;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if ((word == "--plugin" || word == "--against") && i + 1 < argc) {
      (word == "--plugin" ? arguments.plugin : arguments.against) = argv[++i];
    } else if (word == "--timeout" && i + 1 < argc) {
      arguments.timeout_s = Seconds(argv[++i]);
    } else if (word.empty() || word[0] == '-') {
      throw std::runtime_error("unexpected: " + word + "\n" + kUsage);
    } else {
      arguments.captures.push_back(word);
    }
  }
  if (arguments.captures.empty() || arguments.plugin.empty()) {
    throw std::runtime_error(
        (arguments.captures.empty() ? "which capture?\n" : "which library?\n") +
        std::string(kUsage));
  }
  arguments.plugin = LibraryPath(arguments.plugin);
  if (!arguments.against.empty()) {
    arguments.against = LibraryPath(arguments.against);
  }
  return arguments;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::string(argv[1]) == "--help") {
    std::cout << kUsage;
    return 0;
  }
  try {
    return Run(Read(argc, argv));
  } catch (const std::exception& error) {
    std::cerr << "adapter_replay: " << error.what() << '\n';
    return kUnusable;
  }
}
