// Symbol visibility for the public API. The library builds with hidden visibility;
// what a host may use is marked BVGEO_API.
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define BVGEO_API __attribute__((visibility("default")))
#else
#define BVGEO_API
#endif
