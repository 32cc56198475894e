// The queue of a message thread beside plain accounts of it: random erasures, with fixed seeds, and mixtures
// of all that changes it.

#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "TestErasure.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestStage.h"
#include "UtlThreadManager.h"

using namespace utltest;

namespace {

using MsgErasure = WithoutWatchdogThread;

// Random erasures, with fixed seeds, on a message thread and on a model that takes out one message after the
// other. A script judges on both and does on both what a judgement may do, and some of what it must not; it
// writes down whatever it can see.

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

/// A message thread whose handler waits until the queue is filled at random, and then runs the script.
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
                EXPECT_TRUE(mRoad.gate.hold());
                mFilled = mSide.queues();
                mRoad.thread.onErase = [this](int, int timer) { mScript.onEraseTimer(timer); };
                mScript.run();
                mRoad.thread.onErase = nullptr;
                mDone.open();
            }
        };
        ASSERT_EQ(mRoad.thread.postMsg(BLOCKER), 1);
        ASSERT_TRUE(mRoad.gate.waitUntilHeld());
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
    HeldMsgThread mRoad;
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

// Mixtures of all that changes a queue, on a message thread and on a plain list.

/// What the queue of a message thread should hold.
class Model {
  public:
    static constexpr size_t FRAMES = 5;

    explicit Model(OpenedMsgThread& thread) : mThread(thread) {}

    Delivered queued;

    void step(unsigned int choice, int number) {
        int const id = 1 + number % 3;
        switch (choice % 8) {
            case 0:
            case 1:
            case 2:
                post(id, number);
                break;
            case 3:
            case 4:
                expireTimer(1 + number % 2);
                break;
            case 5:
                erase(number % 5 == 0 ? utl::MSG_ID_TIMER : id);
                break;
            case 6:
                compare(number % 2 == 0 ? utl::MSG_ID_TIMER : id);
                break;
            default:
                compare(utl::MSG_ID_ANY);
                break;
        }
    }

  private:
    static bool means(int asked, int id) { return asked == utl::MSG_ID_ANY || asked == id; }

    size_t countOf(std::function<bool(std::pair<int, int> const&)> const& isMeant) const {
        return static_cast<size_t>(std::count_if(queued.begin(), queued.end(), isMeant));
    }

    void post(int id, int number) {
        bool const fits = countOf([](auto const& one) { return one.first != utl::MSG_ID_TIMER; }) < FRAMES;
        EXPECT_EQ(mThread.postMsg(NumberMsg(id, number)), fits ? 1 : 0);
        if (fits) {
            queued.emplace_back(id, number);
        }
    }

    void expireTimer(int timer) {
        std::pair<int, int> const entry(utl::MSG_ID_TIMER, timer);
        mThread.executeTimeoutSignal(timer);
        if (countOf([&](auto const& one) { return one == entry; }) < (timer == 1 ? 2U : 1U)) {
            queued.push_back(entry);
        }
    }

    void erase(int id) {
        EXPECT_TRUE(mThread.eraseMsg(id));
        queued.erase(std::remove_if(queued.begin(), queued.end(),
                                    [&](auto const& one) { return means(id, one.first); }),
                     queued.end());
    }

    void compare(int asked) {
        auto const found = std::find_if(queued.begin(), queued.end(),
                                        [&](auto const& one) { return means(asked, one.first); });
        bool const isThere = found != queued.end();
        EXPECT_EQ(mThread.hasMsg(asked), isThere);
        utl::ThreadRawMsg raw(4);
        ASSERT_EQ(mThread.peekMsg(asked, &raw), isThere);
        if (isThere) {
            NumberMsg msg(0);
            EXPECT_EQ(msg.restoreFrom(raw), 1);
            EXPECT_EQ(std::make_pair(msg.getMsgId(), msg.mNumber), *found);
        }
        EXPECT_EQ(mThread.getFirstMsgId(), queued.empty() ? utl::MSG_ID_NONE : queued.front().first);
    }

    OpenedMsgThread& mThread;
};

TEST_F(MsgThreadOnStage, AnyMixtureOfPostsExpiriesErasuresAndQuestions_AgreesWithAPlainList) {
    Stage stage(5, Model::FRAMES, 2);  // frames of 9 bytes, so that they lie across the end of the ring
    stage.start();
    Model model(stage.thread);
    Delivered expected;
    unsigned int random = 1;
    for (int round = 0; round < 60; ++round) {
        stage.onThread([&] {
            if (round == 0) {
                EXPECT_EQ(stage.thread.setTimer(LONG, 0, 0, 1), 1);
                EXPECT_EQ(stage.thread.setTimer(LONG, 0, 0, 0), 2);
            }
            for (int i = 0; i < 30; ++i) {
                random = random * 1664525U + 1013904223U;
                model.step(random >> 24, static_cast<int>(random >> 8 & 0xFFFF));
            }
        });
        expected.insert(expected.end(), model.queued.begin(), model.queued.end());
        model.queued.clear();
        while (stage.thread.getFirstMsgId() != utl::MSG_ID_NONE) {
            std::this_thread::yield();
        }
    }
    stage.settle();
    EXPECT_EQ(stage.delivered(), expected);
    EXPECT_GT(expected.size(), 60U);
    EXPECT_EQ(countWith("Mismatched"), 0U);
    EXPECT_EQ(countWith("executeEraseMsg"), 0U);
    EXPECT_EQ(countWith("Error. MsgId"), 0U);
}

}  // namespace
