// A plug-in that uses the shared form of the library, and is the only one to do so.

#include "UtlMsgDrivenThread.h"
#include "UtlThreadManager.h"

namespace {

class Ignoring : public utl::ThreadMsgListener {
    void receiveMsg(int /*threadId*/, utl::ThreadRawMsg& /*msg*/) override {}
};

int idOfTheWatchdog() {
    utl::ThreadManager::Names names(8, 1);
    utl::ThreadManager::get()->getNames(&names);
    for (unsigned int i = 0; i < names.size(); ++i) {
        if (names.getAt(i)->mValue == "Watchdog Thread") {
            return names.getAt(i)->mKey;
        }
    }
    return 0;
}

}  // namespace

/// Uses a message thread, and leaves the watchdog's thread behind, which looks at its table every
/// millisecond. Returns the kernel's id of that thread; 0 for a failure.
extern "C" __attribute__((visibility("default"))) int useLibrary() {
    Ignoring listener;
    utl::MsgDrivenThread thread(8, 16, "of the plug-in", 4);
    bool const isServed = thread.start(&listener) == 0 && thread.sendMsgSync(1) == 1;
    thread.stop(1, 0);
    thread.leaveManagement();
    return isServed && utl::ThreadManager::get()->setWatchdogWatchInterval(1) ? idOfTheWatchdog() : 0;
}
