#include "UtlMsg.h"

namespace utl {

MsgDataBroker::~MsgDataBroker() = default;

int MsgDataBroker::beginInput() {
    return 1;
}
int MsgDataBroker::endInput() {
    return 1;
}
int MsgDataBroker::beginOutput() {
    return 1;
}
int MsgDataBroker::endOutput() {
    return 1;
}
int MsgDataBroker::getResult() {
    return 0;
}

Msg::~Msg() = default;

// Only the result of the broker at the end counts: it keeps a failure of any call before.
int Msg::storeTo(MsgDataBroker* broker) const {
    if (broker == nullptr) {
        return 0;
    }
    broker->setMsgId(mMsgId);
    broker->beginInput();
    storeDataTo(broker);
    broker->endInput();
    return broker->getResult() == 0 ? 1 : 0;
}

int Msg::restoreFrom(MsgDataBroker& broker) {
    broker.getMsgId(&mMsgId);
    broker.beginOutput();
    restoreDataFrom(broker);
    broker.endOutput();
    return broker.getResult() == 0 ? 1 : 0;
}

SimpleMsg::~SimpleMsg() = default;

int SimpleMsg::storeDataTo(MsgDataBroker* /*broker*/) const {
    return 1;
}
int SimpleMsg::restoreDataFrom(MsgDataBroker& /*broker*/) {
    return 1;
}

TimerMsg::~TimerMsg() = default;

int TimerMsg::storeDataTo(MsgDataBroker* broker) const {
    return broker->set(mTimerId);
}
int TimerMsg::restoreDataFrom(MsgDataBroker& broker) {
    return broker.get(&mTimerId);
}

}  // namespace utl
