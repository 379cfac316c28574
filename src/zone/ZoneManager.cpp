#include "zone/ZoneManager.hpp"

#include "datastore/DatabaseConnection.hpp"
#include "logger/Logger.hpp"
#include "models/FenceFetch.hpp"
#include "network/BVReachability.hpp"
#include "request/HTTPClient.hpp"
#include "settings/TrackerSettings.hpp"
#include "zone/ZoneFileReader.hpp"

namespace bvgeo {

namespace {
constexpr std::string_view kFunction = "getFencesForZone(_:success:failure:)";
} // namespace

void ZoneManager::getFencesForZone(const std::string& zoneFileName, Success success, Failure failure) {
    std::string url = TrackerSettings::sharedInstance().zonesBaseUrl() + zoneFileName;
    const bool polygonFences = TrackerSettings::sharedInstance().extendedOptions().polygonFences;
    // Nothing stored means an unconditional request: the header is left out. So
    // does a fence table written without geometries while polygon fences are on: a
    // 304 would stand for geometries that were never kept.
    nlohmann::json headers = nlohmann::json::object();
    if (auto lastModified = FenceFetch::zoneLastModified();
        !lastModified.empty() && (!polygonFences || Fence::geometriesStoredForCurrentFences()))
        headers["If-Modified-Since"] = lastModified;
    Logger::log("Requested Zone = " + url, LogCategory::ZONE, kFunction, 37);

    // The fences are read while the body is decoded: a zone may hold many thousands.
    auto reader = std::make_shared<ZoneFileReader>(polygonFences);
    HTTPClient::sharedInstance().getStreamed(
        url, headers, reader,
        [success, reader](const HTTPResponse& response) {
            // What the answer leads to (log lines, the fence table, the cached list read
            // back) is one commit.
            WriteGroup writes;
            FenceFetch::setZoneLastModified(response.value("Last-Modified").value_or(""));
            success(reader->takeFences(), false);
        },
        [success, failure](const HTTPResponse& response, const HTTPError& error) {
            WriteGroup writes;
            Logger::log("Request Failed: Status (" + std::to_string(response.statusCode) + "). Network Type: " +
                            std::string(rawValue(BVReachability::isConnectedToNetworkOfType())),
                        LogCategory::ZONE, kFunction, 62);
            if (response.statusCode == 304)
                success(getListFromCache(), true);
            else if (response.statusCode == 403)
                success({}, false);
            else
                failure(error);
        });
}

FenceList ZoneManager::getListFromCache() {
    return Fence::getFences(true, TrackerSettings::sharedInstance().extendedOptions().polygonFences);
}

void ZoneManager::requestZoneFile(const std::string& url, const std::string& ifModifiedSince,
                                  std::function<void(ZoneFileAnswer& answer)> done) {
    nlohmann::json headers = nlohmann::json::object();
    const bool polygonFences = TrackerSettings::sharedInstance().extendedOptions().polygonFences;
    // As for a download without the cache: a 304 must not stand for geometries that
    // the fence table never kept.
    if (!ifModifiedSince.empty() && (!polygonFences || Fence::geometriesStoredForCurrentFences()))
        headers["If-Modified-Since"] = ifModifiedSince;
    auto reader = std::make_shared<ZoneFileReader>(polygonFences);
    HTTPClient::sharedInstance().getStreamedKeepingBody(
        url, headers, reader,
        [done, reader](const HTTPResponse& response, std::string body) {
            ZoneFileAnswer answer;
            answer.downloaded = true;
            answer.status = response.statusCode;
            answer.lastModified = response.value("Last-Modified").value_or("");
            answer.fences = reader->takeFences();
            answer.body = std::move(body);
            done(answer);
        },
        [done](const HTTPResponse& response, const HTTPError& error) {
            ZoneFileAnswer answer;
            answer.status = response.statusCode;
            answer.error = error;
            done(answer);
        });
}

} // namespace bvgeo
