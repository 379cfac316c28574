// CurlTransport: the HTTP transport thread. It owns one libcurl multi handle and
// the thread that drives it; every transfer runs there, and every completion is
// called there, one at a time, in the order transfers finish. Connections stay in
// the multi handle's cache, so requests to the same host reuse them (keep-alive).
//
// submit() may be called from any thread, including from inside a completion. The
// destructor stops and joins the thread; transfers still running are abandoned and
// their completions are never called, so the owner must not need them any more.
// A host whose name did not resolve is not looked up again for a while: requests
// to it fail at once, as a failed lookup would (see ResolveHold).
#pragma once

#include "request/HTTPResponse.hpp"
#include "request/ResolveHold.hpp"
#include "request/URLRequest.hpp"

#include "platform/linux/CurlSetup.hpp"

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace bvgeo {

class CurlTransport {
public:
    struct Options {
        double timeoutSeconds = 30.0;
        std::size_t maxBodyBytes = 64u * 1024u * 1024u;
        bool noNetwork = false; // fail at once, as without a network
    };

    // What a transfer ended with. `code` is libcurl's result: 0 when an HTTP answer
    // (of any status) arrived complete; then `response` and `body` hold it.
    struct Result {
        int code = 0;
        std::string errorDescription;
        HTTPResponse response;
        std::string body;
    };
    using Completion = std::function<void(Result&)>;

    CurlTransport();
    ~CurlTransport();

    CurlTransport(const CurlTransport&) = delete;
    CurlTransport& operator=(const CurlTransport&) = delete;

    void submit(URLRequest request, Options options, Completion done);

    // True on the transport thread.
    bool isCurrent() const;

private:
    struct Transfer;

    void run();
    void startTransfer(std::unique_ptr<Transfer> transfer);
    void finishTransfer(void* easy, int code);
    void complete(Transfer& transfer, Result& result);

    void* multi_ = nullptr;

    std::mutex mutex_; // guards incoming_ and stopping_
    std::vector<std::unique_ptr<Transfer>> incoming_;
    bool stopping_ = false;

    // Transport thread only.
    std::unordered_map<void*, std::unique_ptr<Transfer>> active_;
    // Hosts whose names did not resolve, by host: requests to them fail at once
    // while the hold lasts (ResolveHold), with libcurl's own result code.
    std::unordered_map<std::string, ResolveHold> unresolved_;

    std::thread thread_;
};

} // namespace bvgeo
