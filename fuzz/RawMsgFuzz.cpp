// Raw messages beside the bytes that they should hold: every `set` and `get` in any order, with the positions
// and the failure that stays.

#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "Fuzz.h"
#include "UtlThreadRawMsg.h"

namespace {

using fuzz::Input;
using utl::ThreadRawMsg;

constexpr unsigned int SIZE_MAX_OF_MESSAGE = 64;

/// A message, and what it should hold.
struct Subject {
    explicit Subject(unsigned int size) : msg(size), bytes(std::max(size, ThreadRawMsg::ID_BYTES)) {
        std::memset(msg.buffer(), 0, msg.maxSize());
        FUZZ_EXPECT(msg.maxSize() == bytes.size());
    }

    ThreadRawMsg msg;
    std::vector<unsigned char> bytes;
    size_t in = 0;
    size_t out = 0;
    int result = 0;

    int put(void const* value, size_t count, bool isGiven = true) {
        if (result != 0 || !isGiven || count > bytes.size() - in) {
            result = -1;
            return 0;
        }
        std::copy_n(static_cast<unsigned char const*>(value), count, bytes.data() + in);
        in += count;
        return 1;
    }

    int take(void* value, size_t count, bool isGiven = true) {
        if (result != 0 || !isGiven || count > bytes.size() - out) {
            result = -1;
            return 0;
        }
        std::copy_n(bytes.data() + out, count, static_cast<unsigned char*>(value));
        out += count;
        return 1;
    }
};

// A number that is none may change its bits on its way through a register of the processor.
template <typename T>
T valueOf(unsigned long long bits) {
    T value{};
    std::memcpy(&value, &bits, sizeof(T));
    if constexpr (std::is_floating_point_v<T>) {
        return std::isnan(value) ? T(1) : value;
    }
    return value;
}

template <typename T>
void scalar(Input* input, Subject* subject) {
    auto const bits = input->number<unsigned long long>();
    T const value = valueOf<T>(bits);
    if (input->flag()) {
        FUZZ_EXPECT(subject->msg.set(value) == subject->put(&value, sizeof(T)));
        return;
    }
    T got{};
    T expected{};
    bool const isGiven = input->upTo(15) != 0;
    FUZZ_EXPECT(subject->msg.get(isGiven ? &got : nullptr) == subject->take(&expected, sizeof(T), isGiven));
    FUZZ_EXPECT(std::memcmp(&got, &expected, sizeof(T)) == 0);
}

void truth(Input* input, Subject* subject) {
    bool const value = input->flag();
    if (input->flag()) {
        unsigned char const byte = value ? 1 : 0;
        FUZZ_EXPECT(subject->msg.set(value) == subject->put(&byte, 1));
        return;
    }
    bool got = false;
    unsigned char expected = 0;
    FUZZ_EXPECT(subject->msg.get(&got) == subject->take(&expected, 1));
    FUZZ_EXPECT(got == (expected != 0));
}

void block(Input* input, Subject* subject) {
    std::string const given = input->bytes(SIZE_MAX_OF_MESSAGE);
    auto const count = static_cast<unsigned int>(given.size());
    auto const bytes = fuzz::blockOf<unsigned char>(count);
    std::copy(given.begin(), given.end(), bytes.get());
    bool const isGiven = input->upTo(15) != 0;
    unsigned char* const place = isGiven ? bytes.get() : nullptr;
    if (input->flag()) {
        FUZZ_EXPECT(subject->msg.set(place, count) == subject->put(place, count, isGiven));
        return;
    }
    std::vector<unsigned char> expected(given.begin(), given.end());
    FUZZ_EXPECT(subject->msg.get(place, count) == subject->take(expected.data(), count, isGiven));
    FUZZ_EXPECT(std::equal(expected.begin(), expected.end(), bytes.get()));
}

// The characters up to a terminator among the first `most` ones; none if there is none.
template <typename CHAR>
std::optional<std::vector<CHAR>> textAt(Subject const& subject, unsigned int most) {
    std::vector<CHAR> text;
    for (size_t at = subject.out; text.size() < most && at + sizeof(CHAR) <= subject.bytes.size();
         at += sizeof(CHAR)) {
        CHAR one{};
        std::memcpy(&one, subject.bytes.data() + at, sizeof(CHAR));
        text.push_back(one);
        if (one == CHAR()) {
            return text;
        }
    }
    return std::nullopt;
}

template <typename CHAR>
void text(Input* input, Subject* subject) {
    std::string const chosen = input->text(12);
    auto const own = fuzz::blockOf<CHAR>(chosen.size() + 1);
    std::copy(chosen.begin(), chosen.end(), own.get());
    if (input->flag()) {
        FUZZ_EXPECT(subject->msg.set(static_cast<CHAR const*>(own.get())) ==
                    subject->put(own.get(), (chosen.size() + 1) * sizeof(CHAR)));
        return;
    }
    unsigned int const most = input->upTo(16);
    auto const out = fuzz::blockOf<CHAR>(most);
    auto const expected = textAt<CHAR>(*subject, most);
    bool const isTaken = expected && subject->result == 0;
    FUZZ_EXPECT(subject->msg.get(out.get(), most) == (isTaken ? 1 : 0));
    if (isTaken) {
        FUZZ_EXPECT(std::equal(expected->begin(), expected->end(), out.get()));
        subject->out += expected->size() * sizeof(CHAR);
    }
}

void frame(Input* input, Subject* subject) {
    switch (input->upTo(4)) {
        case 0:
            FUZZ_EXPECT(subject->msg.beginInput() == 1);
            subject->in = 4;
            subject->result = 0;
            break;
        case 1:
            FUZZ_EXPECT(subject->msg.beginOutput() == 1);
            subject->out = 4;
            subject->result = 0;
            break;
        case 2: {
            int const id = input->number<int>();
            FUZZ_EXPECT(subject->msg.setMsgId(id) == 1);
            std::memcpy(subject->bytes.data(), &id, 4);
            break;
        }
        case 3:
            FUZZ_EXPECT(subject->msg.endInput() == 1 && subject->msg.endOutput() == 1);
            break;
        default: {
            int id = 0;
            int expected = 0;
            FUZZ_EXPECT(subject->msg.getMsgId(&id) == 1);
            std::memcpy(&expected, subject->bytes.data(), 4);
            FUZZ_EXPECT(id == expected);
        }
    }
}

// A message made by copying begins anew; one made by assignment goes on.
void copy(Input* input, Subject* subject) {
    if (input->flag()) {
        ThreadRawMsg const copied(subject->msg);
        subject->msg = ThreadRawMsg(copied);
        subject->in = subject->out = 0;
        subject->result = 0;
    } else {
        ThreadRawMsg other(input->upTo(SIZE_MAX_OF_MESSAGE));
        other = subject->msg;
        subject->msg = other;
    }
}

void whole(Input* input, Subject* subject) {
    utl::TimerMsg sent;
    sent.mTimerId = input->number<int>();
    bool const fits = subject->bytes.size() >= 8;
    FUZZ_EXPECT(sent.storeTo(&subject->msg) == (fits ? 1 : 0));
    int const id = utl::MSG_ID_TIMER;
    std::memcpy(subject->bytes.data(), &id, 4);
    subject->in = 4;
    subject->result = 0;
    subject->put(&sent.mTimerId, 4);
    if (fits) {
        utl::TimerMsg received;
        FUZZ_EXPECT(received.restoreFrom(subject->msg) == 1 && received.mTimerId == sent.mTimerId);
        subject->out = 8;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    Input input(data, size);
    Subject subject(input.upTo(SIZE_MAX_OF_MESSAGE));
    static constexpr void (*STEPS[])(Input*, Subject*) = {scalar<unsigned char>,
                                                          scalar<unsigned short>,
                                                          scalar<unsigned int>,
                                                          scalar<unsigned long long>,
                                                          scalar<signed char>,
                                                          scalar<short>,
                                                          scalar<int>,
                                                          scalar<long long>,
                                                          scalar<float>,
                                                          scalar<double>,
                                                          scalar<void*>,
                                                          truth,
                                                          block,
                                                          text<char>,
                                                          text<wchar_t>,
                                                          frame,
                                                          copy,
                                                          whole};
    while (!input.isAtEnd()) {
        STEPS[input.upTo(std::size(STEPS) - 1)](&input, &subject);
        FUZZ_EXPECT(subject.msg.getResult() == subject.result);
        FUZZ_EXPECT(std::equal(subject.bytes.begin(), subject.bytes.end(), subject.msg.buffer()));
    }
    return 0;
}
