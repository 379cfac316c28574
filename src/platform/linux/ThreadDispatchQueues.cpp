#include <bvgeo/platform/linux/ThreadDispatchQueues.hpp>
#include <bvgeo/platform/linux/ThreadSerialQueue.hpp>

namespace bvgeo {

std::shared_ptr<DispatchQueue> ThreadDispatchQueues::makeSerialQueue(std::string label) {
    return std::make_shared<ThreadSerialQueue>(std::move(label));
}

} // namespace bvgeo
