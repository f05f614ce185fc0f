// Cars keep coming while everything is killed, frozen and cut in random order. At the
// end the journal of an independent subscriber is held against the camera's store.
// Exit code 1 when a result is lost or anything else is wrong.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "outage/scene.h"

namespace {

struct Options {
  std::uint64_t results = 4000;
  int faults = 25;
  unsigned int seed = std::random_device()();
  double cars_per_second = 60;
  double clock_scale = 500;
  std::string mqtt_version = "auto";
  std::vector<std::string> switched_off_duties;
};

struct Fault {
  const char* name;
  double weight;  ///< how often, against the others
  std::function<void()> run;
};

using Clock = std::chrono::steady_clock;

/// Everything that is counted along the way.
struct Tally {
  struct Kind {
    int count = 0;
    std::uint64_t duplicates = 0;  // from each of them to the next fault
  };
  std::map<std::string, Kind> faults;
  std::uint64_t duplicates = 0;  // up to the end of the faults
  std::uint64_t longest_backlog = 0;
  int power_cuts = 0;
  std::uint64_t wrong_after_power_cuts = 0;
};

/// A camera that is killed while the plug-in asks it something costs the five seconds that
/// the plug-in waits for an answer, and a frozen broker the keep-alive: they are rare.
std::vector<Fault> Faults(Scene& scene, std::mt19937& random, Tally* tally) {
  const auto cut_power = [tally](std::uint64_t wrong) {
    ++tally->power_cuts;
    tally->wrong_after_power_cuts += wrong;
  };
  return {
      {"link cut at a random byte", 76,
       [&] { scene.CutLink(std::uniform_int_distribution<std::size_t>(1, 12000)(random)); }},
      {"broker killed", 7, [&] { scene.KillBroker(); }},
      {"broker frozen", 1, [&] { scene.FreezeBroker(); }},
      {"bus server killed", 7, [&] { scene.KillBus(); }},
      {"camera killed", 3, [&] { scene.KillCamera(); }},
      {"agent killed", 6, [&] { scene.KillAgent(); }},
      {"power cut, camera goes on", 2, [&scene, cut_power] { cut_power(scene.CopyStore()); }},
      {"power cut, camera restarts", 2, [&scene, cut_power] { cut_power(scene.CutPower()); }},
  };
}

std::uint64_t Duplicates(const Journal::Totals& totals) {
  return totals.live_duplicates + totals.redelivered_duplicates;
}

void RunFaults(const Options& options, Scene& scene, std::mt19937& random, Tally* tally) {
  const std::vector<Fault> faults = Faults(scene, random, tally);
  std::vector<double> weights;
  weights.reserve(faults.size());
  for (const Fault& fault : faults) {
    weights.push_back(fault.weight);
  }
  std::discrete_distribution<std::size_t> choose(weights.begin(), weights.end());
  const double pause_s =
      static_cast<double>(options.results) / options.cars_per_second / options.faults;
  std::exponential_distribution<double> pause(1.0 / pause_s);
  // The first faults are one of each kind, so that a short run has them all.
  std::vector<std::size_t> first(faults.size());
  for (std::size_t i = 0; i < first.size(); ++i) {
    first[i] = i;
  }
  std::shuffle(first.begin(), first.end(), random);

  std::string previous;
  const auto count_duplicates = [&] {
    const std::uint64_t now = Duplicates(scene.journal().totals());
    if (!previous.empty()) {
      tally->faults[previous].duplicates += now - tally->duplicates;
    }
    tally->duplicates = now;
  };
  Clock::time_point next = Clock::now();
  for (int done = 0; done < options.faults || scene.store().Count() < options.results; ++done) {
    next += std::chrono::milliseconds(static_cast<int>(pause(random) * 1000));
    std::this_thread::sleep_until(next);
    const auto at = static_cast<std::size_t>(done);
    const Fault& fault = faults[at < first.size() ? first[at] : choose(random)];
    count_duplicates();
    fault.run();
    ++tally->faults[fault.name].count;
    previous = fault.name;
    tally->longest_backlog = std::max(tally->longest_backlog, scene.store().CountUndelivered());
    if (done % 50 == 49) {
      printf("  %d faults, %llu results, %llu undelivered\n", done + 1,
             static_cast<unsigned long long>(scene.store().Count()),
             static_cast<unsigned long long>(scene.store().CountUndelivered()));
      fflush(stdout);
    }
  }
  count_duplicates();
}

/// Results that are neither at the subscriber nor undelivered in the store, and ones that
/// passed on the bus without being in the store.
std::uint64_t CountLost(const Scene& scene) {
  const StoredResults stored = scene.store().Read();
  std::uint64_t lost = 0;
  for (const std::uint32_t id : stored.all) {
    if (stored.undelivered.count(id) == 0 && !scene.journal().Has(id)) {
      printf("LOST: result %u is marked as delivered and was never received\n", id);
      ++lost;
    }
  }
  for (const std::uint32_t id : scene.journal().Announced()) {
    if (stored.all.count(id) == 0) {
      printf("LOST: result %u passed on the bus and is not in the store\n", id);
      ++lost;
    }
  }
  return lost;
}

/// What a receiver that keeps one result per plate id is left with that is wrong.
std::uint64_t CountConfused(const Journal::Totals& totals) {
  return totals.mixed_up + totals.under_two_ids;
}

void Print(const Options& options, const Tally& tally, const Scene& scene, std::uint64_t lost,
           double seconds) {
  const auto number = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
  const Journal::Totals totals = scene.journal().totals();
  int faults = 0;
  for (const auto& [name, kind] : tally.faults) {
    faults += kind.count;
  }
  printf("\nseed %u, %.0f seconds\n", options.seed, seconds);
  printf("results recognised     %llu\n", number(scene.store().Count()));
  printf("faults                 %d, and duplicates until the next one\n", faults);
  for (const auto& [name, kind] : tally.faults) {
    printf("  %-26s %6d %6llu\n", name.c_str(), kind.count, number(kind.duplicates));
  }
  printf("  %-26s %6s %6llu\n", "(then)", "", number(Duplicates(totals) - tally.duplicates));
  printf("messages received      %llu (%llu live, %llu re-delivered)\n", number(totals.messages),
         number(totals.live), number(totals.redelivered));
  printf("live share             %.1f %% of %llu results\n",
         100.0 * static_cast<double>(totals.live - totals.live_duplicates) /
             static_cast<double>(std::max<std::uint64_t>(totals.unique, 1)),
         number(totals.unique));
  printf("lost                   %llu\n", number(lost));
  printf("duplicates             %llu (%llu live, %llu re-delivered), %.3f per fault\n",
         number(Duplicates(totals)), number(totals.live_duplicates),
         number(totals.redelivered_duplicates),
         static_cast<double>(Duplicates(totals)) / std::max(faults, 1));
  printf("by plate id            %llu results, %llu of them twice, %llu mixed up\n",
         number(totals.unique), number(totals.under_two_ids), number(totals.mixed_up));
  printf("power cuts             %d, %llu things wrong in the store\n", tally.power_cuts,
         number(tally.wrong_after_power_cuts));
  printf("longest backlog        %llu\n", number(tally.longest_backlog));
}

int Run(const Options& options) {
  printf("outage: seed %u, %llu results, %d faults\n", options.seed,
         static_cast<unsigned long long>(options.results), options.faults);
  fflush(stdout);
  std::mt19937 random(options.seed);
  Scene::Options scene_options;
  scene_options.cars_per_second = options.cars_per_second;
  scene_options.clock_scale = options.clock_scale;
  scene_options.agent_options = {"--auto-push", "--mqtt-version", options.mqtt_version};
  for (const std::string& duty : options.switched_off_duties) {
    scene_options.agent_options.insert(scene_options.agent_options.end(), {"--no-duty", duty});
  }
  const Clock::time_point start = Clock::now();
  const char* const agent =
      options.switched_off_duties.empty() ? RIG_AGENT : RIG_AGENT_WITHOUT_DUTIES;
  Scene scene({RIG_CAMERA, RIG_CAMERA_CTL, agent, RIG_PLUGIN}, scene_options);
  Tally tally;
  std::uint64_t lost = 0;
  bool drained = false;
  try {
    RunFaults(options, scene, random, &tally);
    scene.StopCars();
    lost = CountLost(scene);
    printf("faults are over; undelivered %llu\n",
           static_cast<unsigned long long>(scene.store().CountUndelivered()));
    fflush(stdout);
    drained = scene.AwaitAgent() && scene.DrainStore(std::chrono::minutes(30));
    lost += CountLost(scene);
  } catch (const std::exception& error) {
    printf("%s; the end of the agent's log:\n%s\n", error.what(), scene.AgentLog().c_str());
  }
  if (!drained) {
    printf("NOT DRAINED: %llu results stay undelivered\n",
           static_cast<unsigned long long>(scene.store().CountUndelivered()));
  }
  const std::chrono::duration<double> elapsed = Clock::now() - start;
  Print(options, tally, scene, lost, elapsed.count());
  const bool all_is_well = lost == 0 && drained && tally.wrong_after_power_cuts == 0 &&
                           CountConfused(scene.journal().totals()) == 0;
  return all_is_well ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app(
      "Kills, freezes and cuts everything while cars keep coming, and counts what is lost");
  app.add_option("--results", options.results, "Results to be recognised at least")
      ->capture_default_str()
      ->check(CLI::Range(1, 100000000));
  app.add_option("--faults", options.faults, "Faults at least")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000000));
  app.add_option("--seed", options.seed, "Order and times of the faults (default: random)");
  app.add_option("--cars-per-second", options.cars_per_second)
      ->capture_default_str()
      ->check(CLI::Range(0.1, 1000.0));
  app.add_option("--clock-scale", options.clock_scale,
                 "The agent's delayed messages come this many times sooner")
      ->capture_default_str()
      ->check(CLI::Range(1.0, 100000.0));
  app.add_option("--mqtt-version", options.mqtt_version, "The agent's: 5, 3.1.1 or auto")
      ->capture_default_str()
      ->check(CLI::IsMember({"5", "3.1.1", "auto"}));
  app.add_option("--no-duty", options.switched_off_duties,
                 "Switches a duty of the host off, to see what it is for");
  CLI11_PARSE(app, argc, argv);
  try {
    return Run(options);
  } catch (const std::exception& error) {
    fprintf(stderr, "outage: %s\n", error.what());
    return 2;
  }
}
