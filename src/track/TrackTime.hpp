// Calendar arithmetic and time texts found in track files, all in UTC. Pure
// functions without locale or time-zone lookups, so they are safe on any thread and
// give the same answer on every machine.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace bvgeo {

// Days from 1970-01-01 to the given proleptic Gregorian date (negative before it).
std::int64_t daysFromCivil(int year, int month, int day);

// Whether day/month/year name a real date (30 February does not).
bool isValidDate(int year, int month, int day);

// "YYYY-MM-DD" as days since 1970-01-01.
std::optional<std::int64_t> parseIsoDate(std::string_view text);

// "YYYY-MM-DDThh:mm:ss[.fff][Z|+hh:mm|-hh:mm|+hhmm|+hh]" as seconds since 1970.
// A space may stand for the T; without a zone the time is taken as UTC.
std::optional<double> parseIsoDateTime(std::string_view text);

// NMEA "hhmmss[.ss]" as seconds into the day.
std::optional<double> parseTimeOfDay(std::string_view text);

} // namespace bvgeo
