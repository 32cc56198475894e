// A minute of sound written and read in pieces, against the system calls that it promises, and compared with
// libsndfile.

#include "UtlWaveFile.h"

#include <benchmark/benchmark.h>

#include "BenchRatio.h"
#include "BenchWave.h"

namespace {

using namespace utlbench;  // the minute

UTL_RATIO_CPU(
    "write 60 s of 48 kHz stereo in pieces of 4096 bytes, against the told system calls under a plain lock",
    writeMinute, writeBareMinute, 1.1);
UTL_RATIO_CPU("read 60 s of 48 kHz stereo in pieces of 4096 bytes, against fstat and read under a plain lock",
              readMinute, readBareMinute, 1.1);

void ourMinute(benchmark::State& state) {
    for ([[maybe_unused]] auto const _ : state) {
        writeMinute();
        readMinute();
    }
}
BENCHMARK(ourMinute);

void libsndfileMinute(benchmark::State& state) {
    for ([[maybe_unused]] auto const _ : state) {
        writeMinuteByLibsndfile();
        readMinuteByLibsndfile();
    }
}
BENCHMARK(libsndfileMinute);

}  // namespace
