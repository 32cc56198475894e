// A minute of sound written and read in pieces, against the system calls, locks and signs of life that it
// promises, and compared with libsndfile.

#include "UtlWaveFile.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pthread.h>
#include <sndfile.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "BenchFiles.h"
#include "BenchRatio.h"

namespace {

using utlbench::BenchFolder;
using utlbench::change;
using utlbench::look;
using utlbench::reported;

constexpr unsigned int RATE = 48000;
constexpr unsigned int PIECE = 4096;
constexpr unsigned int PIECES = 60 * RATE * 2 * 2 / PIECE;

BenchFolder const PLACE;
std::string const FOLDER = PLACE.make("sound");
std::string const PATH = FOLDER + "/minute.wav";

std::vector<char> gPiece(PIECE);

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void writeMinute() {
    utl::WaveFile file(PATH.c_str());
    check(file.open(1, 1) == 0 && file.setFmtChunkData(RATE, 2, 16, 1) != 0 && file.openSubChunk(0, 1) != 0);
    for (unsigned int i = 0; i < PIECES; ++i) {
        check(file.write(gPiece.data(), PIECE) == static_cast<int>(PIECE));
    }
    check(file.close() != 0);
}

void readMinute() {
    utl::WaveFile file(PATH.c_str());
    check(file.open(0, 0) == 0 && file.openSubChunk(0, 1) != 0);
    int count = 0;
    for (unsigned int i = 0; (count = file.read(gPiece.data(), PIECE)) > 0; ++i) {
        check(i < PIECES);
    }
    check(count == -4 && file.close() != 0);
}

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
    char const* const folder = FOLDER.c_str();
    int const file = open(PATH.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0777);
    for (unsigned int i = 0; i < PIECES; ++i) {
        check(locks.around([file, folder] {
            struct stat before = {};
            struct stat after = {};
            look(folder, &before);
            change(folder, 0777);
            ssize_t const count = reported([file] { return write(file, gPiece.data(), PIECE); });
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
    int const file = open(PATH.c_str(), O_RDONLY);
    ssize_t count = 0;
    do {
        count = locks.around([file] {
            struct stat status = {};
            reported([file, &status] { return fstat(file, &status); });
            return read(file, gPiece.data(), PIECE);
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
        SF_INFO info = {};
        info.samplerate = static_cast<int>(RATE);
        info.channels = 2;
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        SNDFILE* file = sf_open(PATH.c_str(), SFM_WRITE, &info);
        for (unsigned int i = 0; i < PIECES; ++i) {
            check(sf_write_raw(file, gPiece.data(), PIECE) == static_cast<sf_count_t>(PIECE));
        }
        sf_close(file);
        info = SF_INFO();
        file = sf_open(PATH.c_str(), SFM_READ, &info);
        while (sf_read_raw(file, gPiece.data(), PIECE) > 0) {
        }
        sf_close(file);
    }
}
BENCHMARK(libsndfileMinute);

}  // namespace
