#include "UtlMap.h"

namespace utl {

template class Map<unsigned int, unsigned int>;
template class Map<int, unsigned long long>;

}  // namespace utl
