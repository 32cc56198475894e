#pragma once

#include "UtlBasicString.h"

namespace utl {

/// Which entries of a folder a listing takes.
struct EntryFilter {
    /// Values of `kind`.
    enum Kind : unsigned int { FILES = 0, FOLDERS = 1, BOTH = 2 };

    unsigned int kind;
    char const* extension;  ///< what a file's must be, in any case of letters; null for any
    char const* pattern;    ///< what `fnmatch` compares the name with; empty for any
};

/// Appends the paths of entries to an empty `result`, in the order in which the system gives them; stops at
/// `maximum` unless that is 0. Gives their number, -1 if the folder cannot be opened or `result` cannot take
/// one more, and with a line if the folder cannot be read to its end; `result` holds what came until then.
int listFolder(char const* path, EntryFilter const& filter, unsigned int maximum,
               Array<BasicString<char>>* result);

/// Calls `visit(path)` for each entry of a folder until it gives false. False if it did or if the folder
/// cannot be listed. The folder is read to its end and closed before the first call, so `visit` may change
/// it.
template <typename VISIT>
bool visitEntries(char const* folder, VISIT visit) {
    constexpr unsigned int FIRST_CAPACITY = 32;
    Array<BasicString<char>> entries(FIRST_CAPACITY, 1);
    if (listFolder(folder, {EntryFilter::BOTH, nullptr, ""}, 0, &entries) == -1) {
        return false;
    }
    for (unsigned int i = 0; i < entries.size(); ++i) {
        if (!visit(entries.getAt(i)->buffer())) {
            return false;
        }
    }
    return true;
}

}  // namespace utl
