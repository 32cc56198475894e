#pragma once

#include "UtlArray.h"
#include "UtlBasicString.h"
#include "UtlPlatform.h"
#include "UtlSmartPointer.h"

namespace utl {

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
/// takes. A program that is started by `exec` gets none of these descriptors. A descriptor of 0 counts as
/// none: in a program that closed its standard input the first opening fails, and the descriptor stays
/// behind.
///
/// A path is copied, with each `\` as a `/`. Most operations refuse a path of more than 259 bytes and one
/// with a doubled separator; they name that the path check. Leave the separator off the end of a folder's
/// path: what goes through a folder names its entries by the path, "/" and the name, and a name behind "//"
/// fails the check. What changes an entry of a folder or writes makes the folder's mode 0777 for the time of
/// the call and puts it back; where that is not permitted the operation goes on without. A process that is
/// killed meanwhile leaves it so.
///
/// Each system call that may block is reported to the watchdog, but not the `read` of a file and not the
/// `fsync` and `close` of a descriptor that is given back.
class UTL_API File {
  public:
    /// Closes a file at the end of a scope, whatever the result. *One owner thread*, that of the file.
    class UTL_API AutoClose {
      public:
        /// `file` must live as long as this.
        explicit AutoClose(File& file) : mFile(file) {}
        virtual ~AutoClose();
        AutoClose(AutoClose const&) = delete;
        AutoClose& operator=(AutoClose const&) = delete;

      private:
        File& mFile;
    };

    /// Touches no file. A null `path` is an empty one. `textType` is kept as it is.
    File(char const* path, int textType);

    /// Syncs the folder of the path, so that the file's entry in it is durable, also if the file was never
    /// opened; then closes the file. Reports no failure. A bare name and a file directly in the root have no
    /// folder in their path, so that nothing is synced for them: "./name" has one.
    virtual ~File();
    File(File const&) = delete;
    File& operator=(File const&) = delete;

    /// Opens the file and takes its lock.
    ///
    /// | `disposition` | Content | Position   |   | `access` | For                  | Lock      |
    /// |---------------|---------|------------|---|----------|----------------------|-----------|
    /// | 0             | kept    | 0          |   | 0        | reading              | shared    |
    /// | 1             | kept    | at the end |   | 1        | writing              | exclusive |
    /// | 2             | emptied | 0          |   | 2        | reading and writing  | exclusive |
    ///
    /// A reader needs a file that is there and cannot empty it. A writer creates the file, with mode 0777
    /// whatever the umask, and the folders in front of it as `makeDirectories` does, and refuses a file whose
    /// owner may not write. Nothing is created through a link that leads to nothing, and a file that appears
    /// behind the look for it keeps its mode. The content is emptied before the lock is taken, also where
    /// that then fails.
    ///
    /// False, and closed: without a line for wrong arguments, a folder, an open object, a path that fails the
    /// check, a missing file to read and a file that is read-only; with the lines of `makeDirectories` for a
    /// folder that cannot be made; with one of level 1 if the system refuses the file, and of level 5 if
    /// another holder has it locked or the end cannot be sought. False for an open object leaves it open. The
    /// other side of a FIFO is not waited for: where there is none the FIFO is refused, with the line of
    /// level 1 and the error `ENXIO`; opened for both, it is its own other side.
    int open(int disposition, int access);

    /// Closes the file and gives its lock back; false if it was not open.
    int close();

    /// True while the object has a descriptor.
    int isOpened() const;

    /// Does nothing, and is true: only the end of an opening makes content durable.
    int flush();

    /// Moves the position to `offset` bytes from an origin: 0 the start, 1 the end, 2 the position. Beware
    /// that 1 and 2 are the other way round than in `lseek`. Gives the new position; -1 if not open or for
    /// another origin, and with a line if the system refuses.
    long long seek(long long offset, int origin);

    /// The position; -1 as for `seek`.
    long long position() const;

    /// Bytes of the file, by its descriptor while it is open, else as `size(path)`. -1 with lines on failure.
    long long size() const;

    /// Bytes from the position to the end, 0 at and beyond the end; -1 if not open, and with lines on
    /// failure.
    long long availableSize() const;

    /// Reads up to `length` bytes with one system call. Gives how many came, which may be fewer; -3 at and
    /// beyond the end, where nothing is read, and which a file to which the system gives the size 0, as most
    /// in `/proc`, has at its start; -1 with lines if not open or on failure, and without a line for
    /// a null `buffer` and for a `length` of 0 or above 0x7FFFFFFF.
    int read(void* buffer, unsigned int length);

    /// Writes up to `length` bytes with one system call, while the folder's mode is 0777. Gives how many were
    /// written, which may be fewer, as on a full disk. -1 without a line if not open, with lines on failure,
    /// for a null `buffer` and for a `length` of 0.
    int write(void const* buffer, unsigned int length);

    /// Makes the file end at the position, cutting or extending it with zeros. False if not open, without a
    /// line if the position cannot be had, and with one if the system refuses the new end.
    int resize();

    /// Makes the file `newSize` bytes long. The position stays where it was if that is below `newSize`, else
    /// it becomes the new end. False as for `resize()`, and with a line if a seek is refused. After a failure
    /// the position is where it was; only if the seek back was refused it is `newSize`, and the file may have
    /// that size.
    int resize(unsigned long long newSize);

    /// The encoding of the file's text: 0 Shift-JIS, 1 UTF-8, 2 UTF-16 with the high byte first, 3 UTF-16
    /// with the low byte first. False, with no change, for any other. It is never told from the content; with
    /// any other from the constructor the operations on text give -1.
    int setTextType(int textType);

    ///@{
    /// Reads up to `length` bytes of text, 5119 at most, and writes them to `buffer` + `offset` as terminated
    /// UTF-8. Half a character at the end of them is no text, so mind where `length` ends; `readLine` does.
    /// In UTF-16 an odd `length` counts as one less, and an odd byte at the end of the file is read and is no
    /// text. In UTF-8 a byte order mark at the front of what is read is left out; in UTF-16 text cannot be
    /// read that has one anywhere.
    ///
    /// Gives the bytes taken from the file, -3 at its end, which is where nothing comes any more, whatever
    /// its size says. `*outputLength`, if given, becomes the bytes of the text with its terminator;
    /// characters that Shift-JIS does not have count in it, but end what `buffer` shows. A `bufferSize` of 0
    /// asks for that alone, stores nothing, and moves the position all the same.
    ///
    /// -1, with `buffer` and `*outputLength` untouched: if not open, for a null `buffer` that has a size, a
    /// `length` of 0 or above 5119, and a `bufferSize` below `offset` + the bytes to read + 1 (2 in UTF-16),
    /// whatever the text needs; the position then stays. Also for text that is malformed, for a `bufferSize`
    /// below `offset` + the text, and with lines on failure; it then moves if bytes were read.
    ///
    /// A `text` is written in its capacity as it is; null asks for the size.
    int readText(char* buffer, unsigned int bufferSize, unsigned int length, unsigned int offset,
                 unsigned int* outputLength);
    int readText(BasicString<char>* text, unsigned int length, unsigned int offset,
                 unsigned int* outputLength);
    ///@}

    ///@{
    /// Reads the line at the position, as `readText` does, without its end, and moves behind that. A line
    /// ends with a line feed and the carriage returns in front of it, or with the file; a carriage return
    /// anywhere else is text. No broken character hides a line feed behind it.
    ///
    /// Gives the bytes of the line in the file, -3 at its end. An empty line gives 0 and a `*outputLength` of
    /// 0. A `bufferSize` of 0 asks for the size and leaves the position. -1 as for `readText`, for a
    /// `bufferSize` above 5119 and for a line above 5119 bytes. The position then stays, or, for a line that
    /// is no text of the file's type or whose text does not fit, is between the line and its end, or on
    /// failure anywhere: a loop that reads lines must not go on after -1.
    int readLine(char* buffer, unsigned int bufferSize, unsigned int* outputLength);
    int readLine(BasicString<char>* text, unsigned int* outputLength);
    ///@}

    /// Writes the text from `text` + `offset` on, in the file's encoding, `length` bytes at most, which is
    /// 5119 at most; no byte order mark, no terminator. Gives the bytes written by one `write`. UTF-8 is
    /// written as it is. In UTF-16 a character of 4 bytes becomes U+203B and one that is broken ends the
    /// text.
    ///
    /// Beware of UTF-16, where the rest of a short text counts wrongly: one character at `offset` 0 is not
    /// written and gives 0, as does an empty rest at `offset` 1; one character and an empty rest at any other
    /// `offset` give -1, and so does an empty text. In UTF-8 an empty text gives 0, an empty rest -1.
    ///
    /// -1 without a line: if not open, for null, for a `length` above 5119, for Shift-JIS, which is read
    /// only, and for text that has no form in UTF-16; with lines as for `write`.
    int writeText(char const* text, unsigned int length, unsigned int offset);

    /// `writeText` of the text, of which bytes above 5119 are left out, and of a line feed. Gives the bytes
    /// of both, -1 if one of them fails. In UTF-16 the line feed is not written, as it is one character: end
    /// the text itself with "\r\n" and call `writeText`.
    int writeLine(char const* text);

    /// Looks from the position for the end of the line. Gives the bytes up to and with it, and the position
    /// is behind it then; 0 if the file ended first, and the position is at its end. `*lineSize` becomes the
    /// bytes without the line end and `*eolSize` those of the line end, each if given. `limit` has no effect.
    /// -1 with lines if not open or on failure, without a line for a wrong text type and for a line above
    /// 0x7FFFFFFF bytes; the sizes are untouched and the position anywhere then.
    int findNextLineSize(unsigned int limit, unsigned int* lineSize, unsigned int* eolSize);

    /// What the next 2 bytes are, in whatever encoding: 2 for "\r\n", 1 for another "\r" or "\n" in front,
    /// 0 at the end of the file and if there is no position, -1 for anything else and with lines on failure.
    /// The position stays.
    int nextEOLSize();

    ///@{
    /// Looks for the bytes of `key` in the `range` bytes from `start` on, which is an absolute position or
    /// 0xFFFFFFFFFFFFFFFE for the position. Gives where the key begins and moves there; with `mode` 1 both
    /// are behind it. -2 if it is not there. -1 for null and an empty key, if not open, and with lines on
    /// failure. With -1 and -2 the position stays. Beware that the search never goes back: a byte that ends a
    /// partial match begins none, so "aab" is not found in "aaab".
    long long seekKey(unsigned char const* key, unsigned int keyLength, unsigned long long start,
                      unsigned long long range, int mode);
    long long seekKey(char const* key, unsigned long long start, unsigned long long range, int mode);
    ///@}

    /// Gives the folder of `path` the permissions `mode`. `*previousMode`, if given, becomes its `st_mode`,
    /// with the bits of the type. True if the mode was changed. False if it was not: for a path without a
    /// folder, on failure, and if `mode` equals the whole `st_mode`. So a mode from `*previousMode` is set
    /// only where it is needed, and plain permissions are always set. If the folder is not found, a line of
    /// level 5 says so and `*previousMode` is untouched.
    static int changeParentAccessMode(char const* path, int mode, int* previousMode);

    ///@{
    /// Dissection takes a path apart by its text alone. False, with `output` untouched, for a path that fails
    /// the check or is not UTF-8, a null or too small `output`, and where the part does not exist; each
    /// `extract` takes a path, each `get` that of the object. A string in `output` grows only if it does so
    /// in `BasicString::copy`. A trailing separator does not count.
    ///
    /// | Path           | File name | Without extension | Folder | Extension | Volume    |
    /// |----------------|-----------|-------------------|--------|-----------|-----------|
    /// | "/mnt/a/b.txt" | "b.txt"   | "b"               | "/mnt/a" | "txt"   | "mnt"     |
    /// | "a.tar.gz"     | "a.tar.gz"| "a.tar"           | ""     | "gz"      | "a.tar.gz"|
    /// | "/.profile"    | ".profile"| ""                | ""     | "profile" | ".profile"|
    /// | "a/b/"         | "b"       | "b"               | "a"    | ""        | "a"       |
    /// | "/", ""        | false     | false             | false  | false     | false     |
    ///
    /// The root folder cannot be told from no folder. `withoutExtension` 1 leaves the extension out.
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

    /// The object's path with its separators as `/`; the object's own, and never changed.
    char const* getPath() const;

    ///@{
    /// Copies the object's path; false, with `output` untouched, for a null or too small one.
    int getPath(char* output, unsigned int outputSize) const;
    int getPath(BasicString<char>* output) const;
    ///@}

    ///@{
    /// True if something is there, links followed; without the path check.
    static int exists(char const* path);
    int exists() const;
    ///@}

    ///@{
    /// True if the path passes the check and names a folder, links followed.
    static int isDirectory(char const* path);
    int isDirectory() const;
    ///@}

    ///@{
    /// True if the owner may not write, whoever asks; without the path check. False with a line for null and
    /// for what is not there.
    static int isReadOnly(char const* path);
    int isReadOnly() const;
    ///@}

    ///@{
    /// Makes a folder and all in front of it that are missing. If the folder is missing, every folder on the
    /// way to it gets the mode 0777, those that were there as well: with an absolute path and the rights for
    /// it, that begins with `/` itself. The name of each new folder is made durable by a sync of the folder
    /// in front of it, which may block for as long as the device takes. An empty path is the current folder.
    /// True if the folder is there at the end. False for a path that fails the check, without a line if
    /// something in the way is no folder, and with one if the system refuses; what was made stays.
    static int makeDirectories(char const* path);
    int makeDirectories();
    ///@}

    ///@{
    /// Lists a folder into `result`, which is emptied first and keeps its storage: each entry as the path,
    /// "/" and its name, in the order in which the system gives them, without "." and "..". `kind` 0 takes
    /// what is no folder, 1 folders, 2 both, links not followed. A given `extension` takes only files that
    /// have it, in any case of letters; to folders it does not apply. The last component of the path may be a
    /// pattern with "*", "?" and "[]" that names have to match to the letter, if there is no folder of that
    /// name; "?" is a byte, unless the program has chosen a locale with longer characters. Stops at `maximum`
    /// entries unless that is 0.
    ///
    /// Gives the number of entries; 0 for a file; -1 with a line if the folder cannot be read to its end,
    /// when `result` holds what came until then; -1 without a line for null, another `kind`, a path that
    /// fails the check or is not there, a pattern without a folder in front or in a folder's name, a folder
    /// that cannot be opened, and when a `result` of fixed capacity is full, which then holds what fitted.
    static int children(char const* path, Array<BasicString<char>, BasicString<char> const&>* result,
                        int kind, char const* extension, unsigned int maximum);
    int children(Array<BasicString<char>, BasicString<char> const&>* result, int kind, char const* extension,
                 unsigned int maximum) const;
    ///@}

    ///@{
    /// Makes a file or folder read-only, mode 0555. It is the path that is changed, whatever it names at that
    /// moment, and of a link what the link leads to. With `recursive` 1 also all in a folder and below it,
    /// links followed, up to the first failure; what was changed stays. False for a path that fails the check
    /// or is not there and if the system refuses, with a line only where it did so without saying and for a
    /// folder that cannot be read to its end.
    static int applyReadOnly(char const* path, int recursive);
    int applyReadOnly(int recursive);
    ///@}

    ///@{
    /// As `applyReadOnly`, the other way: what is read-only gets the mode 0777, all else keeps its own.
    static int liftReadOnly(char const* path, int recursive);
    int liftReadOnly(int recursive);
    ///@}

    /// True if another holder has the lock of the file, in this process or any other. `*sharedOnly`, if
    /// given, tells if they all read; it is false whenever the result is, and untouched for a null `path`.
    /// False for what is no regular file or may not be read, and where the file system has no such locks.
    /// Over NFS the lock of readers is not seen. True, with `*sharedOnly` false, if it cannot be found out
    /// because the system has no descriptor or no memory left, or has a lease on it. Waits for no holder.
    /// Takes the lock itself for as long as closing the file takes, in which another `open` fails.
    static int isOpened(char const* path, bool* sharedOnly);

    ///@{
    /// Renames a file or folder, making the folders of the new path as `makeDirectories` does. The object's
    /// own path stays as it is. A path to itself is true. A folder replaces an empty one. False without a
    /// line for null, paths that fail the check, a `source` that is not there, a file in the way, a file that
    /// somebody holds, and an open object; with the lines of `makeDirectories`, and with one if the system
    /// refuses, as across file systems.
    static int move(char const* source, char const* destination);
    int move(char const* destination);
    ///@}

    ///@{
    /// Copies a file with its mode, or a folder with all in it and below it, links followed; folders get the
    /// mode 0777. Makes the folders of the new path as `makeDirectories` does. With `overwrite` 1 it replaces
    /// files that are there, otherwise one that is there ends it. Nothing is created through a link that
    /// leads to nothing, and a file that appears behind the look for it keeps its mode. A path to itself is
    /// true. The target is not synced, and no lock is held while it is written.
    ///
    /// False for null, paths that fail the check, a `source` that is not there, a folder that cannot be made
    /// or listed or holds a name that is not UTF-8, a file that a writer holds, a FIFO or a device on either
    /// side, at which the copy of a folder ends as well, and if the system refuses; with the lines of
    /// `makeDirectories`, and with lines if the source's mode cannot be had or the source or a folder cannot
    /// be read to its end. What was copied stays, the broken file too. That a file system without modes did
    /// not take the mode is no failure.
    static int copy(char const* source, char const* destination, int overwrite);
    int copy(char const* destination, int overwrite) const;
    ///@}

    ///@{
    /// Erases a file, or a folder with all in it and below it. Stops at the first failure; what is erased by
    /// then stays so. With `force` 1 what is read-only is erased as well, otherwise that ends it.
    ///
    /// Of a link to a file the link goes and the file stays; but whether it is held and read-only is asked of
    /// the file, and `force` 1 leaves a read-only one with the mode 0777. A link to a folder is followed: all
    /// in that folder is erased, and then the system refuses to remove the link.
    ///
    /// False without a line for null, a path that fails the check or is not there, a file that somebody
    /// holds, what is read-only, and an open object; with a line if the system refuses, and if a folder
    /// cannot be read to its end, of which nothing is erased then.
    static int erase(char const* path, int force);
    int erase(int force);
    ///@}

    /// Bytes of a file, and of all files in a folder and below it, links followed; takes no lock. FIFOs and
    /// devices are not opened and count as what the system says of their path, which is 0. -1 for a path that
    /// fails the check and for what is not there, and with lines if a file cannot be opened or a folder
    /// cannot be read to its end; then also for the folders around it.
    static long long size(char const* path);

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
    int readFile(void* buffer, unsigned int length);

    BasicString<char> mPath;
    SmartHandle<DestructCloseFile> mHandle;
    int mTextType;
};

}  // namespace utl
