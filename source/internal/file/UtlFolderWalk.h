#pragma once

#include "UtlBasicString.h"
#include "UtlFile.h"

namespace utl {

/// Which entries of a folder a listing takes.
struct EntryFilter {
    unsigned int kind;      ///< a `File::ChildKind`
    char const* extension;  ///< what a file's extension must be, in upper or lower case; null for any
    char const* pattern;    ///< what `fnmatch` compares the name with; empty for any
};

/// Appends the paths of entries to an empty `result`, in the system's order; stops at `maximum` unless that
/// is 0. Returns their number, -1 if the folder cannot be opened or `result` cannot take one more, and with a
/// line if the folder cannot be read to its end; `result` holds the entries until then.
int listFolder(char const* path, EntryFilter const& filter, unsigned int maximum,
               Array<BasicString<char>>* result);

/// Calls `visit(path)` for each entry of a folder until it returns false. False if it did or if the folder
/// cannot be listed. The folder is read to its end and closed before the first call, so `visit` may change
/// it.
template <typename VISIT>
bool visitEntries(char const* folder, VISIT visit) {
    constexpr unsigned int FIRST_CAPACITY = 32;
    Array<BasicString<char>> entries(FIRST_CAPACITY, 1);
    if (listFolder(folder, {File::CHILD_FILES_AND_FOLDERS, nullptr, ""}, 0, &entries) == -1) {
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
