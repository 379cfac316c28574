// ThreadDispatchQueues: makes serial queues that each run on a thread of their own
// (ThreadSerialQueue). Holds nothing itself; a queue lives as long as its users keep
// it. Any thread may make queues.
#pragma once

#include <bvgeo/platform/DispatchQueue.hpp>

namespace bvgeo {

class ThreadDispatchQueues final : public DispatchQueueFactory {
public:
    std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) override;
};

} // namespace bvgeo
