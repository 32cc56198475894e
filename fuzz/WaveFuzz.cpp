// WAVE files: hostile ones beside a plain walk through their bytes, and a recording that is written and read
// again.

#include <string>

#include "Fuzz.h"
#include "RiffModel.h"
#include "Scratch.h"
#include "UtlWaveFile.h"

namespace {

using fuzz::Chunk;
using fuzz::Input;
using utl::WaveFile;

constexpr unsigned int CHUNKS_MAX = 64;
constexpr unsigned int FORMAT_BYTES = 16;

Chunk const* firstOf(fuzz::Container const& container, char const* id) {
    for (Chunk const& chunk : container.chunks) {
        if (chunk.id == id) {
            return &chunk;
        }
    }
    return nullptr;
}

int expectedResult(fuzz::Container const& container, std::string const& content) {
    if (container.result != 0) {
        return container.result;
    }
    Chunk const* const format = firstOf(container, "fmt");
    return container.formType != "WAVE"                    ? WaveFile::NO_WAVE_FILE
           : format == nullptr                             ? WaveFile::NO_FMT_CHUNK
           : firstOf(container, "data") == nullptr         ? WaveFile::NO_DATA_CHUNK
           : format->dataIn(content).size() < FORMAT_BYTES ? WaveFile::OPEN_FAILED
                                                           : WaveFile::OPENED;
}

void expectFormat(WaveFile* file, std::string const& format) {
    unsigned int const channels = fuzz::numberAt(format, 2, 2);
    unsigned int const rate = fuzz::numberAt(format, 4);
    unsigned int const bits = fuzz::numberAt(format, 14, 2);
    FUZZ_EXPECT(file->getFormatId() == fuzz::numberAt(format, 0, 2) && file->getChannel() == channels);
    FUZZ_EXPECT(file->getSamplingRate() == rate && file->getBitsWidth() == bits);
    FUZZ_EXPECT(file->getBytePerSec() == channels * rate * bits);
    FUZZ_EXPECT(file->getBlockAlign() == (bits * channels & 0xFFFF));
}

void expectData(WaveFile* file, std::string const& data) {
    FUZZ_EXPECT(file->openSubChunk(0, WaveFile::CHUNK_DATA) == 1);
    FUZZ_EXPECT(file->isOpenedSubChunk(WaveFile::CHUNK_DATA) == 1);
    std::string read;
    for (;;) {
        auto const part = fuzz::blockOf<char>(13);
        int const result = file->read(part.get(), 13);
        if (result == utl::SubChunk::END_OF_DATA) {
            break;
        }
        FUZZ_EXPECT(result > 0);
        read.append(part.get(), static_cast<size_t>(result));
    }
    FUZZ_EXPECT(read == data);
    FUZZ_EXPECT(file->closeSubChunk() == 1);
}

void readHostile(Input* input) {
    std::string const content = fuzz::containerFrom(input, input->upTo(5) != 0 ? "WAVE" : "WAVX");
    fuzz::Scratch::put("file", content);
    fuzz::Container const container(content, CHUNKS_MAX);
    int const expected = expectedResult(container, content);
    WaveFile file("./file");
    FUZZ_EXPECT(file.open(0, static_cast<int>(input->upTo(1))) == expected);
    if (expected == WaveFile::OPENED) {
        Chunk const* const data = firstOf(container, "data");
        expectFormat(&file, firstOf(container, "fmt")->dataIn(content));
        FUZZ_EXPECT(file.getChunkDataSize(WaveFile::CHUNK_DATA) == data->size);
        expectData(&file, data->dataIn(content));
    }
    FUZZ_EXPECT(file.close() == 1);
    FUZZ_EXPECT(fuzz::Scratch::contentOf("file") == content);
}

void record(Input* input) {
    auto const rate = input->number<unsigned int>();
    auto const channels = input->number<unsigned short>();
    auto const bits = input->number<unsigned short>();
    auto const id = input->number<unsigned short>();
    std::string const format = fuzz::littleEndian(id, 2) + fuzz::littleEndian(channels, 2) +
                               fuzz::littleEndian(rate) + fuzz::littleEndian(rate * channels * bits) +
                               fuzz::littleEndian(static_cast<unsigned int>(bits) * channels, 2) +
                               fuzz::littleEndian(bits, 2);
    std::string data;
    ::unlink("file");
    WaveFile file("./file");
    FUZZ_EXPECT(file.open(1, 1) == WaveFile::OPENED);
    FUZZ_EXPECT(file.write("x", 1) == -1 && file.openSubChunk(0, WaveFile::CHUNK_DATA) == 0);
    FUZZ_EXPECT(file.setFmtChunkData(rate, channels, bits, id) == 1);
    for (unsigned int parts = 1 + input->upTo(2); parts > 0; --parts) {
        FUZZ_EXPECT(file.openSubChunk(1, WaveFile::CHUNK_DATA) == 1);
        std::string const bytes = input->bytes(60);
        int const written = bytes.empty() ? -1 : static_cast<int>(bytes.size());
        FUZZ_EXPECT(file.write(bytes.data(), static_cast<unsigned int>(bytes.size())) == written);
        FUZZ_EXPECT(file.closeSubChunk() == 1);
        data += bytes;
    }
    FUZZ_EXPECT(file.setFmtChunkData(1, 1, 1, 1) == 0);
    FUZZ_EXPECT(file.close() == 1);
    std::string const chunks = "WAVEfmt " + fuzz::littleEndian(FORMAT_BYTES) + format + "data" +
                               fuzz::littleEndian(static_cast<unsigned int>(data.size())) + data;
    FUZZ_EXPECT(fuzz::Scratch::contentOf("file") ==
                "RIFF" + fuzz::littleEndian(static_cast<unsigned int>(chunks.size())) + chunks);
    WaveFile again("./file");
    FUZZ_EXPECT(again.open(0, 0) == WaveFile::OPENED);
    expectFormat(&again, format);
    expectData(&again, data);
    FUZZ_EXPECT(again.close() == 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    fuzz::Scratch::enter();
    Input input(data, size);
    if (input.flag()) {
        readHostile(&input);
    } else {
        record(&input);
    }
    return 0;
}
