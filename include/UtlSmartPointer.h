#pragma once

#include "UtlPlatform.h"
#include "UtlSyncObject.h"

namespace utl {

/// Counts the handles that share one resource; *internally locked*, because handles on different threads
/// share it. It begins with 0.
class UTL_API RefCounter {
  public:
    RefCounter() = default;
    virtual ~RefCounter();
    RefCounter(RefCounter const&) = delete;
    RefCounter& operator=(RefCounter const&) = delete;

    /// Adds or removes one handle; returns the new count.
    int increment();
    int decrement();

    /// How many handles share the resource at the moment.
    [[nodiscard]] int getCount() const;

  private:
    int add(int difference);

    int mCount UTL_GUARDED_BY(mSyncObject) = 0;
    SyncObject mSyncObject;
};

/// Lets one handle read the counter of another, whatever the other's template arguments; *one owner thread*,
/// as every handle.
class UTL_API GetRefCounterInterface {
  public:
    GetRefCounterInterface() = default;
    virtual ~GetRefCounterInterface();

    /// The counter of this handle, null if it is empty.
    [[nodiscard]] virtual RefCounter* actGetRefCounter() const = 0;

    /// The counter of `other`, null if it is empty.
    [[nodiscard]] RefCounter* getRefCounter(GetRefCounterInterface const& other) const {
        return other.actGetRefCounter();
    }

  protected:
    GetRefCounterInterface(GetRefCounterInterface const&) = default;
    GetRefCounterInterface& operator=(GetRefCounterInterface const&) = default;
};

namespace detail {

/// A new counter with the count 1. Throws `std::bad_alloc` if there is no memory.
UTL_API RefCounter* newRefCounter();

/// Adds one handle to `counter`, which may be null; returns `counter`.
UTL_API RefCounter* addShare(RefCounter* counter);

/// Removes one handle from `counter`, which may be null. True if it was the last: the caller, and no other
/// thread, destroys the resource and the counter. A count that falls below 0 is logged under the name of the
/// handle's class.
UTL_API bool removeShare(RefCounter* counter, char const* className);

/// Removes one handle from `counter`; the last one destroys the resource with `D`, outside any lock, and then
/// the counter.
template <typename D, typename RESOURCE>
void giveUpShare(RESOURCE resource, RefCounter* counter, char const* className) {
    if (removeShare(counter, className)) {
        if (resource != RESOURCE()) {
            D()(resource);
        }
        delete counter;
    }
}

}  // namespace detail

/// Shares a heap object; the last handle destroys it by calling `D` with the pointer. *One owner thread*,
/// because its fields have no lock; handles that share an object may live on different threads.
///
/// | State   | `set(null)`, `release` | `set(same)` | `set(other)`              |
/// |---------|------------------------|-------------|---------------------------|
/// | empty   | empty                  | empty       | shares the other alone    |
/// | shares  | gives up its share     | as before   | gives up, shares the other|
template <typename T, typename D>
class CountingPointer : public GetRefCounterInterface {
  public:
    CountingPointer() = default;

    /// As `set`.
    explicit CountingPointer(T* resource) { set(resource); }

    /// Shares what `other` shares.
    CountingPointer(CountingPointer const& other)
        : GetRefCounterInterface(other),
          mPointer(other.mPointer),
          mRefCounter(detail::addShare(getRefCounter(other))) {}

    /// Shares what `other` shares and gives up its own share, in this order: the two may be the same.
    CountingPointer& operator=(CountingPointer const& other) {
        RefCounter* const counter = detail::addShare(getRefCounter(other));
        replace(other.mPointer, counter);
        return *this;
    }

    ~CountingPointer() override { release(); }

    /// Becomes the first owner of `resource` and gives up its own share. No effect if it already shares
    /// `resource`. Without memory for a counter it throws `std::bad_alloc`: its own share is then as it was,
    /// and `resource` stays the caller's.
    void set(T* resource) {
        if (resource != mPointer) {
            replace(resource, resource != nullptr ? detail::newRefCounter() : nullptr);
        }
    }

    /// Gives up the share; empty afterwards.
    void release() { replace(nullptr, nullptr); }

    /// The resource, null if the handle is empty. It stays the handles'.
    [[nodiscard]] T* get() const noexcept { return mPointer; }

    /// The counter that the handles of the resource share, null if the handle is empty.
    [[nodiscard]] RefCounter* actGetRefCounter() const override { return mRefCounter; }

  private:
    void replace(T* resource, RefCounter* counter) {
        detail::giveUpShare<D>(mPointer, mRefCounter, "CountingPointer");
        mPointer = resource;
        mRefCounter = counter;
    }

    T* mPointer = nullptr;
    RefCounter* mRefCounter = nullptr;
};

/// Deletes an object; *immutable*, since it has no state.
template <typename T>
class DestructPointer {
  public:
    /// Called once for each resource, by its last handle.
    void operator()(T* resource) const { delete resource; }
};

/// Shares an object from `new`; *one owner thread*, as every handle.
template <typename T>
class SmartPointer : public CountingPointer<T, DestructPointer<T>> {
  public:
    SmartPointer() = default;

    /// As `set`.
    explicit SmartPointer(T* resource) : CountingPointer<T, DestructPointer<T>>(resource) {}

    /// Must not be empty.
    [[nodiscard]] T* operator->() const noexcept { return this->get(); }
    [[nodiscard]] T& operator*() const noexcept { return *this->get(); }
};

/// `CountingPointer` for a resource that is a plain value, such as a descriptor. 0 stands for none: it has no
/// counter and is never passed to `D`. *One owner thread*, as every handle.
template <typename H, typename D>
class Counting : public GetRefCounterInterface {
  public:
    Counting() = default;

    /// As `set`.
    explicit Counting(H handle) { set(handle); }

    /// Shares what `other` shares.
    Counting(Counting const& other)
        : GetRefCounterInterface(other),
          mHandle(other.mHandle),
          mRefCounter(detail::addShare(getRefCounter(other))) {}

    /// Shares what `other` shares and gives up its own share, in this order: the two may be the same.
    Counting& operator=(Counting const& other) {
        RefCounter* const counter = detail::addShare(getRefCounter(other));
        replace(other.mHandle, counter);
        return *this;
    }

    ~Counting() override { release(); }

    /// Becomes the first owner of `handle`; as in `CountingPointer`, with 0 in place of null.
    void set(H handle) {
        if (handle != mHandle) {
            replace(handle, handle != H() ? detail::newRefCounter() : nullptr);
        }
    }

    /// Gives up the share; empty afterwards.
    void release() { replace(H(), nullptr); }

    /// The resource, 0 if the handle is empty. It stays the handles'.
    [[nodiscard]] H get() const { return mHandle; }

    /// The counter that the handles of the resource share, null if the handle is empty.
    [[nodiscard]] RefCounter* actGetRefCounter() const override { return mRefCounter; }

  private:
    void replace(H handle, RefCounter* counter) {
        detail::giveUpShare<D>(mHandle, mRefCounter, "Counting");
        mHandle = handle;
        mRefCounter = counter;
    }

    H mHandle = H();
    RefCounter* mRefCounter = nullptr;
};

/// Writes a file's content through to its device and closes the descriptor, unless it is 0 or -1;
/// *immutable*, since it has no state. Failures are ignored.
class UTL_API DestructCloseFile {
  public:
    /// Called once for each descriptor, by its last handle.
    void operator()(int handle) const;
};

/// Shares a descriptor; *one owner thread*, as every handle.
template <typename D>
class SmartHandle : public Counting<int, D> {
  public:
    SmartHandle() = default;

    /// As `set`.
    explicit SmartHandle(int handle) : Counting<int, D>(handle) {}
};

extern template class UTL_API_INSTANCE Counting<int, DestructCloseFile>;
extern template class UTL_API_INSTANCE SmartHandle<DestructCloseFile>;

}  // namespace utl
