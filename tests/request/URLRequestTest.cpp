#include "request/HTTPMethod.hpp"
#include "request/URLRequest.hpp"

#include <gtest/gtest.h>

namespace bvgeo {
namespace {

TEST(URLRequestTest, AddingToAnExistingFieldJoinsTheValuesWhateverTheCase) {
    URLRequest request("http://127.0.0.1/", HTTPMethod::POST);
    request.add("Content-Type", "application/json");
    request.add("Accept", "application/json");
    request.add("content-type", "text/plain");
    request.add("X-Empty", "");
    EXPECT_EQ(request.headers, (HeaderFields{{"Content-Type", "application/json, text/plain"},
                                             {"Accept", "application/json"},
                                             {"X-Empty", ""}}));
    EXPECT_EQ(request.value("CONTENT-TYPE"), "application/json, text/plain");
    EXPECT_EQ(request.value("Missing"), std::nullopt);

    URLRequest same = request;
    EXPECT_EQ(same, request);
    same.body = "";
    EXPECT_NE(same, request); // an empty body is still a body
    same = request;
    same.method = HTTPMethod::PUT;
    EXPECT_NE(same, request);
}

TEST(URLRequestTest, MethodTextsAreExact) {
    for (auto method : {HTTPMethod::GET, HTTPMethod::POST, HTTPMethod::PUT, HTTPMethod::DELETE})
        EXPECT_EQ(httpMethodFromRaw(rawValue(method)), method);
    EXPECT_EQ(rawValue(HTTPMethod::DELETE), "DELETE");
    EXPECT_EQ(httpMethodFromRaw("get"), std::nullopt);
    EXPECT_EQ(httpMethodFromRaw("PATCH"), std::nullopt);
}

} // namespace
} // namespace bvgeo
