// What an erasure does to the queues while it is at work: judgements may look at any moment.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "TestLog.h"
#include "TestMessages.h"

using namespace utltest;

namespace {

using CtlMsg = utl::MsgDrivenThread::ThreadCtlMsg;
using Judge = std::function<bool(utl::ThreadRawMsg&)>;

constexpr int FIRST = 100;
constexpr int SECOND = 101;
constexpr int UNKNOWN_TIMER = 77;
constexpr unsigned int FRAME = 8;

int idOf(utl::ThreadRawMsg& raw) {
    int id = 0;
    raw.getMsgId(&id);
    return id;
}

// The number behind the id: of a message, or of a timer.
int numberOf(utl::ThreadRawMsg const& raw) {
    int number = 0;
    std::memcpy(&number, raw.buffer() + sizeof(int), sizeof(number));
    return number;
}

bool eraseIf(utl::MsgDrivenThread& thread, Judge judge) {
    utl::MsgDrivenThread::MsgJudgement<Judge> judgement(&judge);
    return thread.eraseMsgInternal(&judgement);
}

// All that is queued, as a question finds it.
std::vector<int> queuedNumbers(utl::MsgDrivenThread& thread) {
    std::vector<int> numbers;
    Judge judge = [&numbers](utl::ThreadRawMsg& raw) {
        numbers.push_back(numberOf(raw));
        return false;
    };
    utl::MsgDrivenThread::MsgJudgement<Judge> judgement(&judge);
    thread.hasMsgInternal(&judgement);
    return numbers;
}

/// Runs its work in a handler, in front of messages FIRST with the numbers from 0 on.
class ErasureRoad {
  public:
    explicit ErasureRoad(unsigned int messages, unsigned int places = 16) : thread(4, places, "eraser") {
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

using MsgErasure = WithoutWatchdogThread;

TEST_F(MsgErasure, AQuestionOfAJudgement_FindsWhatIsLeftAtThatMoment) {
    ErasureRoad road(6);
    std::vector<std::vector<int>> seen;
    road.run([&] {
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) {
            bool const isErased = numberOf(raw) % 2 == 0;
            seen.push_back(queuedNumbers(road.thread));
            return isErased;
        }));
        seen.push_back(queuedNumbers(road.thread));
    });
    EXPECT_EQ(seen, (std::vector<std::vector<int>>{{0, 1, 2, 3, 4, 5},
                                                   {1, 2, 3, 4, 5},
                                                   {1, 2, 3, 4, 5},
                                                   {1, 3, 4, 5},
                                                   {1, 3, 4, 5},
                                                   {1, 3, 5},
                                                   {1, 3, 5}}));
}

TEST_F(MsgErasure, APeekOfAJudgement_GivesTheFirstOfWhatIsLeft) {
    ErasureRoad road(4);
    road.run([&] {
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) {
            int const number = numberOf(raw);
            utl::ThreadRawMsg first(4);
            EXPECT_TRUE(road.thread.peekMsg(FIRST, &first));
            EXPECT_EQ(numberOf(first), number) << "all those in front have been erased";
            EXPECT_EQ(road.thread.getFirstMsgId(), FIRST);
            return true;
        }));
        EXPECT_FALSE(road.thread.hasMsg(utl::MSG_ID_ANY));
    });
}

TEST_F(MsgErasure, AnErasureOfAJudgement_TakesItsOwnOutOfWhatIsLeft) {
    ErasureRoad road(8);
    std::vector<int> judged;
    road.run([&] {
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) {
            int const number = numberOf(raw);
            judged.push_back(number);
            if (number == 3) {
                EXPECT_TRUE(
                    eraseIf(road.thread, [](utl::ThreadRawMsg& inner) { return numberOf(inner) >= 5; }));
                EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3, 4}));
            }
            return number % 2 == 0;
        }));
        EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3}));
    });
    EXPECT_EQ(judged, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST_F(MsgErasure, AJudgementThatThrows_LeavesBothQueuesWhole) {
    ErasureRoad road(6);
    road.run([&] {
        EXPECT_THROW(eraseIf(road.thread,
                             [](utl::ThreadRawMsg& raw) {
                                 if (numberOf(raw) == 4) {
                                     throw std::runtime_error("judgement");
                                 }
                                 return numberOf(raw) % 2 == 0;
                             }),
                     std::runtime_error);
        EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3, 4, 5}));
    });
    EXPECT_EQ(road.thread.sendMsgSync(SECOND), 1);
    std::vector<Collector::Received> const received = road.collector.received();
    ASSERT_EQ(received.size(), 6U);
    EXPECT_EQ(received[1].number, 1);
    EXPECT_EQ(received[4].number, 5);
}

TEST_F(MsgErasure, AnErasureThatFails_LeavesBothQueuesWhole) {
    LogCapture const log;
    ErasureRoad road(5);
    road.run([&] {
        ASSERT_EQ(road.thread.postThreadCtlMsg(SECOND, -1), 1);
        EXPECT_FALSE(eraseIf(road.thread, [](utl::ThreadRawMsg& raw) { return numberOf(raw) % 2 == 0; }));
        EXPECT_TRUE(road.thread.eraseMsgFromCtlQueue(SECOND));
        EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3}));
        EXPECT_EQ(ThreadAccess::queues(road.thread).frames.size(), 2 * FRAME);
    });
    EXPECT_EQ(log.lines().size(), 1U);
}

// It must not, but nothing is lost if it does; and the place of an erased message is free at once.
TEST_F(MsgErasure, AJudgementThatPosts_FindsThePlacesOfThoseErased) {
    LogCapture const log;
    ErasureRoad road(16, 16);
    road.run([&] {
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) {
            int const number = numberOf(raw);
            EXPECT_EQ(road.thread.postMsg(NumberMsg(SECOND, 100 + number)), number == 0 ? 0 : 1);
            return true;
        }));
        std::vector<int> expected;
        for (int number = 1; number < 16; ++number) {
            expected.push_back(100 + number);
        }
        EXPECT_EQ(queuedNumbers(road.thread), expected) << "the scan is no longer than the queue was";
    });
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "<UTIL> ERR: MsgDrivenThread(eraser) Overflow MsgDataQueue  MaxCount:16 "
                               "MsgId:0x00000065"}));
}

TEST_F(MsgErasure, AJudgementThatKillsATimer_TakesItsTimeoutsOutAndNothingElse) {
    ErasureRoad road(4);
    road.run([&] {
        int const timer = road.thread.setTimer(0);
        ASSERT_EQ(road.thread.postThreadCtlMsg(utl::MSG_ID_CTL_TIMEOUT, timer), 1);
        ASSERT_EQ(road.thread.postThreadCtlMsg(utl::MSG_ID_CTL_TIMEOUT, UNKNOWN_TIMER), 1);
        ASSERT_EQ(road.thread.postMsg(NumberMsg(SECOND, 4)), 1);
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) {
            int const number = numberOf(raw);
            if (number == 2 && idOf(raw) == FIRST) {
                EXPECT_TRUE(road.thread.killTimer(timer));
            }
            return number % 2 == 0;
        }));
        EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3, UNKNOWN_TIMER}));
    });
}

TEST_F(MsgErasure, ErasedTimeoutsBetweenErasedMessages_LeaveTheOthersWithTheirFrames) {
    ErasureRoad road(0, 64);
    road.run([&] {
        int const timer = road.thread.setTimer(0, 0, 0, 0);
        std::vector<int> kept;
        for (int i = 0; i < 20; ++i) {
            int const timeoutOf = i % 2 == 0 ? UNKNOWN_TIMER : timer;
            ASSERT_EQ(road.thread.postMsg(NumberMsg(i % 3 == 0 ? FIRST : SECOND, 1000 + i)), 1);
            ASSERT_EQ(road.thread.postThreadCtlMsg(utl::MSG_ID_CTL_TIMEOUT, timeoutOf), 1);
            if (i % 3 != 0) {
                kept.push_back(1000 + i);
            }
        }
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) { return idOf(raw) != SECOND; }));
        EXPECT_EQ(queuedNumbers(road.thread), kept);
        EXPECT_TRUE(road.thread.killTimer(timer));
    });
}

TEST_F(MsgErasure, TheHookOfATimerThatEnded_FindsBothQueuesWhole) {
    ErasureRoad road(4);
    std::vector<int> queued;
    road.thread.onErase = [&](int, int) { queued = queuedNumbers(road.thread); };
    road.run([&] {
        int const timer = road.thread.setTimer(0, 0, 1);
        ASSERT_EQ(road.thread.postThreadCtlMsg(utl::MSG_ID_CTL_TIMEOUT, timer), 1);
        ASSERT_EQ(road.thread.postMsg(NumberMsg(SECOND, 4)), 1);
        EXPECT_TRUE(eraseIf(road.thread, [](utl::ThreadRawMsg& raw) {
            return idOf(raw) != FIRST || numberOf(raw) % 2 == 0;
        }));
        EXPECT_EQ(road.thread.erasedTimers(), std::vector<int>{timer});
        EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3}));
    });
    EXPECT_EQ(queued, (std::vector<int>{1, 3, 4}));
}

TEST_F(MsgErasure, AShortFrameBehindErasedOnes_KeepsItsBytes) {
    ErasureRoad road(4);
    road.run([&] {
        ASSERT_EQ(road.thread.postThreadCtlMsg(utl::MSG_ID_CTL_START_TIMER, UNKNOWN_TIMER), 1);
        ASSERT_TRUE(road.thread.earseMsgQueue(4, 4 * FRAME - 3, 3)) << "the end of the last frame";
        std::vector<unsigned char> const before = ThreadAccess::queues(road.thread).frames;
        std::vector<unsigned char> expected(before.begin() + FRAME, before.begin() + 2 * FRAME);
        expected.insert(expected.end(), before.begin() + 3 * FRAME, before.end());
        int judged = 0;
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg&) { return judged++ % 2 == 0; }));
        EXPECT_EQ(judged, 4);
        EXPECT_EQ(ThreadAccess::queues(road.thread).frames, expected);
        EXPECT_EQ(ThreadAccess::queues(road.thread).entries.size(), 2U);
    });
}

TEST_F(MsgErasure, AQuestionOfAJudgementToAnotherThread_LeavesTheErasureAlone) {
    Collector others;
    ScopedMsgThread other(4, 16, "other");
    ASSERT_EQ(other.start(&others), 0);
    ErasureRoad road(6);
    road.run([&] {
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) {
            bool const isErased = numberOf(raw) % 2 == 0;
            EXPECT_FALSE(other.hasMsg(FIRST));
            EXPECT_TRUE(other.eraseMsg(FIRST));
            return isErased;
        }));
        EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3, 5}));
    });
}

// Erasures by lot, on a message thread and on a model that takes out one message after the other. A script
// judges on both and does on both what a judgement may do, and some of what it must not; it writes down
// whatever it can see.

constexpr unsigned int FRAMES = 24;
constexpr unsigned int ENTRIES = FRAMES + 256;

class Script;

/// Either side.
class Side {
  public:
    virtual ~Side() = default;
    virtual ThreadAccess::Queues queues() = 0;
    virtual void ask(std::function<void(int id, int number)> const& onEach) = 0;
    virtual bool erase(Script& script) = 0;
    virtual bool eraseEntry(int id) = 0;
    virtual bool eraseBoth(unsigned int index, unsigned int offset, unsigned int bytes) = 0;
    virtual bool post(int id, int number) = 0;
    virtual bool kill(int timer) = 0;
};

class Script {
  public:
    Script(Side& side, unsigned int seed) : mSide(side), mRandom(seed) {}

    void run() {
        for (int i = 0; i < 3; ++i) {
            mDepth = 0;
            mShare = pick(5);
            try {
                bool const completed = mSide.erase(*this);
                mSeen << " completed " << completed;
            } catch (std::runtime_error const&) {
                mSeen << " thrown";
            }
            writeQueues();
        }
    }

    bool judge(int id, int number) {
        mSeen << "\njudge " << id << ":" << number;
        act(pick(40));
        return pick(4) < mShare;
    }

    void onEraseTimer(int timer) {
        mSeen << "\ngone " << timer;
        writeQueues();
    }

    std::string seen() const { return mSeen.str(); }

  private:
    unsigned int pick(unsigned int bound) { return static_cast<unsigned int>(mRandom() % bound); }

    void act(unsigned int what) {
        int const number = static_cast<int>(pick(6));
        unsigned int const index = pick(12);
        unsigned int const offset = pick(12) * FRAME;
        unsigned int const bytes = pick(8) == 0 ? 3 : FRAME;
        bool result = true;
        switch (what) {
            case 0:
                mSide.ask([this](int id, int n) { mSeen << " " << id << ":" << n; });
                break;
            case 1:
                writeQueues();
                break;
            case 2:
                eraseWithin();
                break;
            case 3:
                result = mSide.eraseEntry(FIRST + number);
                break;
            case 4:
                result = mSide.eraseBoth(index, offset, bytes);
                break;
            case 5:
                result = mSide.post(FIRST + number, static_cast<int>(bytes));
                break;
            case 6:
                result = mSide.kill(number);
                break;
            case 7:
                throw std::runtime_error("judgement");
            default:
                break;
        }
        mSeen << (result ? "" : " refused");
    }

    void eraseWithin() {
        if (mDepth == 2) {
            return;
        }
        ++mDepth;
        mSeen << " [";
        bool const completed = mSide.erase(*this);
        mSeen << " ] " << completed;
        --mDepth;
    }

    void writeQueues() {
        ThreadAccess::Queues const queues = mSide.queues();
        mSeen << " strays " << queues.strayFrames << " entries";
        for (CtlMsg const& entry : queues.entries) {
            mSeen << " " << entry.mMsgId << ":" << entry.mParam;
        }
        mSeen << " frames";
        for (unsigned char const byte : queues.frames) {
            mSeen << " " << static_cast<int>(byte);
        }
    }

    Side& mSide;
    std::mt19937 mRandom;
    std::ostringstream mSeen;
    unsigned int mShare = 0;
    int mDepth = 0;
};

class ThreadSide : public Side {
  public:
    explicit ThreadSide(ScopedMsgThread& thread) : mThread(thread) {}

    ThreadAccess::Queues queues() override { return ThreadAccess::queues(mThread); }
    void ask(std::function<void(int id, int number)> const& onEach) override {
        Judge judge = [&onEach](utl::ThreadRawMsg& raw) {
            onEach(idOf(raw), numberOf(raw));
            return false;
        };
        utl::MsgDrivenThread::MsgJudgement<Judge> judgement(&judge);
        EXPECT_FALSE(mThread.hasMsgInternal(&judgement));
    }
    bool erase(Script& script) override {
        return eraseIf(mThread,
                       [&script](utl::ThreadRawMsg& raw) { return script.judge(idOf(raw), numberOf(raw)); });
    }
    bool eraseEntry(int id) override { return mThread.eraseMsgFromCtlQueue(id); }
    bool eraseBoth(unsigned int index, unsigned int offset, unsigned int bytes) override {
        return mThread.earseMsgQueue(index, offset, bytes);
    }
    bool post(int id, int number) override { return mThread.postMsg(NumberMsg(id, number)) == 1; }
    bool kill(int timer) override { return mThread.killTimer(timer); }

  private:
    ScopedMsgThread& mThread;
};

class ModelSide : public Side {
  public:
    struct Timer {
        unsigned int repeatCount;
        int autoRepeat;
        unsigned int fireCount = 0;
    };

    ModelSide(ThreadAccess::Queues queues, std::map<int, Timer> timers)
        : mQueues(std::move(queues)), mTimers(std::move(timers)) {}

    void onEraseTimer(std::function<void(int)> hook) { mHook = std::move(hook); }

    ThreadAccess::Queues queues() override { return mQueues; }

    void ask(std::function<void(int id, int number)> const& onEach) override {
        unsigned int offset = 0;
        for (CtlMsg const& entry : mQueues.entries) {
            unsigned int const place = offset;
            offset += hasFrame(entry.mMsgId) ? FRAME : 0;
            if (scan(entry, place)) {
                onEach(number(0), number(1));
            }
        }
    }

    bool erase(Script& script) override {
        int ended = 0;
        bool completed = true;
        do {
            ended = 0;
            completed = eraseUntilATimerEnds(script, &ended);
            if (ended != 0) {
                mHook(ended);
            }
        } while (ended != 0);
        return completed;
    }

    bool eraseEntry(int id) override {
        auto const found = std::find_if(mQueues.entries.begin(), mQueues.entries.end(),
                                        [id](CtlMsg const& entry) { return entry.mMsgId == id; });
        if (found == mQueues.entries.end()) {
            return false;
        }
        mQueues.entries.erase(found);
        return true;
    }

    bool eraseBoth(unsigned int index, unsigned int offset, unsigned int bytes) override {
        if (index >= mQueues.entries.size() || offset >= mQueues.frames.size()) {
            return false;
        }
        mQueues.entries.erase(mQueues.entries.begin() + static_cast<std::ptrdiff_t>(index));
        eraseFrame(offset, bytes);
        return true;
    }

    bool post(int id, int messageNumber) override {
        if (mQueues.frames.size() + FRAME > FRAMES * FRAME) {
            if (mQueues.strayFrames == 0 || mQueues.entries.size() >= ENTRIES) {
                return false;
            }
            discardStrays(0);
            return post(id, messageNumber);
        }
        unsigned char frame[FRAME];
        std::memcpy(frame, &id, sizeof(id));
        std::memcpy(frame + sizeof(id), &messageNumber, sizeof(messageNumber));
        mQueues.frames.insert(mQueues.frames.end(), frame, frame + FRAME);
        mQueues.entries.push_back({id, -1});
        discardStrays(FRAME);
        return true;
    }

    bool kill(int timer) override {
        if (mTimers.erase(timer) == 0) {
            return false;
        }
        eraseTimeouts(timer);
        mHook(timer);
        return true;
    }

  private:
    static bool hasFrame(int id) { return id == utl::MSG_ID_CTL_SYNC || ScopedMsgThread::isDataMsgId(id); }

    int number(unsigned int place) const {
        int result = 0;
        std::memcpy(&result, mScratch + place * sizeof(result), sizeof(result));
        return result;
    }

    // Brings the message of an entry into the scratch; false if it has none.
    bool scan(CtlMsg const& entry, unsigned int offset) {
        if (entry.mMsgId == utl::MSG_ID_CTL_TIMEOUT) {
            int const id = utl::MSG_ID_TIMER;
            std::memcpy(mScratch, &id, sizeof(id));
            std::memcpy(mScratch + sizeof(id), &entry.mParam, sizeof(entry.mParam));
            return true;
        }
        auto const size = static_cast<unsigned int>(mQueues.frames.size());
        unsigned int const strays = mQueues.strayFrames * FRAME;
        unsigned int const end = size > strays ? size - strays : 0;
        if (!hasFrame(entry.mMsgId) || offset >= end) {
            return false;
        }
        std::copy_n(mQueues.frames.begin() + offset, std::min(FRAME, end - offset), mScratch);
        return true;
    }

    bool eraseUntilATimerEnds(Script& script, int* ended) {
        unsigned int index = 0;
        unsigned int offset = 0;
        for (std::size_t left = mQueues.entries.size(); left != 0 && index < mQueues.entries.size(); --left) {
            CtlMsg const entry = mQueues.entries[index];
            bool const isTimeout = entry.mMsgId == utl::MSG_ID_CTL_TIMEOUT;
            if (!isTimeout && !hasFrame(entry.mMsgId)) {
                ++index;
                continue;
            }
            if (!scan(entry, offset) ||
                (ScopedMsgThread::isDataMsgId(entry.mMsgId) && number(0) != entry.mMsgId)) {
                return false;
            }
            if (!script.judge(number(0), number(1))) {
                ++index;
                offset += isTimeout ? 0 : FRAME;
                continue;
            }
            if (!isTimeout && !eraseBoth(index, offset, FRAME)) {
                return false;
            }
            if (isTimeout && !eraseTimeout(index, entry.mParam, ended)) {
                return false;
            }
            if (*ended != 0) {
                return true;
            }
        }
        return true;
    }

    bool eraseTimeout(unsigned int index, int id, int* ended) {
        if (index >= mQueues.entries.size()) {
            return false;
        }
        mQueues.entries.erase(mQueues.entries.begin() + static_cast<std::ptrdiff_t>(index));
        auto const timer = mTimers.find(id);
        if (timer == mTimers.end()) {
            return true;
        }
        ++timer->second.fireCount;
        bool const goesOn =
            timer->second.repeatCount == 0 || timer->second.fireCount < timer->second.repeatCount;
        if (goesOn && timer->second.autoRepeat != 0) {
            return true;
        }
        eraseTimeouts(id);
        if (!goesOn) {
            mTimers.erase(timer);
            *ended = id;
        }
        return true;
    }

    void eraseTimeouts(int timer) {
        auto const isObsolete = [timer](CtlMsg const& entry) {
            return entry.mMsgId == utl::MSG_ID_CTL_TIMEOUT && entry.mParam == timer;
        };
        mQueues.entries.erase(std::remove_if(mQueues.entries.begin(), mQueues.entries.end(), isObsolete),
                              mQueues.entries.end());
    }

    void eraseFrame(unsigned int offset, unsigned int bytes) {
        auto const begin = mQueues.frames.begin() + static_cast<std::ptrdiff_t>(offset);
        auto const rest = static_cast<std::size_t>(mQueues.frames.end() - begin);
        mQueues.frames.erase(begin, begin + static_cast<std::ptrdiff_t>(std::min<std::size_t>(bytes, rest)));
    }

    // One that a judgement has cut short is left alone.
    void discardStrays(unsigned int bytesBehind) {
        for (; mQueues.strayFrames != 0; --mQueues.strayFrames) {
            auto const size = static_cast<unsigned int>(mQueues.frames.size());
            unsigned int const offset = size - bytesBehind - mQueues.strayFrames * FRAME;
            if (offset <= size && FRAME <= size - offset) {
                std::copy_n(mQueues.frames.begin() + offset, FRAME, mScratch);
                eraseFrame(offset, FRAME);
            }
        }
    }

    ThreadAccess::Queues mQueues;
    std::map<int, Timer> mTimers;
    std::function<void(int)> mHook;
    unsigned char mScratch[FRAME] = {};
};

/// A message thread whose handler holds in front of queues by lot, and then runs the script.
class ErasureByLot {
  public:
    explicit ErasureByLot(unsigned int seed)
        : mSeed(seed),
          mRandom(seed + 1000),
          mRoad(4, FRAMES, "eraser"),
          mSide(mRoad.thread),
          mScript(mSide, seed) {}

    void expectWhatTheModelGives() {
        moveTheHeads();
        mRoad.collector.onMsg = [this](int id, int) {
            if (id == BLOCKER) {
                setTimers();
                mRoad.entered.open();
                mRoad.gate.wait();
                mFilled = mSide.queues();
                mRoad.thread.onErase = [this](int, int timer) { mScript.onEraseTimer(timer); };
                mScript.run();
                mRoad.thread.onErase = nullptr;
                mDone.open();
            }
        };
        ASSERT_EQ(mRoad.thread.postMsg(BLOCKER), 1);
        ASSERT_TRUE(mRoad.entered.wait());
        fill();
        mRoad.gate.open();
        ASSERT_TRUE(mDone.wait());
        ModelSide model(mFilled, mTimers);
        Script script(model, mSeed);
        model.onEraseTimer([&script](int timer) { script.onEraseTimer(timer); });
        script.run();
        EXPECT_EQ(mScript.seen(), script.seen()) << "seed " << mSeed;
    }

  private:
    unsigned int pick(unsigned int bound) { return static_cast<unsigned int>(mRandom() % bound); }

    // Frames then lie across the end of the storage.
    void moveTheHeads() {
        mRoad.collector.onMsg = nullptr;
        ASSERT_EQ(mRoad.thread.start(&mRoad.collector), 0);
        for (unsigned int i = pick(FRAMES); i != 0; --i) {
            ASSERT_EQ(mRoad.thread.sendMsgSync(NumberMsg(1)), 1);
        }
    }

    void setTimers() {
        for (int i = 0; i < 3; ++i) {
            unsigned int const repeatCount = pick(4);
            int const autoRepeat = static_cast<int>(pick(2));
            mTimers[mRoad.thread.setTimer(0, 0, repeatCount, autoRepeat)] = {repeatCount, autoRepeat};
        }
    }

    void fill() {
        int const count = static_cast<int>(pick(FRAMES + 1));
        for (int number = 0; number < count; ++number) {
            fillOne(number);
        }
        unsigned int const strays = pick(3);
        withFullCtlQueue(mRoad.thread, [this, strays] {
            for (unsigned int i = 0; i < strays; ++i) {
                EXPECT_EQ(mRoad.thread.sendMsgSync(NumberMsg(SECOND, -1)), 0);
            }
        });
    }

    void fillOne(int number) {
        utl::MsgDrivenThread& thread = mRoad.thread;
        switch (pick(8)) {
            case 0:
                thread.postThreadCtlMsg(utl::MSG_ID_CTL_TIMEOUT, static_cast<int>(pick(5)));
                break;
            case 1:
                thread.postThreadCtlMsg(utl::MSG_ID_CTL_START_TIMER, UNKNOWN_TIMER);
                break;
            case 2:
                // What a synchronous sender leaves.
                thread.sendMsgAsync(NumberMsg(BLOCKER + 1, number));
                thread.eraseMsgFromCtlQueue(BLOCKER + 1);
                thread.postThreadCtlMsg(utl::MSG_ID_CTL_SYNC, -1);
                break;
            default:
                thread.sendMsgAsync(NumberMsg(FIRST + static_cast<int>(pick(6)), number));
        }
    }

    LogCapture mLog;
    unsigned int mSeed;
    std::mt19937 mRandom;
    BlockedRoad mRoad;
    ThreadSide mSide;
    Script mScript;
    std::map<int, ModelSide::Timer> mTimers;
    ThreadAccess::Queues mFilled = {};
    Gate mDone;
};

TEST_F(MsgErasure, OfQueuesByLot_DoesWhatTakingOutOneAfterTheOtherDoes) {
    for (unsigned int seed = 0; seed < 400 && !HasFailure(); ++seed) {
        ErasureByLot(seed).expectWhatTheModelGives();
    }
}

}  // namespace
