// ThreadSerialQueue: a serial queue with a thread of its own that runs the posted
// work in order. Destroying the queue lets the thread finish what was already
// posted, then joins it; destroyed from its own work, the thread finishes on its
// own instead. `async` may be called from any thread.
#pragma once

#include <bvgeo/platform/DispatchQueue.hpp>

#include <memory>
#include <string>
#include <thread>

namespace bvgeo {

class ThreadSerialQueue final : public DispatchQueue {
public:
    explicit ThreadSerialQueue(std::string label);
    ~ThreadSerialQueue() override;

    ThreadSerialQueue(const ThreadSerialQueue&) = delete;
    ThreadSerialQueue& operator=(const ThreadSerialQueue&) = delete;

    void async(std::function<void()> work) override;
    const std::string& label() const override { return label_; }
    bool isCurrent() const override;

private:
    struct State;
    static void serve(std::shared_ptr<State> state);

    std::string label_;
    // Shared with the thread, which may outlive this object (see above).
    std::shared_ptr<State> state_;
    std::thread thread_;
};

} // namespace bvgeo
