#include "UtlMemory.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "UtlFile.h"
#include "UtlThreadManager.h"
#include "internal/base/UtlProcessWide.h"
#include "internal/base/UtlSavedErrno.h"
#include "internal/base/UtlSharedLock.h"
#include "internal/file/UtlPathRules.h"
#include "internal/log/UtlLogText.h"
#include "internal/memory/UtlMemoryThreadName.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

namespace {

constexpr int NO_DESCRIPTOR = -1;
constexpr int MESSAGE_DESCRIPTOR = 0;
constexpr int MESSAGE_RESERVED = 1;
constexpr unsigned int REPORT_MODE = 0777;
constexpr char BANNER[] = "!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!\n";

// Keeps the instance from being deleted while a thread registers its name. It is held while waiting for the
// instance's lock. So it cannot be the lock of the instance's creation, which allocation hooks take.
SharedLock gDeletion;

template <unsigned int SIZE>
void copyName(char (&row)[SIZE], ColumnText<SIZE - 1> const& name) {
    std::memcpy(row, name.get(), SIZE);
}

// The low 32 bits of the address: a message has no room for more.
unsigned int shownAddress(void const* address) {
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(address));
}

// A path that is too long is refused here: checking it would take memory from the heap.
int openReport(char const* path) {
    char folder[PATH_BUFFER_SIZE] = {};
    if (path == nullptr || std::strlen(path) >= PATH_BUFFER_SIZE ||
        File::extractDirectoryPath(folder, sizeof(folder), path) == 0 || File::makeDirectories(folder) == 0) {
        return NO_DESCRIPTOR;
    }
    File::changeParentAccessMode(path, REPORT_MODE, nullptr);
    NormalPath const normal(path);
    return keepAliveAround("source/UtlMemory", "openReport", __LINE__, [&normal] {
        return ::open(normal.text(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, REPORT_MODE);
    });
}

// Holds the lock and the file of a report. The manager comes first: its creation waits for a thread, which
// must not have to wait for the lock.
class [[nodiscard]] UTL_SCOPED_CAPABILITY ReportScope {
  public:
    ReportScope(SyncObject const& lock, char const* path) UTL_ACQUIRE(lock)
        : mManager(ThreadManager::get()), mGuard(lock), mDescriptor(openReport(path)) {}
    ~ReportScope() UTL_RELEASE() {
        if (mDescriptor != NO_DESCRIPTOR) {
            keepAliveAround("source/UtlMemory", "~ReportScope", __LINE__,
                            [this] { return ::close(mDescriptor); });
        }
    }
    ReportScope(ReportScope const&) = delete;
    ReportScope& operator=(ReportScope const&) = delete;

    int descriptor() const { return mDescriptor; }

  private:
    ThreadManager* const mManager;
    SyncGuard const mGuard;
    int const mDescriptor;
};

}  // namespace

Memory::DetailHeapInfo const Memory::INITIAL_DETAIL_HEAP_INFO = {
    0, reinterpret_cast<void const*>(std::uintptr_t{0xFFFFFFFF}), 0, 0, INVALID_SIZE, 0};

Memory* Memory::mpTheObject = nullptr;

SyncObject const& Memory::instantiationSyncObject() {
    static ProcessWide<SyncObject> mInstantiationSyncObject;
    return *mInstantiationSyncObject;
}

Memory* Memory::get() {
    SyncGuard const guard(instantiationSyncObject());
    if (mpTheObject == nullptr) {
        mpTheObject = new Memory;
    }
    return mpTheObject;
}

void Memory::destroy() {
    AloneGuard const alone(gDeletion);
    SyncGuard const guard(instantiationSyncObject());
    delete mpTheObject;
    mpTheObject = nullptr;
}

void prepareThreadNamesInMemory() {
    SharedGuard const notDeleted(gDeletion);
    Memory::get();
}

void registerThreadNameInMemory(int threadId, char const* name) noexcept {
    SharedGuard const notDeleted(gDeletion);
    try {
        Memory::get()->registerThreadName(threadId, name);
    } catch (std::bad_alloc const&) {
        // Only possible after the instance was deleted, and its names with it.
    }
}

Memory::Memory()
    : mMessageBuffer(), mDetailHeapInfo(new DetailHeapInfo[DETAIL_HEAP_INFO_MAX]), mMarkedSerial(0) {
    emptyTables();
}

Memory::~Memory() {
    delete[] mDetailHeapInfo;
}

bool Memory::enabledHeapManagement() const noexcept {
    return UTL_HEAP_MANAGEMENT != 0;
}

void Memory::initializeManagementTable() noexcept {
    SyncGuard const guard(mSyncObject);
    emptyTables();
}

// The constructor calls this without the instance's lock: it runs under the lock of the creation, which
// allocation hooks may take inside a report.
void Memory::emptyTables() {
    mProcessHeapInfo = ProcessHeapInfo();
    std::fill_n(mDetailHeapInfo, DETAIL_HEAP_INFO_MAX, INITIAL_DETAIL_HEAP_INFO);
    mDetailHeapInfoCount = 0;
    mNextSerial = 1;
    std::fill_n(mFileNameInfo, FILE_NAME_INFO_MAX, FileNameInfo());
    mFileNameInfoCount = 0;
    std::fill_n(mThreadNameInfo, THREAD_NAME_INFO_MAX, ThreadNameInfo());
    mThreadNameInfoCount = 0;
}

bool Memory::resetUsedHeap() noexcept {
    if (!enabledHeapManagement()) {
        return false;
    }
    initializeManagementTable();
    return true;
}

void Memory::updateManagement(int operation, void* address, unsigned int size, unsigned int fileId,
                              int line) {
    SavedErrno const saved;
    int const threadId = ThreadManager::getCallerId();
    SyncGuard const guard(mSyncObject);
    if (operation == RECORD_ALLOCATION) {
        recordAllocation({mNextSerial, address, size, threadId, fileId, line});
    } else if (address != nullptr) {
        recordRelease(address, threadId, fileId, line);
    }
}

void Memory::recordAllocation(DetailHeapInfo const& info) {
    if (addDetailHeapInfo(info) != INVALID_SIZE) {
        mProcessHeapInfo.mUseBytes += info.mUseBytes;
        ++mProcessHeapInfo.mUseCount;
        mProcessHeapInfo.mMaxBytes = std::max(mProcessHeapInfo.mMaxBytes, mProcessHeapInfo.mUseBytes);
        mProcessHeapInfo.mMaxCount = std::max(mProcessHeapInfo.mMaxCount, mProcessHeapInfo.mUseCount);
        return;
    }
    printMessage(MESSAGE_RESERVED, MESSAGE_DESCRIPTOR, "!!!! DetailHeapInfo management over on allocation\n");
    printMessage(MESSAGE_RESERVED, MESSAGE_DESCRIPTOR,
                 "MaxCount:%u, Address:0x%08x, UseBytes:%10lu, ThreadId:%10d, Line:%8ld, File:%s, \n",
                 DETAIL_HEAP_INFO_MAX, shownAddress(info.mAddress),
                 static_cast<unsigned long>(info.mUseBytes), info.mThreadId, static_cast<long>(info.mLine),
                 getFileName(info.mFileId));
}

void Memory::recordRelease(void const* address, int threadId, unsigned int fileId, int line) {
    int const size = eraseDetailHeapInfo(address);
    if (size != -1) {
        if (mProcessHeapInfo.mUseBytes != 0) {
            mProcessHeapInfo.mUseBytes -= static_cast<unsigned int>(size);
        }
        if (mProcessHeapInfo.mUseCount != 0) {
            --mProcessHeapInfo.mUseCount;
        }
        return;
    }
    printMessage(MESSAGE_RESERVED, MESSAGE_DESCRIPTOR, BANNER);
    printMessage(MESSAGE_RESERVED, MESSAGE_DESCRIPTOR,
                 "!!!! DetailHeapInfo release address is not in under management\n");
    printMessage(MESSAGE_RESERVED, MESSAGE_DESCRIPTOR,
                 "Address:0x%08x, ThreadId:%10d, Line:%8ld, File:%s, \n", shownAddress(address), threadId,
                 static_cast<long>(line), getFileName(fileId));
    printMessage(MESSAGE_RESERVED, MESSAGE_DESCRIPTOR, BANNER);
}

unsigned int Memory::addDetailHeapInfo(DetailHeapInfo const& info) noexcept {
    SyncGuard const guard(mSyncObject);
    if (mDetailHeapInfoCount >= DETAIL_HEAP_INFO_MAX) {
        return INVALID_SIZE;
    }
    DetailHeapInfo* const row = mDetailHeapInfo + positionOf(info.mAddress);
    DetailHeapInfo* const end = mDetailHeapInfo + mDetailHeapInfoCount;
    std::copy_backward(row, end, end + 1);
    *row = info;
    ++mDetailHeapInfoCount;
    ++mNextSerial;
    return info.mUseBytes;
}

int Memory::eraseDetailHeapInfo(void const* address) noexcept {
    SyncGuard const guard(mSyncObject);
    unsigned int const position = positionOf(address);
    if (position >= mDetailHeapInfoCount || mDetailHeapInfo[position].mAddress != address) {
        return -1;
    }
    DetailHeapInfo* const row = mDetailHeapInfo + position;
    DetailHeapInfo* const end = mDetailHeapInfo + mDetailHeapInfoCount;
    unsigned int const size = row->mUseBytes;
    std::copy(row + 1, end, row);
    end[-1] = INITIAL_DETAIL_HEAP_INFO;
    --mDetailHeapInfoCount;
    return static_cast<int>(size);
}

// The first row whose address is not below `address`.
unsigned int Memory::positionOf(void const* address) const {
    auto const key = [](void const* place) { return reinterpret_cast<std::uintptr_t>(place); };
    DetailHeapInfo const* const row = std::lower_bound(
        mDetailHeapInfo, mDetailHeapInfo + mDetailHeapInfoCount, key(address),
        [key](DetailHeapInfo const& info, std::uintptr_t wanted) { return key(info.mAddress) < wanted; });
    return static_cast<unsigned int>(row - mDetailHeapInfo);
}

unsigned int Memory::getFileId(char const* path) {
    if (!enabledHeapManagement() || path == nullptr) {
        return INVALID_SIZE;
    }
    ColumnText<sizeof(FileNameInfo::mName) - 1> const name(path);
    SyncGuard const guard(mSyncObject);
    for (unsigned int i = 0; i < mFileNameInfoCount; ++i) {
        if (std::strcmp(mFileNameInfo[i].mName, name.get()) == 0) {
            return i;
        }
    }
    if (mFileNameInfoCount >= FILE_NAME_INFO_MAX) {
        return INVALID_SIZE;
    }
    copyName(mFileNameInfo[mFileNameInfoCount].mName, name);
    return mFileNameInfoCount++;
}

char const* Memory::getFileName(unsigned int fileId) noexcept {
    SyncGuard const guard(mSyncObject);
    return fileId < mFileNameInfoCount ? mFileNameInfo[fileId].mName : "";
}

void Memory::registerThreadName(int threadId, char const* name) {
    if (threadId == 0 || name == nullptr || *name == '\0') {
        return;
    }
    ColumnText<sizeof(ThreadNameInfo::mName) - 1> const cut(name);
    SyncGuard const guard(mSyncObject);
    bool const isKnown = std::any_of(
        mThreadNameInfo, mThreadNameInfo + mThreadNameInfoCount, [threadId, &cut](auto const& row) {
            return row.mThreadId == threadId && std::strcmp(row.mName, cut.get()) == 0;
        });
    if (isKnown || mThreadNameInfoCount >= THREAD_NAME_INFO_MAX) {
        return;
    }
    ThreadNameInfo& row = mThreadNameInfo[mThreadNameInfoCount++];
    copyName(row.mName, cut);
    row.mThreadId = threadId;
}

// Backwards: the kernel reuses ids, and the thread that was registered last is the one that runs.
char const* Memory::getThreadName(int threadId) noexcept {
    SyncGuard const guard(mSyncObject);
    for (unsigned int i = mThreadNameInfoCount; i-- > 0;) {
        if (mThreadNameInfo[i].mThreadId == threadId) {
            return mThreadNameInfo[i].mName;
        }
    }
    return "";
}

bool Memory::getUsedHeapOfProcess(ProcessHeapInfo* info) noexcept {
    if (!enabledHeapManagement()) {
        return true;
    }
    if (info == nullptr) {
        return false;
    }
    SyncGuard const guard(mSyncObject);
    *info = mProcessHeapInfo;
    return true;
}

void Memory::mark() noexcept {
    SyncGuard const guard(mSyncObject);
    mMarkedSerial = mNextSerial;
}

bool Memory::printUsedHeap(int reserved, char const* path) {
    if (!enabledHeapManagement()) {
        return true;
    }
    ReportScope const report(mSyncObject, path);
    int const fd = report.descriptor();
    printMessage(reserved, fd, "---- ProcessHeap ----\n");
    printMessage(reserved, fd, "     UseBytes,      UseCount,      MaxBytes,      MaxCount, \n");
    printMessage(reserved, fd, "%13lu, %13lu, %13lu, %13lu, \n",
                 static_cast<unsigned long>(mProcessHeapInfo.mUseBytes),
                 static_cast<unsigned long>(mProcessHeapInfo.mUseCount),
                 static_cast<unsigned long>(mProcessHeapInfo.mMaxBytes),
                 static_cast<unsigned long>(mProcessHeapInfo.mMaxCount));
    return true;
}

bool Memory::printUsedHeapDetail(int reserved, char const* path) {
    if (enabledHeapManagement()) {
        printDetail(reserved, path, "---- ProcessDetailHeap", 0);
    }
    return true;
}

bool Memory::printMarkedHeapDetail(int reserved, char const* path) {
    if (!enabledHeapManagement()) {
        return true;
    }
    unsigned long long firstSerial = 0;
    {
        SyncGuard const guard(mSyncObject);
        firstSerial = mMarkedSerial;
    }
    if (firstSerial == 0) {
        return false;
    }
    printDetail(reserved, path, "---- ProcessDetailHeap (Marked)", firstSerial);
    return true;
}

// The count is read again for each row: an allocation hook may change it on this thread during the report.
void Memory::printDetail(int reserved, char const* path, char const* title, unsigned long long firstSerial) {
    ReportScope const report(mSyncObject, path);
    int const fd = report.descriptor();
    printMessage(reserved, fd, "%s -----------------\n", title);
    printMessage(reserved, fd,
                 "       No.,       Serial,    Address,   UseBytes,   ThreadId, "
                 "ThreadName                        ,     Line, File, \n");
    unsigned int number = 0;
    for (unsigned int i = 0; i < mDetailHeapInfoCount; ++i) {
        if (mDetailHeapInfo[i].mSerial >= firstSerial) {
            printRow(reserved, fd, ++number, mDetailHeapInfo[i]);
        }
    }
    printMessage(reserved, fd, "%s [End of Log] ----\n", title);
}

void Memory::printRow(int reserved, int fd, unsigned int number, DetailHeapInfo const& info) {
    printMessage(reserved, fd, "%10lu, %12llu, 0x%08x, %10lu, %10d, %-34s, %8lu, %s, \n",
                 static_cast<unsigned long>(number), info.mSerial, shownAddress(info.mAddress),
                 static_cast<unsigned long>(info.mUseBytes), info.mThreadId, getThreadName(info.mThreadId),
                 static_cast<unsigned long>(static_cast<unsigned int>(info.mLine)),
                 getFileName(info.mFileId));
}

void Memory::printGlobalMemoryStatus(char const* /*path*/) noexcept {}

// Not in a keep-alive bracket: an allocation hook may be the caller, and the watchdog may have to allocate.
void Memory::printMessage(int /*reserved*/, int fd, char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int const length = std::vsnprintf(mMessageBuffer, sizeof(mMessageBuffer), format, arguments);
    va_end(arguments);
    bool const isWhole = length >= 0 && static_cast<unsigned int>(length) < sizeof(mMessageBuffer);
    if (isWhole && fd != NO_DESCRIPTOR) {
        [[maybe_unused]] ssize_t const written = ::write(fd, mMessageBuffer, std::strlen(mMessageBuffer));
    }
}

}  // namespace utl
