// The containers beside those of the standard library, with elements that own memory and arguments that may
// be elements of the same container.

#include <algorithm>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "Fuzz.h"
#include "UtlArray.h"
#include "UtlBasicString.h"
#include "UtlMap.h"
#include "UtlRingArray.h"

namespace {

using fuzz::Input;
using fuzz::placeIn;
using utl::INVALID_SIZE;

constexpr unsigned int MOST = 12;

// --- elements: the text of a number, which is a number again

template <typename T>
T elementOf(unsigned int number);

template <>
int elementOf(unsigned int number) {
    return static_cast<int>(number);
}

template <>
unsigned char elementOf(unsigned int number) {
    return static_cast<unsigned char>(number);
}

template <>
utl::BasicString<char> elementOf(unsigned int number) {
    return utl::BasicString<char>(std::to_string(number).c_str());
}

bool isEqual(int left, int right) {
    return left == right;
}

bool isEqual(utl::BasicString<char> const& left, utl::BasicString<char> const& right) {
    return left == right;
}

// --- Array

template <typename T>
struct ArraySubject {
    utl::Array<T> array;
    std::vector<T> model;
    unsigned int capacity;
    bool isGrowing;

    bool makeRoomFor(unsigned int count) {
        capacity = isGrowing ? std::max(capacity, count) : capacity;
        return count <= capacity;
    }

    void expectSame() const {
        FUZZ_EXPECT(array.size() == model.size() && array.maxSize() == capacity);
        for (unsigned int i = 0; i < array.size(); ++i) {
            FUZZ_EXPECT(isEqual(*array.getAt(i), model[i]));
        }
        FUZZ_EXPECT(array.getAt(array.size()) == nullptr);
    }
};

template <typename T>
void changeArray(Input* input, ArraySubject<T>* subject) {
    utl::Array<T>& array = subject->array;
    std::vector<T>& model = subject->model;
    auto const size = static_cast<unsigned int>(model.size());
    unsigned int const kind = input->upTo(6);
    unsigned int const index = input->upTo(MOST);
    bool const isOwn = input->flag() && size != 0;
    unsigned int const number = input->upTo(999);
    T const fresh = elementOf<T>(number);
    T const& value = isOwn ? *array.getAt(number % size) : fresh;
    T const expected = value;
    if (kind <= 1) {
        bool const isInside = index <= size && subject->makeRoomFor(size + 1);
        FUZZ_EXPECT(array.insertAt(index, value) == isInside);
        if (isInside) {
            model.insert(placeIn(model, index), expected);
        }
    } else if (kind == 2) {
        FUZZ_EXPECT(array.setAt(index, value) == (index < size));
        if (index < size) {
            model[index] = expected;
        }
    } else if (kind == 3) {
        unsigned int const count = input->sizeAround(MOST);
        array.removeAt(index, count);
        if (index < size) {
            model.erase(placeIn(model, index), placeIn(model, index + std::min(count, size - index)));
        }
    } else if (kind == 4) {
        FUZZ_EXPECT(array.resizeMax(index));
        subject->capacity = index;
        model.resize(std::min(size, index));
    } else if (kind == 5) {
        unsigned int const count = input->sizeAround(MOST);
        FUZZ_EXPECT(array.copy(array, count));
        model.resize(std::min(size, count));
    } else {
        array.clear();
        model.clear();
    }
}

template <typename T>
void copyArray(Input* input, ArraySubject<T>* subject) {
    utl::Array<T> source(input->upTo(MOST), utl::AUTO_RESIZE_ON);
    unsigned int const held = input->upTo(MOST);
    for (unsigned int i = 0; i < held; ++i) {
        source.insertAt(i, elementOf<T>(i + 100));
    }
    unsigned int const count = input->sizeAround(MOST);
    unsigned int const copied = std::min(count, held);
    bool const fits = subject->makeRoomFor(copied);
    FUZZ_EXPECT(subject->array.copy(source, count) == fits);
    if (fits) {
        subject->model.clear();
        for (unsigned int i = 0; i < copied; ++i) {
            subject->model.push_back(elementOf<T>(i + 100));
        }
    }
}

template <typename T>
void useArray(Input* input) {
    unsigned int const capacity = input->upTo(MOST);
    bool const isGrowing = input->flag();
    ArraySubject<T> subject{{capacity, isGrowing ? 1 : 0}, {}, capacity, isGrowing};
    while (!input->isAtEnd()) {
        if (input->upTo(7) == 0) {
            copyArray(input, &subject);
        } else {
            changeArray(input, &subject);
        }
        subject.expectSame();
    }
}

// --- Map

template <typename V>
void expectSame(utl::Map<int, V> const& map, std::map<int, V> const& model) {
    FUZZ_EXPECT(map.size() == model.size());
    unsigned int i = 0;
    for (auto const& [key, value] : model) {
        FUZZ_EXPECT(map.getAt(i)->mKey == key && isEqual(map.getAt(i)->mValue, value));
        ++i;
    }
    FUZZ_EXPECT(map.getAt(i) == nullptr);
}

template <typename V>
void useMap(Input* input) {
    unsigned int const capacity = input->upTo(MOST);
    bool const isGrowing = input->flag();
    utl::Map<int, V> map(capacity, isGrowing ? 1 : 0);
    std::map<int, V> model;
    while (!input->isAtEnd()) {
        unsigned int const kind = input->upTo(3);
        int const key = input->number<signed char>();
        auto const found = model.find(key);
        if (kind <= 1) {
            unsigned int const number = input->upTo(999);
            V const fresh = elementOf<V>(number);
            V const& value = kind == 1 && map.size() != 0 ? map.getAt(number % map.size())->mValue : fresh;
            V const expected = value;
            // Without storage nothing can be inserted.
            bool const fits = found != model.end() || model.size() < capacity || (isGrowing && capacity != 0);
            FUZZ_EXPECT(map.insert(key, value) == fits);
            if (fits) {
                model.erase(key);
                model.emplace(key, expected);
            }
        } else if (kind == 2) {
            FUZZ_EXPECT(map.erase(key) == (found != model.end()));
            model.erase(key);
        } else {
            V const* const value = map.find(key);
            FUZZ_EXPECT((value != nullptr) == (found != model.end()));
            FUZZ_EXPECT(value == nullptr || isEqual(*value, found->second));
        }
        expectSame(map, model);
    }
}

// --- RingArray and Queue

template <typename RING, typename T>
struct RingSubject {
    RING ring;
    std::deque<T> model;
    unsigned int capacity;

    void expectSame() const {
        FUZZ_EXPECT(ring.size() == model.size() && ring.maxSize() == capacity);
        for (unsigned int i = 0; i < ring.size(); ++i) {
            FUZZ_EXPECT(isEqual(*ring.elementAt(i), model[i]));
        }
        FUZZ_EXPECT(ring.elementAt(ring.size()) == nullptr);
    }
};

template <typename RING, typename T>
void fillRing(Input* input, RingSubject<RING, T>* subject) {
    unsigned int const count = input->upTo(MOST);
    unsigned int const number = input->upTo(255);
    auto const size = static_cast<unsigned int>(subject->model.size());
    if (input->flag()) {
        bool const fits = size < subject->capacity;
        FUZZ_EXPECT(subject->ring.pushBack(elementOf<T>(number)) == fits);
        if (fits) {
            subject->model.push_back(elementOf<T>(number));
        }
        return;
    }
    auto const items = fuzz::blockOf<T>(count, elementOf<T>(number));
    bool const fits = size + count <= subject->capacity;
    FUZZ_EXPECT(subject->ring.pushBack(items.get(), count) == fits);
    if (fits) {
        subject->model.insert(subject->model.end(), items.get(), items.get() + count);
    }
}

template <typename RING, typename T>
void emptyRing(Input* input, RingSubject<RING, T>* subject) {
    std::deque<T>& model = subject->model;
    auto const size = static_cast<unsigned int>(model.size());
    unsigned int const kind = input->upTo(4);
    unsigned int const count = input->sizeAround(MOST);
    unsigned int const removed = std::min(count, size);
    if (kind == 0) {
        subject->ring.popFront();
        model.erase(model.begin(), placeIn(model, size != 0 ? 1 : 0));
    } else if (kind == 1) {
        bool const isWanted = input->flag();
        auto const out = fuzz::blockOf<T>(removed);
        FUZZ_EXPECT(subject->ring.popFrontInto(isWanted ? out.get() : nullptr, count));
        for (unsigned int i = 0; isWanted && i < removed; ++i) {
            FUZZ_EXPECT(isEqual(out[i], model[i]));
        }
        model.erase(model.begin(), placeIn(model, removed));
    } else if (kind == 2) {
        unsigned int const index = input->upTo(MOST);
        FUZZ_EXPECT(subject->ring.removeAt(index, count) == (index < size));
        if (index < size) {
            model.erase(placeIn(model, index), placeIn(model, index + std::min(count, size - index)));
        }
    } else if (kind == 3) {
        subject->ring.removeLast(count);
        model.erase(placeIn(model, size - removed), model.end());
    } else {
        subject->ring.clear();
        model.clear();
    }
}

template <typename RING, typename T>
void moveInRing(Input* input, RingSubject<RING, T>* subject) {
    std::deque<T>& model = subject->model;
    auto const size = static_cast<unsigned int>(model.size());
    unsigned int const from = input->upTo(MOST);
    unsigned int const to = input->upTo(MOST);
    unsigned int const count = input->sizeAround(MOST);
    bool const isInside = from <= size && count <= size - from;
    if (input->flag()) {
        auto const out = fuzz::blockOf<T>(isInside ? count : 0);
        FUZZ_EXPECT(subject->ring.copyOut(from, out.get(), count) == isInside);
        for (unsigned int i = 0; isInside && i < count; ++i) {
            FUZZ_EXPECT(isEqual(out[i], model[from + i]));
        }
        return;
    }
    FUZZ_EXPECT(subject->ring.copyDown(to, from, count) == (isInside && to <= from));
    if (isInside && to <= from) {
        std::copy(placeIn(model, from), placeIn(model, from + count), placeIn(model, to));
    }
}

template <typename RING, typename T>
void useRing(Input* input) {
    unsigned int const capacity = input->upTo(MOST);
    RingSubject<RING, T> subject{RING(capacity), {}, capacity};
    while (!input->isAtEnd()) {
        unsigned int const kind = input->upTo(3);
        if (kind <= 1) {
            fillRing(input, &subject);
        } else if (kind == 2) {
            emptyRing(input, &subject);
        } else {
            moveInRing(input, &subject);
        }
        subject.expectSame();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    using String = utl::BasicString<char>;
    Input input(data, size);
    static constexpr void (*STEPS[])(Input*) = {useArray<int>,
                                                useArray<String>,
                                                useMap<int>,
                                                useMap<String>,
                                                useRing<utl::RingArray<int>, int>,
                                                useRing<utl::RingArray<String>, String>,
                                                useRing<utl::Queue<unsigned char>, unsigned char>};
    STEPS[input.upTo(std::size(STEPS) - 1)](&input);
    return 0;
}
