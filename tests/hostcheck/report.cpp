#include "report.h"

#include <ostream>
#include <string>

#include "checks.h"

namespace hostcheck {
namespace {

using State = Ledger::State;

const char* Name(State state) {
  switch (state) {
    case State::kKept:
      return "kept";
    case State::kBroken:
      return "BROKEN";
    case State::kNotExercised:
      break;
  }
  return "not exercised";
}

int Count(const Ledger& ledger, State state) {
  int count = 0;
  for (const Check& check : kChecks) {
    count += ledger.verdict(check.name).state == state ? 1 : 0;
  }
  return count;
}

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (character == '&') {
      escaped += "&amp;";
    } else if (character == '<') {
      escaped += "&lt;";
    } else if (character == '"') {
      escaped += "&quot;";
    } else {
      escaped += byte < 0x20 || byte > 0x7E ? '?' : character;
    }
  }
  return escaped;
}

}  // namespace

void PrintReport(const Ledger& ledger, std::ostream* out) {
  for (const Check& check : kChecks) {
    const Ledger::Verdict& verdict = ledger.verdict(check.name);
    std::string state = Name(verdict.state);
    state.resize(15, ' ');
    *out << state << check.name << ": " << check.what << '\n';
    if (!verdict.moment.empty() && verdict.state != State::kKept) {
      *out << "               " << verdict.moment << '\n';
    }
  }
  *out << Count(ledger, State::kKept) << " kept, " << Count(ledger, State::kBroken) << " broken, "
       << Count(ledger, State::kNotExercised) << " not exercised\n";
}

void PrintJunit(const Ledger& ledger, std::ostream* out) {
  *out << R"(<?xml version="1.0" encoding="UTF-8"?>)"
       << "\n<testsuites><testsuite name=\"hostcheck\""
       << " tests=\"" << std::size(kChecks) << "\" failures=\"" << Count(ledger, State::kBroken)
       << "\" skipped=\"" << Count(ledger, State::kNotExercised) << "\">\n";
  for (const Check& check : kChecks) {
    const Ledger::Verdict& verdict = ledger.verdict(check.name);
    *out << "<testcase classname=\"hostcheck\" name=\"" << check.name << "\">";
    if (verdict.state != State::kKept) {
      *out << (verdict.state == State::kBroken ? "<failure" : "<skipped") << " message=\""
           << Escaped(verdict.moment) << "\"/>";
    }
    *out << "</testcase>\n";
  }
  *out << "</testsuite></testsuites>\n";
}

}  // namespace hostcheck
