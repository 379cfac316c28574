// Quiescence: waiting until the library has done what it was handed, and sending
// what it still owes the server before a host lets it go. Used by the facade
// (BVGeoTracker::settle and flush) and by the C API's close, each with its own way
// of running the queues: the facade posts to the installed queues and waits, the
// C API's virtual time pumps them on the calling thread.
//
// Callable from any thread that is not the one the queues need to run on. Only the
// services' public operations are used, so the library's state stays theirs.
#pragma once

#include <bvgeo/BVGeoTracker.hpp>

#include <functional>

namespace bvgeo {

// Runs, or waits for, everything posted to the serial queues and then the main
// queue so far. False when `timeoutSeconds` of real time ran out first.
using DrainQueues = std::function<bool(double timeoutSeconds)>;

// True once every fix handed to the location service before the call is decided:
// zone answers in, trigger jobs run, what they posted to the main queue run
// (delegate calls, report timers armed). Rounds of "wait for transfers, drain the
// queues" until one round starts neither a transfer nor a trigger job. False when
// the deadline came first.
bool settleLibrary(double timeoutSeconds, const DrainQueues& drain);

// settleLibrary, then one pass of the request queue's lists on the main queue (the
// reports still owed go out now, not at their timers), then settles again so the
// answers are in. Reads what is still owed at the end.
FlushResult flushLibrary(double timeoutSeconds, const DrainQueues& drain);

} // namespace bvgeo
