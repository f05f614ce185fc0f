// Lets a host see whether the databases of its process are there.
#pragma once

#include <map>
#include <string>

namespace tarvex {

/// The databases that are open in this process, by name, and whether each is connected.
/// Any thread.
std::map<std::string, bool> DatabaseStates();

}  // namespace tarvex
