#include "SignalLoop.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <iostream>
#include <pthread.h>
#include <thread>

namespace bvgeo::cli {

sigset_t blockStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

std::shared_ptr<RunLoopMainQueue> installRunLoopPlatform(LinuxPlatformOptions options, std::shared_ptr<Console> console) {
    options.mainQueueOnOwnThread = false;
    Platform bundle = makeLinuxPlatform(options);
    bundle.console = std::move(console);
    auto loop = std::dynamic_pointer_cast<RunLoopMainQueue>(bundle.mainQueue);
    if (!loop) {
        std::cerr << "bvgeo: the platform has no run loop to drive\n";
        return nullptr;
    }
    installPlatform(bundle);
    return loop;
}

void runUntilStopSignal(RunLoopMainQueue& loop, const sigset_t& signals, const std::function<void()>& onStop) {
    std::thread waiter([&] {
        int signal = 0;
        sigwait(&signals, &signal);
        loop.async([&] {
            if (onStop) onStop();
            loop.stop();
        });
    });
    loop.run();
    waiter.join();
}

} // namespace bvgeo::cli
