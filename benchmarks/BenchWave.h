#pragma once

// A minute of sound of 48 kHz in stereo, written and read in pieces. Each way ends the program if it fails.

#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <mutex>
#include <string>
#include <vector>

#include "BenchFiles.h"
#include "BenchText.h"
#include "UtlWaveFile.h"

namespace utlbench {

constexpr unsigned int RATE = 48000;
constexpr unsigned int PIECE = 4096;
constexpr unsigned int PIECES = 60 * RATE * 2 * 2 / PIECE;

inline void check(bool condition) {
    if (!condition) {
        giveUp("a minute of sound is not as it should be");
    }
}

/// The folder and the file in it.
inline std::string const& soundFolder() {
    static BenchFolder const thePlace;
    static std::string const theFolder = thePlace.make("sound");
    return theFolder;
}

inline std::string const& soundPath() {
    static std::string const thePath = soundFolder() + "/minute.wav";
    return thePath;
}

inline std::vector<char>& soundPiece() {
    static std::vector<char> thePiece(PIECE, 'x');
    return thePiece;
}

inline void writeMinute() {
    utl::WaveFile file(soundPath().c_str());
    check(file.open(1, 1) == 0 && file.setFmtChunkData(RATE, 2, 16, 1) != 0 && file.openSubChunk(0, 1) != 0);
    for (unsigned int i = 0; i < PIECES; ++i) {
        check(file.write(soundPiece().data(), PIECE) == static_cast<int>(PIECE));
    }
    check(file.close() != 0);
}

inline void readMinute() {
    utl::WaveFile file(soundPath().c_str());
    check(file.open(0, 0) == 0 && file.openSubChunk(0, 1) != 0);
    unsigned int pieces = 0;
    int count = 0;
    while ((count = file.read(soundPiece().data(), PIECE)) > 0) {
        ++pieces;
    }
    check(pieces == PIECES && count == -4 && file.close() != 0);
}

// --- the system calls of the library under a plain lock

/// The system calls of a write, with the folder's mode widened meanwhile.
inline ssize_t writeBarePiece(int file, char const* folder) {
    struct stat before = {};
    struct stat after = {};
    stat(folder, &before);
    chmod(folder, 0777);
    ssize_t const count = write(file, soundPiece().data(), PIECE);
    stat(folder, &after);
    chmod(folder, before.st_mode & 07777);
    lseek(file, 0, SEEK_CUR);
    return count;
}

inline ssize_t readBarePiece(int file) {
    struct stat status = {};
    fstat(file, &status);
    return read(file, soundPiece().data(), PIECE);
}

template <typename CALL>
ssize_t locked(CALL call) {
    static std::mutex theLock;
    std::lock_guard<std::mutex> const guard(theLock);
    return call();
}

inline void writeBareMinute() {
    int const file = open(soundPath().c_str(), O_RDWR | O_CREAT | O_TRUNC, 0777);
    for (unsigned int i = 0; i < PIECES; ++i) {
        check(locked([file] { return writeBarePiece(file, soundFolder().c_str()); }) ==
              static_cast<ssize_t>(PIECE));
    }
    fsync(file);
    close(file);
}

inline void readBareMinute() {
    int const file = open(soundPath().c_str(), O_RDONLY);
    std::size_t bytes = 0;
    ssize_t count = 0;
    while ((count = locked([file] { return readBarePiece(file); })) > 0) {
        bytes += static_cast<std::size_t>(count);
    }
    check(bytes >= std::size_t{PIECE} * PIECES);
    close(file);
}

// --- libsndfile

inline void writeMinuteByLibsndfile() {
    SF_INFO info = {};
    info.samplerate = static_cast<int>(RATE);
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* const file = sf_open(soundPath().c_str(), SFM_WRITE, &info);
    for (unsigned int i = 0; i < PIECES; ++i) {
        check(sf_write_raw(file, soundPiece().data(), PIECE) == static_cast<sf_count_t>(PIECE));
    }
    check(sf_close(file) == 0);
}

inline void readMinuteByLibsndfile() {
    SF_INFO info = {};
    SNDFILE* const file = sf_open(soundPath().c_str(), SFM_READ, &info);
    unsigned int pieces = 0;
    while (sf_read_raw(file, soundPiece().data(), PIECE) > 0) {
        ++pieces;
    }
    check(pieces == PIECES && sf_close(file) == 0);
}

}  // namespace utlbench
