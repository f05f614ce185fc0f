// What a run has found, for people and for machines.
#pragma once

#include <iosfwd>

#include "ledger.h"

namespace hostcheck {

/// One line for each check: kept, broken or not exercised.
void PrintReport(const Ledger& ledger, std::ostream* out);

/// The same as JUnit's XML.
void PrintJunit(const Ledger& ledger, std::ostream* out);

}  // namespace hostcheck
