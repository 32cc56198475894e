#pragma once

#include <climits>

#include "UtlPlatform.h"

namespace utl {

/// Message ids. The library keeps the range from `INT_MIN` to `MSG_ID_CLIENT_FIRST` - 1 for itself; a
/// client's ids are all others, which takes in every non-negative value.
///@{

/// No message: the default of control entries, and the answer where nothing is queued.
inline constexpr int MSG_ID_NONE = INT_MIN;
/// In questions about queued messages: any id matches.
inline constexpr int MSG_ID_ANY = INT_MIN + 0x01;
/// The id under which a listener sees a `TimerMsg`.
inline constexpr int MSG_ID_TIMER = INT_MIN + 0x02;
/// Control entry: look at the pending requests.
inline constexpr int MSG_ID_CTL_WAKE = INT_MIN + 0x04;
/// Control entry of a synchronous message.
inline constexpr int MSG_ID_CTL_SYNC = INT_MIN + 0x05;
/// Control entry: start the timer that the parameter names.
inline constexpr int MSG_ID_CTL_START_TIMER = INT_MIN + 0x06;
/// Control entry: stop the timer that the parameter names.
inline constexpr int MSG_ID_CTL_STOP_TIMER = INT_MIN + 0x07;
/// Control entry: the timer that the parameter names has expired.
inline constexpr int MSG_ID_CTL_TIMEOUT = INT_MIN + 0x08;
/// Control entry: end the loop.
inline constexpr int MSG_ID_CTL_STOP = INT_MIN + 0x09;
/// Token of the timer signal; never in a queue.
inline constexpr int MSG_ID_TIMEOUT_SIGNAL = INT_MIN + 0x13;
/// Envelope of a shared thread: attach a listener.
inline constexpr int MSG_ID_LISTENER_ATTACH = INT_MIN + 0x21;
/// Envelope of a shared thread: detach a listener.
inline constexpr int MSG_ID_LISTENER_DETACH = INT_MIN + 0x22;
/// Envelope of a shared thread: a message for one listener.
inline constexpr int MSG_ID_LISTENER_SPECIFIED = INT_MIN + 0x23;
/// The lowest id that is the client's.
inline constexpr int MSG_ID_CLIENT_FIRST = INT_MIN + 0x801;
///@}

/// What a message writes its fields to and reads them from: typed values in call order, without tags. Input
/// means into the broker, output out of it. Every operation returns 1 for success and 0 for failure, except
/// `getResult`. The base class stores nothing and reports success. *External lock needed*: an implementation
/// has no lock.
///
/// `setMsgId` works on a broker that has not been begun and leaves the data position where it is: a message
/// writes its id first, outside the begin and end pair.
class UTL_API MsgDataBroker {
  public:
    /// What every operation but `getResult` returns, and so do `storeTo` and `restoreFrom` of a message.
    enum BrokerResult { BROKER_FAILED = 0, BROKER_DONE = 1 };

    /// What `getResult` returns when every operation since the last begin has worked.
    static constexpr int BROKER_NO_FAILURE = 0;

    MsgDataBroker() = default;
    virtual ~MsgDataBroker();

    /// Starts writing at the first value and forgets an earlier failure.
    virtual int beginInput();
    virtual int endInput();
    /// Starts reading at the first value and forgets an earlier failure.
    virtual int beginOutput();
    virtual int endOutput();
    /// 0 when every operation since the last begin worked, anything else once one has failed.
    virtual int getResult();

    /// Writes the id to its fixed place.
    virtual int setMsgId(int msgId) = 0;
    /// Stores the id in `*msgId`.
    virtual int getMsgId(int* msgId) = 0;

    /// Each `set` appends one value; texts go with their terminator, bytes without their count.
    ///@{
    virtual int set(bool value) = 0;
    virtual int set(unsigned char value) = 0;
    virtual int set(unsigned short value) = 0;
    virtual int set(unsigned int value) = 0;
    virtual int set(unsigned long long value) = 0;
    virtual int set(signed char value) = 0;
    virtual int set(short value) = 0;
    virtual int set(int value) = 0;
    virtual int set(long long value) = 0;
    virtual int set(float value) = 0;
    virtual int set(double value) = 0;
    virtual int set(void* value) = 0;
    virtual int set(char const* text) = 0;
    virtual int set(wchar_t const* text) = 0;
    virtual int set(unsigned char const* bytes, unsigned int count) = 0;
    ///@}

    /// Each `get` reads the next value. It must have the type that was set: no type tags are stored.
    ///@{
    virtual int get(bool* out) = 0;
    virtual int get(unsigned char* out) = 0;
    virtual int get(unsigned short* out) = 0;
    virtual int get(unsigned int* out) = 0;
    virtual int get(unsigned long long* out) = 0;
    virtual int get(signed char* out) = 0;
    virtual int get(short* out) = 0;
    virtual int get(int* out) = 0;
    virtual int get(long long* out) = 0;
    virtual int get(float* out) = 0;
    virtual int get(double* out) = 0;
    virtual int get(void** out) = 0;
    /// `maxLen` counts bytes, the terminator included.
    virtual int get(char* out, unsigned int maxLen) = 0;
    /// `maxLen` counts wide characters, the terminator included.
    virtual int get(wchar_t* out, unsigned int maxLen) = 0;
    virtual int get(unsigned char* out, unsigned int count) = 0;
    ///@}
};

/// A message: an id, and in a derived class its fields. It crosses threads in flat form only; the receiver
/// restores an object of the same class. *One owner thread*: an object is never shared, its flat form is.
///
/// A derived class sets its fields in `storeDataTo` in a fixed order and gets them in `restoreDataFrom` in
/// the same order with the same types. A mismatch goes unnoticed unless it runs past the end of the broker.
class UTL_API Msg {
  public:
    /// Ids from `MSG_ID_CLIENT_FIRST` upward are the client's.
    explicit Msg(int msgId) : mMsgId(msgId) {}
    Msg(Msg const&) = default;
    Msg& operator=(Msg const&) = default;
    virtual ~Msg();

    /// The id given at construction, or the one that `restoreFrom` found.
    [[nodiscard]] int getMsgId() const noexcept { return mMsgId; }

    /// Writes id and fields to `broker`. Returns 1 if the broker reports success at the end, otherwise 0,
    /// also for a null `broker`.
    int storeTo(MsgDataBroker* broker) const;

    /// Reads id and fields from `broker`. The object takes the id that it finds there, whatever its own was:
    /// the caller has looked at the id before. Returns 1 if the broker reports success at the end, otherwise
    /// 0; after a failure the fields that were read first have their new values.
    int restoreFrom(MsgDataBroker& broker);

  protected:
    /// Sets the fields in `*broker`. Nobody uses the result: the broker knows of a failure.
    virtual int storeDataTo(MsgDataBroker* broker) const = 0;

    /// Gets the fields from `broker`. Nobody uses the result: the broker knows of a failure.
    virtual int restoreDataFrom(MsgDataBroker& broker) = 0;

  private:
    int mMsgId;
};

/// A message without fields; *one owner thread*, as every message.
class UTL_API SimpleMsg : public Msg {
  public:
    /// As `Msg`.
    explicit SimpleMsg(int msgId) : Msg(msgId) {}
    ~SimpleMsg() override;

  protected:
    int storeDataTo(MsgDataBroker* broker) const override;
    int restoreDataFrom(MsgDataBroker& broker) override;
};

/// Tells a listener that one of its timers has expired; *one owner thread*, as every message.
class UTL_API TimerMsg : public Msg {
  public:
    TimerMsg() : Msg(MSG_ID_TIMER) {}
    ~TimerMsg() override;

    /// The timer's id, -1 when unset.
    int mTimerId = -1;

  protected:
    int storeDataTo(MsgDataBroker* broker) const override;
    int restoreDataFrom(MsgDataBroker& broker) override;
};

}  // namespace utl
