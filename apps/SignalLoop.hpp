// SignalLoop: how the long-running commands (live tracking, the debug console)
// run the library on the real clock: a Linux platform whose main queue is driven
// on the program's own thread, until Ctrl-C or SIGTERM.
#pragma once

#include <bvgeo/platform/Console.hpp>
#include <bvgeo/platform/LinuxPlatform.hpp>
#include <bvgeo/platform/RunLoopMainQueue.hpp>

#include <csignal>
#include <functional>
#include <memory>

namespace bvgeo::cli {

// Blocks Ctrl-C and SIGTERM in this thread and so in every thread started after
// it: only the waiter of runUntilStopSignal sees them, and the library is stopped
// from its main queue, never from a signal handler. Call before anything starts a thread.
sigset_t blockStopSignals();

// Installs the Linux platform of `options` with `console`, its main queue to be run
// by the caller; null (with a message on standard error) when it has no run loop.
std::shared_ptr<RunLoopMainQueue> installRunLoopPlatform(LinuxPlatformOptions options, std::shared_ptr<Console> console);

// Runs `loop` on this thread until one of `signals` arrives; `onStop` then runs on
// the loop as its last work.
void runUntilStopSignal(RunLoopMainQueue& loop, const sigset_t& signals, const std::function<void()>& onStop);

} // namespace bvgeo::cli
