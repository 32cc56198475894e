#pragma once

#include <time.h>

#include <thread>
#include <vector>

#include "BenchRatio.h"
#include "UtlMsgDrivenThread.h"

// Messages, listeners and senders for the measurements of message threads.

namespace utlbench {

constexpr unsigned int MSG_BYTES = 64;
constexpr unsigned int QUEUE_PLACES = 1024;
constexpr unsigned int MESSAGES = 20000;  // of one post and deliver run
constexpr unsigned int RETRY_NANOSECONDS = 100000;

inline void pauseBeforeRetry() {
    timespec const pause = {0, RETRY_NANOSECONDS};
    nanosleep(&pause, nullptr);
}

/// Posts `messages` messages, divided among `producers` threads; a `post` that finds no place is repeated
/// later.
template <typename POST>
void postFromThreads(unsigned int producers, POST post, unsigned int messages = MESSAGES) {
    std::vector<std::thread> threads;
    for (unsigned int producer = 0; producer < producers; ++producer) {
        threads.emplace_back([=] {
            for (unsigned int i = 0; i < messages / producers; ++i) {
                while (!post()) {
                    pauseBeforeRetry();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

class BlockMsg : public utl::Msg {
  public:
    explicit BlockMsg(int id) : Msg(id) {}
    unsigned char mBytes[MSG_BYTES] = {};

  protected:
    int storeDataTo(utl::MsgDataBroker* broker) const override { return broker->set(mBytes, MSG_BYTES); }
    int restoreDataFrom(utl::MsgDataBroker& broker) override { return broker.get(mBytes, MSG_BYTES); }
};

class Counter : public utl::ThreadMsgListener {
  public:
    unsigned long count = 0;

    void receiveMsg(int, utl::ThreadRawMsg& raw) override {
        BlockMsg msg(0);
        msg.restoreFrom(raw);
        keep(msg.mBytes[0]);
        ++count;
    }
};

}  // namespace utlbench
