// SharedInstance<T>: the slot behind each service's `sharedInstance()`. The object is
// created on first use, exactly once even when several threads race for it, and
// then lives for the process. Tests may bring every slot back to empty with
// `resetAllSharedInstances()` while no library work is running.
#pragma once


#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

namespace bvgeo {

namespace detail {
// Remembers each slot once it is filled, so that a reset empties them newest first.
void registerSharedReset(std::function<void()> reset);
} // namespace detail

// Empties every filled slot, newest first. Only while nothing else runs.
void resetAllSharedInstances();

template <class T>
class SharedInstance {
public:
    SharedInstance() = default;
    // The instance outlives the slot's static teardown: the library's threads (HTTP
    // transport, serial queues, a main-queue thread) may still be running when a
    // host returns from main, and must not meet a destroyed service. The process's
    // end reclaims it.
    ~SharedInstance() { (void)owned_.release(); }
    SharedInstance(const SharedInstance&) = delete;
    SharedInstance& operator=(const SharedInstance&) = delete;

    template <class Make>
    T& get(Make&& make) {
        if (T* existing = pointer_.load(std::memory_order_acquire)) return *existing;
        std::lock_guard lock(mutex_);
        if (!owned_) {
            owned_ = make();
            pointer_.store(owned_.get(), std::memory_order_release);
            detail::registerSharedReset([this] { reset(); });
        }
        return *owned_;
    }

    T* peek() const { return pointer_.load(std::memory_order_acquire); }

private:
    void reset() {
        std::unique_ptr<T> old;
        {
            std::lock_guard lock(mutex_);
            pointer_.store(nullptr, std::memory_order_release);
            old = std::move(owned_);
        }
    }

    std::mutex mutex_;
    std::unique_ptr<T> owned_;
    std::atomic<T*> pointer_{nullptr};
};

} // namespace bvgeo
