// Reads GPX 1.0 and 1.1 with expat, streaming, so line numbers come for free and
// memory stays flat however long the track. A point's quality comes along where
// the file has it: <hdop> (else <pdop>), <fix> (points saying "none" are skipped),
// <sat>, <speed>, and an accuracy in metres from extensions (<accuracy>, <hacc>). Track points are what a replay wants;
// route points and waypoints are read only when the file has no track point at
// all, and then only those with a time. Any XML error fails the whole read: a
// truncated file must not play as a shorter track. Runs on the caller's thread.
#pragma once

#include "track/TrackFixCollector.hpp"

#include <string_view>

namespace bvgeo {

void readGpx(std::string_view content, TrackFixCollector& fixes);

} // namespace bvgeo
