// UUID source: random (version 4) identifiers in canonical upper-case text,
// 36 characters, 8-4-4-4-12 hexadecimal groups. Thread-safe.
#pragma once

#include <bvgeo/Export.hpp>

#include <string>

namespace bvgeo {

class BVGEO_API UuidGenerator {
public:
    virtual ~UuidGenerator() = default;
    virtual std::string newUuid() = 0;
};

} // namespace bvgeo
