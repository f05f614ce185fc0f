// A library that somebody else has built, looked at before it is used.
#pragma once

#include <string>

/// A path that the loader does not search for.
std::string LibraryPath(const std::string& word);

/// Whether a file is a program or library of any machine.
bool IsLibrary(const std::string& path);

/// Why a host cannot use the library; empty where it can. Loads it, and unloads it.
std::string WhatIsWrong(const std::string& path);
