#include "UtlArray.h"

namespace utl {

template class Array<int>;

}  // namespace utl
