#include "track/NmeaReader.hpp"

#include "track/LineCursor.hpp"
#include "track/TrackText.hpp"
#include "track/TrackTime.hpp"

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace bvgeo {
namespace {

constexpr double kSecondsPerDay = 86400.0;
constexpr double kHalfDay = 43200.0;
constexpr double kMetresPerSecondPerKnot = 1852.0 / 3600.0;

std::optional<int> hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return std::nullopt;
}

// `body` is the text between '$' and '*'; `sum` the two characters after '*'.
bool checksumMatches(std::string_view body, std::string_view sum) {
    if (sum.size() != 2) return false;
    const auto high = hexDigit(sum[0]), low = hexDigit(sum[1]);
    if (!high || !low) return false;
    unsigned char xorOfBody = 0;
    for (const char c : body) xorOfBody ^= static_cast<unsigned char>(c);
    return xorOfBody == (*high << 4 | *low);
}

// "ddmm.mmmm" / "dddmm.mmmm" with its hemisphere letter, as signed degrees.
std::optional<double> parseCoordinate(std::string_view value, std::string_view hemisphere, char positive,
                                      char negative) {
    const auto number = parseDecimal(value);
    if (!number || *number < 0.0 || hemisphere.size() != 1) return std::nullopt;
    if (hemisphere[0] != positive && hemisphere[0] != negative) return std::nullopt;
    const double degrees = std::floor(*number / 100.0);
    const double minutes = *number - degrees * 100.0;
    if (minutes >= 60.0) return std::nullopt;
    const double result = degrees + minutes / 60.0;
    return hemisphere[0] == negative ? -result : result;
}

// RMC "ddmmyy" as days since 1970. Two-digit years from 80 are the 1900s: GPS
// began in 1980, so no receiver wrote an earlier one.
std::optional<std::int64_t> parseRmcDate(std::string_view text) {
    if (text.size() != 6) return std::nullopt;
    for (const char c : text)
        if (c < '0' || c > '9') return std::nullopt;
    const int day = (text[0] - '0') * 10 + (text[1] - '0');
    const int month = (text[2] - '0') * 10 + (text[3] - '0');
    const int shortYear = (text[4] - '0') * 10 + (text[5] - '0');
    const int year = shortYear >= 80 ? 1900 + shortYear : 2000 + shortYear;
    if (!isValidDate(year, month, day)) return std::nullopt;
    return daysFromCivil(year, month, day);
}

// ZDA day, month and four-digit year fields. Empty fields, as receivers without
// a date send them, give no date.
std::optional<std::int64_t> parseZdaDate(std::string_view day, std::string_view month, std::string_view year) {
    const auto d = parseDecimal(day), m = parseDecimal(month), y = parseDecimal(year);
    if (!d || !m || !y || year.size() != 4) return std::nullopt;
    // Whole numbers in a calendar's range only: a field of many digits must not
    // reach the conversion to int, which it would overflow.
    auto whole = [](double value, int highest) -> std::optional<int> {
        if (!(value >= 0 && value <= highest) || value != static_cast<double>(static_cast<int>(value)))
            return std::nullopt;
        return static_cast<int>(value);
    };
    const auto di = whole(*d, 31), mi = whole(*m, 12), yi = whole(*y, 9999);
    if (!di || !mi || !yi || !isValidDate(*yi, *mi, *di)) return std::nullopt;
    return daysFromCivil(*yi, *mi, *di);
}

// A time field: absent when empty, invalid when present but unreadable.
struct TimeField {
    bool present = false;
    std::optional<double> secondsOfDay;
};

TimeField readTime(std::string_view text) {
    if (text.empty()) return {};
    return {true, parseTimeOfDay(text)};
}

class NmeaParse {
public:
    NmeaParse(TrackFixCollector& fixes, std::optional<std::int64_t> givenDay) : mFixes(fixes), mDay(givenDay) {}

    void sentence(std::string_view line, std::size_t lineNumber) {
        mLine = lineNumber;
        const auto star = line.find('*');
        const std::string_view body = line.substr(1, star == std::string_view::npos ? std::string_view::npos : star - 1);

        const auto comma = body.find(',');
        const std::string_view address = body.substr(0, comma);
        // Talker (two letters, any) and sentence type; proprietary sentences start with P.
        if (address.size() != 5 || address[0] == 'P' || comma == std::string_view::npos) return;
        const std::string_view type = address.substr(2);
        if (type != "RMC" && type != "GGA" && type != "GLL" && type != "ZDA" && type != "GSA" && type != "GST") return;

        if (star != std::string_view::npos && !checksumMatches(body, line.substr(star + 1))) {
            return mFixes.skip(TrackSkip::BadChecksum, mLine);
        }
        split(body);
        if (type == "RMC") rmc();
        else if (type == "GGA") gga();
        else if (type == "GLL") gll();
        else if (type == "GSA") gsa();
        else if (type == "GST") gst();
        else zda();
    }

    void finish() {
        if (!mWaiting.empty()) {
            mFixes.fail(0, "the log carries no date (no RMC or dated ZDA sentence); give the date of its first fix "
                           "with --date YYYY-MM-DD");
        }
    }

private:
    struct WaitingFix {
        double latitude, longitude, secondsOfDay;
        std::size_t line;
        TrackFixQuality quality;
    };

    std::string_view field(std::size_t index) const { return index < mFields.size() ? mFields[index] : ""; }

    void split(std::string_view body) {
        mFields.clear();
        std::size_t start = 0;
        while (true) {
            const auto comma = body.find(',', start);
            mFields.push_back(trim(body.substr(start, comma == std::string_view::npos ? comma : comma - start)));
            if (comma == std::string_view::npos) break;
            start = comma + 1;
        }
    }

    // $--RMC,time,status,lat,N/S,lon,E/W,speed,course,ddmmyy,variation,E/W[,mode]
    void rmc() {
        const TimeField time = readTime(field(1));
        const std::string_view dateText = field(9);
        if (!dateText.empty()) {
            const auto day = parseRmcDate(dateText);
            if (!day) return mFixes.skip(TrackSkip::BadTime, mLine);
            if (time.secondsOfDay) newDate(*day, *time.secondsOfDay);
        } else {
            observe(time);
        }
        if (field(2) != "A" || field(12) == "N") return mFixes.skip(TrackSkip::NoFix, mLine);
        TrackFixQuality quality;
        if (const double knots = nonNegativeOrUnknown(field(7)); knots >= 0.0) quality.speed = knots * kMetresPerSecondPerKnot;
        position(field(3), field(4), field(5), field(6), time, quality);
    }

    // $--GGA,time,lat,N/S,lon,E/W,quality,satellites,...
    void gga() {
        const TimeField time = readTime(field(1));
        observe(time);
        const std::string_view quality = field(6);
        if (quality.empty() || quality == "0") return mFixes.skip(TrackSkip::NoFix, mLine);
        TrackFixQuality said;
        said.hdop = positiveOrUnknown(field(8));
        if (const auto satellites = parseDecimal(field(7)); satellites && *satellites >= 0 && *satellites <= 1000)
            said.satellites = static_cast<int>(*satellites);
        position(field(2), field(3), field(4), field(5), time, said);
    }

    // $--GLL,lat,N/S,lon,E/W[,time,status[,mode]]; before NMEA 2.0 it ended at E/W.
    void gll() {
        const TimeField time = readTime(field(5));
        observe(time);
        if (field(6) == "V" || field(7) == "N") return mFixes.skip(TrackSkip::NoFix, mLine);
        position(field(1), field(2), field(3), field(4), time, {});
    }

    // $--GSA,selection,mode,12 satellite ids,PDOP,HDOP,VDOP: no time of its own, so
    // it speaks for the fix its cycle has made so far.
    void gsa() {
        TrackFixQuality said;
        const std::string_view mode = field(2);
        if (mode == "1") said.mode = FixMode::NoFix;
        else if (mode == "2") said.mode = FixMode::TwoD;
        else if (mode == "3") said.mode = FixMode::ThreeD;
        said.hdop = positiveOrUnknown(field(16));
        mFixes.amendLast(said);
    }

    // $--GST,time,rms,semi-major,semi-minor,orientation,latitude error,longitude
    // error,altitude error: the receiver's own 1-sigma error estimates in metres.
    void gst() {
        const TimeField time = readTime(field(1));
        const double latitudeError = positiveOrUnknown(field(6)), longitudeError = positiveOrUnknown(field(7));
        if (!time.secondsOfDay || !mDay || latitudeError < 0.0 || longitudeError < 0.0) return;
        TrackFixQuality said;
        said.accuracy = std::hypot(latitudeError, longitudeError);
        const double timestamp = static_cast<double>(*mDay) * kSecondsPerDay + *time.secondsOfDay;
        mFixes.amendLast(said, timestamp);
        // A GST ahead of its cycle's position waits for it.
        mEarlyQuality = said;
        mEarlyTime = timestamp;
    }

    // $--ZDA,time,day,month,year,zone hours,zone minutes
    void zda() {
        const TimeField time = readTime(field(1));
        const auto day = parseZdaDate(field(2), field(3), field(4));
        if (day && time.secondsOfDay) newDate(*day, *time.secondsOfDay);
        else observe(time);
    }

    // A time of day with no date beside it: far earlier than the last one means
    // the clock passed midnight.
    void observe(const TimeField& time) {
        if (!time.secondsOfDay) return;
        if (*time.secondsOfDay < mLastSecondsOfDay - kHalfDay && mDay) ++*mDay;
        mLastSecondsOfDay = *time.secondsOfDay;
    }

    void newDate(std::int64_t day, double secondsOfDay) {
        mDay = day;
        mLastSecondsOfDay = secondsOfDay;
        // Positions that came before the first date: those far later in the day
        // than this sentence were logged before midnight, the day before.
        for (const WaitingFix& fix : mWaiting) {
            const std::int64_t fixDay = fix.secondsOfDay > secondsOfDay + kHalfDay ? day - 1 : day;
            mFixes.add(fix.latitude, fix.longitude, fixDay * kSecondsPerDay + fix.secondsOfDay, fix.line, fix.quality);
        }
        mWaiting.clear();
    }

    void position(std::string_view lat, std::string_view ns, std::string_view lon, std::string_view ew,
                  const TimeField& time, TrackFixQuality quality) {
        const auto latitude = parseCoordinate(lat, ns, 'N', 'S');
        const auto longitude = parseCoordinate(lon, ew, 'E', 'W');
        if (!latitude || !longitude) return mFixes.skip(TrackSkip::BadCoordinates, mLine);
        if (!time.present) return mFixes.skip(TrackSkip::NoTime, mLine);
        if (!time.secondsOfDay) return mFixes.skip(TrackSkip::BadTime, mLine);
        if (!mDay) {
            mWaiting.push_back({*latitude, *longitude, *time.secondsOfDay, mLine, quality});
            return;
        }
        const double timestamp = static_cast<double>(*mDay) * kSecondsPerDay + *time.secondsOfDay;
        if (timestamp == mEarlyTime) quality.fillFrom(mEarlyQuality);
        mFixes.add(*latitude, *longitude, timestamp, mLine, quality);
    }

    TrackFixCollector& mFixes;
    std::optional<std::int64_t> mDay;
    // -inf until a time of day was seen: nothing is "earlier" than that.
    double mLastSecondsOfDay = -std::numeric_limits<double>::infinity();
    std::vector<WaitingFix> mWaiting;
    std::vector<std::string_view> mFields;
    std::size_t mLine = 0;
    TrackFixQuality mEarlyQuality;
    double mEarlyTime = -1.0;
};

} // namespace

void readNmea(std::string_view content, const TrackReadOptions& options, TrackFixCollector& fixes) {
    std::optional<std::int64_t> givenDay;
    if (options.date) {
        givenDay = parseIsoDate(trim(*options.date));
        if (!givenDay) return fixes.fail(0, "date '" + *options.date + "' is not a date of the form YYYY-MM-DD");
    }

    NmeaParse parse(fixes, givenDay);
    LineCursor lines(content);
    std::string_view line;
    while (lines.next(line)) {
        line = trim(line);
        // Anything else (a logger's own notes, a half sentence where logging began) carries no position.
        if (line.size() < 2 || (line[0] != '$' && line[0] != '!')) continue;
        parse.sentence(line, lines.lineNumber());
    }
    parse.finish();
}

} // namespace bvgeo
