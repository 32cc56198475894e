#pragma once

#include "UtlEvent.h"
#include "UtlSmartPointer.h"
#include "UtlThreadPriority.h"

namespace utl {

class WatchdogTimerListener;

/// What a start is asked for, in the words of `ThreadManager::entry`; *external lock needed*, because it is a
/// plain record. It refers to what the caller passed and lives as long as the call.
struct StartRequest {
    void (*function)(void*);
    void* argument;
    int watchdog;
    unsigned int aliveTime;
    WatchdogTimerListener* listener;
    char const* name;
    ThreadPriority const& priority;
};

/// What a thread that the `ThreadManager` starts shares with its `Thread` and with its entry; *internally
/// locked*, as every event. The event itself is the thread's end, which only the thread sets on. It lives
/// until the last of the three has released it, so nobody needs the table, or a kernel id that may be used
/// again, to learn of the end.
class ThreadLife : public Event {
  public:
    /// `generation` is that of the manager that starts the thread.
    explicit ThreadLife(unsigned int generation) : Event(INITIALLY_OFF, ONE_WAY), mGeneration(generation) {}

    /// The object whose event is `end`, the end event of a thread that was started.
    static ThreadLife& of(SmartPointer<Event> const& end) { return static_cast<ThreadLife&>(*end.get()); }

    bool hasEnded() const { return peekOn(); }

    unsigned int generation() const { return mGeneration; }

    /// On when the start is over, however it went: until then the thread runs nothing of its user's.
    Event mReleased{INITIALLY_OFF, ONE_WAY};

    /// On when a thread whose constructor starts it has begun its `execute`.
    Event mExecuting{INITIALLY_OFF, ONE_WAY};

  private:
    unsigned int const mGeneration;
};

/// A start in progress: the new thread waits until the scope ends, or until `release`; *one owner thread*.
class [[nodiscard]] StartHandshake {
  public:
    explicit StartHandshake(unsigned int generation);
    ~StartHandshake() { release(); }
    StartHandshake(StartHandshake const&) = delete;
    StartHandshake& operator=(StartHandshake const&) = delete;

    SmartPointer<Event> const& end() const { return mEnd; }

    void setThreadExists() { mThreadExists = true; }
    bool threadExists() const { return mThreadExists; }

    void release() { ThreadLife::of(mEnd).mReleased.setOn(); }

  private:
    SmartPointer<Event> mEnd;
    bool mThreadExists = false;
};

}  // namespace utl
