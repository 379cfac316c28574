// ManualDispatchQueues: serial queues whose work waits until the test pumps them
// (runPending), or, when made threaded, real serial queues on threads of their own
// (waitUntilIdle blocks until all of them are empty, without sleeping).
#pragma once

#include <bvgeo/platform/DispatchQueue.hpp>
#include <bvgeo/Export.hpp>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace bvgeo::virtualtime {

class BVGEO_API ManualDispatchQueues final : public DispatchQueueFactory {
public:
    explicit ManualDispatchQueues(bool threaded = false);
    ~ManualDispatchQueues() override;

    std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) override;

    // Manual mode: runs queued work of every queue, oldest queue first, until none
    // is left. Returns how many items ran. Threaded mode: waits until every queue is
    // idle and returns 0.
    int runPending();

    // Labels of the queues made so far, in creation order.
    std::vector<std::string> labels() const;

private:
    class ManualQueue;
    bool threaded_;
    mutable std::mutex mutex_;
    std::vector<std::weak_ptr<DispatchQueue>> queues_;
    std::shared_ptr<DispatchQueueFactory> threadedFactory_;
};

} // namespace bvgeo::virtualtime
