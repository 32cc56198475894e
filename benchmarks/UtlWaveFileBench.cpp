// A minute of sound written and read in pieces, against the system calls, locks and signs of life that it
// promises, and compared with libsndfile.

#include "UtlWaveFile.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pthread.h>

#include "BenchFiles.h"
#include "BenchRatio.h"
#include "BenchWave.h"

namespace {

using namespace utlbench;  // the minute

// The locks of the wave file, the container and the sub-chunk, each taken with a sign of life around it.
class BareLocks {
  public:
    template <typename CALL>
    auto around(CALL call) {
        for (pthread_mutex_t& lock : mLocks) {
            reported([&lock] { return pthread_mutex_lock(&lock); });
        }
        auto const result = call();
        for (pthread_mutex_t& lock : mLocks) {
            pthread_mutex_unlock(&lock);
        }
        return result;
    }

  private:
    pthread_mutex_t mLocks[3] = {PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP,
                                 PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP,
                                 PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP};
};

void writeBareMinute() {
    BareLocks locks;
    char const* const folder = soundFolder().c_str();
    int const file = open(soundPath().c_str(), O_RDWR | O_CREAT | O_TRUNC, 0777);
    for (unsigned int i = 0; i < PIECES; ++i) {
        check(locks.around([file, folder] {
            struct stat before = {};
            struct stat after = {};
            look(folder, &before);
            change(folder, 0777);
            ssize_t const count = reported([file] { return write(file, soundPiece().data(), PIECE); });
            look(folder, &after);
            change(folder, before.st_mode & 07777);
            reported([file] { return lseek(file, 0, SEEK_CUR); });
            return count;
        }) == static_cast<ssize_t>(PIECE));
    }
    fsync(file);
    close(file);
}

void readBareMinute() {
    BareLocks locks;
    int const file = open(soundPath().c_str(), O_RDONLY);
    ssize_t count = 0;
    do {
        count = locks.around([file] {
            struct stat status = {};
            reported([file, &status] { return fstat(file, &status); });
            return read(file, soundPiece().data(), PIECE);
        });
    } while (count > 0);
    fsync(file);
    close(file);
}

UTL_RATIO_CPU(
    "write and read 60 s of 48 kHz stereo in pieces of 4096 bytes, to the bare calls",
    [] {
        writeMinute();
        readMinute();
    },
    [] {
        writeBareMinute();
        readBareMinute();
    },
    1.2);

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
