#include "platform/linux/ThreadDispatchQueues.hpp"
#include "platform/linux/ThreadSerialQueue.hpp"

namespace bvgeo {

std::shared_ptr<DispatchQueue> ThreadDispatchQueues::makeSerialQueue(std::string label) {
    return std::make_shared<ThreadSerialQueue>(std::move(label));
}

} // namespace bvgeo
