#pragma once

// What the tests of erasures share: judgements, and a thread on which they are made.

#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "TestMessages.h"

namespace utltest {

using CtlMsg = utl::MsgDrivenThread::ThreadCtlMsg;
using Judge = std::function<bool(utl::ThreadRawMsg&)>;

constexpr int FIRST = 100;
constexpr int SECOND = 101;
constexpr int UNKNOWN_TIMER = 77;
constexpr unsigned int FRAME = 8;

inline int idOf(utl::ThreadRawMsg& raw) {
    int id = 0;
    raw.getMsgId(&id);
    return id;
}

/// The number after the id: of a message, or of a timer.
inline int numberOf(utl::ThreadRawMsg const& raw) {
    int number = 0;
    std::memcpy(&number, raw.buffer() + sizeof(int), sizeof(number));
    return number;
}

inline bool eraseIf(utl::MsgDrivenThread& thread, Judge judge) {
    utl::MsgDrivenThread::MsgJudgement<Judge> judgement(&judge);
    return thread.eraseMsgInternal(&judgement);
}

/// All that is queued, as a question finds it.
inline std::vector<int> queuedNumbers(utl::MsgDrivenThread& thread) {
    std::vector<int> numbers;
    Judge judge = [&numbers](utl::ThreadRawMsg& raw) {
        numbers.push_back(numberOf(raw));
        return false;
    };
    utl::MsgDrivenThread::MsgJudgement<Judge> judgement(&judge);
    thread.hasMsgInternal(&judgement);
    return numbers;
}

/// Runs its work in a handler, before messages FIRST with the numbers from 0 on.
class HeldErasingThread {
  public:
    explicit HeldErasingThread(unsigned int messages, unsigned int places = 16)
        : thread(4, places, "eraser") {
        collector.onMsg = [this, messages](int id, int) {
            if (id == BLOCKER) {
                for (unsigned int i = 0; i < messages; ++i) {
                    ASSERT_EQ(thread.postMsg(NumberMsg(FIRST, static_cast<int>(i))), 1);
                }
                mWork();
            }
        };
        EXPECT_EQ(thread.start(&collector), 0);
    }

    void run(std::function<void()> work) {
        mWork = std::move(work);
        EXPECT_EQ(thread.sendMsgSync(BLOCKER), 1);
    }

    Collector collector;
    ScopedMsgThread thread;

  private:
    std::function<void()> mWork;
};

}  // namespace utltest
