#include "support/LibraryTest.hpp"
#include "support/LoopbackServer.hpp"

#include "models/Fence.hpp"
#include "request/CompactJsonText.hpp"
#include "request/HTTPClient.hpp"
#include "zone/ZoneFileReader.hpp"

#include <nlohmann/json.hpp>

#include <future>
#include <random>

namespace bvgeo::testing {
namespace {

using nlohmann::json;

std::string describe(const Fence& f) {
    std::string text = f.id + "|" + f.name + "|" + json(f.latitude).dump() + "|" + json(f.longitude).dump() + "|" +
                       json(f.radius).dump() + "|" + (f.current_zone ? "1" : "0");
    for (const auto& id : f.content_ids) text += "|" + id;
    return text;
}

// What the zone download made of a body before it was read as a stream: the whole
// document decoded, each "fences" element through fenceFromJson, and its dump.
struct Reading {
    bool decoded = false;
    std::vector<std::string> fences;
    std::string text;
};

Reading asDocument(const std::string& body) {
    Reading out;
    json document = json::parse(body, nullptr, false);
    if (document.is_discarded() || !document.is_object()) return out;
    out.decoded = true;
    if (auto list = document.find("fences"); list != document.end() && list->is_array())
        for (const auto& element : *list)
            if (auto fence = Fence::fenceFromJson(element)) out.fences.push_back(describe(*fence));
    out.text = document.dump(-1, ' ', false, json::error_handler_t::replace);
    return out;
}

Reading asStream(const std::string& body) {
    ZoneFileReader reader;
    CompactJsonText text;
    Reading out;
    const bool parsedByReader = json::sax_parse(body, &reader);
    const bool parsedForText = json::sax_parse(body, &text);
    EXPECT_EQ(parsedByReader, parsedForText);
    if (!parsedByReader || body.find_first_not_of(" \t\r\n") == std::string::npos ||
        body[body.find_first_not_of(" \t\r\n")] != '{')
        return out;
    out.decoded = true;
    for (const auto& fence : reader.takeFences()) out.fences.push_back(describe(*fence));
    out.text = text.take();
    return out;
}

// JSON text with duplicate keys, wrong types and odd shapes where a zone file has its fields.
class BodyMaker {
public:
    explicit BodyMaker(unsigned seed) : random_(seed) {}

    std::string body() {
        std::string text = "{";
        const int members = pick(4);
        for (int i = 0; i < members; ++i) {
            if (i) text += ",";
            text += pick(3) == 0 ? "\"other\":" + anyValue(2) : "\"fences\":" + (pick(6) == 0 ? anyValue(1) : fences());
        }
        return text + "}";
    }

private:
    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random_); }

    std::string fences() {
        std::string text = "[";
        const int count = pick(5);
        for (int i = 0; i < count; ++i) text += (i ? "," : "") + (pick(8) == 0 ? anyValue(1) : fence());
        return text + "]";
    }

    std::string fence() {
        static const char* keys[] = {"_id", "name", "location", "radius", "content_ids", "extra", "Name"};
        std::string text = "{";
        const int members = pick(9);
        for (int i = 0; i < members; ++i) {
            const std::string key = keys[pick(7)];
            text += (i ? "," : "") + json(key).dump() + ":";
            if (key == "location" && pick(4) != 0) text += location();
            else if (key == "content_ids" && pick(2) == 0) text += "[\"a\",1,\"b, c\",[\"d\"],\"\"]";
            else text += anyValue(2);
        }
        return text + "}";
    }

    std::string location() {
        std::string text = "{";
        const int members = pick(4);
        for (int i = 0; i < members; ++i) {
            text += i ? "," : "";
            switch (pick(4)) {
            case 0: text += R"("type":)" + std::string(pick(2) ? R"("Point")" : R"("Polygon")"); break;
            case 1: text += R"("type":)" + anyValue(1); break;
            case 2: text += R"("coordinates":)" + coordinates(); break;
            default: text += R"("coordinates":)" + anyValue(1); break;
            }
        }
        return text + "}";
    }

    std::string coordinates() {
        std::string text = "[";
        const int count = pick(4);
        for (int i = 0; i < count; ++i) text += (i ? "," : "") + (pick(5) == 0 ? anyValue(1) : number());
        return text + "]";
    }

    std::string number() {
        switch (pick(5)) {
        case 0: return std::to_string(pick(200) - 100);
        case 1: return "18446744073709551615";
        case 2: return "-0.0";
        case 3: return "1e2";
        default: return json(std::uniform_real_distribution<double>(-180, 180)(random_)).dump();
        }
    }

    std::string anyValue(int depth) {
        switch (pick(depth > 0 ? 9 : 6)) {
        case 0: return "null";
        case 1: return pick(2) ? "true" : "false";
        case 2: return number();
        case 3: return R"("p\u00e9 \"q\"\n\t\u0001/")";
        case 4: return R"("Point")";
        case 5: return "\"\"";
        case 6: return "[" + anyValue(depth - 1) + "," + anyValue(depth - 1) + "]";
        case 7: return "{\"b\":" + anyValue(depth - 1) + ",\"a\":" + anyValue(depth - 1) + ",\"b\":1}";
        default: return "[]";
        }
    }

    std::mt19937 random_;
};

TEST(ZoneFileReader, KeepsExactlyTheFencesAndTextOfTheDecodedDocument) {
    const std::string bodies[] = {
        R"({"fences":[{"_id":"f1","name":"Shop","radius":100,"location":{"type":"Point","coordinates":[-46.6,-23.5]},
            "content_ids":["a",7,"b"]},{"_id":"f2","location":{"coordinates":[1,2]},"radius":"100"}]})",
        R"({"fences":[{"_id":"x","location":{"type":"Polygon","coordinates":[1,2]}},{"location":{"coordinates":[1]}},
            {"location":{"coordinates":["1","2"]}},[1,2],"f",{"_id":"kept"}]})",
        R"({"fences":[{"_id":"a"}],"fences":{"_id":"b"}})",
        R"({"fences":[{"_id":"a"}],"fences":[{"_id":"b","_id":7,"name":"n","location":{"type":"Polygon"},
            "location":5,"radius":3,"radius":null}]})",
        R"({"other":{"fences":[{"_id":"deep"}]}})",
        R"({})",
        R"({"fences":[]} )",
        R"({"fences":[{"_id":"a"},)",
        R"([{"fences":[]}])",
        "not json",
        "",
    };
    for (const auto& body : bodies) {
        const Reading expected = asDocument(body), streamed = asStream(body);
        EXPECT_EQ(streamed.decoded, expected.decoded) << body;
        EXPECT_EQ(streamed.fences, expected.fences) << body;
        EXPECT_EQ(streamed.text, expected.text) << body;
    }
    EXPECT_EQ(asStream(bodies[0]).fences.size(), 2u);
    EXPECT_EQ(asStream(bodies[1]).fences.size(), 1u);

    BodyMaker maker(14);
    for (int i = 0; i < 3000; ++i) {
        const std::string body = maker.body();
        const Reading expected = asDocument(body), streamed = asStream(body);
        ASSERT_TRUE(expected.decoded) << body;
        ASSERT_EQ(streamed.fences, expected.fences) << body;
        ASSERT_EQ(streamed.text, expected.text) << body;
    }
}

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
