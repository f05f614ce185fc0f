// The times of each piece of work, beside the same work done naively.
#include <benchmark/benchmark.h>

#include <string>

#include "work.h"

namespace {

void Register(const std::string& name, const bench::Work& work, const std::function<void()>& run) {
  benchmark::RegisterBenchmark(name.c_str(), [&work, run](benchmark::State& state) {
    work.prepare();
    for (auto _ : state) {
      run();
    }
  });
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  for (const bench::Work& work : bench::AllWork()) {
    Register(work.name + "/plug_in", work, work.plug_in);
    Register(work.name + "/naive", work, work.naive);
  }
  benchmark::RunSpecifiedBenchmarks();
}
