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
    ThreadPriority(int label = NORMAL) noexcept { value(label); }
    virtual ~ThreadPriority() = default;
    ThreadPriority(ThreadPriority const&) = default;
    ThreadPriority& operator=(ThreadPriority const&) = default;
    ThreadPriority& operator=(Priority label) noexcept;

    /// Takes a label as the constructor does.
    void value(int label) noexcept;

    /// The label of the OS value, `INVALID` for one that has none. Everything below -3 counts as
    /// `TIME_CRITICAL`, and -3 as `HIGH`: a value that was set by `OsValue` has the label whose urgency it
    /// reaches.
    [[nodiscard]] int value() const noexcept;

    /// The label's name, as in "ABOVE_NORMAL"; "INVALID" if there is no label. A literal.
    [[nodiscard]] char const* label() const noexcept;

    /// Sets the OS value as given, unchecked.
    void OsValue(int osValue) noexcept { mOsValue = osValue; }
    [[nodiscard]] int OsValue() const noexcept { return mOsValue; }

  private:
    int mOsValue;
};

/// Two priorities are equal if their OS values are.
inline bool operator==(ThreadPriority const& left, ThreadPriority const& right) noexcept {
    return left.OsValue() == right.OsValue();
}

inline bool operator!=(ThreadPriority const& left, ThreadPriority const& right) noexcept {
    return !(left == right);
}

}  // namespace utl
