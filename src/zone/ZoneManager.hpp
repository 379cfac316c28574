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

    // One zone file request for the zone cache, touching neither the settings nor
    // the log: a GET of the zone's URL, conditional when `ifModifiedSince` is not
    // empty. `done` gets what came back, on the HTTP transport thread.
    struct ZoneFileAnswer {
        // Downloaded: an answer with a JSON object body (of any status), read into
        // `fences`, its body kept as it came. Otherwise no such body: `status` says
        // what came instead (0 when no HTTP answer arrived), `error` why it failed.
        bool downloaded = false;
        long status = 0;
        std::string lastModified;
        FenceList fences;
        std::string body;
        HTTPError error;
    };
    static void requestZoneFile(const std::string& url, const std::string& ifModifiedSince,
                                std::function<void(ZoneFileAnswer& answer)> done);
};

} // namespace bvgeo
