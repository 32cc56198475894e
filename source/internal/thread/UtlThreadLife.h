#pragma once

#include <memory>

#include "UtlEvent.h"

namespace utl {

/// What a thread that the `ThreadManager` starts shares with its `Thread` and with its entry: the event
/// itself is the thread's end, which the thread alone sets on; *internally locked*, as every event. It
/// outlives whichever of the three goes first, so nobody needs the table, or a kernel id that may come again,
/// to learn of the end.
class ThreadLife : public Event {
  public:
    /// `manager` is the number of the manager that starts the thread.
    explicit ThreadLife(unsigned int manager) : Event(0, 0), mManager(manager) {}

    /// What stands behind the end event of a thread that was started.
    static ThreadLife& of(SmartPointer<Event> const& end) { return static_cast<ThreadLife&>(*end.get()); }

    bool hasEnded() const { return peekOn(); }

    unsigned int manager() const { return mManager; }

    /// On when the start is over, however it went: until then the thread runs nothing of its user's.
    Event mReleased{0, 0};

    /// On when a thread whose constructor starts it is inside its `execute`.
    Event mInside{0, 0};

  private:
    unsigned int const mManager;
};

/// A start in progress: the thread that it makes waits until the scope ends, or until `release`; *one owner
/// thread*.
class [[nodiscard]] StartHandshake {
  public:
    explicit StartHandshake(unsigned int manager);
    ~StartHandshake() { release(); }
    StartHandshake(StartHandshake const&) = delete;
    StartHandshake& operator=(StartHandshake const&) = delete;

    SmartPointer<Event> const& end() const { return mEnd; }

    void noteThread() { mHasThread = true; }
    bool hasThread() const { return mHasThread; }

    void release() { ThreadLife::of(mEnd).mReleased.setOn(); }

  private:
    SmartPointer<Event> mEnd;
    bool mHasThread = false;
};

}  // namespace utl
