// What all fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

/// Ends the program, with a line that says `what`, unless it holds.
void Check(bool holds, const std::string& what);

/// The input up to a character, which is taken off it with that; all of it without one.
std::string TakeUpTo(char end, std::string* input);

}  // namespace fuzz

/// Called by libFuzzer for each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
