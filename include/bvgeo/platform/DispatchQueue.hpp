// Serial dispatch queues: each runs its work one item at a time, in order, on a
// thread of its own. The trigger engine's "ProcessInsideFences" is one of them.
#pragma once

#include <bvgeo/Export.hpp>

#include <functional>
#include <memory>
#include <string>

namespace bvgeo {

class BVGEO_API DispatchQueue {
public:
    virtual ~DispatchQueue() = default;

    // Runs `work` later on this queue, after everything posted before it. Any thread.
    virtual void async(std::function<void()> work) = 0;

    virtual const std::string& label() const = 0;

    // True while called from work running on this queue.
    virtual bool isCurrent() const = 0;
};

class BVGEO_API DispatchQueueFactory {
public:
    virtual ~DispatchQueueFactory() = default;

    virtual std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) = 0;
};

} // namespace bvgeo
