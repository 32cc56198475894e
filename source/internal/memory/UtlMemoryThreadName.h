#pragma once

namespace utl {

/// Has the memory that a name needs, before there is a thread that it could fail.
void prepareThreadNamesInMemory();

/// `Memory::registerThreadName` on the one instance, which cannot be deleted meanwhile: a thread may begin at
/// any moment.
void registerThreadNameInMemory(int threadId, char const* name) noexcept;

}  // namespace utl
