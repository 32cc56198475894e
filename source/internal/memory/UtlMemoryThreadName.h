#pragma once

namespace utl {

/// Allocates the memory for names in advance, so that a new thread's registration cannot fail for want of it.
void prepareThreadNamesInMemory();

/// `Memory::registerThreadName` on the one instance, which cannot be deleted during the call: a thread may
/// start at any moment.
void registerThreadNameInMemory(int threadId, char const* name) noexcept;

}  // namespace utl
