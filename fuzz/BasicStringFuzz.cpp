// Strings beside a plain account of text and capacity, with arguments that may be parts of the string itself.

#include <memory>
#include <string>
#include <vector>

#include "Fuzz.h"
#include "TestStringModel.h"
#include "UtlBasicString.h"
#include "UtlWorkingBuffer.h"

namespace {

using fuzz::Input;
using utl::INVALID_SIZE;
using utltest::model::Bytes;
namespace model = utltest::model;

constexpr unsigned int MOST = 24;
// A string that is appended to itself grows fast.
constexpr size_t TEXT_END = 400;

// What a string holds.
struct Account {
    std::string text;
    unsigned int capacity = 1;
    int autoResize = 0;

    // The text is cut between characters if it does not fit.
    bool resize(unsigned int wanted) {
        if (wanted == capacity) {
            return true;
        }
        capacity = std::max(wanted, 1U);
        if (capacity == 1) {
            text.clear();
            return true;
        }
        Bytes kept(capacity, '\0');
        unsigned int const result = model::copyStr(&kept, capacity, text, capacity - 1, 0);
        text = kept.data();
        return result != INVALID_SIZE;
    }

    void growTo(unsigned int wanted) {
        if (capacity < wanted) {
            resize(wanted);
        }
    }
};

struct Pair {
    utl::BasicString<char> string;
    Account account;
};

void expectSame(Pair const& pair) {
    FUZZ_EXPECT(pair.account.text == pair.string.buffer());
    FUZZ_EXPECT(pair.account.capacity == pair.string.maxSize());
    FUZZ_EXPECT(pair.string.length() == pair.account.text.size());
    FUZZ_EXPECT(pair.string == pair.account.text.c_str());
}

// An argument: null, the text or a rest of it, or text of its own.
struct Argument {
    Argument(Input* input, Pair const& pair, bool mayBePart = true) {
        unsigned int const kind = input->upTo(9);
        auto const length = static_cast<unsigned int>(pair.account.text.size());
        unsigned int const from = length == 0 ? 0 : input->upTo(length);
        if (kind == 0) {
            return;
        }
        if (kind <= 3 && mayBePart) {
            text = pair.account.text.substr(from);
            pointer = pair.string.buffer() + from;
            return;
        }
        text = fuzz::anyText(input, MOST);
        own = fuzz::exactly(text);
        pointer = own.get();
    }

    char const* pointer = nullptr;
    std::string text;
    std::unique_ptr<char[]> own;
};

void assign(Input* input, Pair* pair) {
    Argument const argument(input, *pair);
    pair->string = argument.pointer;
    pair->account.growTo(model::length(argument.text) + 1);
    pair->account.text = argument.text;
}

void append(Input* input, Pair* pair) {
    Argument const argument(input, *pair);
    pair->string += argument.pointer;
    Account& account = pair->account;
    if (account.capacity - account.text.size() < argument.text.size() + 1) {
        account.resize(account.capacity + 1 + model::length(argument.text));
    }
    account.text += argument.text;
}

bool copied(Account* account, Argument const& argument, unsigned int length, int truncate) {
    unsigned int const whole = model::length(argument.text);
    if (account->autoResize == 1) {
        account->growTo(std::min(whole, length) + 1);
    }
    if (argument.pointer == nullptr) {
        return false;
    }
    length = argument.text.empty() ? length : std::min(length, whole);
    if (length == 0) {
        return true;
    }
    if (account->capacity == 1) {
        return argument.text.empty() || truncate == 1;
    }
    if (truncate == 1) {
        length = model::nearIndex(argument.text, std::min(length, account->capacity - 1), true);
        if (length == INVALID_SIZE) {
            return false;
        }
    } else if (account->capacity < std::min(length, whole) + 1) {
        return false;
    }
    Bytes held(account->capacity, '\0');
    if (model::strNCpy(&held, account->capacity, argument.text, length) == INVALID_SIZE) {
        return false;
    }
    account->text = held.data();
    return true;
}

void copy(Input* input, Pair* pair) {
    Argument const argument(input, *pair);
    unsigned int const length = input->sizeAround(MOST);
    int const truncate = static_cast<int>(input->upTo(2));
    // An empty text with a length above the capacity is outside of what the account tells apart.
    if (argument.pointer != nullptr && argument.text.empty() && truncate != 1) {
        return;
    }
    bool const isCopied = pair->string.copy(argument.pointer, length, truncate);
    FUZZ_EXPECT(isCopied == copied(&pair->account, argument, length, truncate));
}

unsigned int occurrences(std::string const& text, std::string const& from) {
    unsigned int count = 0;
    std::string rest = text;
    for (;;) {
        unsigned int const start = model::firstCharacterStart(rest);
        unsigned int const match = model::find(rest.substr(start), from);
        if (match == INVALID_SIZE) {
            return count;
        }
        ++count;
        rest = rest.substr(start + match + from.size());
    }
}

void replace(Input* input, Pair* pair) {
    Argument const from(input, *pair, false);
    Argument const to(input, *pair, false);
    int const truncate = static_cast<int>(input->upTo(2));
    Account& account = pair->account;
    std::string const before = account.text;
    bool const isReplaced = pair->string.replace(from.pointer, to.pointer, truncate);
    // Longer text is refused.
    bool const isShort = before.size() < utl::WorkingBuffer<char>::size();
    bool const isModelled =
        isShort && from.pointer != nullptr && to.pointer != nullptr && !from.text.empty() && !to.text.empty();
    if (isModelled) {
        unsigned int const needed =
            occurrences(before, from.text) * (model::length(to.text) - model::length(from.text)) +
            model::length(before) + 1;
        if (account.autoResize == 1 && needed > account.capacity) {
            account.resize(needed);
        }
        Bytes held(account.capacity, '\0');
        std::copy(before.begin(), before.end(), held.begin());
        unsigned int const result =
            model::replaceIn(&held, account.capacity, before, from.text, to.text, truncate);
        FUZZ_EXPECT(isReplaced == (result != INVALID_SIZE));
        account.text = isReplaced ? held.data() : pair->string.buffer();
    } else {
        FUZZ_EXPECT(isShort || !isReplaced);
        FUZZ_EXPECT(pair->string.maxSize() >= account.capacity);
        account.capacity = pair->string.maxSize();
        account.text = pair->string.buffer();
    }
    FUZZ_EXPECT(account.text.size() < account.capacity);
}

void resize(Input* input, Pair* pair) {
    unsigned int const wanted = input->upTo(3 * MOST);
    bool const isKept = pair->string.resizeMax(wanted);
    FUZZ_EXPECT(isKept == pair->account.resize(wanted));
}

void copyWhole(Input*, Pair* pair) {
    utl::BasicString<char> const other(pair->string);
    FUZZ_EXPECT(other == pair->string && other.maxSize() == pair->account.text.size() + 1);
    utl::BasicString<char> const sum = "ab" + pair->string;
    FUZZ_EXPECT("ab" + pair->account.text == sum.buffer());
    FUZZ_EXPECT(sum.maxSize() == pair->account.text.size() + 3);
    pair->string =
        pair->string;  // NOLINT(clang-diagnostic-self-assign-overloaded): the case that is looked at
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    Input input(data, size);
    std::string const text = fuzz::anyText(&input, MOST);
    unsigned int const capacity = input.upTo(MOST);
    int const autoResize = static_cast<int>(input.upTo(1));
    Pair pair{{fuzz::exactly(text).get(), capacity, autoResize},
              {text, std::max(model::length(text) + 1, capacity), autoResize}};
    static constexpr void (*STEPS[])(Input*, Pair*) = {assign, append, copy, replace, resize, copyWhole};
    expectSame(pair);
    while (!input.isAtEnd() && pair.account.text.size() < TEXT_END) {
        STEPS[input.upTo(std::size(STEPS) - 1)](&input, &pair);
        expectSame(pair);
    }
    return 0;
}
