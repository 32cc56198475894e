// Splits a recording into memos at its silences.
//
//     voicememo [FILE [FOLDER]]    a WAVE file of 16 bits; by default espeak-ng speaks one
//
// A thread reads the recording block by block, at ten times its speed, and sends each block to a message
// thread that two listeners share: one writes the memos, one measures the level. Blocks come from a pool and
// return to it after the second listener. The memos, an index in UTF-16 and a log are written to FOLDER,
// which is "voicememo.out" by default; memos of an earlier run are erased first.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "Utl.h"

namespace {

using Texts = std::vector<std::string>;

constexpr int LOG_TYPE = 1;
constexpr unsigned int BLOCKS_PER_SECOND = 50;
constexpr unsigned int POOL_BLOCKS = 16;
constexpr unsigned int QUEUED_MAX = 2 * POOL_BLOCKS;  // more than the blocks, so a post always has room
constexpr unsigned int SPEED = 10;
constexpr unsigned int ALIVE_MS = 2000;
constexpr unsigned int PROGRESS_MS = 100;
constexpr unsigned int LISTENERS = 2;
constexpr unsigned int LINE_BYTES = 1024;
constexpr unsigned short BITS = 16;         // of a sample
constexpr unsigned short PLAIN_FORMAT = 1;  // the format id of samples that are not compressed

// A mean level below this is silence, and this many silent blocks end a memo.
constexpr unsigned int SILENCE_LEVEL = 200;
constexpr unsigned int SILENT_BLOCKS = 15;

enum MsgId { MSG_BLOCK = 1, MSG_END = 2 };

struct Format {
    unsigned int rate = 0;
    unsigned short channels = 0;

    unsigned int frameBytes() const { return channels * 2U; }
    unsigned int blockBytes() const { return std::max(rate / BLOCKS_PER_SECOND, 1U) * frameBytes(); }
    double seconds(unsigned long long bytes) const {
        return 1.0 * static_cast<double>(bytes) / frameBytes() / rate;
    }
};

// A fiftieth of a second; the samples follow it in its place in the pool.
struct Block {
    unsigned int bytes = 0;
    std::atomic<unsigned int> users{LISTENERS};

    unsigned char* samples() { return reinterpret_cast<unsigned char*>(this + 1); }

    // The mean distance of the samples from 0.
    unsigned int level() {
        unsigned long long sum = 0;
        for (unsigned int i = 0; i + 1 < bytes; i += 2) {
            unsigned short sample = 0;
            utl::unserialize(samples() + i, &sample);
            sum += static_cast<unsigned int>(std::abs(static_cast<short>(sample)));
        }
        return bytes >= 2 ? static_cast<unsigned int>(sum / (bytes / 2)) : 0;
    }
};

// The blocks in use. `take` waits while none is free.
class BlockStore {
  public:
    explicit BlockStore(Format const& format) : mPool(placeBytes(format), POOL_BLOCKS, "blocks") {}

    Block* take() {
        void* place = nullptr;
        while ((place = mPool.create()) == nullptr) {
            mFreed.waitToOn(ALIVE_MS / 4);
            mFreed.setOff();
        }
        return new (place) Block;
    }

    // Called by each user of the block.
    void release(Block* block) {
        if (--block->users == 0) {
            discard(block);
        }
    }

    // Called if no listener will get the block.
    void discard(Block* block) {
        mPool.release(block);
        mFreed.setOn();
    }

  private:
    // A block and its samples, so large that the next block is aligned as well.
    static unsigned int placeBytes(Format const& format) {
        auto const bytes = static_cast<unsigned int>(sizeof(Block)) + format.blockBytes();
        return (bytes + alignof(Block) - 1) / alignof(Block) * alignof(Block);
    }

    utl::MemoryPool mPool;
    utl::Event mFreed{utl::Event::INITIALLY_OFF, utl::Event::TWO_WAY};
};

// Passes a block to the message thread by its address.
class BlockMsg : public utl::Msg {
  public:
    explicit BlockMsg(Block* block = nullptr) : Msg(MSG_BLOCK), mBlock(block) {}

    Block* block() const { return mBlock; }

  protected:
    int storeDataTo(utl::MsgDataBroker* broker) const override {
        return broker->set(static_cast<void*>(mBlock));
    }
    int restoreDataFrom(utl::MsgDataBroker& broker) override {
        void* block = nullptr;
        int const result = broker.get(&block);
        mBlock = static_cast<Block*>(block);
        return result;
    }

  private:
    Block* mBlock;
};

// Passes each block to a derived class and releases it afterwards.
class BlockListener : public utl::ThreadMsgListener {
  public:
    explicit BlockListener(BlockStore& store) : mStore(store) {}

    void receiveMsg(int /*threadId*/, utl::ThreadRawMsg& raw) override {
        BlockMsg msg;
        raw.getMsgId(&mId);
        if (mId == MSG_END) {
            onEnd();
        } else if (mId == MSG_BLOCK && msg.restoreFrom(raw) != 0) {
            onBlock(*msg.block());
            mStore.release(msg.block());
        }
    }

  protected:
    virtual void onBlock(Block& block) = 0;
    virtual void onEnd() {}

  private:
    BlockStore& mStore;
    int mId = utl::MSG_ID_NONE;
};

// Writes a memo for each piece of speech, including the silence after it, so that nothing is lost.
class MemoWriter : public BlockListener {
  public:
    MemoWriter(BlockStore& store, Format const& format, char const* folder, utl::File& log)
        : BlockListener(store), mFormat(format), mFolder(folder), mLog(log) {}

    bool hasFailed() const { return mFailed; }

  protected:
    void onBlock(Block& block) override {
        bool const isSilent = block.level() < SILENCE_LEVEL;
        if (!isSilent && mHasSpeech && mSilentBlocks >= SILENT_BLOCKS) {
            finish();
        }
        if (mMemo.get() == nullptr) {
            begin();
        }
        mHasSpeech = mHasSpeech || !isSilent;
        mSilentBlocks = isSilent ? mSilentBlocks + 1 : 0;
        int const written = mMemo->write(block.samples(), block.bytes);
        mFailed = mFailed || written != static_cast<int>(block.bytes);
        mBytes += block.bytes;
    }

    void onEnd() override { finish(); }

  private:
    void begin() {
        char path[LINE_BYTES];
        std::snprintf(path, sizeof(path), "%s/memo-%02u.wav", mFolder, ++mCount);
        mMemo.set(new utl::WaveFile(path));
        bool const isOpen =
            mMemo->open(utl::RiffFile::OPEN_NEW, utl::RiffFile::ACCESS_READ_WRITE) == utl::WaveFile::OPENED &&
            mMemo->setFmtChunkData(mFormat.rate, mFormat.channels, BITS, PLAIN_FORMAT) != 0 &&
            mMemo->openSubChunk(utl::SubChunk::AT_START, utl::WaveFile::CHUNK_DATA) != 0;
        mFailed = mFailed || !isOpen;
        mHasSpeech = false;
        mBytes = 0;
    }

    void finish() {
        if (mMemo.get() != nullptr) {
            mFailed = mMemo->close() == 0 || mFailed;
            mMemo.release();
            applog(LOG_TYPE, utl::LOG_LEVEL_INFO, &mLog, "memo %u: %.2f s", mCount, mFormat.seconds(mBytes));
        }
    }

    Format const mFormat;
    char const* const mFolder;
    utl::File& mLog;
    utl::SmartPointer<utl::WaveFile> mMemo;
    unsigned int mCount = 0;
    unsigned int mSilentBlocks = 0;
    unsigned long long mBytes = 0;
    bool mHasSpeech = false;
    bool mFailed = false;
};

// Stores the level of the last block and the number of bytes so far.
class LevelMeter : public BlockListener {
  public:
    using BlockListener::BlockListener;

    unsigned int level() const { return mLevel; }
    unsigned long long bytes() const { return mBytes; }

  protected:
    void onBlock(Block& block) override {
        mLevel = block.level();
        mBytes += block.bytes;
    }

  private:
    std::atomic<unsigned int> mLevel{0};
    std::atomic<unsigned long long> mBytes{0};
};

// Draws a line at each tick of a shared timer: over the previous one on a terminal, else below it.
class ProgressLine : public utl::TimerListener {
  public:
    ProgressLine(LevelMeter const& meter, unsigned long long total) : mMeter(meter), mTotal(total) {}

    void onTime(int /*timerId*/) override {
        constexpr unsigned int FULL_LEVEL = 8000;
        constexpr unsigned int WIDTH = 20;
        char bar[WIDTH + 1] = {};
        std::memset(bar, ' ', WIDTH);
        std::memset(bar, '#', std::min(mMeter.level() * WIDTH / FULL_LEVEL, WIDTH));
        std::printf("%s%3llu %% [%s]%s", mOnTerminal ? "\r" : "", mMeter.bytes() * 100 / mTotal, bar,
                    mOnTerminal ? "" : "\n");
        std::fflush(stdout);
    }

  private:
    LevelMeter const& mMeter;
    unsigned long long const mTotal;
    bool const mOnTerminal = isatty(STDOUT_FILENO) == 1;
};

// Reads the recording and sends it, block by block, under the watchdog.
class Reader : public utl::Thread {
  public:
    Reader(utl::WaveFile& recording, Format const& format, BlockStore& store,
           utl::MsgDrivenSharedThread& receiver)
        : Thread("Reader"), mRecording(recording), mFormat(format), mStore(store), mReceiver(receiver) {}

  protected:
    int execute() override {
        Block* block = nullptr;
        while (!hasRequestedStop() && (block = readBlock()) != nullptr) {
            if (mReceiver.postMsg(BlockMsg(block)) == 0) {
                mStore.discard(block);
                return -1;
            }
            sleep(1000 / BLOCKS_PER_SECOND / SPEED);
        }
        return mReceiver.sendMsgSync(MSG_END) != 0 ? 0 : -1;
    }

  private:
    // Null at the end of the recording.
    Block* readBlock() {
        keepAliveWatchdog(utl::StatementInfo("examples/voicememo", "readBlock", __LINE__, 0));
        Block* const block = mStore.take();
        int const count = mRecording.read(block->samples(), mFormat.blockBytes());
        if (count <= 0) {
            mStore.discard(block);
            return nullptr;
        }
        block->bytes = static_cast<unsigned int>(count);
        return block;
    }

    utl::WaveFile& mRecording;
    Format const mFormat;
    BlockStore& mStore;
    utl::MsgDrivenSharedThread& mReceiver;
};

class SilenceReporter : public utl::WatchdogTimerListener {
  public:
    void onTime(int id, utl::WatchdogInfos const& infos) override {
        applog(LOG_TYPE, utl::LOG_LEVEL_WARNING, "%s does not move on", infos.find(id)->name.buffer());
    }
};

int complain(char const* what, char const* path) {
    std::fprintf(stderr, "voicememo: %s: %s\n", what, path);
    return EXIT_FAILURE;
}

// Lets espeak-ng speak three sentences into the file.
bool speak(std::string const& path) {
    char name[] = "espeak-ng";
    char voice[] = "-vja";
    char gap[] = "-g8";
    char file[] = "-w";
    char text[] =
        "おはようございます。きょうは　あさから　はれて　います。\n\n"
        "ごぜんちゅうに　かいぎが　あります。\n\n"
        "ゆうがたに　でんわを　かけて　ください。";
    std::string target = path;
    char* const arguments[] = {name, voice, gap, file, target.data(), text, nullptr};
    pid_t child = 0;
    int status = 0;
    return posix_spawnp(&child, name, nullptr, nullptr, arguments, environ) == 0 &&
           waitpid(child, &status, 0) == child && status == 0;
}

// Full-width digits, as an index in Japanese has them.
std::string widened(std::string const& text) {
    char wide[LINE_BYTES] = {};
    utl::convertAttrib(wide, sizeof(wide), text.c_str(), utl::HANKAKU_ZENKAKU_PAIR, 0, 1);
    return wide;
}

std::string title() {
    utl::Time now;
    utl::getLocalTime(&now);
    return widened(std::to_string(now.year())) + "年" + widened(std::to_string(now.month())) + "月" +
           widened(std::to_string(now.day())) + "日の音声メモ";
}

// The names of the memos, which count up.
Texts memosIn(char const* folder) {
    utl::Array<utl::BasicString<char>> paths(1, 1);
    utl::File::children((std::string(folder) + "/memo-*.wav").c_str(), &paths, utl::File::CHILD_FILES,
                        nullptr, 0);
    Texts memos;
    for (unsigned int i = 0; i < paths.size(); ++i) {
        memos.emplace_back(paths.getAt(i)->buffer());
    }
    std::sort(memos.begin(), memos.end());
    return memos;
}

// A title, and a line for each memo; adds the bytes of its samples to `*sum`.
Texts indexOf(Texts const& memos, Format const& format, unsigned long long* sum) {
    Texts lines = {title()};
    for (std::string const& path : memos) {
        utl::WaveFile memo(path.c_str());
        utl::WaveFile::AutoClose const closing(memo);
        bool const isOpen =
            memo.open(utl::RiffFile::OPEN_KEEP, utl::RiffFile::ACCESS_READ) == utl::WaveFile::OPENED;
        long long const size = isOpen ? memo.getChunkDataSize(utl::WaveFile::CHUNK_DATA) : 0;
        auto const bytes = static_cast<unsigned long long>(size);
        *sum += bytes;
        char seconds[LINE_BYTES];
        std::snprintf(seconds, sizeof(seconds), "%.2f", format.seconds(bytes));
        lines.push_back("メモ" + widened(std::to_string(lines.size())) + "　" + widened(seconds) + "秒　" +
                        path);
    }
    return lines;
}

bool writeIndex(char const* path, Texts const& lines) {
    utl::File file(path, utl::File::TEXT_UTF16_LITTLE);
    bool isWritten = file.open(utl::File::OPEN_EMPTY, utl::File::ACCESS_WRITE) != 0;
    for (std::string const& line : lines) {
        isWritten = isWritten && file.writeText((line + "\r\n").c_str(), utl::File::TEXT_BYTES_MAX, 0) > 0;
    }
    return isWritten;
}

Texts readIndex(char const* path) {
    utl::File file(path, utl::File::TEXT_UTF16_LITTLE);
    Texts lines;
    char line[LINE_BYTES];
    file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ);
    while (file.readLine(line, sizeof(line), nullptr) > 0) {
        lines.emplace_back(line);
    }
    return lines;
}

// Erases the memos of an earlier run, unless one of them is open: it may be the recording.
bool removeMemos(char const* folder) {
    Texts const memos = memosIn(folder);
    return std::none_of(
               memos.begin(), memos.end(),
               [](std::string const& path) { return utl::File::isOpened(path.c_str(), nullptr) != 0; }) &&
           std::all_of(memos.begin(), memos.end(), [](std::string const& path) {
               return utl::File::erase(path.c_str(), utl::File::ERASE_READ_ONLY) != 0;
           });
}

// Opens a recording at its first sample. The rate is 0 for a file that is no recording.
Format openRecording(utl::WaveFile& recording) {
    bool const isOpen =
        recording.open(utl::RiffFile::OPEN_KEEP, utl::RiffFile::ACCESS_READ) == utl::WaveFile::OPENED &&
        recording.openSubChunk(utl::SubChunk::AT_START, utl::WaveFile::CHUNK_DATA) != 0;
    bool const hasSamples = isOpen && recording.getChunkDataSize(utl::WaveFile::CHUNK_DATA) > 0;
    Format format;
    if (hasSamples && recording.getBitsWidth() == BITS && recording.getChannel() != 0) {
        format.rate = recording.getSamplingRate();
        format.channels = recording.getChannel();
    }
    return format;
}

// Sends the recording through the threads. False if something was lost.
bool split(utl::WaveFile& recording, Format const& format, char const* folder, utl::File& log) {
    SilenceReporter silence;
    BlockStore store(format);
    MemoWriter writer(store, format, folder, log);
    LevelMeter meter(store);
    ProgressLine progress(
        meter, static_cast<unsigned long long>(recording.getChunkDataSize(utl::WaveFile::CHUNK_DATA)));
    utl::MsgDrivenSharedThread receiver(sizeof(void*), QUEUED_MAX, LISTENERS, "Listeners", 1);
    utl::SharedTimer ticker(utl::Thread::WITHOUT_WATCHDOG, 0, nullptr, 1, "Ticker");
    Reader reader(recording, format, store, receiver);
    bool const isRunning =
        receiver.attachMsgListener(&writer) != 0 && receiver.attachMsgListener(&meter) != 0 &&
        receiver.start(utl::Thread::WITH_WATCHDOG, ALIVE_MS, &silence) == 0 && receiver.startWatchdog() &&
        ticker.start(ticker.addTimer(&progress, PROGRESS_MS)) &&
        reader.start(utl::Thread::WITH_WATCHDOG, ALIVE_MS, &silence) == 0 && reader.startWatchdog();
    unsigned int result = 1;
    if (isRunning) {
        reader.waitTo(utl::Thread::FINISHED);
        reader.getResult(&result);
    }
    ticker.destroy();
    progress.onTime(0);
    std::printf("\n");
    utl::ThreadManager::get()->printThreadInfoReg(utl::LOG_LEVEL_INFO);
    reader.stop();
    receiver.stop();
    reader.leaveManagement();
    receiver.leaveManagement();
    return result == 0 && !writer.hasFailed();
}

// Lists what was written, and compares it with the recording.
bool report(char const* folder, Format const& format, unsigned long long total) {
    unsigned long long sum = 0;
    Texts const index = indexOf(memosIn(folder), format, &sum);
    std::string const path = std::string(folder) + "/index.txt";
    bool const isSame = writeIndex(path.c_str(), index) && readIndex(path.c_str()) == index;
    for (std::string const& line : index) {
        std::printf("%s\n", line.c_str());
    }
    std::printf("%s\n", isSame ? "the index in UTF-16 reads back as it was written" : "the index is damaged");
    std::printf("%s\n",
                sum == total ? "the memos hold every sample of the recording" : "samples are missing");
    return isSame && sum == total;
}

}  // namespace

int main(int argc, char** argv) {
    char const* const folder = argc > 2 ? argv[2] : "voicememo.out";
    std::string const spoken = std::string(folder) + "/recording.wav";
    char const* const source = argc > 1 ? argv[1] : spoken.c_str();
    utl::File log((std::string(folder) + "/voicememo.log").c_str(), utl::File::TEXT_UTF8);
    // Emptied after the lock is taken, so that the first of two programs in one folder keeps its log.
    if (utl::File::makeDirectories(folder) == 0 ||
        log.open(utl::File::OPEN_KEEP, utl::File::ACCESS_WRITE) == 0 || log.resize(0) == 0) {
        return complain("the log cannot be written in this folder", folder);
    }
    if (argc <= 1 && !speak(spoken)) {
        return complain("espeak-ng cannot speak into this file; name a recording", source);
    }
    registerLogType(LOG_TYPE, "<MEMO> ", utl::LOG_LEVEL_DETAIL);
    utl::WaveFile recording(source);
    utl::WaveFile::AutoClose const closing(recording);
    Format const format = openRecording(recording);
    if (format.rate == 0) {
        return complain("this is no WAVE file of 16 bits", source);
    }
    if (!removeMemos(folder)) {
        return complain("a memo in this folder is in use or cannot be erased", folder);
    }
    auto const total = static_cast<unsigned long long>(recording.getChunkDataSize(utl::WaveFile::CHUNK_DATA));
    applog(LOG_TYPE, utl::LOG_LEVEL_INFO, &log, "%s: %.2f s, %u times a second", source,
           format.seconds(total), format.rate);
    bool const isSplit = split(recording, format, folder, log);
    return report(folder, format, total) && isSplit ? EXIT_SUCCESS : EXIT_FAILURE;
}
