#include <Utl.h>

#include <cstdio>
#include <ctime>

static_assert(sizeof(std::time_t) == 8, "the package's flags bring 64-bit time");

int main() {
    utl::Array<int> numbers(1, 1);
    if (!numbers.insertAt(0, 42) || *numbers.getAt(0) != 42) {
        std::puts("the array does not hold what was inserted");
        return 1;
    }
    return 0;
}
