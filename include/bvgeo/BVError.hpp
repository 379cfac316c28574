// BVError: an error handed to the host (domain "morlane.bvg", a BVErrorCodes code).
#pragma once

#include <bvgeo/Export.hpp>

#include <string>
#include <string_view>

namespace bvgeo {

inline constexpr std::string_view kBVErrorDomain = "morlane.bvg";

struct BVGEO_API BVError {
    std::string domain;
    int code = 0;
    std::string localizedDescription;
};

} // namespace bvgeo
