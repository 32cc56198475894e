// Counts lines, bytes and characters of a text file on a message thread.
//
// The main thread reads and posts each line; the thread "LineCounter" counts. The totals are those of `wc
// -lmc`.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Utl.h"

namespace {

constexpr int LOG_TYPE = 1;
constexpr unsigned int PIECE_BYTES_MAX = 1024;
constexpr unsigned int QUEUED_MAX = 64;

enum MsgId { MSG_LINE = 1, MSG_TOTALS = 2 };

// A line, or a piece of a long one that does not cut a character.
class LineMsg : public utl::Msg {
  public:
    LineMsg() : Msg(MSG_LINE) {}
    LineMsg(char const* bytes, unsigned int count) : Msg(MSG_LINE), mCount(count) {
        utl::copyMemory(mBytes, bytes, count);
    }

    char const* text() const { return reinterpret_cast<char const*>(mBytes); }
    unsigned int count() const { return mCount; }

    static constexpr unsigned int FLAT_BYTES_MAX = sizeof(unsigned int) + PIECE_BYTES_MAX;

  protected:
    int storeDataTo(utl::MsgDataBroker* broker) const override {
        return broker->set(mCount) != 0 ? broker->set(mBytes, mCount) : 0;
    }
    int restoreDataFrom(utl::MsgDataBroker& broker) override {
        return broker.get(&mCount) != 0 ? broker.get(mBytes, mCount) : 0;
    }

  private:
    unsigned int mCount = 0;
    unsigned char mBytes[PIECE_BYTES_MAX + 1] = {};  // and a terminator
};

struct Totals {
    unsigned long long lines = 0;
    unsigned long long bytes = 0;
    unsigned long long characters = 0;
};

// Counts on the message thread; the totals may be read between a `sendMsgSync` and the next message.
class LineCounter : public utl::ThreadMsgListener {
  public:
    void receiveMsg(int threadId, utl::ThreadRawMsg& raw) override {
        int id = utl::MSG_ID_NONE;
        raw.getMsgId(&id);
        if (id == MSG_TOTALS) {
            applog(LOG_TYPE, utl::LOG_LEVEL_INFO, "thread %d was asked for the totals", threadId);
            return;
        }
        LineMsg line;
        line.restoreFrom(raw);
        count(line);
    }

    Totals const& totals() const { return mTotals; }

  private:
    void count(LineMsg const& line) {
        mTotals.bytes += line.count();
        for (unsigned int i = 0; i < line.count();) {
            unsigned int const length = utl::t_charlen(line.text() + i, nullptr);
            bool const isCharacter = length != utl::INVALID_SIZE;
            bool const isNul = length == 0;
            mTotals.characters += isCharacter ? 1 : 0;
            mTotals.lines += line.text()[i] == '\n' ? 1 : 0;
            i += isCharacter && !isNul ? length : 1;
        }
    }

    Totals mTotals;
};

// The bytes of the first piece: no more than fit, and no cut inside a character.
size_t pieceLength(char const* text, size_t length) {
    if (length <= PIECE_BYTES_MAX) {
        return length;
    }
    size_t end = PIECE_BYTES_MAX;
    while (end > PIECE_BYTES_MAX - 3 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
        --end;
    }
    return end;
}

// Posts a line in pieces. Each time the queue may be full it waits for the thread, so that it never
// overflows.
bool postLine(utl::MsgDrivenThread& thread, char const* text, size_t length, unsigned int& queued) {
    while (length > 0) {
        size_t const piece = pieceLength(text, length);
        LineMsg const msg(text, static_cast<unsigned int>(piece));
        bool const waits = ++queued % QUEUED_MAX == 0;
        if ((waits ? thread.sendMsgSync(msg) : thread.postMsg(msg)) == utl::MsgDrivenThread::SEND_REFUSED) {
            return false;
        }
        text += piece;
        length -= piece;
    }
    return true;
}

bool postFile(std::FILE* file, utl::MsgDrivenThread& thread) {
    char* line = nullptr;
    size_t capacity = 0;
    unsigned int queued = 0;
    bool posted = true;
    ssize_t length = 0;
    while (posted && (length = getline(&line, &capacity, file)) >= 0) {
        posted = postLine(thread, line, static_cast<size_t>(length), queued);
    }
    std::free(line);
    return posted && std::ferror(file) == 0;
}

int complain(char const* what, char const* path) {
    std::fprintf(stderr, "linecount: %s %s: %s\n", what, path, std::strerror(errno));
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    char const* const path = argc > 1 ? argv[1] : EXAMPLE_TEXT;
    std::FILE* const file = std::fopen(path, "rb");
    if (file == nullptr) {
        return complain("cannot open", path);
    }
    registerLogType(LOG_TYPE, "<LINES> ", utl::LOG_LEVEL_DETAIL);
    utl::ThreadManager::get()->entryCaller(utl::Thread::WITHOUT_WATCHDOG, 0, nullptr, "Main Thread");
    utl::ThreadManager::get()->enableRegistrationLog();

    LineCounter counter;
    utl::MsgDrivenThread thread(LineMsg::FLAT_BYTES_MAX, QUEUED_MAX, "LineCounter");
    utl::AutoStop const stopping(thread);
    if (thread.start(&counter) != 0) {
        std::fclose(file);
        return complain("cannot start the thread for", path);
    }
    applog(LOG_TYPE, utl::LOG_LEVEL_INFO, "reading %s", path);
    errno = 0;
    bool const complete =
        postFile(file, thread) && thread.sendMsgSync(MSG_TOTALS) == utl::MsgDrivenThread::SEND_DONE;
    int const readError = errno;
    std::fclose(file);
    thread.stop();
    applog(LOG_TYPE, utl::LOG_LEVEL_INFO, "thread %d has stopped", thread.getId());
    if (!complete) {
        errno = readError;
        return complain("cannot read", path);
    }
    Totals const& totals = counter.totals();
    std::printf("%llu lines, %llu characters, %llu bytes\n", totals.lines, totals.characters, totals.bytes);
    utl::ThreadManager::get()->printThreadInfoReg(utl::LOG_LEVEL_INFO);
    return EXIT_SUCCESS;
}
