// Post and deliver, to a thread that sleeps until something comes.

#include <glib.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <boost/asio.hpp>
#include <thread>

#include "BenchMessages.h"
#include "Mailbox.h"
#include "Peers.h"
#include "UtlMsgDrivenThread.h"

namespace utlpeers {
namespace {

// --- the library

class LetterMsg : public utl::Msg {
  public:
    explicit LetterMsg(Letter const& itsLetter) : Msg(1), letter(itsLetter) {}
    Letter letter;

  protected:
    int storeDataTo(utl::MsgDataBroker* broker) const override {
        return broker->set(reinterpret_cast<unsigned char const*>(&letter), LETTER_BYTES);
    }
    int restoreDataFrom(utl::MsgDataBroker& broker) override {
        return broker.get(reinterpret_cast<unsigned char*>(&letter), LETTER_BYTES);
    }
};

class OurMailbox : public Mailbox, private utl::ThreadMsgListener {
  public:
    explicit OurMailbox(unsigned int places) : mThread(LETTER_BYTES, places, "mailbox") {
        prove(mThread.start(this) == 0, "no message thread");
    }
    ~OurMailbox() override {
        mThread.stop();
        mThread.leaveManagement();
    }
    bool post(Letter const& letter) override { return mThread.postMsg(LetterMsg(letter)) != 0; }

  private:
    void receiveMsg(int, utl::ThreadRawMsg& raw) override {
        LetterMsg msg(Letter{});
        msg.restoreFrom(raw);
        inbox.deliver(msg.letter);
    }

    utl::MsgDrivenThread mThread;
};

// --- a ring, a lock, and a token through a pipe

class BareMailbox : public Mailbox {
  public:
    explicit BareMailbox(unsigned int places) : mRing(places) {
        prove(pipe(mPipe) == 0 && fcntl(mPipe[1], F_SETPIPE_SZ, 8 * (places + 1)) >= 0, "no pipe");
        mThread = std::thread([this] { read(); });
    }
    ~BareMailbox() override {
        close(mPipe[1]);
        mThread.join();
        close(mPipe[0]);
    }
    bool post(Letter const& letter) override {
        std::lock_guard<std::mutex> const lock(mMutex);
        if (mUsed == mRing.size()) {
            return false;
        }
        mRing[(mFirst + mUsed++) % mRing.size()] = letter;
        int const token[2] = {1, -1};
        return write(mPipe[1], token, sizeof(token)) == sizeof(token);
    }

  private:
    void read() {
        int token[2];
        Letter letter;
        while (::read(mPipe[0], token, sizeof(token)) == sizeof(token)) {
            {
                std::lock_guard<std::mutex> const lock(mMutex);
                letter = mRing[mFirst];
                mFirst = (mFirst + 1) % mRing.size();
                --mUsed;
            }
            inbox.deliver(letter);
        }
    }

    std::mutex mMutex;
    std::vector<Letter> mRing;
    std::size_t mFirst = 0;
    std::size_t mUsed = 0;
    int mPipe[2] = {-1, -1};
    std::thread mThread;
};

// --- GLib: a queue of pointers without a loop, and the loop

class GlibQueueMailbox : public Mailbox {
  public:
    GlibQueueMailbox() : mQueue(g_async_queue_new()), mThread([this] { read(); }) {}
    ~GlibQueueMailbox() override {
        g_async_queue_push(mQueue, new Letter);  // the number 0 ends it
        mThread.join();
        g_async_queue_unref(mQueue);
    }
    bool post(Letter const& letter) override {
        g_async_queue_push(mQueue, new Letter(letter));
        return true;
    }

  private:
    void read() {
        for (bool isOpen = true; isOpen;) {
            std::unique_ptr<Letter> const letter(static_cast<Letter*>(g_async_queue_pop(mQueue)));
            isOpen = letter->number != 0;
            if (isOpen) {
                inbox.deliver(*letter);
            }
        }
    }

    GAsyncQueue* mQueue;
    std::thread mThread;
};

class GlibLoopMailbox : public Mailbox {
  public:
    GlibLoopMailbox()
        : mContext(g_main_context_new()), mLoop(g_main_loop_new(mContext, FALSE)), mThread([this] {
              g_main_context_push_thread_default(mContext);
              g_main_loop_run(mLoop);
          }) {}
    ~GlibLoopMailbox() override {
        g_main_context_invoke(
            mContext,
            [](gpointer loop) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop*>(loop));
                return G_SOURCE_REMOVE;
            },
            mLoop);
        mThread.join();
        g_main_loop_unref(mLoop);
        g_main_context_unref(mContext);
    }
    bool post(Letter const& letter) override {
        g_main_context_invoke_full(
            mContext, G_PRIORITY_DEFAULT,
            [](gpointer data) -> gboolean {
                auto const* const parcel = static_cast<Parcel*>(data);
                parcel->mailbox->inbox.deliver(parcel->letter);
                return G_SOURCE_REMOVE;
            },
            new Parcel{this, letter}, [](gpointer data) { delete static_cast<Parcel*>(data); });
        return true;
    }

  private:
    struct Parcel {
        GlibLoopMailbox* mailbox;
        Letter letter;
    };

    GMainContext* mContext;
    GMainLoop* mLoop;
    std::thread mThread;
};

// --- Boost

class AsioMailbox : public Mailbox {
  public:
    AsioMailbox() : mWork(mContext.get_executor()), mThread([this] { mContext.run(); }) {}
    ~AsioMailbox() override {
        mWork.reset();
        mThread.join();
    }
    bool post(Letter const& letter) override {
        boost::asio::post(mContext, [this, letter] { inbox.deliver(letter); });
        return true;
    }

  private:
    boost::asio::io_context mContext;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> mWork;
    std::thread mThread;
};

// --- the themes

unsigned long long sumTo(unsigned int count) {
    return (static_cast<unsigned long long>(count) + 1) * count / 2;
}

// Posts letters with the numbers from 1 to `count` from that many threads; returns the sum of the numbers.
unsigned long long postAll(Mailbox& mailbox, unsigned int producers, unsigned int count) {
    std::atomic<unsigned int> number{0};
    utlbench::postFromThreads(
        producers,
        [&] {
            // A producer keeps its number until there is a place for it.
            static thread_local unsigned int mine = 0;
            mine = mine != 0 ? mine : ++number;
            Letter letter;
            letter.number = mine;
            bool const isPosted = mailbox.post(letter);
            mine = isPosted ? 0 : mine;
            return isPosted;
        },
        count);
    return sumTo(count);
}

Side postAndDeliver(NamedMailbox const& named, unsigned int producers) {
    return {named.name, [mailbox = named.mailbox, producers](std::size_t times) {
                auto const count = static_cast<unsigned int>((times + producers - 1) / producers * producers);
                mailbox->inbox.expect(count, false);
                mailbox->inbox.await(postAll(*mailbox, producers, count));
            }};
}

constexpr unsigned int PLACES = 1024;

std::vector<Side> producersSides(unsigned int producers) {
    std::vector<Side> sides;
    for (NamedMailbox const& named : mailboxes(PLACES)) {
        sides.push_back(postAndDeliver(named, producers));
    }
    return sides;
}

// Posts letters with the numbers from 1 to `count`; returns their sum. There must be room for all of them.
unsigned long long postHere(Mailbox& mailbox, unsigned int count) {
    Letter letter;
    while (letter.number < count) {
        ++letter.number;
        prove(mailbox.post(letter), "a queue that is full too early");
    }
    return sumTo(count);
}

// Fills a queue behind a thread that is held up, and lets it be emptied.
Side fillAndEmpty(NamedMailbox const& named, unsigned int depth) {
    return {named.name, [mailbox = named.mailbox, depth](std::size_t times) {
                for (std::size_t done = 0; done < times; done += depth) {
                    mailbox->inbox.expect(depth, true);
                    unsigned long long const sum = postHere(*mailbox, depth);
                    mailbox->inbox.release();
                    mailbox->inbox.await(sum);
                }
            }};
}

std::vector<Side> depthSides(unsigned int depth) {
    std::vector<Side> sides;
    for (NamedMailbox const& named : mailboxes(depth)) {
        sides.push_back(fillAndEmpty(named, depth));
    }
    return sides;
}

std::size_t depthPieces(unsigned int depth) {
    constexpr std::size_t LEAST = 8192;
    return depth > LEAST ? depth : LEAST;
}

Theme theme(char const* id, char const* title, char const* size, Processors processors,
            std::vector<unsigned int> const& sizes, std::vector<unsigned int> const& shown,
            std::function<std::vector<Side>(unsigned int)> const& sides) {
    return {id, title, "message", size, utlbench::WALL_TIME, processors, sizes, shown, sides, 40};
}

Theme depthTheme() {
    Theme result = theme("depth", "fill a queue and empty it", "messages in the queue", ONE_PROCESSOR,
                         {16, 256, 1024, 4096, 16384, 65536}, {1024, 65536}, depthSides);
    result.pieces = depthPieces;
    return result;
}

ThemeDeclaration const gProducers(theme("producers", "post and deliver", "producers", ONE_PROCESSOR,
                                        {1, 2, 4, 8, 16, 32, 64}, {1, 4}, producersSides));
ThemeDeclaration const gParallel(theme("parallel", "post and deliver on all processors", "producers",
                                       ALL_PROCESSORS, {1, 4}, {1, 4}, producersSides));
ThemeDeclaration const gDepth(depthTheme());

}  // namespace

std::vector<NamedMailbox> mailboxes(unsigned int places) {
    return {{OURS, std::make_shared<OurMailbox>(places)},
            {BARE, std::make_shared<BareMailbox>(places)},
            {"Qt queued events", makeQtMailbox()},
            {"GLib async queue", std::make_shared<GlibQueueMailbox>()},
            {"GLib main context", std::make_shared<GlibLoopMailbox>()},
            {"Boost.Asio post", std::make_shared<AsioMailbox>()}};
}

}  // namespace utlpeers
