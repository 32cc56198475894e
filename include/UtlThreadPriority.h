#pragma once

#include "UtlPlatform.h"

namespace utl {

/// Scheduling priority of a thread: a label, kept as the nice value of the operating system; *external lock
/// needed*, because it is a plain value.
class UTL_API ThreadPriority {
  public:
    /// The labels, from the most to the least urgent. Their nice values are -4, -2, -1, 0, 1, 2 and 3.
    enum Priority {
        TIME_CRITICAL,
        HIGH,
        ABOVE_NORMAL,
        NORMAL,
        BELOW_NORMAL,
        LOW,
        IDLE,
        INVALID = -1  ///< no label; its OS value is `INVALID_OS_VALUE`
    };

    /// The OS value of a priority that has no label.
    static constexpr int INVALID_OS_VALUE = 100;

    /// Takes a label; any other number makes the priority invalid.
    ThreadPriority(int label = NORMAL) { value(label); }
    virtual ~ThreadPriority() = default;
    ThreadPriority(ThreadPriority const&) = default;
    ThreadPriority& operator=(ThreadPriority const&) = default;
    ThreadPriority& operator=(Priority label);

    /// Takes a label as the constructor does.
    void value(int label);

    /// The label of the OS value, -1 for one that has none. Everything below -3 counts as `TIME_CRITICAL`,
    /// and -3 as `HIGH`: what was set by `OsValue` finds the label whose urgency it reaches.
    int value() const;

    /// The label's name, as in "ABOVE_NORMAL"; "INVALID" where there is no label. A literal.
    char const* label() const;

    /// Sets the OS value as given, unchecked.
    void OsValue(int osValue) { mOsValue = osValue; }
    int OsValue() const { return mOsValue; }

  private:
    int mOsValue;
};

/// Two priorities are equal if their OS values are.
inline bool operator==(ThreadPriority const& left, ThreadPriority const& right) {
    return left.OsValue() == right.OsValue();
}

inline bool operator!=(ThreadPriority const& left, ThreadPriority const& right) {
    return !(left == right);
}

}  // namespace utl
