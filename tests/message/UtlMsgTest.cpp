// Starts no thread.

#include "UtlMsg.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "UtlThreadRawMsg.h"

namespace {

static_assert(utl::MsgDataBroker::BROKER_FAILED == 0 && utl::MsgDataBroker::BROKER_DONE == 1);
static_assert(utl::MsgDataBroker::BROKER_NO_FAILURE == 0);
static_assert(noexcept(std::declval<utl::Msg const&>().getMsgId()));

// Writes down every call, and fails from `getResult` on when told so.
class RecordingBroker : public utl::MsgDataBroker {
  public:
    std::vector<std::string> calls;
    int result = 0;
    int callResult = 1;
    int id = 7;

    int beginInput() override { return note("beginInput"); }
    int endInput() override { return note("endInput"); }
    int beginOutput() override { return note("beginOutput"); }
    int endOutput() override { return note("endOutput"); }
    int getResult() override {
        note("getResult");
        return result;
    }
    int setMsgId(int msgId) override { return note("setMsgId " + std::to_string(msgId)); }
    int getMsgId(int* msgId) override {
        *msgId = id;
        return note("getMsgId");
    }
    int set(bool) override { return note("set bool"); }
    int set(unsigned char) override { return note("set unsigned char"); }
    int set(unsigned short) override { return note("set unsigned short"); }
    int set(unsigned int) override { return note("set unsigned int"); }
    int set(unsigned long long) override { return note("set unsigned long long"); }
    int set(signed char) override { return note("set signed char"); }
    int set(short) override { return note("set short"); }
    int set(int value) override { return note("set int " + std::to_string(value)); }
    int set(long long) override { return note("set long long"); }
    int set(float) override { return note("set float"); }
    int set(double) override { return note("set double"); }
    int set(void*) override { return note("set pointer"); }
    int set(char const*) override { return note("set text"); }
    int set(wchar_t const*) override { return note("set wide text"); }
    int set(unsigned char const*, unsigned int) override { return note("set bytes"); }
    int get(bool*) override { return note("get bool"); }
    int get(unsigned char*) override { return note("get unsigned char"); }
    int get(unsigned short*) override { return note("get unsigned short"); }
    int get(unsigned int*) override { return note("get unsigned int"); }
    int get(unsigned long long*) override { return note("get unsigned long long"); }
    int get(signed char*) override { return note("get signed char"); }
    int get(short*) override { return note("get short"); }
    int get(int* out) override {
        *out = 23;
        return note("get int");
    }
    int get(long long*) override { return note("get long long"); }
    int get(float*) override { return note("get float"); }
    int get(double*) override { return note("get double"); }
    int get(void**) override { return note("get pointer"); }
    int get(char*, unsigned int) override { return note("get text"); }
    int get(wchar_t*, unsigned int) override { return note("get wide text"); }
    int get(unsigned char*, unsigned int) override { return note("get bytes"); }

  private:
    int note(std::string const& call) {
        calls.push_back(call);
        return callResult;
    }
};

using Calls = std::vector<std::string>;

TEST(MsgId, TheLibrarysIdsAreTheOnesOfTheTable) {
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_NONE), 0x80000000U);
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_ANY), 0x80000001U);
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_TIMER), 0x80000002U);
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_CTL_WAKE), 0x80000004U);
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_CTL_SYNC), 0x80000005U);
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_CTL_START_TIMER), 0x80000006U);
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_CTL_STOP_TIMER), 0x80000007U);
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_CTL_TIMEOUT), 0x80000008U);
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_CTL_STOP), 0x80000009U);
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_TIMEOUT_SIGNAL), 0x80000013U);
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_LISTENER_ATTACH), 0x80000021U);
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_LISTENER_DETACH), 0x80000022U);
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_LISTENER_SPECIFIED), 0x80000023U);
    EXPECT_EQ(static_cast<unsigned int>(utl::MSG_ID_CLIENT_FIRST), 0x80000801U);
}

TEST(Msg, StoreTo_WritesTheIdInFrontOfTheBracketAndAsksForTheResultLast) {
    RecordingBroker broker;
    utl::TimerMsg msg;
    msg.mTimerId = 12;
    EXPECT_EQ(msg.storeTo(&broker), 1);
    EXPECT_EQ(broker.calls, (Calls{"setMsgId " + std::to_string(utl::MSG_ID_TIMER), "beginInput",
                                   "set int 12", "endInput", "getResult"}));
}

TEST(Msg, StoreTo_ANullBroker_GivesZero) {
    EXPECT_EQ(utl::TimerMsg().storeTo(nullptr), 0);
}

TEST(Msg, StoreTo_LearnsOfFailureFromTheResultAlone) {
    RecordingBroker broker;
    broker.callResult = 0;
    EXPECT_EQ(utl::TimerMsg().storeTo(&broker), 1);
    for (int const result : {-1, 1, 5}) {
        broker.result = result;
        EXPECT_EQ(utl::TimerMsg().storeTo(&broker), 0) << result;
    }
}

TEST(Msg, RestoreFrom_ReadsTheIdInFrontOfTheBracketAndAsksForTheResultLast) {
    RecordingBroker broker;
    utl::TimerMsg msg;
    EXPECT_EQ(msg.restoreFrom(broker), 1);
    EXPECT_EQ(broker.calls, (Calls{"getMsgId", "beginOutput", "get int", "endOutput", "getResult"}));
    EXPECT_EQ(msg.mTimerId, 23);
}

TEST(Msg, RestoreFrom_LearnsOfFailureFromTheResultAlone) {
    RecordingBroker broker;
    broker.callResult = 0;
    utl::TimerMsg msg;
    EXPECT_EQ(msg.restoreFrom(broker), 1);
    broker.result = 2;
    EXPECT_EQ(msg.restoreFrom(broker), 0);
}

TEST(Msg, RestoreFrom_TakesOverTheIdOfTheBrokerWhateverItsOwnWas) {
    RecordingBroker broker;
    utl::TimerMsg msg;
    ASSERT_EQ(msg.getMsgId(), utl::MSG_ID_TIMER);
    msg.restoreFrom(broker);
    EXPECT_EQ(msg.getMsgId(), 7);
}

TEST(SimpleMsg, CarriesItsIdAlone) {
    RecordingBroker broker;
    utl::SimpleMsg msg(99);
    EXPECT_EQ(msg.storeTo(&broker), 1);
    EXPECT_EQ(msg.restoreFrom(broker), 1);
    EXPECT_EQ(broker.calls, (Calls{"setMsgId 99", "beginInput", "endInput", "getResult", "getMsgId",
                                   "beginOutput", "endOutput", "getResult"}));
}

TEST(SimpleMsg, FitsIntoTheSmallestRawMessage) {
    utl::ThreadRawMsg raw(0);
    EXPECT_EQ(utl::SimpleMsg(5).storeTo(&raw), 1);
    utl::SimpleMsg restored(0);
    EXPECT_EQ(restored.restoreFrom(raw), 1);
    EXPECT_EQ(restored.getMsgId(), 5);
}

TEST(TimerMsg, Default_HasTheTimerIdUnset) {
    utl::TimerMsg const msg;
    EXPECT_EQ(msg.getMsgId(), utl::MSG_ID_TIMER);
    EXPECT_EQ(msg.mTimerId, -1);
}

TEST(TimerMsg, Default_FlattenedAndRestored_KeepsTheUnsetTimerId) {
    utl::ThreadRawMsg raw(8);
    ASSERT_EQ(utl::TimerMsg().storeTo(&raw), 1);
    utl::TimerMsg restored;
    restored.mTimerId = 4;
    EXPECT_EQ(restored.restoreFrom(raw), 1);
    EXPECT_EQ(restored.mTimerId, -1);
}

TEST(TimerMsg, RestoredFromAnotherMessage_TakesItsIdAndItsFirstBytes) {
    utl::ThreadRawMsg raw(8);
    raw.setMsgId(1234);
    raw.beginInput();
    raw.set(0x11223344);
    utl::TimerMsg restored;
    EXPECT_EQ(restored.restoreFrom(raw), 1);
    EXPECT_EQ(restored.getMsgId(), 1234);
    EXPECT_EQ(restored.mTimerId, 0x11223344);
}

// The base class has no storage and reports success.
TEST(MsgDataBroker, Base_ReportsSuccess) {
    utl::ThreadRawMsg raw(4);
    utl::MsgDataBroker& base = raw;
    EXPECT_EQ(base.MsgDataBroker::beginInput(), 1);
    EXPECT_EQ(base.MsgDataBroker::endInput(), 1);
    EXPECT_EQ(base.MsgDataBroker::beginOutput(), 1);
    EXPECT_EQ(base.MsgDataBroker::endOutput(), 1);
    EXPECT_EQ(base.MsgDataBroker::getResult(), 0);
}

}  // namespace
