#include <Utl.h>

#include <cstdio>

struct Listener : utl::ThreadMsgListener {
    void receiveMsg(int /*threadId*/, utl::ThreadRawMsg& msg) override {
        int id = 0;
        msg.getMsgId(&id);
        std::printf("message %d\n", id);
    }
};

int main() {
    Listener listener;
    utl::MsgDrivenThread thread(64, 16, "first", 0);  // bytes of the largest message, messages, timers
    utl::AutoStop const stopping(thread);             // ends the thread, whatever is still queued
    if (thread.start(&listener) != 0) {
        return 1;
    }
    thread.postMsg(42);      // is queued
    thread.sendMsgSync(43);  // waits until the listener has had it, and 42 before it
    return 0;
}
