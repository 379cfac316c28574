// ForwardingFileSystem lives with the wrappers of the other facilities in
// ForwardingPlatform.hpp; this header keeps the older include working.
#pragma once

#include <bvgeo/platform/testing/ForwardingPlatform.hpp>
