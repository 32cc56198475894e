// The sides of Qt. It takes words like `emit` for itself, so nothing else is included with it.

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtCore/QThread>
#include <QtCore/QTimer>
#include <memory>

#include "Mailbox.h"
#include "Timers.h"

namespace utlpeers {
namespace {

// Qt wants one in each process, and knows the thread that makes it as the main one.
void makeApplication() {
    static int theCount = 1;
    static char theName[] = "UtlPeers";
    static char* theArguments[] = {theName, nullptr};
    static QCoreApplication const theApplication(theCount, theArguments);
}

class LetterEvent : public QEvent {
  public:
    explicit LetterEvent(Letter const& itsLetter) : QEvent(QEvent::User), letter(itsLetter) {}
    Letter letter;
};

class QtMailbox : public Mailbox {
  public:
    QtMailbox() : mReceiver(inbox) {
        mReceiver.moveToThread(&mThread);
        mThread.start();
    }
    ~QtMailbox() override {
        mThread.quit();
        mThread.wait();
    }
    bool post(Letter const& letter) override {
        QCoreApplication::postEvent(&mReceiver, new LetterEvent(letter));
        return true;
    }

  private:
    class Receiver : public QObject {
      public:
        explicit Receiver(Inbox& inbox) : mInbox(inbox) {}

      protected:
        void customEvent(QEvent* event) override { mInbox.deliver(static_cast<LetterEvent*>(event)->letter); }

      private:
        Inbox& mInbox;
    };

    QThread mThread;
    Receiver mReceiver;
};

}  // namespace

std::shared_ptr<Mailbox> makeQtMailbox() {
    makeApplication();
    return std::make_shared<QtMailbox>();
}

void runQtTimers(unsigned int timers, Expiries& expiries) {
    makeApplication();
    QThread thread;
    QObject starter;
    starter.moveToThread(&thread);
    std::vector<std::unique_ptr<QTimer>> running;
    thread.start();
    QMetaObject::invokeMethod(&starter, [&] {
        for (unsigned int i = 0; i < timers; ++i) {
            running.push_back(std::make_unique<QTimer>());
            running.back()->setTimerType(Qt::PreciseTimer);
            running.back()->callOnTimeout([&expiries, i] { expiries.expire(i); });
            running.back()->start(PERIOD_MS);
        }
    });
    expiries.await();
    QMetaObject::invokeMethod(&starter, [&] {
        running.clear();
        thread.quit();
    });
    thread.wait();
}

}  // namespace utlpeers
