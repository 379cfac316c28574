#include "track/GpxReader.hpp"

#include "track/TrackText.hpp"
#include "track/TrackTime.hpp"

#include <expat.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace bvgeo {
namespace {

// Expanded names arrive as "namespace-uri<sep>local"; only the local part matters,
// so GPX 1.0, 1.1 and prefixed documents read alike.
constexpr char kNamespaceSeparator = '\x01';

std::string_view localName(const XML_Char* name) {
    std::string_view full(name);
    const auto separator = full.rfind(kNamespaceSeparator);
    return separator == std::string_view::npos ? full : full.substr(separator + 1);
}

// The point's children and extensions that say something about its quality.
enum class Field { None, Time, Hdop, Pdop, Fix, Satellites, Speed, Accuracy };

Field fieldNamed(std::string_view local, bool directChild) {
    if (directChild && local == "time") return Field::Time;
    if (local == "hdop") return Field::Hdop;
    if (local == "pdop") return Field::Pdop;
    if (local == "fix") return Field::Fix;
    if (local == "sat") return Field::Satellites;
    if (local == "speed") return Field::Speed;
    // Accuracy in metres, as recording apps write it into their extensions.
    if (local == "accuracy" || local == "hacc" || local == "horizontalAccuracy" || local == "horizontal_accuracy")
        return Field::Accuracy;
    return Field::None;
}

struct RawPoint {
    std::string latitude;
    std::string longitude;
    std::string time;
    bool hasTime = false;
    std::size_t line = 0;
    std::string hdop, pdop, fix, satellites, speed, accuracy;
};

class GpxParse {
public:
    GpxParse(XML_Parser parser, TrackFixCollector& fixes) : mParser(parser), mFixes(fixes) {}

    static void XMLCALL onStart(void* self, const XML_Char* name, const XML_Char** attributes) {
        static_cast<GpxParse*>(self)->guarded([&](GpxParse& p) { p.start(name, attributes); });
    }
    static void XMLCALL onEnd(void* self, const XML_Char* name) {
        static_cast<GpxParse*>(self)->guarded([&](GpxParse& p) { p.end(name); });
    }
    static void XMLCALL onText(void* self, const XML_Char* text, int length) {
        static_cast<GpxParse*>(self)->guarded([&](GpxParse& p) {
            if (std::string* into = p.captured()) into->append(text, static_cast<std::size_t>(length));
        });
    }

    // Route points and waypoints stand in for a track only when there is none.
    void finish() {
        if (mSawTrackPoint) return;
        for (const RawPoint& point : mOtherPoints) deliver(point);
    }

private:
    enum class PointKind { Track, Other };

    // Exceptions must not unwind through expat's C frames; stop the parse instead.
    template <typename Body>
    void guarded(Body body) {
        try {
            body(*this);
        } catch (const std::exception& error) {
            abort(error.what());
        } catch (...) {
            abort("unexpected failure");
        }
    }

    std::string* captured() {
        switch (mField) {
        case Field::None: return nullptr;
        case Field::Time: return &mPoint.time;
        case Field::Hdop: return &mPoint.hdop;
        case Field::Pdop: return &mPoint.pdop;
        case Field::Fix: return &mPoint.fix;
        case Field::Satellites: return &mPoint.satellites;
        case Field::Speed: return &mPoint.speed;
        case Field::Accuracy: return &mPoint.accuracy;
        }
        return nullptr;
    }

    void abort(std::string_view message) {
        mFixes.fail(XML_GetCurrentLineNumber(mParser), message);
        XML_StopParser(mParser, XML_FALSE);
    }

    void start(const XML_Char* name, const XML_Char** attributes) {
        ++mDepth;
        const std::string_view local = localName(name);
        if (mDepth == 1 && local != "gpx") {
            abort("root element is <" + std::string(local) + ">, not <gpx>");
            return;
        }
        if (mPointDepth == 0 && (local == "trkpt" || local == "rtept" || local == "wpt")) {
            mPointDepth = mDepth;
            mPointKind = local == "trkpt" ? PointKind::Track : PointKind::Other;
            mPoint = RawPoint{};
            mPoint.line = XML_GetCurrentLineNumber(mParser);
            for (const XML_Char** attribute = attributes; *attribute; attribute += 2) {
                const std::string_view key = localName(attribute[0]);
                if (key == "lat") mPoint.latitude = attribute[1];
                else if (key == "lon") mPoint.longitude = attribute[1];
            }
        } else if (mPointDepth > 0 && mField == Field::None) {
            mField = fieldNamed(local, mDepth == mPointDepth + 1);
            if (mField == Field::None) return;
            mFieldDepth = mDepth;
            if (mField == Field::Time) mPoint.hasTime = true;
            captured()->clear();
        }
    }

    void end(const XML_Char*) {
        if (mField != Field::None && mDepth == mFieldDepth) mField = Field::None;
        if (mDepth == mPointDepth) {
            mPointDepth = 0;
            if (mPointKind == PointKind::Track) {
                mSawTrackPoint = true;
                deliver(mPoint);
            } else if (mPoint.hasTime && !trim(mPoint.time).empty()) {
                mOtherPoints.push_back(std::move(mPoint));
            }
        }
        --mDepth;
    }

    void deliver(const RawPoint& point) {
        const auto latitude = parseDecimal(trim(point.latitude));
        const auto longitude = parseDecimal(trim(point.longitude));
        if (!latitude || !longitude) return mFixes.skip(TrackSkip::BadCoordinates, point.line);
        const std::string_view timeText = trim(point.time);
        if (timeText.empty()) return mFixes.skip(TrackSkip::NoTime, point.line);
        const auto time = parseIsoDateTime(timeText);
        if (!time) return mFixes.skip(TrackSkip::BadTime, point.line);
        TrackFixQuality quality;
        const std::string_view fix = trim(point.fix);
        if (fix == "none") return mFixes.skip(TrackSkip::NoFix, point.line);
        if (fix == "2d") quality.mode = FixMode::TwoD;
        else if (fix == "3d") quality.mode = FixMode::ThreeD;
        // PDOP is never below HDOP, so it stands in for a missing HDOP on the safe side.
        quality.hdop = positiveOrUnknown(point.hdop);
        if (quality.hdop < 0.0) quality.hdop = positiveOrUnknown(point.pdop);
        quality.accuracy = positiveOrUnknown(point.accuracy);
        quality.speed = nonNegativeOrUnknown(point.speed);
        if (const auto satellites = parseDecimal(trim(point.satellites)); satellites && *satellites >= 0 &&
                                                                           *satellites <= 1000)
            quality.satellites = static_cast<int>(*satellites);
        mFixes.add(*latitude, *longitude, *time, point.line, quality);
    }

    XML_Parser mParser;
    TrackFixCollector& mFixes;
    int mDepth = 0;
    int mPointDepth = 0; // depth of the open point element, 0 outside one
    PointKind mPointKind = PointKind::Track;
    RawPoint mPoint;
    Field mField = Field::None; // the quality child being read, if any
    int mFieldDepth = 0;
    bool mSawTrackPoint = false;
    std::vector<RawPoint> mOtherPoints;
};

struct ParserDeleter {
    void operator()(XML_ParserStruct* parser) const { XML_ParserFree(parser); }
};

} // namespace

void readGpx(std::string_view content, TrackFixCollector& fixes) {
    std::unique_ptr<XML_ParserStruct, ParserDeleter> parser(XML_ParserCreateNS(nullptr, kNamespaceSeparator));
    if (!parser) return fixes.fail(0, "out of memory creating the XML parser");

    GpxParse parse(parser.get(), fixes);
    XML_SetUserData(parser.get(), &parse);
    XML_SetElementHandler(parser.get(), &GpxParse::onStart, &GpxParse::onEnd);
    XML_SetCharacterDataHandler(parser.get(), &GpxParse::onText);

    // XML_Parse takes an int length; feed large files in pieces.
    constexpr std::size_t kChunk = 1 << 20;
    std::size_t offset = 0;
    do {
        const std::size_t length = std::min(kChunk, content.size() - offset);
        const bool last = offset + length == content.size();
        if (XML_Parse(parser.get(), content.data() + offset, static_cast<int>(length), last) != XML_STATUS_OK) {
            // An aborted parse has already said why.
            if (!fixes.failed()) {
                const XML_Error code = XML_GetErrorCode(parser.get());
                fixes.fail(XML_GetErrorLineNumber(parser.get()),
                           std::string("malformed GPX: ") + XML_ErrorString(code));
            }
            return;
        }
        offset += length;
    } while (offset < content.size());

    parse.finish();
}

} // namespace bvgeo
