#pragma once

#include <memory>

#include "UtlArray.h"
#include "UtlBasicString.h"
#include "UtlPlatform.h"
#include "UtlSmartPointer.h"

namespace utl {

class ReadAhead;

/// A file: its path, its descriptor while it is open, and the encoding of its text. *One owner thread*,
/// because the object has no lock; the static operations may be called from any thread. Different objects on
/// one path exclude each other by a `flock` that is never waited for: readers share it, a writer has it
/// alone, inside one process as between two.
///
/// | State  | `open`                   | `close`       | `isOpened` | destruction                    |
/// |--------|--------------------------|---------------|------------|--------------------------------|
/// | closed | true: open, else closed  | false         | false      | syncs the folder               |
/// | open   | false, stays open        | true: closed  | true       | syncs the folder, then closes  |
///
/// Results are 1 for true and 0 for false unless a function says otherwise. What closes a descriptor writes
/// the file's content through to the device first, by `fsync`, and so may block for as long as the device
/// takes. A program that is started by `exec` inherits none of these descriptors. A descriptor of 0 counts as
/// none: in a program that closed its standard input the first opening fails, and the descriptor leaks.
///
/// A path is copied, with each `\` as a `/`. Most operations refuse a path of more than 259 bytes and one
/// with a doubled separator; this is called the path check. Leave the separator off the end of a folder's
/// path: an operation that walks a folder names the entries by the path, "/" and the name, and a path with
/// "//" fails the check. An operation that writes or changes an entry of a folder sets the folder's mode to
/// 0777 during the call and restores it; where that is not permitted it continues without. A process that is
/// killed during the call leaves the mode at 0777.
///
/// The operations that read text read ahead in blocks of 8 KiB. A `seek`, a `write` that writes and a
/// `resize` drop the block, and position and size are exact at all times. What another program changes inside
/// a block may be seen late; a file that grows is followed. After a `fork` both processes continue from the
/// same position, and neither moves the other while both only read.
///
/// Each system call that may block is reported to the watchdog, except the `read` of a file and the `fsync`
/// and `close` of a descriptor that is released.
///
/// The enumerators name the numbers that the operations take and return as `int`.
class UTL_API File {
  public:
    /// What `open` does with the content.
    enum Disposition {
        OPEN_KEEP = 0,    ///< keep it; the position is 0
        OPEN_AT_END = 1,  ///< keep it; the position is the end
        OPEN_EMPTY = 2    ///< empty the file
    };

    /// What `open` opens the file for.
    enum Access { ACCESS_READ = 0, ACCESS_WRITE = 1, ACCESS_READ_WRITE = 2 };

    /// Where `seek` counts from; not the numbers of `lseek`.
    enum Origin { FROM_START = 0, FROM_END = 1, FROM_POSITION = 2 };

    /// The encoding of a file's text.
    enum TextType {
        TEXT_SJIS = 0,         ///< Shift-JIS, which is only read
        TEXT_UTF8 = 1,         ///< UTF-8
        TEXT_UTF16_BIG = 2,    ///< UTF-16 with the high byte first
        TEXT_UTF16_LITTLE = 3  ///< UTF-16 with the low byte first
    };

    /// What reading and searching return instead of a count or a position, besides -1 for a failure.
    enum Result {
        KEY_NOT_FOUND = -2,  ///< `seekKey` found no key
        END_OF_FILE = -3     ///< nothing was left to read
    };

    /// Where `seekKey` leaves the position.
    enum KeyPosition { AT_KEY = 0, AFTER_KEY = 1 };

    /// The entries that `children` lists.
    enum ChildKind { CHILD_FILES = 0, CHILD_FOLDERS = 1, CHILD_FILES_AND_FOLDERS = 2 };

    /// Whether a file name is returned with its extension.
    enum Extension { WITH_EXTENSION = 0, WITHOUT_EXTENSION = 1 };

    /// How far `applyReadOnly` and `liftReadOnly` reach.
    enum Recursion { PATH_ONLY = 0, RECURSIVE = 1 };

    /// What `copy` does with a file that is there.
    enum Overwrite { KEEP_EXISTING = 0, OVERWRITE_EXISTING = 1 };

    /// What `erase` does with what is read-only.
    enum Force { KEEP_READ_ONLY = 0, ERASE_READ_ONLY = 1 };

    /// As the `start` of `seekKey`: the position.
    static constexpr unsigned long long KEY_FROM_POSITION = 0xFFFFFFFFFFFFFFFEULL;

    /// Bytes of a file that one operation on text reads or writes at most.
    static constexpr unsigned int TEXT_BYTES_MAX = 5119;

    /// Closes a file at the end of a scope, whatever the result. *One owner thread*, that of the file.
    class [[nodiscard]] UTL_API AutoClose {
      public:
        /// `file` must live as long as this.
        explicit AutoClose(File& file) noexcept : mFile(file) {}
        virtual ~AutoClose();
        AutoClose(AutoClose const&) = delete;
        AutoClose& operator=(AutoClose const&) = delete;

      private:
        File& mFile;
    };

    /// Touches no file. A null `path` counts as empty. `textType` is a `TextType` and stored unchecked.
    File(char const* path, int textType);

    /// Syncs the folder of the path, so that the file's entry in it is durable, also if the file was never
    /// opened; then closes the file. Reports no failure. A bare name and a file directly in the root have no
    /// folder in their path, so that nothing is synced for them: "./name" has one.
    virtual ~File();
    File(File const&) = delete;
    File& operator=(File const&) = delete;

    /// Opens the file and takes its lock.
    ///
    /// | `disposition`     | Content | Position   |   | `access`            | Lock      |
    /// |-------------------|---------|------------|---|---------------------|-----------|
    /// | `OPEN_KEEP`   (0) | kept    | 0          |   | `ACCESS_READ`       | shared    |
    /// | `OPEN_AT_END` (1) | kept    | at the end |   | `ACCESS_WRITE`      | exclusive |
    /// | `OPEN_EMPTY`  (2) | emptied | 0          |   | `ACCESS_READ_WRITE` | exclusive |
    ///
    /// A reader needs an existing file and cannot empty it. A writer creates the file, with mode 0777
    /// whatever the umask, and its missing folders as `makeDirectories` does, and refuses a file whose
    /// owner may not write. Nothing is created through a dangling link, and a file that appears after
    /// the check for it keeps its mode. The content is emptied before the lock is taken, even if the lock is
    /// then refused.
    ///
    /// Returns false with the object closed: without a line for wrong arguments, a folder, a path that fails
    /// the check, a missing file to read and a file that is read-only; with the lines of `makeDirectories`
    /// for a folder that cannot be made; with a line of level 1 if the system refuses the file, and of level
    /// 5 if another holder has it locked or the seek to the end fails. An open object stays open and gets
    /// false without a line. The other side of a FIFO is not waited for: a FIFO without one is refused, with
    /// the line of level 1 and the error `ENXIO`; opened for both, it is its own other side.
    int open(int disposition, int access);

    /// Closes the file and releases its lock; false if it was not open.
    int close();

    /// True while the object has a descriptor.
    [[nodiscard]] int isOpened() const noexcept;

    /// Does nothing and returns true: only closing makes content durable.
    int flush() noexcept;

    /// Moves the position to `offset` bytes from an `Origin`. Beware that `FROM_END` and `FROM_POSITION` are
    /// 1 and 2, the reverse of `lseek`. Returns the new position; -1 if not open or for another origin, and
    /// with a line if the system refuses.
    long long seek(long long offset, int origin);

    /// The position; -1 as for `seek`.
    [[nodiscard]] long long position() const;

    /// Bytes of the file, by its descriptor while it is open, else as `size(path)`. -1 with lines on failure.
    [[nodiscard]] long long size() const;

    /// Bytes from the position to the end, 0 at and beyond the end; -1 if not open, and with lines on
    /// failure.
    [[nodiscard]] long long availableSize() const;

    /// Reads up to `length` bytes with one system call. Returns how many were read, which may be fewer;
    /// `END_OF_FILE` (-3) at and beyond the end, where nothing is read. A file whose size the system reports
    /// as 0, as for most in `/proc`, is at its end from the start. -1 with lines if not open or on failure,
    /// and without a line for a null `buffer` and for a `length` of 0 or above 0x7FFFFFFF.
    int read(void* buffer, unsigned int length);

    /// Writes up to `length` bytes with one system call, while the folder's mode is 0777. Returns how many
    /// were written, which may be fewer, as on a full disk. -1 without a line if not open, with lines on
    /// failure, for a null `buffer` and for a `length` of 0.
    int write(void const* buffer, unsigned int length);

    /// Makes the file end at the position, cutting or extending it with zeros. False if not open, without a
    /// line if the position is not available, and with one if the system refuses the new end.
    int resize();

    /// Makes the file `newSize` bytes long. The position stays where it was if that is below `newSize`, else
    /// it becomes the new end. False as for `resize()`, and with a line if a seek is refused. After a failure
    /// the position is where it was; only if the seek back was refused it is `newSize`, and the file may have
    /// that size.
    int resize(unsigned long long newSize);

    /// Sets the encoding of the file's text, a `TextType`. False, with no change, for any other number. The
    /// encoding is never detected from the content. While the constructor's number is no `TextType` the
    /// operations on text return -1.
    int setTextType(int textType) noexcept;

    ///@{
    /// Reads up to `length` bytes of text, `TEXT_BYTES_MAX` (5119) at most, and writes them to `buffer` +
    /// `offset` as terminated UTF-8. Half a character at their end is malformed text, so `length` must end
    /// between characters; `readLine` ensures that. In UTF-16 an odd `length` counts as one less, and an odd
    /// byte at the end of the file is counted as read but is no text. In UTF-8 a byte order mark at the
    /// beginning of the bytes is left out; UTF-16 text that has one anywhere cannot be read.
    ///
    /// Returns the bytes taken from the file; `END_OF_FILE` (-3) once no more bytes come, whatever its size
    /// says. `*outputLength`, if given, becomes the bytes of the text with its terminator; characters that
    /// Shift-JIS does not have count in it, but end the text in `buffer`. A `bufferSize` of 0 asks for that
    /// length alone, stores nothing, and still moves the position.
    ///
    /// -1, with `buffer` and `*outputLength` untouched: if not open, for a null `buffer` that has a size, a
    /// `length` of 0 or above 5119, and a `bufferSize` below `offset` + the bytes to read + 1 (2 in UTF-16),
    /// whatever the text needs; the position then stays. Also for text that is malformed, for a `bufferSize`
    /// below `offset` + the text, and with lines on failure; it then moves if bytes were read.
    ///
    /// A `text` is written within its present capacity; null asks for the size.
    int readText(char* buffer, unsigned int bufferSize, unsigned int length, unsigned int offset,
                 unsigned int* outputLength);
    int readText(BasicString<char>* text, unsigned int length, unsigned int offset,
                 unsigned int* outputLength);
    ///@}

    ///@{
    /// Reads the line at the position, as `readText` does, without its line end, and moves after that. A line
    /// ends with a line feed and the carriage returns directly before it, or with the file; a carriage return
    /// anywhere else is text. No malformed character hides a line feed after it.
    ///
    /// Returns the bytes of the line in the file; `END_OF_FILE` (-3) at the file's end. For an empty line
    /// both the result and `*outputLength` are 0. A `bufferSize` of 0 asks for the size and leaves the
    /// position. -1 as for `readText`, for a `bufferSize` above 5119 and for a line above 5119 bytes. The
    /// position then stays. For a line that is no text of the file's type or whose text does not fit it is
    /// between the line and its end, and on failure anywhere: a loop that reads lines must stop at -1.
    int readLine(char* buffer, unsigned int bufferSize, unsigned int* outputLength);
    int readLine(BasicString<char>* text, unsigned int* outputLength);
    ///@}

    /// Writes the text from `text` + `offset` on, in the file's encoding, `length` bytes at most, which is
    /// `TEXT_BYTES_MAX` (5119) at most; no byte order mark, no terminator. Returns the bytes written by one
    /// `write`. UTF-8 is written unchanged. In UTF-16 a character of 4 bytes becomes U+203B and a malformed
    /// one ends the text.
    ///
    /// Beware of short texts in UTF-16: one character at `offset` 0 is not written and the result is 0, as it
    /// is for an empty rest at `offset` 1; one character or an empty rest at any other `offset` results in
    /// -1, and so does an empty text. In UTF-8 the result is 0 for an empty text and -1 for an empty rest.
    ///
    /// -1 without a line: if not open, for null, for a `length` above 5119, for Shift-JIS, which is only
    /// read, and for text that has no form in UTF-16; with lines as for `write`.
    int writeText(char const* text, unsigned int length, unsigned int offset);

    /// `writeText` of the text, without its bytes above 5119, and of a line feed. Returns the bytes of both,
    /// -1 if one of them fails. In UTF-16 the line feed is not written, since it is one character: end the
    /// text itself with "\r\n" and call `writeText`.
    int writeLine(char const* text);

    /// Searches for the end of the line from the position on. Returns the bytes up to and including it, with
    /// the position after it; 0 if the file ended first, with the position at the file's end. `*lineSize`
    /// becomes the bytes without the line end and `*eolSize` those of the line end, each if given. `limit`
    /// has no effect. -1 with lines if not open or on failure, without a line for a wrong text type and for a
    /// line above 0x7FFFFFFF bytes; then the sizes are untouched and the position may be anywhere.
    int findNextLineSize(unsigned int limit, unsigned int* lineSize, unsigned int* eolSize);

    /// What the next 2 bytes are, in any encoding: 2 for "\r\n", 1 if the first is any other "\r" or a "\n",
    /// 0 at the end of the file and if there is no position, -1 for anything else and with lines on failure.
    /// The position stays.
    int nextEOLSize();

    ///@{
    /// Searches for the bytes of `key` in the `range` bytes from `start` on, which is an absolute position or
    /// `KEY_FROM_POSITION`. Returns where the key begins and moves there; with `mode` `AFTER_KEY` (1) result
    /// and position are after it. `KEY_NOT_FOUND` (-2) if it is not there. -1 for null and an empty key, if
    /// not open, and with lines on failure. With -1 and -2 the position stays. Beware that the search never
    /// goes back: a byte that ends a partial match begins none, so "aab" is not found in "aaab".
    long long seekKey(unsigned char const* key, unsigned int keyLength, unsigned long long start,
                      unsigned long long range, int mode);
    long long seekKey(char const* key, unsigned long long start, unsigned long long range, int mode);
    ///@}

    /// Sets the permissions of the folder of `path` to `mode`. `*previousMode`, if given, becomes its
    /// `st_mode`, including the type bits. True if the mode was changed. False for a path without a folder,
    /// on failure, and if `mode` equals the whole `st_mode`. So a mode from `*previousMode` is set only if it
    /// differs, and plain permissions are always set. If the folder is not found, a line of level 5 says so
    /// and `*previousMode` is untouched.
    static int changeParentAccessMode(char const* path, int mode, int* previousMode);

    ///@{
    /// Dissection takes a path apart by its text alone. False, with `output` untouched, for a path that fails
    /// the check or is not UTF-8, for a null or too small `output`, and if the part does not exist. Each
    /// `extract` takes a path, each `get` uses that of the object. A string in `output` grows only if it does
    /// so in `BasicString::copy`. A trailing separator is ignored.
    ///
    /// | Path           | File name | Without extension | Folder | Extension | Volume    |
    /// |----------------|-----------|-------------------|--------|-----------|-----------|
    /// | "/mnt/a/b.txt" | "b.txt"   | "b"               | "/mnt/a" | "txt"   | "mnt"     |
    /// | "a.tar.gz"     | "a.tar.gz"| "a.tar"           | ""     | "gz"      | "a.tar.gz"|
    /// | "/.profile"    | ".profile"| ""                | ""     | "profile" | ".profile"|
    /// | "a/b/"         | "b"       | "b"               | "a"    | ""        | "a"       |
    /// | "/", ""        | false     | false             | false  | false     | false     |
    ///
    /// The root folder cannot be told from no folder. `withoutExtension` is `WITHOUT_EXTENSION` (1) to leave
    /// the extension out; any other number keeps it.
    static int extractFileName(char* output, unsigned int outputSize, char const* path, int withoutExtension);
    static int extractDirectoryPath(char* output, unsigned int outputSize, char const* path);
    static int extractExtension(char* output, unsigned int outputSize, char const* path);
    static int extractVolumeName(char* output, unsigned int outputSize, char const* path);
    int getFileName(char* output, unsigned int outputSize, int withoutExtension) const;
    int getFileName(BasicString<char>* output, int withoutExtension) const;
    int getDirectoryPath(char* output, unsigned int outputSize) const;
    int getDirectoryPath(BasicString<char>* output) const;
    int getExtension(char* output, unsigned int outputSize) const;
    int getExtension(BasicString<char>* output) const;
    int getVolumeName(char* output, unsigned int outputSize) const;
    int getVolumeName(BasicString<char>* output) const;
    ///@}

    /// The object's path with its separators as `/`. It belongs to the object and never changes.
    [[nodiscard]] char const* getPath() const noexcept;

    ///@{
    /// Copies the object's path; false, with `output` untouched, for a null or too small one.
    int getPath(char* output, unsigned int outputSize) const;
    int getPath(BasicString<char>* output) const;
    ///@}

    ///@{
    /// True if something exists at the path, links followed; without the path check.
    [[nodiscard]] static int exists(char const* path);
    [[nodiscard]] int exists() const;
    ///@}

    ///@{
    /// True if the path passes the check and names a folder, links followed.
    [[nodiscard]] static int isDirectory(char const* path);
    [[nodiscard]] int isDirectory() const;
    ///@}

    ///@{
    /// True if the owner may not write, whoever asks; without the path check. False with a line for null and
    /// for a path at which nothing exists.
    [[nodiscard]] static int isReadOnly(char const* path);
    [[nodiscard]] int isReadOnly() const;
    ///@}

    ///@{
    /// Makes a folder and all missing ones above it. If the folder is missing, every folder on the way to it
    /// gets the mode 0777, the existing ones too: with an absolute path and the rights for it, that begins
    /// with `/` itself. The name of each new folder is made durable by a sync of its parent, which may block
    /// for as long as the device takes. An empty path is the current folder. True if the folder exists at the
    /// end. False for a path that fails the check, without a line if something on the way is no folder, and
    /// with one if the system refuses; the folders that were made stay.
    static int makeDirectories(char const* path);
    int makeDirectories();
    ///@}

    ///@{
    /// Lists a folder into `result`, which is emptied first and keeps its storage: each entry as the path,
    /// "/" and its name, in the system's order, without "." and "..". `kind` is a `ChildKind`; whatever is no
    /// folder counts as a file, links not followed. A given `extension` selects the files that have it, in
    /// upper or lower case; it does not apply to folders. If no folder of that name exists, the last
    /// component of the path may be a pattern with "*", "?" and "[]" that names must match, case included;
    /// "?" is a byte, unless the program has chosen a locale with longer characters. Stops at `maximum`
    /// entries unless that is 0.
    ///
    /// Returns the number of entries; 0 for a file; -1 with a line if the folder cannot be read to its end,
    /// in which case `result` holds the entries until then. -1 without a line for null, another `kind`, a
    /// path that fails the check or at which nothing exists, a pattern without a folder before it or in a
    /// folder's name, a folder that cannot be opened, and if a `result` of fixed capacity is full, which then
    /// holds what fitted.
    static int children(char const* path, Array<BasicString<char>, BasicString<char> const&>* result,
                        int kind, char const* extension, unsigned int maximum);
    int children(Array<BasicString<char>, BasicString<char> const&>* result, int kind, char const* extension,
                 unsigned int maximum) const;
    ///@}

    ///@{
    /// Makes a file or folder read-only, mode 0555. Whatever the path names at that moment is changed, and
    /// for a link its target. With `recursive` `RECURSIVE` (1) also everything in a folder and below it,
    /// links followed, up to the first failure; what was changed stays so. False for a path that fails the
    /// check or at which nothing exists, and if the system refuses. A line is logged only if the system
    /// reports success without a change, and for a folder that cannot be read to its end.
    static int applyReadOnly(char const* path, int recursive);
    int applyReadOnly(int recursive);
    ///@}

    ///@{
    /// The reverse of `applyReadOnly`: what is read-only gets the mode 0777, all else keeps its mode.
    static int liftReadOnly(char const* path, int recursive);
    int liftReadOnly(int recursive);
    ///@}

    /// True if another holder has the lock of the file, in this process or any other. `*sharedOnly`, if
    /// given, tells if all holders are readers; it is false whenever the result is, and untouched for a null
    /// `path`. False for anything but a regular file, for a file that may not be read, and on a file system
    /// without such locks. Over NFS the lock of readers is not seen. True, with `*sharedOnly` false, if the
    /// answer is unknown because the system has no descriptor or no memory left, or has a lease on the file.
    /// Waits for no holder. Holds the lock itself until the probe has closed the file, and another `open`
    /// fails during that time.
    static int isOpened(char const* path, bool* sharedOnly);

    ///@{
    /// Renames a file or folder, making the folders of the new path as `makeDirectories` does. The object's
    /// own path does not change. Moving a path to itself does nothing and is true. A folder replaces an empty
    /// one. False without a line for null, paths that fail the check, a missing `source`, an existing file at
    /// the destination, a file whose lock is held, and an open object; with the lines of `makeDirectories`,
    /// and with one if the system refuses, as across file systems.
    static int move(char const* source, char const* destination);
    int move(char const* destination);
    ///@}

    ///@{
    /// Copies a file with its mode, or a folder with everything in it and below it, links followed; folders
    /// get the mode 0777. Makes the folders of the new path as `makeDirectories` does. With `overwrite`
    /// `OVERWRITE_EXISTING` (1) existing files are replaced, otherwise the first one ends the copy with
    /// false. Nothing is created through a dangling link, and a file that appears after the check for it
    /// keeps its mode. Copying a path to itself does nothing and is true. The target is not synced, and no
    /// lock is held while it is written.
    ///
    /// False for null, paths that fail the check, a missing `source`, a folder that cannot be made or listed
    /// or holds a name that is not UTF-8, a file that a writer holds, a FIFO or a device on either side, at
    /// which the copy of a folder ends as well, and if the system refuses; with the lines of
    /// `makeDirectories`, and with lines if the source's mode is not available or the source or a folder
    /// cannot be read to its end. What was copied stays, the incomplete file too. A file system without modes
    /// that does not accept the mode is no failure.
    static int copy(char const* source, char const* destination, int overwrite);
    int copy(char const* destination, int overwrite) const;
    ///@}

    ///@{
    /// Erases a file, or a folder with everything in it and below it. Stops at the first failure; what is
    /// erased by then stays erased. With `force` `ERASE_READ_ONLY` (1) files and folders that are read-only
    /// are erased as well, otherwise the first one is a failure.
    ///
    /// For a link to a file the link is erased and the file stays; but the file's lock and mode decide, and
    /// `ERASE_READ_ONLY` leaves a read-only one with the mode 0777. A link to a folder is followed:
    /// everything in that folder is erased, and then the system refuses to remove the link.
    ///
    /// False without a line for null, a path that fails the check or at which nothing exists, a file whose
    /// lock is held, what is read-only, and an open object; with a line if the system refuses, and if a
    /// folder cannot be read to its end, in which case nothing in it is erased.
    static int erase(char const* path, int force);
    int erase(int force);
    ///@}

    /// Bytes of a file, or of all files in a folder and below it, links followed; takes no lock. FIFOs and
    /// devices are not opened and count with the size that the system reports for their path, which is 0. -1
    /// for a path that fails the check or at which nothing exists, and with lines if a file cannot be opened
    /// or a folder cannot be read to its end; then also for the folders around it.
    [[nodiscard]] static long long size(char const* path);

  protected:
    /// `lseek64`; logs a failure.
    static long long seekFile(int descriptor, long long offset, int whence);

    /// `write`; logs a failure.
    static int writeFile(int descriptor, void const* buffer, unsigned int length);

    /// The size by `fstat`, -1 on failure, which it logs.
    static long long fileSize(int descriptor);

  private:
    static long long sizeOfDescriptor(int descriptor, char const* path);
    static long long sizeOfFile(char const* path);
    static bool makeFolderOf(char const* path);

    int openForReading(int disposition);
    int openForWriting(int disposition, int access);
    long long openedSize() const;
    long long sizeToRead();
    bool restoreKernelPosition();
    int readOn(long long size);
    int takeBytes(char** bytes);
    int findLineAhead(unsigned int* textSize, unsigned int* totalSize);

    BasicString<char> mPath;
    SmartHandle<DestructCloseFile> mHandle;
    int mTextType;
    std::unique_ptr<ReadAhead> mReadAhead;  // while the file is open
};

}  // namespace utl
