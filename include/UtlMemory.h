#pragma once

#include "UtlPlatform.h"
#include "UtlSyncObject.h"

// The build's settings. The library's packages pass any others on to programs.
#ifndef UTL_HEAP_MANAGEMENT
#define UTL_HEAP_MANAGEMENT 0
#endif
#ifndef UTL_HEAP_INFO_MAX
#define UTL_HEAP_INFO_MAX 1
#endif
#ifndef UTL_HEAP_FILE_MAX
#define UTL_HEAP_FILE_MAX 1
#endif
#ifndef UTL_HEAP_THREAD_MAX
#define UTL_HEAP_THREAD_MAX 1
#endif

namespace utl {

/// Accounts for the heap of the process: totals, a table of live allocations with their origin, and reports
/// of both; *internally locked*, because every thread allocates. The application's allocation hooks feed it
/// through `updateManagement`; nothing in the library does.
///
/// | Build                             | Queries, reset, reports | Everything else |
/// |-----------------------------------|-------------------------|-----------------|
/// | by default                        | idle                    | works           |
/// | with `UTL_HEAP_MANAGEMENT` as 1   | work                    | works           |
///
/// The tables have a fixed number of rows each, by default one: `UTL_HEAP_INFO_MAX`, `UTL_HEAP_FILE_MAX` and
/// `UTL_HEAP_THREAD_MAX` are set at build time. Once the instance exists, no operation takes memory from the
/// heap, except a report that uses the watchdog for the first time. A call blocks while another thread writes
/// a report, for as long as the file system takes.
class UTL_API Memory {
  public:
    Memory(Memory const&) = delete;
    Memory& operator=(Memory const&) = delete;

    /// What `updateManagement` records.
    enum Operation { RECORD_ALLOCATION = 0, RECORD_RELEASE = 1 };

    /// Rows of the tables of live allocations, of names of source files and of names of threads.
    ///@{
    static constexpr unsigned int DETAIL_HEAP_INFO_MAX = UTL_HEAP_INFO_MAX;
    static constexpr unsigned int FILE_NAME_INFO_MAX = UTL_HEAP_FILE_MAX;
    static constexpr unsigned int THREAD_NAME_INFO_MAX = UTL_HEAP_THREAD_MAX;
    ///@}

    /// The totals.
    struct UTL_API ProcessHeapInfo {
        unsigned int mUseBytes = 0;  ///< of live allocations
        unsigned int mUseCount = 0;  ///< live allocations
        unsigned int mMaxBytes = 0;  ///< the maximum of `mUseBytes` so far
        unsigned int mMaxCount = 0;  ///< the maximum of `mUseCount` so far
    };

    /// One live allocation.
    struct UTL_API DetailHeapInfo {
        unsigned long long mSerial;  ///< counts allocations, from 1
        void const* mAddress;        ///< the sort key of the table
        unsigned int mUseBytes;      ///< its size
        int mThreadId;               ///< the thread that allocated
        unsigned int mFileId;        ///< as `getFileId` returned it
        int mLine;                   ///< the line in that file
    };

    /// The name of a source file.
    struct UTL_API FileNameInfo {
        char mName[260] = {};  ///< terminated
    };

    /// The name of a thread.
    struct UTL_API ThreadNameInfo {
        int mThreadId = 0;     ///< the kernel's thread id
        char mName[128] = {};  ///< terminated
    };

    /// The content of a row without an allocation.
    static DetailHeapInfo const INITIAL_DETAIL_HEAP_INFO;

    /// The one instance, made by the first call. That call allocates: allocation hooks that call this class
    /// must be disabled during it.
    static Memory* get();

    /// Deletes the instance, if there is one; the next `get` makes a new one with empty tables. Nobody else
    /// may be using it, and allocation hooks that call this class must be disabled during this call too. A
    /// thread that starts during it waits, or has its name in the new instance.
    static void destroy();

    /// True in a library that was built with `UTL_HEAP_MANAGEMENT` as 1.
    [[nodiscard]] bool enabledHeapManagement() const noexcept;

    /// Empties all tables and sets the totals to 0. Serial numbers begin with 1 again and the mark stays, so
    /// a report since the mark is empty until the serial numbers have reached the mark again.
    void initializeManagementTable() noexcept;

    /// `initializeManagementTable` and true; false, with nothing emptied, if management is not enabled.
    bool resetUsedHeap() noexcept;

    /// Records an allocation for the `operation` `RECORD_ALLOCATION` (0), a release for any other number.
    /// `size`, `fileId` and `line` describe an allocation; for a release `fileId` and `line` appear only in
    /// messages. The release of null does nothing. Preserves `errno`.
    ///
    /// An allocation that finds the table full, and the release of an address that is not in it, do not
    /// change the totals; a message about it is written to descriptor 0. An allocation of 0xFFFFFFFF bytes
    /// is treated in the same way, though it gets its row. Totals are reduced unless they are 0 already: a
    /// size above the total wraps.
    void updateManagement(int operation, void* address, unsigned int size, unsigned int fileId, int line);

    /// Adds `info` unchanged as a row and increments the next serial number; the totals stay. Returns the
    /// row's `mUseBytes`; `INVALID_SIZE` if the table is full. Of rows with one address the newest is first.
    unsigned int addDetailHeapInfo(DetailHeapInfo const& info) noexcept;

    /// Removes the first row with the address and returns its `mUseBytes`, -1 if there is none; the totals
    /// stay.
    int eraseDetailHeapInfo(void const* address) noexcept;

    /// The number by which allocations name their source file. A new path takes the next row, cut to 259
    /// bytes between two characters. `INVALID_SIZE` if all rows have other paths, for null, and if
    /// management is not enabled.
    unsigned int getFileId(char const* path);

    /// The path of the number, "" if there is none; valid until the tables are emptied.
    [[nodiscard]] char const* getFileName(unsigned int fileId) noexcept;

    /// Sets the thread's name in reports, cut to 127 bytes between two characters. The library does it for
    /// every thread that is registered with the `ThreadManager`. Does nothing for the id 0, for a null or
    /// empty name, and if the table is full; rows are never freed.
    void registerThreadName(int threadId, char const* name);

    /// The name that was registered last for the id, "" if there is none; valid until the tables are emptied.
    [[nodiscard]] char const* getThreadName(int threadId) noexcept;

    /// Copies the totals. False for null. If management is not enabled true, and `*info` is unchanged.
    bool getUsedHeapOfProcess(ProcessHeapInfo* info) noexcept;

    /// Remembers this moment for `printMarkedHeapDetail`, in place of the last one.
    void mark() noexcept;

    ///@{
    /// Writes a report to the file of `path`: the totals, all live allocations, or those since the mark.
    /// Makes missing folders, leaves a folder that `path` names with the mode 0777, and replaces the file's
    /// content. Nothing is written for null, for a path that a `File` would refuse and if the system refuses,
    /// and the result is true all the same. It is false only for a report since a mark that was never set. If
    /// management is not enabled nothing is done, and the result is true. `reserved` has no effect.
    bool printUsedHeap(int reserved, char const* path);
    bool printUsedHeapDetail(int reserved, char const* path);
    bool printMarkedHeapDetail(int reserved, char const* path);
    ///@}

    /// Does nothing.
    void printGlobalMemoryStatus(char const* path) noexcept;

    /// Formats as `printf` does and writes the text to the descriptor `fd`, nowhere for -1. A text of 1024
    /// bytes or more is dropped. *External lock needed* for this function alone, because the buffer belongs
    /// to the instance, whose lock the library holds in its own calls.
    void printMessage(int reserved, int fd, char const* format, ...) __attribute__((format(printf, 4, 5)));

  protected:
    virtual ~Memory();

  private:
    Memory();

    static SyncObject const& instantiationSyncObject();

    void emptyTables() UTL_REQUIRES(mSyncObject);
    unsigned int positionOf(void const* address) const UTL_REQUIRES(mSyncObject);
    void recordAllocation(DetailHeapInfo const& info) UTL_REQUIRES(mSyncObject);
    void recordRelease(void const* address, int threadId, unsigned int fileId, int line)
        UTL_REQUIRES(mSyncObject);
    void printDetail(int reserved, char const* path, char const* title, unsigned long long firstSerial);
    void printRow(int reserved, int fd, unsigned int number, DetailHeapInfo const& info)
        UTL_REQUIRES(mSyncObject);

    static Memory* mpTheObject UTL_GUARDED_BY(instantiationSyncObject());

    SyncObject mSyncObject;
    char mMessageBuffer[1024];
    ProcessHeapInfo mProcessHeapInfo UTL_GUARDED_BY(mSyncObject);
    DetailHeapInfo* mDetailHeapInfo UTL_PT_GUARDED_BY(mSyncObject);
    unsigned int mDetailHeapInfoCount UTL_GUARDED_BY(mSyncObject);
    unsigned long long mNextSerial UTL_GUARDED_BY(mSyncObject);
    unsigned long long mMarkedSerial UTL_GUARDED_BY(mSyncObject);
    FileNameInfo mFileNameInfo[FILE_NAME_INFO_MAX] UTL_GUARDED_BY(mSyncObject);
    unsigned int mFileNameInfoCount UTL_GUARDED_BY(mSyncObject);
    ThreadNameInfo mThreadNameInfo[THREAD_NAME_INFO_MAX] UTL_GUARDED_BY(mSyncObject);
    unsigned int mThreadNameInfoCount UTL_GUARDED_BY(mSyncObject);
};

}  // namespace utl
