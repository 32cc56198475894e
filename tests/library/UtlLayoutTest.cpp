// Starts no thread.

// Sizes on a target of 32 bits; elsewhere nothing is compared. A size does not show the order of the fields:
// where that matters, the test of the class looks at it.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>

#include "UtlArray.h"
#include "UtlAttribConvert.h"
#include "UtlBasicString.h"
#include "UtlBitStream.h"
#include "UtlEvent.h"
#include "UtlFile.h"
#include "UtlMap.h"
#include "UtlMemory.h"
#include "UtlMemoryPool.h"
#include "UtlMsgDrivenSharedThread.h"
#include "UtlMsgDrivenThread.h"
#include "UtlRiffFile.h"
#include "UtlRingArray.h"
#include "UtlSharedTimer.h"
#include "UtlSmartPointer.h"
#include "UtlSyncObject.h"
#include "UtlThread.h"
#include "UtlThreadManager.h"
#include "UtlThreadPriority.h"
#include "UtlThreadRawMsg.h"
#include "UtlThreadWatchdog.h"
#include "UtlTimeCounter.h"
#include "UtlTimepiece.h"
#include "UtlTimer.h"
#include "UtlWaveFile.h"
#include "UtlWorkingBuffer.h"

namespace {

constexpr bool IS_TARGET = sizeof(void*) == 4;

template <typename T>
constexpr bool hasTargetSize(unsigned int size) {
    return !IS_TARGET || sizeof(T) == size;
}

// Classes that have, or may have, fields of 8 bytes are named by their fields, those of their bases first:
// some targets align such a field to 4 bytes and others to 8.
template <typename... FIELDS>
struct Fields {};

template <typename... FIRST, typename... NEXT>
constexpr Fields<FIRST..., NEXT...> operator+(Fields<FIRST...>, Fields<NEXT...>) {
    return {};
}

constexpr std::size_t aligned(std::size_t offset, std::size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

template <typename T, typename... FIELDS>
constexpr bool hasTargetFields(Fields<FIELDS...>) {
    std::size_t size = 0;
    std::size_t alignment = 1;
    ((size = aligned(size, alignof(FIELDS)) + sizeof(FIELDS)), ...);
    ((alignment = std::max(alignment, alignof(FIELDS))), ...);
    return !IS_TARGET || sizeof(T) == aligned(size, alignment);
}

using VirtualTable = void const*;
using String = utl::BasicString<char>;
using Bytes = utl::Queue<unsigned char>;

static_assert(hasTargetSize<utl::SyncObjectBase>(4));
static_assert(hasTargetSize<utl::SyncObject>(4 + sizeof(pthread_mutex_t)));
static_assert(hasTargetSize<utl::SyncGuard>(8));

static_assert(hasTargetSize<utl::Array<int>>(20));
static_assert(hasTargetSize<utl::Pair<int, int>>(12));
static_assert(
    hasTargetFields<utl::Pair<int, unsigned long long>>(Fields<VirtualTable, int, unsigned long long>()));
static_assert(hasTargetSize<utl::CompareLessPairKey<int, int>>(1));
static_assert(hasTargetSize<utl::Map<int, int>>(4 + sizeof(utl::Array<utl::Pair<int, int>>) + 4));
static_assert(hasTargetSize<utl::RingArray<unsigned char>>(20));
static_assert(hasTargetSize<utl::Queue<unsigned char>>(24));

static_assert(hasTargetSize<utl::Msg>(8));
static_assert(hasTargetSize<utl::SimpleMsg>(8));
static_assert(hasTargetSize<utl::TimerMsg>(12));
static_assert(hasTargetSize<utl::MsgDataBroker>(4));
static_assert(hasTargetSize<utl::ThreadRawMsg>(24));

static_assert(hasTargetSize<utl::ThreadPriority>(8));
static_assert(hasTargetSize<utl::Command>(4));
constexpr Fields<VirtualTable, utl::Command*, int, String, utl::Event[4], utl::SyncObject, unsigned int,
                 utl::SmartPointer<utl::Event>>
    THREAD;
static_assert(hasTargetFields<utl::Thread>(THREAD));
static_assert(hasTargetSize<utl::ThreadManager::DetachThread>(1));
static_assert(hasTargetSize<utl::ThreadManager::ThreadEntry>(sizeof(utl::BasicString<char>) + 8 + 12 + 12));
static_assert(hasTargetFields<utl::ThreadManager>(
    Fields<VirtualTable, utl::SyncObject, utl::Map<int, utl::ThreadManager::ThreadEntry>, utl::Event,
           utl::ThreadWatchdog*, std::atomic<bool>>()));
static_assert(hasTargetSize<utl::StatementInfo>(20));
static_assert(hasTargetSize<utl::WatchdogInfo>(4 + 7 * 4 + 20 + sizeof(utl::BasicString<char>)));
static_assert(hasTargetSize<utl::WatchdogTimerListener>(4));
static_assert(hasTargetSize<utl::ThreadWatchdog>(4 + 4 + 4 + 4 + sizeof(utl::SyncObject) +
                                                 sizeof(utl::WatchdogInfos)));

static_assert(hasTargetSize<utl::RefCounter>(8 + sizeof(utl::SyncObject)));
static_assert(hasTargetSize<utl::GetRefCounterInterface>(4));
static_assert(hasTargetSize<utl::SmartPointer<utl::Event>>(12));
static_assert(hasTargetSize<utl::SmartHandle<utl::DestructCloseFile>>(12));

static_assert(hasTargetFields<utl::Event>(Fields<VirtualTable, bool, bool, unsigned int, unsigned int,
                                                 pthread_cond_t, pthread_cond_t, pthread_mutex_t, int>()));
static_assert(hasTargetSize<utl::TimeCounter>(12));

static_assert(hasTargetSize<utl::DualType<char const*, wchar_t const*>>(12));
static_assert(hasTargetSize<utl::PairAttrib>(4 + 2 * sizeof(utl::CodeTableRow)));
static_assert(hasTargetSize<utl::Range<char>>(8));
static_assert(hasTargetSize<utl::BasicString<char>>(20));
static_assert(hasTargetSize<utl::StaticBuffer>(sizeof(utl::SyncObject) + 3 * 10240 + 4 + 3 * 4));
static_assert(hasTargetSize<utl::WorkingBuffer<char>>(8));

static_assert(hasTargetSize<utl::TimerInfo>(52));
static_assert(hasTargetSize<utl::ThreadMsgListener>(4));
static_assert(hasTargetSize<utl::MsgDrivenThread::ThreadCtlMsg>(8));
static_assert(hasTargetSize<utl::MsgDrivenThread::JudgeMsgSpecifiedMsgId>(4));
static_assert(
    hasTargetSize<utl::MsgDrivenThread::MsgJudgement<utl::MsgDrivenThread::JudgeMsgSpecifiedMsgId>>(8));
static_assert(hasTargetSize<utl::Queue<utl::MsgDrivenThread::ThreadCtlMsg>>(24));
constexpr auto MSG_DRIVEN_THREAD =
    THREAD +
    Fields<utl::ThreadMsgListener*, unsigned int, utl::Queue<utl::MsgDrivenThread::ThreadCtlMsg>, Bytes,
           std::atomic<bool>, unsigned char, Bytes, utl::ThreadRawMsg[3], utl::ThreadRawMsg*, utl::Event[4],
           bool[4], utl::Map<int, utl::TimerInfo>[2], int, void*, void*, int, int[2], utl::SyncObject[6]>();
static_assert(hasTargetFields<utl::MsgDrivenThread>(MSG_DRIVEN_THREAD));

static_assert(hasTargetSize<utl::File>(4 + sizeof(utl::BasicString<char>) +
                                       sizeof(utl::SmartHandle<utl::DestructCloseFile>) + 4 + 4));
static_assert(hasTargetSize<utl::File::AutoClose>(8));

static_assert(hasTargetSize<utl::SubChunkInfo>(4 + sizeof(utl::BasicString<char>) + 4));
static_assert(
    hasTargetFields<utl::SubChunk>(Fields<VirtualTable, utl::File*, char[5], unsigned int, unsigned long long,
                                          std::atomic<bool>, utl::SyncObject>()));
static_assert(hasTargetSize<utl::SubChunk::AutoClose>(8));
static_assert(
    hasTargetFields<utl::RiffFile>(Fields<VirtualTable, utl::File*, utl::Array<utl::SubChunkInfo>,
                                          utl::SubChunk, int, utl::Map<int, unsigned long long>, char[5],
                                          unsigned long long, std::atomic<int>, utl::SyncObject>()));
static_assert(hasTargetSize<utl::RiffFile::AutoClose>(8));
static_assert(hasTargetSize<utl::WaveFile>(4 + 4 + 2 * 4 + 4 + 3 * 2 + 2 + sizeof(utl::SyncObject)));
static_assert(hasTargetSize<utl::WaveFile::AutoClose>(8));

static_assert(hasTargetSize<utl::MemoryPool>(4 + sizeof(utl::BasicString<char>) + 4 * 4 +
                                             sizeof(utl::SyncObject)));

static_assert(hasTargetSize<utl::Memory::ProcessHeapInfo>(16));
static_assert(hasTargetFields<utl::Memory::DetailHeapInfo>(
    Fields<unsigned long long, void const*, unsigned int, int, unsigned int, int>()));
static_assert(hasTargetSize<utl::Memory::FileNameInfo>(260));
static_assert(hasTargetSize<utl::Memory::ThreadNameInfo>(132));
static_assert(hasTargetFields<utl::Memory>(
    Fields<VirtualTable, utl::SyncObject, char[1024], utl::Memory::ProcessHeapInfo,
           utl::Memory::DetailHeapInfo*, unsigned int, unsigned long long, unsigned long long,
           utl::Memory::FileNameInfo[utl::Memory::FILE_NAME_INFO_MAX], unsigned int,
           utl::Memory::ThreadNameInfo[utl::Memory::THREAD_NAME_INFO_MAX], unsigned int>()));

static_assert(hasTargetSize<utl::BitStream>(20));
static_assert(hasTargetSize<utl::Time>(18));

// The types that only a derived class can name.
struct SharedThreadTypes : utl::MsgDrivenSharedThread {
    using Predicate = utl::MsgDrivenThread::JudgeMsgSpecifiedMsgId;
    static_assert(hasTargetSize<MsgListenerMsg>(sizeof(utl::Msg) + 4));
    static_assert(hasTargetSize<SpecifiedMsgListenerMsg>(sizeof(utl::Msg) + 4 + sizeof(utl::ThreadRawMsg)));
    static_assert(hasTargetSize<JudgeMsgBroadcast<Predicate>>(12));
    static_assert(hasTargetSize<JudgeMsgSpecifiedListener<Predicate>>(16 + sizeof(SpecifiedMsgListenerMsg) +
                                                                      4));
    static_assert(hasTargetFields<utl::MsgDrivenSharedThread>(
        MSG_DRIVEN_THREAD + Fields<utl::ThreadMsgListener, utl::Array<utl::ThreadMsgListener*>, int, int,
                                   SpecifiedMsgListenerMsg[4], TimerListenerMap, utl::SyncObject[5]>()));
};
static_assert(hasTargetSize<utl::TimerListener>(4));
static_assert(hasTargetSize<utl::SharedTimer::TimerCtlMsg>(8));
static_assert(hasTargetFields<utl::SharedTimer>(
    THREAD + Fields<utl::Queue<utl::SharedTimer::TimerCtlMsg>, utl::Map<int, utl::TimerInfo>, int, int,
                    int[2], utl::SyncObject[2]>()));
static_assert(
    hasTargetFields<utl::Timer>(Fields<VirtualTable, utl::SharedTimer, utl::TimerListener*, int>()));

TEST(Layout, TheTargetSizesWereComparedWhenThisFileWasCompiled) {
    EXPECT_EQ(IS_TARGET, sizeof(long) == 4);
}

}  // namespace
