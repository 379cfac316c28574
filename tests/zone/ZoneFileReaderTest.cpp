// The zone download read as a stream: it fails and succeeds as the document
// reading did, and a large zone arrives whole. (The streamed reader's fences and
// printed text against the document's, body by body, are the zone_file_differential
// fuzz target's; its corpus runs as a test.)
#include "support/LibraryTest.hpp"
#include "support/LoopbackServer.hpp"

#include "models/Fence.hpp"
#include "request/HTTPClient.hpp"
#include "zone/ZoneFileReader.hpp"

#include <nlohmann/json.hpp>

#include <future>

namespace bvgeo::testing {
namespace {

using nlohmann::json;

class ZoneFileDownloadTest : public LibraryTest {
protected:
    struct Outcome {
        bool succeeded = false;
        std::vector<std::shared_ptr<Fence>> fences;
        HTTPError error;
    };

    // Streamed through a ZoneFileReader, or (streamed = false) what get() gives for
    // the same body: the streamed read must choose alike.
    Outcome fetch(const std::string& body, bool streamed = true) {
        server.setHandler([body](const httplib::Request&, httplib::Response& response) {
            response.set_content(body, "application/json");
        });
        auto reader = std::make_shared<ZoneFileReader>();
        std::promise<Outcome> promise;
        auto failed = [&](const HTTPResponse&, const HTTPError& error) { promise.set_value({false, {}, error}); };
        if (streamed)
            HTTPClient::sharedInstance().getStreamed(
                server.url("/zone.json"), std::nullopt, reader,
                [&](const HTTPResponse&) { promise.set_value({true, reader->takeFences(), {}}); }, failed);
        else
            HTTPClient::sharedInstance().get(
                server.url("/zone.json"), std::nullopt,
                [&](const json&, const HTTPResponse&) { promise.set_value({true, {}, {}}); }, failed);
        auto future = promise.get_future();
        // A deadline, not a stopwatch: a sanitizer build parses 100,000 fences slowly.
        if (future.wait_for(std::chrono::seconds(240)) != std::future_status::ready) {
            ADD_FAILURE() << "no callback";
            HTTPClient::sharedInstance().waitUntilIdle(60); // the callbacks hold references to this frame
            return {};
        }
        EXPECT_TRUE(HTTPClient::sharedInstance().waitUntilIdle(5));
        return future.get();
    }

    LoopbackServer server;
};

TEST_F(ZoneFileDownloadTest, BadBodiesFailAsTheyDidAndLargeOnesArriveWhole) {
    const std::string good = R"({"fences":[{"_id":"f1","name":"O'Brien's","location":{"coordinates":[0.7,51.3]},
                                 "radius":50},{"_id":"f2","location":{"type":"Polygon"}}],"v":2})";
    for (const std::string& body : {good, std::string(R"({"fences":[{"_id":"f1")"), std::string("<html>"),
                                    std::string("[1,2]"), std::string(R"({"zones":[]})"), std::string()}) {
        sim().console->clear();
        const auto streamed = fetch(body);
        const auto lines = sim().console->logLines();
        const auto printed = sim().console->printedLines();
        sim().console->clear();
        const auto document = fetch(body, false);
        EXPECT_EQ(streamed.succeeded, document.succeeded) << body;
        EXPECT_EQ(streamed.error, document.error) << body;
        EXPECT_EQ(lines, sim().console->logLines()) << body;
        EXPECT_EQ(printed, sim().console->printedLines()) << body;
    }
    const auto fences = fetch(good).fences;
    ASSERT_EQ(fences.size(), 1u);
    EXPECT_EQ(fences[0]->name, "O'Brien's");
    EXPECT_EQ(fences[0]->latitude, 51.3);
    EXPECT_TRUE(fetch(R"({"zones":[]})").succeeded) << "no fences is an empty zone, not a failure";

    std::string large = R"({"fences":[)";
    for (int i = 0; i < 100'000; ++i) {
        if (i) large += ',';
        large += R"({"_id":"p)" + std::to_string(i) + R"(","name":"Place )" + std::to_string(i) +
                 R"( on High Street","location":{"type":"Point","coordinates":[0.7,51.3]},"radius":)" +
                 std::to_string(20 + i % 180) + R"(,"content_ids":[]})";
        if (i % 1000 == 999) large += R"(,{"_id":"bad","location":{"type":"LineString"}})";
    }
    large += "]}";
    const auto many = fetch(large);
    ASSERT_TRUE(many.succeeded);
    ASSERT_EQ(many.fences.size(), 100'000u) << "every fence of the wrong shape skipped, no other";
    EXPECT_EQ(many.fences.back()->id, "p99999");
    EXPECT_EQ(many.fences.back()->radius, 20 + 99'999 % 180);
    EXPECT_EQ(many.fences[4321]->name, "Place 4321 on High Street");
}

} // namespace
} // namespace bvgeo::testing
