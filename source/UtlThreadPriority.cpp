#include "UtlThreadPriority.h"

namespace utl {

namespace {

struct Label {
    char const* name;
    int osValue;
};

constexpr Label LABELS[] = {
    {"TIME_CRITICAL", -4}, {"HIGH", -2}, {"ABOVE_NORMAL", -1}, {"NORMAL", 0},
    {"BELOW_NORMAL", 1},   {"LOW", 2},   {"IDLE", 3},
};
constexpr unsigned int LABEL_COUNT = sizeof(LABELS) / sizeof(LABELS[0]);

// The lowest OS value that reads as HIGH; everything below it is TIME_CRITICAL.
constexpr int LOWEST_HIGH = -3;

bool isLabel(int label) {
    return static_cast<unsigned int>(label) < LABEL_COUNT;
}

}  // namespace

ThreadPriority& ThreadPriority::operator=(Priority label) noexcept {
    value(label);
    return *this;
}

void ThreadPriority::value(int label) noexcept {
    mOsValue = isLabel(label) ? LABELS[label].osValue : INVALID_OS_VALUE;
}

int ThreadPriority::value() const noexcept {
    if (mOsValue > LABELS[IDLE].osValue) {
        return INVALID;
    }
    if (mOsValue < LOWEST_HIGH) {
        return TIME_CRITICAL;
    }
    int label = IDLE;
    while (label > HIGH && LABELS[label].osValue > mOsValue) {
        --label;
    }
    return label;
}

char const* ThreadPriority::label() const noexcept {
    int const label = value();
    return isLabel(label) ? LABELS[label].name : "INVALID";
}

}  // namespace utl
