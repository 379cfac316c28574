// ZoneManager: downloads one zone file with a conditional GET and turns it into
// fences. Holds no state; the Last-Modified text lives in FenceFetch. The callbacks
// run on the HTTP client's transport thread; exactly one of them is called once.
#pragma once

#include "fence/FenceIndex.hpp"
#include "request/HTTPError.hpp"

#include <functional>
#include <string>

namespace bvgeo {

class ZoneManager {
public:
    using Success = std::function<void(FenceList fenceList, bool resultsFromCache)>;
    using Failure = std::function<void(const HTTPError& error)>;

    // 200 (or any answer with a JSON object): the file's fences, Last-Modified stored.
    // 304: the stored current-zone fences, from cache. 403 without JSON: no fences.
    // Anything else: failure.
    static void getFencesForZone(const std::string& zoneFileName, Success success, Failure failure);

    // The current-zone rows of the fence table.
    static FenceList getListFromCache();
};

} // namespace bvgeo
