#include <Utl.h>

#include <cstdio>
#include <ctime>
#include <string>

static_assert(sizeof(std::time_t) == 8, "the package's flags bring 64-bit time");

namespace {

bool theSinkWasReplaced = false;

struct Listener : utl::ThreadMsgListener {
    int lastId = 0;
    void receiveMsg(int /*threadId*/, utl::ThreadRawMsg& msg) override { msg.getMsgId(&lastId); }
};

bool deliversMessages() {
    Listener listener;
    utl::MsgDrivenThread thread(16, 4, "consumer");
    bool const sent = thread.start(&listener) == 0 && thread.sendMsgSync(42) == 1;
    thread.stop();
    thread.leaveManagement();
    return sent && listener.lastId == 42;
}

int complain(char const* what) {
    std::puts(what);
    return 1;
}

}  // namespace

void BinaryLogWrite(int /*channel*/, void const* text, unsigned int bytes) {
    std::string const line(static_cast<char const*>(text), bytes);
    theSinkWasReplaced = theSinkWasReplaced || line.find("from the consumer") != std::string::npos;
}

int main() {
    applog(1, utl::LOG_LEVEL_INFO, "from the consumer");
    if (!theSinkWasReplaced) {
        return complain("the log does not reach the program's own sink");
    }
    return deliversMessages() ? 0 : complain("the message did not arrive");
}
