#pragma once

#include "UtlPlatform.h"
#include "UtlSyncObject.h"

// What the library was built with; its packages tell programs of anything but these.
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
/// | as it comes                       | idle                    | works           |
/// | with `UTL_HEAP_MANAGEMENT` as 1   | work                    | works           |
///
/// The tables have a fixed number of rows each, in the library as it comes one: `UTL_HEAP_INFO_MAX`,
/// `UTL_HEAP_FILE_MAX` and `UTL_HEAP_THREAD_MAX` are built in. Once the instance exists, no operation takes
/// memory from the heap; the reports may where they use the watchdog for the first time. A call blocks while
/// another thread writes a report, with whatever the file system takes.
class UTL_API Memory {
  public:
    Memory(Memory const&) = delete;
    Memory& operator=(Memory const&) = delete;

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
        unsigned int mMaxBytes = 0;  ///< the most that there ever were
        unsigned int mMaxCount = 0;  ///< the most that there ever were
    };

    /// One live allocation.
    struct UTL_API DetailHeapInfo {
        unsigned long long mSerial;  ///< counts allocations, from 1
        void const* mAddress;        ///< what the table is sorted by
        unsigned int mUseBytes;      ///< its size
        int mThreadId;               ///< who allocated
        unsigned int mFileId;        ///< as `getFileId` gave it
        int mLine;                   ///< of that file
    };

    /// The name of a source file.
    struct UTL_API FileNameInfo {
        char mName[260] = {};  ///< terminated
    };

    /// The name of a thread.
    struct UTL_API ThreadNameInfo {
        int mThreadId = 0;     ///< the kernel's
        char mName[128] = {};  ///< terminated
    };

    /// What a row without an allocation holds.
    static DetailHeapInfo const INITIAL_DETAIL_HEAP_INFO;

    /// The one instance, made by the first call. That call allocates: hooks that come here must be closed to
    /// it.
    static Memory* get();

    /// Deletes the instance, if there is one; the next `get` makes a new one with empty tables. Nobody else
    /// may be using it, and hooks that come here must be closed to this call too. A thread that begins
    /// meanwhile waits, or has its name in the new instance.
    static void destroy();

    /// True in a library that was built with `UTL_HEAP_MANAGEMENT` as 1.
    bool enabledHeapManagement() const;

    /// Empties all tables and sets the totals to 0. Serial numbers begin with 1 again and the mark stays, so
    /// that a report since the mark is empty until as many allocations have come once more.
    void initializeManagementTable();

    /// `initializeManagementTable` and true; false, with nothing emptied, where management is not enabled.
    bool resetUsedHeap();

    /// Takes note of an allocation for `operation` 0, of a release for any other. `size`, `fileId` and `line`
    /// describe an allocation; of a release `fileId` and `line` appear in messages alone. The release of null
    /// does nothing. Leaves `errno` alone.
    ///
    /// An allocation that finds the table full, and the release of an address that is not in it, do not
    /// change the totals; a message about it is written to descriptor 0. An allocation of 0xFFFFFFFF bytes
    /// counts as one of these, though it gets its row. Totals are reduced unless they are 0 already: a size
    /// above the total wraps.
    void updateManagement(int operation, void* address, unsigned int size, unsigned int fileId, int line);

    /// Adds `info` as a row, as it is, and counts the next serial number on; the totals stay. Gives the row's
    /// `mUseBytes`; `INVALID_SIZE` if the table is full. Of rows with one address the newest is the first.
    unsigned int addDetailHeapInfo(DetailHeapInfo const& info);

    /// Removes the first row with the address and gives its `mUseBytes`, -1 if there is none; the totals
    /// stay.
    int eraseDetailHeapInfo(void const* address);

    /// The number by which allocations name their source file. A new path takes the next row, cut to 259
    /// bytes between two characters. `INVALID_SIZE` if all rows have other paths, for null, and where
    /// management is not enabled.
    unsigned int getFileId(char const* path);

    /// The path of the number, "" if there is none; valid until the tables are emptied.
    char const* getFileName(unsigned int fileId);

    /// Has the thread appear with this name in reports, cut to 127 bytes between two characters. The library
    /// does it for every thread that is registered with the `ThreadManager`. Does nothing for the id 0, for a
    /// null or empty name, and when the table is full; rows are never given back.
    void registerThreadName(int threadId, char const* name);

    /// The name that was registered last for the id, "" if there is none; valid until the tables are emptied.
    char const* getThreadName(int threadId);

    /// Copies the totals. False for null. Where management is not enabled true, and `*info` stays as it is.
    bool getUsedHeapOfProcess(ProcessHeapInfo* info);

    /// Remembers this moment for `printMarkedHeapDetail`, in place of the last one.
    void mark();

    ///@{
    /// Writes a report to the file of `path`: the totals, all live allocations, or those since the mark.
    /// Makes missing folders, leaves a folder that `path` names with the mode 0777, and replaces what the
    /// file held. Nothing is written for null, for a path that a `File` would refuse and where the system
    /// refuses. All of that gives true; false is given for a report since a mark that was never set. Where
    /// management is not enabled nothing is done, and true. `reserved` has no effect.
    bool printUsedHeap(int reserved, char const* path);
    bool printUsedHeapDetail(int reserved, char const* path);
    bool printMarkedHeapDetail(int reserved, char const* path);
    ///@}

    /// Does nothing.
    void printGlobalMemoryStatus(char const* path);

    /// Formats as `printf` does and writes the text to the descriptor `fd`, nowhere for -1. A text of 1024
    /// bytes or more is dropped. *External lock needed* here alone: the buffer is that of the instance, whose
    /// lock the library's own calls hold.
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
