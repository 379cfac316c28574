#include "server/ReferenceServerFixture.hpp"

#include <gmock/gmock.h>

#include <deque>

namespace bvgeo::testing {
namespace {

using ::testing::HasSubstr;
using nlohmann::json;

using ReferenceServerTest = ReferenceServerFixture;

json bodyOf(const ServerResponse& response) { return json::parse(response.body, nullptr, false); }

TEST_F(ReferenceServerTest, ZoneFileCarriesItsModificationTimeAndRevalidatesAgainstIt) {
    writeZone("demo/zones/zone_52.5_13.4.json", kZoneBody, kZoneTime);
    ReferenceServer server(options());

    auto full = server.handle(get("/demo/zones/zone_52.5_13.4.json"));
    EXPECT_EQ(full.status, 200);
    EXPECT_EQ(full.contentType, "application/json");
    EXPECT_EQ(full.body, kZoneBody);
    EXPECT_EQ(full.header("last-modified"), kZoneTimeText);

    // The library sends back exactly the text it stored; a later date also means
    // "nothing new since"; an earlier or unreadable one gets the whole file.
    for (const char* since : {kZoneTimeText, "Mon, 07 Nov 1994 00:00:00 GMT"}) {
        auto unchanged = server.handle(get("/demo/zones/zone_52.5_13.4.json", {{"If-Modified-Since", since}}));
        EXPECT_EQ(unchanged.status, 304) << since;
        EXPECT_EQ(unchanged.body, "") << since;
    }
    for (const char* since : {"Sun, 06 Nov 1994 08:49:36 GMT", "Mon, 06 Nov 1994 08:49:37 GMT", "yesterday"}) {
        auto changed = server.handle(get("/demo/zones/zone_52.5_13.4.json", {{"If-Modified-Since", since}}));
        EXPECT_EQ(changed.status, 200) << since;
        EXPECT_EQ(changed.body, kZoneBody) << since;
    }

    writeZone("demo/zones/zone_52.5_13.4.json", R"({"fences":[]})", kZoneTime + 86400);
    auto replaced = server.handle(get("/demo/zones/zone_52.5_13.4.json", {{"If-Modified-Since", kZoneTimeText}}));
    EXPECT_EQ(replaced.status, 200);
    EXPECT_EQ(replaced.body, R"({"fences":[]})");
    EXPECT_EQ(replaced.header("Last-Modified"), "Mon, 07 Nov 1994 08:49:37 GMT");
}

TEST_F(ReferenceServerTest, KeysOutsideTheZoneFilesAreDeniedLikeAnObjectStore) {
    writeZone("secret.json", R"({"fences":[]})", kZoneTime);
    writeZone("demo/zones/.hidden.json", R"({"fences":[]})", kZoneTime);
    std::filesystem::create_directories(root_ / "demo/zones/folder");
    ReferenceServer server(options());

    for (const char* path : {"/demo/zones/zone_1_2.json", "/demo/zones/../../secret.json", "/demo/zones/..",
                             "/../root/secret.json", "/demo/zones/.hidden.json", "/demo/zones/zone 1.json",
                             "/demo/zones/%2e%2e", "/demo/zones/folder", "/demo/zones/zone_1_2.json/"}) {
        auto denied = server.handle(get(path));
        EXPECT_EQ(denied.status, 403) << path;
        EXPECT_EQ(denied.contentType, "application/xml") << path;
        EXPECT_THAT(denied.body, HasSubstr("<Code>AccessDenied</Code>")) << path;
        EXPECT_TRUE(bodyOf(denied).is_discarded()) << path; // the library must not take it for fences
    }

    for (auto request : {get("/demo/other"), get("/"), get("/api/v1/app/demo/trigger"),
                         ServerRequest{"DELETE", "/api/v1/app/demo/triggers", "", {}, ""},
                         ServerRequest{"PUT", "/demo/zones/zone_1_2.json", "", {}, "{}"}}) {
        auto missing = server.handle(request);
        EXPECT_EQ(missing.status, 404) << request.method << " " << request.path;
        EXPECT_TRUE(bodyOf(missing)["error"].is_string()) << request.method << " " << request.path;
    }
}

TEST_F(ReferenceServerTest, MalformedTriggersAnswer400SayingWhatIsWrongAndStoreNothing) {
    ReferenceServer server(options());
    auto with = [](const char* member, json value) {
        auto body = trigger();
        body[member] = std::move(value);
        return body.dump();
    };
    auto without = [](const char* member) {
        auto body = trigger();
        body.erase(member);
        return body.dump();
    };
    struct Case {
        ServerRequest request;
        std::string complaint;
    };
    std::vector<Case> cases = {
        {post("demo", "deviceId=1&event=enter"), "not JSON"},
        {post("demo", ""), "not JSON"},
        {post("demo", R"([{"deviceId":"x"}])"), "must be a JSON object"},
        {post("demo", without("fenceId")), R"(missing member "fenceId")"},
        {post("demo", without("timestamp")), R"(missing member "timestamp")"},
        {post("demo", with("extra", 1)), R"(unexpected member "extra")"},
        {post("demo", with("timestamp", "1600000000")), R"("timestamp" must be an integer)"},
        {post("demo", with("timestamp", 1600000000.5)), R"("timestamp" must be an integer)"},
        {post("demo", with("timestamp", 18446744073709551615ULL)), R"("timestamp" is out of range)"},
        {post("demo", with("fenceId", 7)), R"("fenceId" must be a string)"},
        {post("demo", with("deviceId", nullptr)), R"("deviceId" must be a string)"},
        {post("demo", with("event", "leave")), "one of enter, linger, exit"},
        {post("demo", with("event", "ENTER")), "one of enter, linger, exit"},
        {post("demo", with("deviceId", "0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d")), "UUID"},
        {post("demo", with("fenceId", "")), R"("fenceId" is empty)"},
        {post("demo", trigger().dump(), ""), "sdk_ver"},
        {post("demo", trigger().dump(), "sdk=1.3.0"), "sdk_ver"},
        {{"POST", "/api/v1/app/demo/trigger", "sdk_ver=1.3.0", {{"Content-Type", "text/plain"}}, trigger().dump()},
         "Content-Type"},
    };
    for (const auto& [request, complaint] : cases) {
        auto answer = server.handle(request);
        EXPECT_EQ(answer.status, 400) << request.body;
        EXPECT_EQ(answer.contentType, "application/json") << request.body;
        auto error = bodyOf(answer)["error"];
        ASSERT_TRUE(error.is_string()) << answer.body;
        EXPECT_THAT(error.get<std::string>(), HasSubstr(complaint)) << request.body;
    }

    // Several faults at once are all named.
    auto body = trigger();
    body.erase("event");
    body["more"] = true;
    auto answer = server.handle(post("demo", body.dump()));
    EXPECT_THAT(answer.body, HasSubstr("missing member \\\"event\\\""));
    EXPECT_THAT(answer.body, HasSubstr("unexpected member \\\"more\\\""));

    EXPECT_EQ(bodyOf(server.handle(get("/api/v1/app/demo/triggers"))), json::parse(R"({"triggers":[]})"));
}

TEST_F(ReferenceServerTest, AcceptedTriggersAreListedPerAppInArrivalOrderAndOutliveTheServer) {
    const std::string awkward = R"(O'Brien's "shop"; DROP TABLE triggers;--)";
    {
        ReferenceServer server(options());
        ASSERT_TRUE(server.ready()) << server.error();
        std::vector<std::int64_t> ids;
        using Post = std::tuple<std::string, std::string, std::string>;
        for (auto [app, event, fence] : {Post{"demo", "enter", awkward}, Post{"other", "enter", "f9"},
                                         Post{"demo", "exit", "f1"}}) {
            auto answer = server.handle(post(app, trigger(event, fence).dump(), "sdk_ver=1.3.0&x=1"));
            ASSERT_EQ(answer.status, 200) << answer.body;
            auto body = bodyOf(answer);
            EXPECT_EQ(body["status"], "ok");
            ids.push_back(body["id"].get<std::int64_t>());
        }
        EXPECT_LT(ids[0], ids[1]);
        EXPECT_LT(ids[1], ids[2]);
    }

    ReferenceServer reopened(options());
    auto listing = reopened.handle(get("/api/v1/app/demo/triggers"));
    EXPECT_EQ(listing.status, 200);
    EXPECT_EQ(listing.contentType, "application/json");
    auto expected = json::parse(R"({"triggers":[
        {"deviceId":"0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D","event":"enter","timestamp":1600000000,
         "sdkVersion":"1.3.0","receivedAt":1700000000},
        {"deviceId":"0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D","event":"exit","timestamp":1600000000,"fenceId":"f1",
         "sdkVersion":"1.3.0","receivedAt":1700000000}]})");
    expected["triggers"][0]["fenceId"] = awkward;
    EXPECT_EQ(bodyOf(listing), expected);
    EXPECT_EQ(bodyOf(reopened.handle(get("/api/v1/app/nobody/triggers")))["triggers"], json::array());
}

TEST_F(ReferenceServerTest, AReportIsStoredOncePerIdempotencyKeyAndRepeatsAreCounted) {
    ReferenceServer server(options());
    auto keyed = [](const std::string& app, const std::string& key, const std::string& event) {
        auto request = post(app, trigger(event).dump());
        request.headers.emplace_back("Idempotency-Key", key);
        return request;
    };
    auto first = server.handle(keyed("demo", "K1", "enter"));
    ASSERT_EQ(first.status, 200) << first.body;
    EXPECT_EQ(bodyOf(first)["status"], "ok");
    for (int i = 0; i < 3; ++i) {
        auto again = server.handle(keyed("demo", "K1", "enter"));
        EXPECT_EQ(again.status, 200);
        EXPECT_EQ(again.body, R"({"ok":true,"duplicate":true})");
    }
    // Keys belong to one app; reports without a key are each stored.
    EXPECT_EQ(bodyOf(server.handle(keyed("other", "K1", "enter")))["status"], "ok");
    EXPECT_EQ(bodyOf(server.handle(keyed("demo", "K2", "exit")))["status"], "ok");
    server.handle(post("demo", trigger("linger").dump()));
    server.handle(post("demo", trigger("linger").dump()));

    auto listed = bodyOf(server.handle(get("/api/v1/app/demo/triggers")))["triggers"];
    ASSERT_EQ(listed.size(), 4u);
    EXPECT_EQ(listed[0]["idempotencyKey"], "K1");
    EXPECT_EQ(listed[0]["duplicates"], 3);
    EXPECT_EQ(listed[1]["idempotencyKey"], "K2");
    EXPECT_EQ(listed[1]["duplicates"], 0);
    EXPECT_FALSE(listed[2].contains("idempotencyKey"));
    EXPECT_EQ(bodyOf(server.handle(get("/api/v1/app/other/triggers")))["triggers"].size(), 1u);
}

TEST_F(ReferenceServerTest, FailRateAnswersThatShareOfLibraryRequests503WithAnEmptyBody) {
    writeZone("demo/zones/zone_1_2.json", kZoneBody, kZoneTime);

    auto always = options();
    always.failRate = 1.0;
    ReferenceServer failing(always);
    for (auto request : {get("/demo/zones/zone_1_2.json"), post("demo", trigger().dump())}) {
        auto answer = failing.handle(request);
        EXPECT_EQ(answer.status, 503) << request.path;
        EXPECT_EQ(answer.body, "") << request.path;
    }
    // The listing is how results are checked, so it never fails; nothing was stored.
    EXPECT_EQ(bodyOf(failing.handle(get("/api/v1/app/demo/triggers")))["triggers"], json::array());

    // Draws below the rate fail, draws at or above it pass.
    auto half = options();
    half.failRate = 0.5;
    auto draws = std::make_shared<std::deque<double>>(std::deque<double>{0.1, 0.5, 0.49, 0.9});
    half.random = [draws] {
        double next = draws->front();
        draws->pop_front();
        return next;
    };
    ReferenceServer sometimes(half);
    std::vector<int> statuses;
    for (int i = 0; i < 4; ++i) {
        auto request = i % 2 ? post("demo", trigger().dump()) : get("/demo/zones/zone_1_2.json");
        statuses.push_back(sometimes.handle(request).status);
    }
    EXPECT_EQ(statuses, (std::vector<int>{503, 200, 503, 200}));

    auto never = options();
    never.failRate = 0.0;
    never.random = [] { return 0.0; };
    ReferenceServer healthy(never);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(healthy.handle(get("/demo/zones/zone_1_2.json")).status, 200);
}

} // namespace
} // namespace bvgeo::testing
