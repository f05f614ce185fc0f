#include "outage/power_cut.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "support/wait_until.h"

namespace fs = std::filesystem;

void CopyStoreFiles(const fs::path& from, const fs::path& to) {
  for (const char* file : {"camera.db", "camera.db-wal"}) {
    if (fs::exists(from / file)) {
      fs::copy_file(from / file, to / file);
    }
  }
}

std::uint64_t CountFaultsOf(const StoreReader& store, const std::set<std::uint32_t>& announced,
                            const Journal& journal, const fs::path& pictures,
                            std::uint32_t* checked) {
  std::uint64_t faults = 0;
  const std::string finding = store.IntegrityFinding();
  if (finding != "ok") {
    printf("POWER CUT: the store is damaged: %s\n", finding.c_str());
    ++faults;
  }
  const StoredResults stored = store.Read();
  for (const std::uint32_t id : announced) {
    if (stored.all.count(id) == 0) {
      printf("POWER CUT: result %u passed on the bus and is not in the store\n", id);
      ++faults;
    }
  }
  for (auto id = stored.all.upper_bound(*checked); id != stored.all.end(); ++id) {
    for (const char* kind : {"_full.jpg", "_clip.jpg"}) {
      std::error_code error;
      if (fs::file_size(pictures / (std::to_string(*id) + kind), error) == 0 || error) {
        printf("POWER CUT: result %u is in the store without its picture %s\n", *id, kind);
        ++faults;
      }
    }
    *checked = *id;
  }
  std::set<std::uint32_t> missing;
  std::set_difference(stored.all.begin(), stored.all.end(), stored.undelivered.begin(),
                      stored.undelivered.end(), std::inserter(missing, missing.end()));
  // The subscriber may still have to read what the broker has acknowledged to the agent.
  WaitUntil([&] {
    for (auto id = missing.begin(); id != missing.end();) {
      id = journal.Has(*id) ? missing.erase(id) : std::next(id);
    }
    return missing.empty();
  });
  for (const std::uint32_t id : missing) {
    printf("POWER CUT: result %u is marked as delivered and was never received\n", id);
    ++faults;
  }
  return faults;
}
