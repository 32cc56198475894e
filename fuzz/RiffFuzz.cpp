// RIFF files: hostile ones read beside a plain walk through their bytes, and new ones written beside an image
// of them in memory.

#include <string>
#include <vector>

#include "Fuzz.h"
#include "RiffModel.h"
#include "Scratch.h"
#include "UtlRiffFile.h"

namespace {

using fuzz::Chunk;
using fuzz::Input;
using utl::RiffFile;

/// The open sub-chunk: where it is in the file, and what its operations should return.
struct Window {
    unsigned long long begin;
    unsigned long long end;
    unsigned long long at;

    long long target(int origin, long long offset) const {
        auto const from = static_cast<long long>(origin == 0 ? begin : origin == 1 ? end : at);
        return from + offset;
    }

    bool mayGo(int origin, long long offset) const {
        long long const to = target(origin, offset);
        bool const isSigned = origin == 0 ? offset >= 0 : origin == 1 ? offset <= 0 : origin == 2;
        return isSigned && to >= static_cast<long long>(begin) && to <= static_cast<long long>(end);
    }
};

void seek(Input* input, RiffFile* file, Window* window) {
    int const origin = static_cast<int>(input->upTo(3));
    long long const offset =
        input->upTo(7) == 0 ? input->number<int>() : static_cast<signed char>(input->byte());
    bool const isInside = window->mayGo(origin, offset);
    auto const begin = static_cast<long long>(window->begin);
    FUZZ_EXPECT(file->seek(origin, offset) == (isInside ? window->target(origin, offset) - begin : -1));
    window->at = isInside ? static_cast<unsigned long long>(window->target(origin, offset)) : window->at;
}

void read(Input* input, RiffFile* file, Window* window, std::string const& content) {
    unsigned int const length = 1 + input->upTo(50);
    auto const buffer = fuzz::blockOf<char>(length);
    unsigned long long const last = std::min<unsigned long long>(window->end, content.size());
    std::string const expected =
        window->at < last
            ? content.substr(static_cast<size_t>(window->at),
                             static_cast<size_t>(std::min<unsigned long long>(length, last - window->at)))
            : "";
    int const result = file->read(buffer.get(), length);
    FUZZ_EXPECT(result ==
                (expected.empty() ? utl::SubChunk::END_OF_DATA : static_cast<int>(expected.size())));
    FUZZ_EXPECT(std::equal(expected.begin(), expected.end(), buffer.get()));
    window->at += expected.size();
}

void expectInfo(RiffFile* file, unsigned int id, Chunk const& chunk) {
    utl::SubChunkInfo info;
    FUZZ_EXPECT(file->getSubChunkInfo(id, &info) == 1);
    FUZZ_EXPECT(info.mId == id && info.mName == chunk.id.c_str() && info.mDataSize == chunk.size);
}

void useChunk(Input* input, RiffFile* file, unsigned int id, Chunk const& chunk, std::string const& content) {
    int const mode = static_cast<int>(input->upTo(1));
    FUZZ_EXPECT(file->openSubChunk(id, mode) == 1);
    Window window{chunk.begin(), chunk.end(), mode == 0 ? chunk.begin() : chunk.end()};
    FUZZ_EXPECT(file->openSubChunk(id, mode) == 0 && file->isOpenedSubChunk(static_cast<int>(id)) == 1);
    for (unsigned int i = input->upTo(6); i > 0; --i) {
        if (input->flag()) {
            seek(input, file, &window);
        } else {
            read(input, file, &window, content);
        }
        FUZZ_EXPECT(file->position() == static_cast<long long>(window.at - window.begin));
    }
    FUZZ_EXPECT(file->closeSubChunk() == 1);
}

void readHostile(Input* input) {
    unsigned int const most = input->upTo(6);
    std::string const content = fuzz::containerFrom(input, "TEST");
    fuzz::Scratch::put("file", content);
    fuzz::Container const expected(content, most);
    RiffFile file("./file", most);
    int const access = static_cast<int>(input->upTo(1));
    FUZZ_EXPECT(file.open(RiffFile::OPEN_KEEP, access) == expected.result);
    FUZZ_EXPECT((file.isOpened() != 0) == (expected.result == 0));
    if (expected.result != 0) {
        return;
    }
    FUZZ_EXPECT(expected.formType == file.getFormType());
    FUZZ_EXPECT(file.getSubChunkNumber() == expected.chunks.size());
    auto const count = static_cast<unsigned int>(expected.chunks.size());
    for (unsigned int id = 0; id < count; ++id) {
        expectInfo(&file, id, expected.chunks[id]);
    }
    while (!input->isAtEnd() && count != 0) {
        unsigned int const id = input->upTo(count - 1);
        useChunk(input, &file, id, expected.chunks[id], content);
    }
    FUZZ_EXPECT(file.openSubChunk(count, 0) == 0);
    FUZZ_EXPECT(file.close() == 1);
    FUZZ_EXPECT(fuzz::Scratch::contentOf("file") == content);
}

// --- writing

constexpr unsigned int MOST = 5;

/// A new file, and the bytes that it should have.
class Writer {
  public:
    Writer() : mFile("./file", MOST) {
        ::unlink("file");
        FUZZ_EXPECT(mFile.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE) == RiffFile::OPENED);
        FUZZ_EXPECT(mFile.setFormType("AB") == 1);
        mImage = "RIFF" + fuzz::littleEndian(0) + "AB  ";
    }

    void add(Input* input) {
        static char const* const IDS[] = {"fmt", "data", "x", "LIST", "longer"};
        std::string const id = IDS[input->upTo(std::size(IDS) - 1)];
        if (mChunks.size() == MOST) {
            return;
        }
        bool const isAdded = mOpened < 0 && id.size() <= 4;
        int const expected = isAdded ? static_cast<int>(mChunks.size()) : RiffFile::INVALID_SUB_CHUNK;
        FUZZ_EXPECT(mFile.addSubChunk(id.c_str()) == expected);
        mWindow.at = mImage.size();
        if (isAdded) {
            mOpened = expected;
            mChunks.push_back({id, 0, mImage.size()});
            mImage += id + std::string(4 - id.size(), ' ') + fuzz::littleEndian(0);
            mWindow = {mImage.size(), mImage.size(), mImage.size()};
        }
    }

    void write(Input* input) {
        std::string const bytes = input->bytes(30);
        bool const isLast = mOpened >= 0 && mOpened + 1 == static_cast<int>(mChunks.size());
        int const written = isLast && !bytes.empty() ? static_cast<int>(bytes.size()) : -1;
        FUZZ_EXPECT(mFile.write(bytes.data(), static_cast<unsigned int>(bytes.size())) == written);
        if (written > 0) {
            auto const at = static_cast<size_t>(mWindow.at);
            mImage.resize(std::max(mImage.size(), at + bytes.size()));
            mImage.replace(at, bytes.size(), bytes);
            mWindow.at += bytes.size();
            mWindow.end = std::max(mWindow.end, mWindow.at);
        }
    }

    void open(Input* input) {
        unsigned int const id = input->upTo(MOST);
        int const mode = static_cast<int>(input->upTo(2));
        bool const isOpened = mOpened < 0 && id < mChunks.size() && mode < 2;
        if (mOpened >= 0) {
            return;
        }
        FUZZ_EXPECT(mFile.openSubChunk(id, mode) == (isOpened ? 1 : 0));
        if (isOpened) {
            Chunk const& chunk = mChunks[id];
            mOpened = static_cast<int>(id);
            mWindow = {chunk.begin(), chunk.end(), mode == 0 ? chunk.begin() : chunk.end()};
        }
    }

    void close(Input*) {
        FUZZ_EXPECT(mFile.closeSubChunk() == 1);
        if (mOpened >= 0) {
            Chunk& chunk = mChunks[static_cast<size_t>(mOpened)];
            chunk.size = static_cast<unsigned int>(mWindow.end - mWindow.begin);
            mImage.replace(static_cast<size_t>(chunk.position) + 4, 4, fuzz::littleEndian(chunk.size));
            mOpened = -1;
        }
    }

    void readOrSeek(Input* input) {
        if (mOpened < 0) {
            char byte = 0;
            FUZZ_EXPECT(mFile.read(&byte, 1) == -1 && mFile.seek(0, 0) == -1 && mFile.position() == -1);
        } else if (input->flag()) {
            seek(input, &mFile, &mWindow);
        } else {
            read(input, &mFile, &mWindow, mImage);
        }
    }

    void finish(Input* input) {
        close(input);
        FUZZ_EXPECT(mFile.close() == 1);
        mImage.replace(4, 4, fuzz::littleEndian(static_cast<unsigned int>(mImage.size() - 8)));
        FUZZ_EXPECT(fuzz::Scratch::contentOf("file") == mImage);
        FUZZ_EXPECT(mFile.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ) == RiffFile::OPENED);
        FUZZ_EXPECT(mFile.getSubChunkNumber() == mChunks.size());
        for (unsigned int id = 0; id < mChunks.size(); ++id) {
            expectInfo(&mFile, id, mChunks[id]);
        }
        FUZZ_EXPECT(mFile.close() == 1);
    }

  private:
    RiffFile mFile;
    std::string mImage;
    std::vector<Chunk> mChunks;
    Window mWindow{0, 0, 0};
    int mOpened = -1;
};

void writeNew(Input* input) {
    static constexpr void (Writer::*STEPS[])(Input*) = {&Writer::add, &Writer::write, &Writer::open,
                                                        &Writer::close, &Writer::readOrSeek};
    Writer writer;
    while (!input->isAtEnd()) {
        (writer.*STEPS[input->upTo(std::size(STEPS) - 1)])(input);
    }
    writer.finish(input);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    fuzz::Scratch::enter();
    Input input(data, size);
    if (input.flag()) {
        readHostile(&input);
    } else {
        writeNew(&input);
    }
    return 0;
}
