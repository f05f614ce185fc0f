#include "transcript.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "platform/utf8.h"

namespace replay {
namespace {

constexpr std::size_t kContext = 3;
constexpr std::size_t kDumpRow_bytes = 16;
// Steps that have more lines than this one times the other are shown as all other lines.
constexpr std::size_t kMostCells = std::size_t{4} << 20U;

struct MarkedLine {
  char mark;  ///< ' ', '-' or '+'
  const std::string* line;
};

/// The shortest way from one text to the other, by the longest common subsequence.
std::vector<MarkedLine> Marked(const std::vector<std::string>& before,
                               const std::vector<std::string>& after) {
  std::size_t begin = 0;
  while (begin < before.size() && begin < after.size() && before[begin] == after[begin]) {
    ++begin;
  }
  std::size_t same_at_end = 0;
  while (begin + same_at_end < std::min(before.size(), after.size()) &&
         before[before.size() - 1 - same_at_end] == after[after.size() - 1 - same_at_end]) {
    ++same_at_end;
  }
  const std::size_t rows = before.size() - same_at_end - begin;
  const std::size_t columns = after.size() - same_at_end - begin;
  // The longest common subsequence from a row and a column on.
  std::vector<std::uint32_t> longest;
  const std::size_t width = columns + 1;
  if (rows * columns <= kMostCells) {
    longest.assign((rows + 1) * width, 0);
    for (std::size_t row = rows; row-- > 0;) {
      for (std::size_t column = columns; column-- > 0;) {
        longest[row * width + column] =
            before[begin + row] == after[begin + column]
                ? longest[(row + 1) * width + column + 1] + 1
                : std::max(longest[(row + 1) * width + column], longest[row * width + column + 1]);
      }
    }
  }
  std::vector<MarkedLine> marked;
  for (std::size_t i = 0; i < begin; ++i) {
    marked.push_back({' ', &before[i]});
  }
  std::size_t row = 0;
  std::size_t column = 0;
  while (row < rows || column < columns) {
    const bool has_both = row < rows && column < columns && !longest.empty();
    if (has_both && before[begin + row] == after[begin + column]) {
      marked.push_back({' ', &before[begin + row++]});
      ++column;
    } else if (row < rows && (!has_both || longest[(row + 1) * width + column] >=
                                               longest[row * width + column + 1])) {
      marked.push_back({'-', &before[begin + row++]});
    } else {
      marked.push_back({'+', &after[begin + column++]});
    }
  }
  for (std::size_t i = before.size() - same_at_end; i < before.size(); ++i) {
    marked.push_back({' ', &before[i]});
  }
  return marked;
}

std::string StepDifference(const std::vector<std::string>& before,
                           const std::vector<std::string>& after) {
  const std::vector<MarkedLine> marked = Marked(before, after);
  std::vector<bool> is_shown(marked.size());
  for (std::size_t i = 0; i < marked.size(); ++i) {
    if (marked[i].mark != ' ') {
      const std::size_t first = i - std::min(i, kContext);
      std::fill(
          is_shown.begin() + static_cast<std::ptrdiff_t>(first),
          is_shown.begin() + static_cast<std::ptrdiff_t>(std::min(i + kContext + 1, marked.size())),
          true);
    }
  }
  std::string text;
  for (std::size_t i = 0; i < marked.size(); ++i) {
    if (is_shown[i]) {
      text += marked[i].mark + *marked[i].line + "\n";
    } else if (i > 0 && is_shown[i - 1]) {
      text += "   ...\n";
    }
  }
  return text;
}

bool IsText(const std::string& bytes) {
  return tarvex::IsUtf8(bytes) && std::none_of(bytes.begin(), bytes.end(), [](char c) {
           const auto byte = static_cast<unsigned char>(c);
           return (byte < 0x20 && c != '\n' && c != '\r' && c != '\t') || byte == 0x7F;
         });
}

std::string Hexadecimal(std::size_t value, std::size_t digits) {
  std::string text;
  for (std::size_t digit = digits; digit-- > 0;) {
    text += "0123456789abcdef"[(value >> (4 * digit)) & 0xFU];
  }
  return text;
}

}  // namespace

Transcript ReadTranscript(std::istream& text) {
  Transcript transcript;
  for (std::string line; std::getline(text, line);) {
    if (line.empty() || line[0] != ' ') {
      transcript.push_back({line, {}});
    } else if (!transcript.empty()) {
      transcript.back().lines.push_back(line);
    }
  }
  return transcript;
}

std::string Text(const Transcript& transcript) {
  std::string text;
  for (const Step& step : transcript) {
    text += step.title + "\n";
    for (const std::string& line : step.lines) {
      text += line + "\n";
    }
  }
  return text;
}

Difference Compare(const Transcript& before, const Transcript& after) {
  static const Step kNothing;
  Difference difference;
  std::string capture;
  for (std::size_t i = 0; i < std::max(before.size(), after.size()); ++i) {
    const Step& one = i < before.size() ? before[i] : kNothing;
    const Step& other = i < after.size() ? after[i] : kNothing;
    const std::string& title = one.title.empty() ? other.title : one.title;
    const bool is_same_event = one.title.empty() || other.title.empty() || one.title == other.title;
    if (title.compare(0, 2, "==") != 0) {
      capture = title + "\n";
    }
    if (one.lines == other.lines && one.title == other.title) {
      continue;
    }
    ++difference.steps;
    difference.text += std::exchange(capture, "");
    if (is_same_event) {
      difference.text += "@@ " + title.substr(title.find(' ') + 1) + " @@\n" +
                         StepDifference(one.lines, other.lines);
    } else {
      difference.text += "-" + one.title + "\n+" + other.title + "\n";
    }
  }
  return difference;
}

std::string Escaped(const std::string& bytes) {
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      text += "\\n";
    } else if (c == '\\') {
      text += "\\\\";
    } else if (byte < 0x20 || byte >= 0x7F) {
      text += "\\x" + Hexadecimal(byte, 2);
    } else {
      text += c;
    }
  }
  return text;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size() - 1) + 1;
    lines.push_back(Escaped(text.substr(begin, end - begin)));
    begin = end;
  }
  return lines;
}

std::vector<std::string> Shown(const std::string& bytes) {
  if (IsText(bytes)) {
    return Lines(bytes);
  }
  std::vector<std::string> rows;
  for (std::size_t begin = 0; begin < bytes.size(); begin += kDumpRow_bytes) {
    rows.push_back(Hexadecimal(begin, 4) + " ");
    for (const char c : bytes.substr(begin, kDumpRow_bytes)) {
      rows.back() += " " + Hexadecimal(static_cast<unsigned char>(c), 2);
    }
  }
  return rows;
}

}  // namespace replay
