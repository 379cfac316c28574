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

struct RawPoint {
    std::string latitude;
    std::string longitude;
    std::string time;
    bool hasTime = false;
    std::size_t line = 0;
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
            if (p.mInTime) p.mPoint.time.append(text, static_cast<std::size_t>(length));
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
        } else if (mPointDepth > 0 && mDepth == mPointDepth + 1 && local == "time") {
            mInTime = true;
            mPoint.hasTime = true;
            mPoint.time.clear();
        }
    }

    void end(const XML_Char*) {
        if (mInTime && mDepth == mPointDepth + 1) mInTime = false;
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
        mFixes.add(*latitude, *longitude, *time, point.line);
    }

    XML_Parser mParser;
    TrackFixCollector& mFixes;
    int mDepth = 0;
    int mPointDepth = 0; // depth of the open point element, 0 outside one
    PointKind mPointKind = PointKind::Track;
    RawPoint mPoint;
    bool mInTime = false;
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
