#include "library_file.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstring>
#include <fstream>
#include <set>

#include <boost/core/demangle.hpp>

namespace {

/// The head of an ELF file as far as it is the same for 32 and 64 bits.
struct Machine {
  unsigned char bits = 0;  ///< ELFCLASS32 or ELFCLASS64
  Elf32_Half number = 0;   ///< EM_...
  bool operator==(const Machine& other) const {
    return bits == other.bits && number == other.number;
  }
};

/// @return whether it is an ELF file.
bool ReadMachine(const std::string& path, Machine* machine) {
  Elf32_Ehdr head = {};
  std::ifstream file(path, std::ios::binary);
  file.read(reinterpret_cast<char*>(&head), sizeof(head));
  machine->bits = head.e_ident[EI_CLASS];
  machine->number = head.e_machine;
  return file && memcmp(head.e_ident, ELFMAG, SELFMAG) == 0;
}

std::string Name(const Machine& machine) {
  switch (machine.number) {
    case EM_X86_64:
      return "x86-64";
    case EM_386:
      return "x86";
    case EM_ARM:
      return "32-bit ARM";
    case EM_AARCH64:
      return "64-bit ARM";
    default:
      return "machine " + std::to_string(machine.number) + " of ELF";
  }
}

/// The files of jsoncpp that are loaded.
std::set<std::string> LoadedJsoncpp() {
  std::set<std::string> files;
  dl_iterate_phdr(
      [](dl_phdr_info* info, size_t, void* found) {
        const std::string name = info->dlpi_name;
        const size_t base = name.rfind('/') + 1;
        if (name.compare(base, strlen("libjsoncpp."), "libjsoncpp.") == 0) {
          static_cast<std::set<std::string>*>(found)->insert(name.substr(base));
        }
        return 0;
      },
      &files);
  return files;
}

std::string WhyNotLoaded(const std::string& error) {
  const std::string undefined = "undefined symbol: ";
  const size_t symbol = error.find(undefined);
  if (symbol != std::string::npos) {
    const size_t begin = symbol + undefined.size();
    return "needs what neither it nor a platform has: " +
           boost::core::demangle(
               error.substr(begin, error.find_first_of(" ,", begin) - begin).c_str());
  }
  const size_t jsoncpp = error.find("libjsoncpp.so");
  if (jsoncpp != std::string::npos && error.find("cannot open shared object") != error.npos) {
    return "needs another jsoncpp, " + error.substr(jsoncpp, error.find(':', jsoncpp) - jsoncpp) +
           ", than this program, " + *LoadedJsoncpp().begin();
  }
  return "cannot be loaded: " + error;
}

}  // namespace

std::string LibraryPath(const std::string& word) {
  return word.find('/') == std::string::npos ? "./" + word : word;
}

bool IsLibrary(const std::string& path) {
  Machine machine;
  return ReadMachine(path, &machine);
}

std::string WhatIsWrong(const std::string& path) {
  Machine own;
  Machine machine;
  if (!std::ifstream(path)) {
    return "cannot be read";
  }
  if (!ReadMachine(path, &machine)) {
    return "is no shared library";
  }
  if (ReadMachine("/proc/self/exe", &own) && !(machine == own)) {
    return "is for " + Name(machine) + "; this program is for " + Name(own);
  }
  const std::set<std::string> jsoncpp = LoadedJsoncpp();
  void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    return WhyNotLoaded(dlerror());
  }
  for (const std::string& file : LoadedJsoncpp()) {
    if (jsoncpp.count(file) == 0) {
      return "needs another jsoncpp, " + file + ", than this program, " + *jsoncpp.begin();
    }
  }
  for (const char* name : {"create_adapter", "destory_adapter"}) {
    if (dlsym(library, name) == nullptr) {
      return std::string("does not export ") + name;
    }
  }
  dlclose(library);
  return "";
}
