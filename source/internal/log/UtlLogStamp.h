#pragma once

#include <cstddef>

namespace utl {

/// The local time of its construction as a log line shows it, "Nov 20 23:25:41.123"; *immutable* from then
/// on.
class LogStamp {
  public:
    /// The longest stamp. `ctime_r` writes at most 25 bytes.
    static constexpr std::size_t LENGTH_MAX = 63;

    LogStamp();

    /// Terminated; empty if the time could not be read, or if `ctime_r` left nothing.
    char const* text() const { return mText + mBegin; }

  private:
    char mText[LENGTH_MAX + 1] = {};
    std::size_t mBegin = 0;
};

}  // namespace utl
