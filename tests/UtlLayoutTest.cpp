// Sizes on the target; on another ABI nothing is compared. A size does not show the order of the fields:
// where that matters, the test of the class looks at it.

#include <gtest/gtest.h>

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

static_assert(hasTargetSize<utl::SyncObjectBase>(4));
static_assert(hasTargetSize<utl::SyncObject>(4 + sizeof(pthread_mutex_t)));
static_assert(hasTargetSize<utl::SyncGuard>(8));

static_assert(hasTargetSize<utl::Array<int>>(20));
static_assert(hasTargetSize<utl::Pair<int, int>>(12));
static_assert(hasTargetSize<utl::Pair<int, unsigned long long>>(16));
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
static_assert(hasTargetSize<utl::Thread>(4 + 4 + 4 + sizeof(utl::BasicString<char>) + 4 * sizeof(utl::Event) +
                                         sizeof(utl::SyncObject) + 4));
static_assert(hasTargetSize<utl::ThreadManager::DetachThread>(1));
static_assert(hasTargetSize<utl::ThreadManager::ThreadEntry>(sizeof(utl::BasicString<char>) + 8 + 12 + 12));
static_assert(hasTargetSize<utl::ThreadManager>(4 + sizeof(utl::SyncObject) +
                                                sizeof(utl::Map<int, utl::ThreadManager::ThreadEntry>) +
                                                sizeof(utl::Event) + 4 + 4));
static_assert(hasTargetSize<utl::StatementInfo>(20));
static_assert(hasTargetSize<utl::WatchdogInfo>(4 + 7 * 4 + 20 + sizeof(utl::BasicString<char>)));
static_assert(hasTargetSize<utl::WatchdogTimerListener>(4));
static_assert(hasTargetSize<utl::ThreadWatchdog>(4 + 4 + 4 + 4 + sizeof(utl::SyncObject) +
                                                 sizeof(utl::WatchdogInfos)));

static_assert(hasTargetSize<utl::RefCounter>(8 + sizeof(utl::SyncObject)));
static_assert(hasTargetSize<utl::GetRefCounterInterface>(4));
static_assert(hasTargetSize<utl::SmartPointer<utl::Event>>(12));
static_assert(hasTargetSize<utl::SmartHandle<utl::DestructCloseFile>>(12));

static_assert(hasTargetSize<utl::Event>(16 + 2 * sizeof(pthread_cond_t) + sizeof(pthread_mutex_t) + 4));
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
static_assert(hasTargetSize<utl::MsgDrivenThread>(
    sizeof(utl::Thread) + 2 * 4 + 2 * sizeof(utl::Queue<unsigned char>) + 4 +
    sizeof(utl::Queue<unsigned char>) + 3 * sizeof(utl::ThreadRawMsg) + 4 + 4 * sizeof(utl::Event) + 4 +
    2 * sizeof(utl::Map<int, utl::TimerInfo>) + 4 * 4 + 2 * 4 + 6 * sizeof(utl::SyncObject)));

static_assert(hasTargetSize<utl::File>(4 + sizeof(utl::BasicString<char>) +
                                       sizeof(utl::SmartHandle<utl::DestructCloseFile>) + 4));
static_assert(hasTargetSize<utl::File::AutoClose>(8));

static_assert(hasTargetSize<utl::SubChunkInfo>(4 + sizeof(utl::BasicString<char>) + 4));
static_assert(hasTargetSize<utl::SubChunk>(4 + 4 + 8 + 4 + 8 + 4 + sizeof(utl::SyncObject)));
static_assert(hasTargetSize<utl::SubChunk::AutoClose>(8));
static_assert(hasTargetSize<utl::RiffFile>(4 + 4 + sizeof(utl::Array<utl::SubChunkInfo>) +
                                           sizeof(utl::SubChunk) + 4 +
                                           sizeof(utl::Map<int, unsigned long long>) + 8 + 8 + 4 +
                                           sizeof(utl::SyncObject)));
static_assert(hasTargetSize<utl::RiffFile::AutoClose>(8));
static_assert(hasTargetSize<utl::WaveFile>(4 + 4 + 2 * 4 + 4 + 3 * 2 + 2 + sizeof(utl::SyncObject)));
static_assert(hasTargetSize<utl::WaveFile::AutoClose>(8));

static_assert(hasTargetSize<utl::MemoryPool>(4 + sizeof(utl::BasicString<char>) + 4 * 4 +
                                             sizeof(utl::SyncObject)));

static_assert(hasTargetSize<utl::Memory::ProcessHeapInfo>(16));
static_assert(hasTargetSize<utl::Memory::DetailHeapInfo>(28));
static_assert(hasTargetSize<utl::Memory::FileNameInfo>(260));
static_assert(hasTargetSize<utl::Memory::ThreadNameInfo>(132));
static_assert(hasTargetSize<utl::Memory>(4 + sizeof(utl::SyncObject) + 1024 + 16 + 4 + 4 + 8 + 8 +
                                         260 * utl::Memory::FILE_NAME_INFO_MAX + 4 +
                                         132 * utl::Memory::THREAD_NAME_INFO_MAX + 4));

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
    static_assert(hasTargetSize<utl::MsgDrivenSharedThread>(
        sizeof(utl::MsgDrivenThread) + sizeof(utl::ThreadMsgListener) +
        sizeof(utl::Array<utl::ThreadMsgListener*>) + 2 * 4 + 4 * sizeof(SpecifiedMsgListenerMsg) +
        sizeof(TimerListenerMap) + 5 * sizeof(utl::SyncObject)));
};
static_assert(hasTargetSize<utl::TimerListener>(4));
static_assert(hasTargetSize<utl::SharedTimer::TimerCtlMsg>(8));
static_assert(hasTargetSize<utl::SharedTimer>(sizeof(utl::Thread) +
                                              sizeof(utl::Queue<utl::SharedTimer::TimerCtlMsg>) +
                                              sizeof(utl::Map<int, utl::TimerInfo>) + 2 * 4 + 2 * 4 +
                                              2 * sizeof(utl::SyncObject)));
static_assert(hasTargetSize<utl::Timer>(4 + sizeof(utl::SharedTimer) + 4 + 4));

TEST(Layout, TheTargetSizesWereComparedWhenThisFileWasCompiled) {
    EXPECT_EQ(IS_TARGET, sizeof(long) == 4);
}

}  // namespace
