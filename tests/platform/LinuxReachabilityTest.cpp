#include "platform/SharedInstance.hpp"

#include "support/LibraryTest.hpp"
#include "support/FaultyServer.hpp"
#include "support/LoopbackServer.hpp"

#include "platform/linux/LinuxReachability.hpp"
#include <bvgeo/testing/TestPlatform.hpp>

#include <gtest/gtest.h>

#include <fstream>

namespace bvgeo::testing {
namespace {

const std::string kIPv4Header =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

std::string ipv4Route(const std::string& iface, const std::string& destination, const std::string& mask,
                      int metric = 0) {
    return iface + "\t" + destination + "\t0101A8C0\t0003\t0\t0\t" + std::to_string(metric) + "\t" + mask +
           "\t0\t0\t0                                                                               \n";
}

std::string ipv6Route(const std::string& iface, const std::string& destination, const std::string& prefix,
                      const std::string& metric = "00000400") {
    return destination + " " + prefix + " 00000000000000000000000000000000 00 fe800000000000000000000000000001 " +
           metric + " 00000001 00000000 00000003     " + iface + "\n";
}

const std::string kZero6 = "00000000000000000000000000000000";
// The kernel's "unreachable" default on loopback, present on every machine.
const std::string kLoopback6 = ipv6Route("lo", kZero6, "00", "ffffffff");

TEST(RouteTableTest, DefaultRouteAndItsInterfaceDecideTheType) {
    struct Case {
        const char* name;
        std::string ipv4;
        std::string ipv6;
        BVReachabilityType expected;
    };
    const std::vector<Case> cases = {
        {"ethernet default", kIPv4Header + ipv4Route("eth0", "00000000", "00000000") +
                                 ipv4Route("eth0", "0001A8C0", "00FFFFFF"),
         kLoopback6, BVReachabilityType::WiFi},
        {"wireless default", kIPv4Header + ipv4Route("wlan0", "00000000", "00000000"), "", BVReachabilityType::WiFi},
        {"modem", kIPv4Header + ipv4Route("wwan0", "00000000", "00000000"), "", BVReachabilityType::WWAN},
        {"usb modem", kIPv4Header + ipv4Route("wwp0s20f0u6", "00000000", "00000000"), "", BVReachabilityType::WWAN},
        {"baseband", kIPv4Header + ipv4Route("rmnet_data0", "00000000", "00000000"), "", BVReachabilityType::WWAN},
        {"dial-up", kIPv4Header + ipv4Route("ppp0", "00000000", "00000000"), "", BVReachabilityType::WWAN},
        {"subnet only", kIPv4Header + ipv4Route("eth0", "0001A8C0", "00FFFFFF"), kLoopback6,
         BVReachabilityType::NotConnected},
        {"half default (VPN split)", kIPv4Header + ipv4Route("tun0", "00000000", "00000080"), "",
         BVReachabilityType::NotConnected},
        {"nothing readable", "", "", BVReachabilityType::NotConnected},
        {"header only", kIPv4Header, "", BVReachabilityType::NotConnected},
        {"IPv6 only", kIPv4Header, kLoopback6 + ipv6Route("wlan0", kZero6, "00"), BVReachabilityType::WiFi},
        {"IPv6 modem", "", ipv6Route("wwan0", kZero6, "00"), BVReachabilityType::WWAN},
        {"IPv6 prefix is no default", "", ipv6Route("eth0", "fd000000000000000000000000000000", "40"),
         BVReachabilityType::NotConnected},
        {"lowest metric wins", kIPv4Header + ipv4Route("wwan0", "00000000", "00000000", 700) +
                                   ipv4Route("wlan0", "00000000", "00000000", 600),
         "", BVReachabilityType::WiFi},
        {"lowest metric wins, modem", kIPv4Header + ipv4Route("wlan0", "00000000", "00000000", 600) +
                                          ipv4Route("wwan0", "00000000", "00000000", 100),
         "", BVReachabilityType::WWAN},
        {"IPv4 before IPv6", kIPv4Header + ipv4Route("wlan0", "00000000", "00000000"),
         ipv6Route("wwan0", kZero6, "00"), BVReachabilityType::WiFi},
    };
    for (const auto& c : cases)
        EXPECT_EQ(LinuxReachability::typeFromFlags(routeFlags(c.ipv4, c.ipv6)), c.expected) << c.name;

    EXPECT_EQ(rawValue(BVReachabilityType::WWAN), "WWAN");
    EXPECT_EQ(rawValue(BVReachabilityType::WiFi), "WiFi");
    EXPECT_EQ(rawValue(BVReachabilityType::NotConnected), "NotConnected");
}

class LinuxReachabilityTest : public ::testing::Test {
protected:
    std::string write(const std::string& name, const std::string& text) {
        auto path = scratch.documentsDirectory() + "/" + name;
        std::ofstream(path) << text;
        return path;
    }

    TestPlatform scratch; // for its temporary directory
};

TEST_F(LinuxReachabilityTest, ConnectionTypeIsReadFromTheRouteFiles) {
    auto ipv4 = write("route", kIPv4Header + ipv4Route("wwan0", "00000000", "00000000"));
    auto ipv6 = write("ipv6_route", kLoopback6);
    EXPECT_EQ(LinuxReachability({.ipv4RouteFile = ipv4, .ipv6RouteFile = ipv6}).isConnectedToNetworkOfType(),
              BVReachabilityType::WWAN);
    EXPECT_EQ(LinuxReachability({.ipv4RouteFile = scratch.documentsDirectory() + "/missing", .ipv6RouteFile = ipv6})
                  .isConnectedToNetworkOfType(),
              BVReachabilityType::NotConnected);
}

TEST_F(LinuxReachabilityTest, TheRouteFilesAreReadAtMostOncePerSecond) {
    auto now = std::chrono::steady_clock::time_point{} + std::chrono::hours(1);
    auto ipv4 = write("route", kIPv4Header + ipv4Route("wlan0", "00000000", "00000000"));
    auto ipv6 = write("ipv6_route", kLoopback6);
    LinuxReachability reachability({.ipv4RouteFile = ipv4, .ipv6RouteFile = ipv6, .steadyNow = [&] { return now; }});
    EXPECT_EQ(reachability.isConnectedToNetworkOfType(), BVReachabilityType::WiFi);

    write("route", kIPv4Header + ipv4Route("wwan0", "00000000", "00000000"));
    now += std::chrono::milliseconds(999);
    EXPECT_EQ(reachability.isConnectedToNetworkOfType(), BVReachabilityType::WiFi);
    now += std::chrono::milliseconds(1);
    EXPECT_EQ(reachability.isConnectedToNetworkOfType(), BVReachabilityType::WWAN);
}

TEST_F(LinuxReachabilityTest, ProbeCountsOnlyADirect200) {
    EXPECT_EQ(LinuxReachability().options().probeURL, "https://www.debian.org/");
    LoopbackServer server([](const httplib::Request& request, httplib::Response& response) {
        if (request.path == "/ok") response.status = 200;
        if (request.path == "/nocontent") response.status = 204;
        if (request.path == "/moved") response.set_redirect("/ok", 301);
    });
    auto probe = [](const std::string& url) { return LinuxReachability({.probeURL = url}).isConnectedToNetwork(); };
    EXPECT_TRUE(probe(server.url("/ok")));
    EXPECT_FALSE(probe(server.url("/nocontent")));
    EXPECT_FALSE(probe(server.url("/moved")));

    auto seen = server.requests();
    ASSERT_EQ(seen.size(), 3u); // the redirect was not followed
    EXPECT_EQ(seen[0].method, "HEAD");
    EXPECT_EQ(seen[0].header("Cache-Control"), "no-cache");

    FaultyServer refusing(FaultyServer::Mode::Refuse);
    EXPECT_FALSE(probe(refusing.url("/")));
    EXPECT_FALSE(probe("ftp://127.0.0.1/")) << "only http and https are probed";
}

} // namespace
} // namespace bvgeo::testing
