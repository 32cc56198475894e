#pragma once

namespace utl {

/// The kernel id of the calling thread. Each thread asks the kernel once and remembers the answer, because a
/// sign of life needs it every time; the child of a `fork` asks again.
int callerThreadId();

}  // namespace utl
