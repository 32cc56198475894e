// A minute of sound written and read in pieces, against the system calls that it promises, and compared with
// libsndfile.

#include "UtlWaveFile.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pthread.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "BenchFiles.h"
#include "BenchRatio.h"

namespace {

using utlbench::BenchFolder;

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

pthread_mutex_t gBareLock = PTHREAD_MUTEX_INITIALIZER;

// The system calls of a write, with the folder's mode widened meanwhile.
ssize_t writeBarePiece(int file, char const* folder) {
    struct stat before = {};
    struct stat after = {};
    stat(folder, &before);
    chmod(folder, 0777);
    ssize_t const count = write(file, gPiece.data(), PIECE);
    stat(folder, &after);
    chmod(folder, before.st_mode & 07777);
    lseek(file, 0, SEEK_CUR);
    return count;
}

ssize_t readBarePiece(int file) {
    struct stat status = {};
    fstat(file, &status);
    return read(file, gPiece.data(), PIECE);
}

template <typename CALL>
ssize_t locked(CALL call) {
    pthread_mutex_lock(&gBareLock);
    ssize_t const result = call();
    pthread_mutex_unlock(&gBareLock);
    return result;
}

void writeBareMinute() {
    int const file = open(PATH.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0777);
    for (unsigned int i = 0; i < PIECES; ++i) {
        check(locked([file] { return writeBarePiece(file, FOLDER.c_str()); }) == static_cast<ssize_t>(PIECE));
    }
    fsync(file);
    close(file);
}

void readBareMinute() {
    int const file = open(PATH.c_str(), O_RDONLY);
    while (locked([file] { return readBarePiece(file); }) > 0) {
    }
    close(file);
}

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
