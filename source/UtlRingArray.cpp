#include "UtlRingArray.h"

#include <limits>
#include <new>

namespace utl {

unsigned int detail::checkedRingCount(unsigned int count, unsigned int elementBytes) {
    if (count > std::numeric_limits<unsigned int>::max() / elementBytes) {
        throw std::bad_alloc();
    }
    return count;
}

template class RingArray<unsigned char>;
template class Queue<unsigned char>;

}  // namespace utl
