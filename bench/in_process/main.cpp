// Runs the benchmarks of one topic, agent and floor:
//
//   bench_in_process reading TRANSCRIPTS | skip TRANSCRIPTS | cursor-save FOLDER STATES
//
// and whatever --benchmark_... says.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "bench/in_process/in_process.h"

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const std::string_view topic = argc < 3 ? "" : argv[1];
  if (topic == "reading" && argc == 3) {
    pelmar::registerReading(argv[2]);
  } else if (topic == "skip" && argc == 3) {
    pelmar::registerSkip(argv[2]);
  } else if (topic == "cursor-save" && argc == 4) {
    pelmar::registerCursorSave(argv[2], std::strtoul(argv[3], nullptr, 10));
  } else {
    std::fputs("usage: bench_in_process reading | skip | cursor-save FOLDER [STATES]\n", stderr);
    return 2;
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
