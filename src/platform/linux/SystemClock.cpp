#include "platform/linux/SystemClock.hpp"

#include <chrono>

namespace bvgeo {

double SystemClock::currentTime() const {
    using Seconds = std::chrono::duration<double>;
    return std::chrono::duration_cast<Seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

} // namespace bvgeo
