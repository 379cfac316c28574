#include "tracker/Environments.hpp"

namespace bvgeo {

EnvironmentURLs defaultEnvironmentURLs(BVEnvironment environment) {
    switch (environment) {
    case BVEnvironment::PRODUCTION:
        return {"https://api.bvgeo.example/api/v1/app/", "https://assets.bvgeo.example/"};
    case BVEnvironment::STAGING:
        return {"https://api.staging.bvgeo.example/api/v1/app/", "https://assets.staging.bvgeo.example/"};
    case BVEnvironment::QA:
        return {"https://api.qa.bvgeo.example/api/v1/app/", "https://assets.qa.bvgeo.example/"};
    case BVEnvironment::DEVELOPMENT:
        return {"https://api.dev.bvgeo.example/api/v1/app/", "https://assets.dev.bvgeo.example/"};
    }
    return {};
}

} // namespace bvgeo
