// What a plug-in did with a capture, as text for people, and how two such texts differ.
//
//   capture results.jsonl, camera DESK0001
//   == 3.120000 request gpio_out 1.0 {"body":{"io":1},"type":"gpio_out"}
//     asks EVS_GPIO_CONTROL, waits 300 ms
//     ...
#pragma once

#include <istream>
#include <string>
#include <vector>

namespace replay {

/// What one event of the capture led to.
struct Step {
  std::string title;               ///< a line that is not indented
  std::vector<std::string> lines;  ///< indented
};
using Transcript = std::vector<Step>;

Transcript ReadTranscript(std::istream& text);

std::string Text(const Transcript& transcript);

struct Difference {
  std::size_t steps = 0;  ///< that are not the same
  std::string text;       ///< in the manner of a unified diff; empty without a difference
};

/// Both are of the same captures.
Difference Compare(const Transcript& before, const Transcript& after);

/// Bytes as they stand in a transcript: ASCII without control characters.
std::string Escaped(const std::string& bytes);

/// A text's lines, each escaped with its end.
std::vector<std::string> Lines(const std::string& text);

/// The same; of bytes that are no text a hexadecimal dump.
std::vector<std::string> Shown(const std::string& bytes);

}  // namespace replay
