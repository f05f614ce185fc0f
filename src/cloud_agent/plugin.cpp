#include "cloud_agent/plugin.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstdio>
#include <cstring>

namespace agent {
namespace {

/// Looks through the notes of the library that is loaded at an address.
struct BuildIdSearch {
  ElfW(Addr) address;
  std::string build_id;

  static int Look(dl_phdr_info* info, std::size_t, void* closure) {
    auto* search = static_cast<BuildIdSearch*>(closure);
    if (info->dlpi_addr != search->address) {
      return 0;
    }
    for (int i = 0; i < info->dlpi_phnum; ++i) {
      const ElfW(Phdr)& segment = info->dlpi_phdr[i];
      if (segment.p_type == PT_NOTE) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): that is how the loader tells it.
        const char* notes = reinterpret_cast<const char*>(info->dlpi_addr + segment.p_vaddr);
        search->LookIn(notes, notes + segment.p_memsz);
      }
    }
    return 1;
  }

  /// Name and description of a note each fill a multiple of four bytes.
  static std::size_t Padded(std::size_t size) { return (size + 3) / 4 * 4; }

  void LookIn(const char* note, const char* end) {
    ElfW(Nhdr) header;
    while (end - note >= static_cast<std::ptrdiff_t>(sizeof(header))) {
      std::memcpy(&header, note, sizeof(header));
      const char* name = note + sizeof(header);
      const char* description = name + Padded(header.n_namesz);
      if (header.n_type == NT_GNU_BUILD_ID && header.n_namesz == 4 &&
          std::memcmp(name, "GNU", 4) == 0) {
        for (std::size_t i = 0; i < header.n_descsz; ++i) {
          char digits[3];
          std::snprintf(digits, sizeof(digits), "%02x",
                        static_cast<unsigned>(static_cast<unsigned char>(description[i])));
          build_id += digits;
        }
        return;
      }
      note = description + Padded(header.n_descsz);
    }
  }
};

}  // namespace

std::shared_ptr<Plugin> Plugin::Load(const std::string& path, std::string* error) {
  // Without a slash dlopen() would search the system's library path.
  const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
  void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    const char* reason = dlerror();
    *error = path + ": cannot be loaded: " + (reason != nullptr ? reason : "unknown reason");
    return nullptr;
  }
  std::shared_ptr<Plugin> plugin(new Plugin(library));
  plugin->create_ = reinterpret_cast<CreateFunction>(dlsym(library, "create_adapter"));
  if (plugin->create_ == nullptr) {
    *error = path + ": exports no create_adapter";
    return nullptr;
  }
  plugin->destroy_ = reinterpret_cast<DestroyFunction>(dlsym(library, "destory_adapter"));
  if (plugin->destroy_ == nullptr) {
    *error = path + ": exports no destory_adapter";
    return nullptr;
  }
  return plugin;
}

Plugin::~Plugin() { dlclose(library_); }

std::string Plugin::BuildId() const {
  const link_map* loaded = nullptr;
  if (dlinfo(library_, RTLD_DI_LINKMAP, &loaded) != 0) {
    return "";
  }
  BuildIdSearch search{loaded->l_addr, ""};
  dl_iterate_phdr(BuildIdSearch::Look, &search);
  return search.build_id;
}

AdapterPtr Plugin::CreateAdapter(const std::shared_ptr<Plugin>& plugin,
                                 boost::shared_ptr<tarvex::EventService> event_service, int id) {
  return AdapterPtr(plugin->create_(event_service, id),
                    [plugin](BaseAdapter* adapter) { plugin->destroy_(adapter); });
}

}  // namespace agent
