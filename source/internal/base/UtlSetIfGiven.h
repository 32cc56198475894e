#pragma once

namespace utl {

/// Stores a result that the caller need not ask for: null asks for none.
template <typename T>
void setIfGiven(T* out, T value) {
    if (out != nullptr) {
        *out = value;
    }
}

}  // namespace utl
