#pragma once

namespace utl {

/// `Memory::registerThreadName` on the one instance, which cannot be deleted meanwhile: a thread may begin at
/// any moment.
void registerThreadNameInMemory(int threadId, char const* name);

}  // namespace utl
