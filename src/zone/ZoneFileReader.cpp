#include "zone/ZoneFileReader.hpp"

#include "logger/Logger.hpp"

namespace bvgeo {

// Each rule below mirrors one step of Fence::fenceFromJson over the decoded
// document. A key met again replaces what its earlier value decided, because in
// the document the later value is the one that stays.

bool ZoneFileReader::null() {
    scalar({nullptr, {}, true});
    return true;
}

bool ZoneFileReader::boolean(bool) {
    scalar({});
    return true;
}

bool ZoneFileReader::number_integer(json::number_integer_t value) {
    scalar({nullptr, {true, static_cast<double>(value)}});
    return true;
}

bool ZoneFileReader::number_unsigned(json::number_unsigned_t value) {
    scalar({nullptr, {true, static_cast<double>(value)}});
    return true;
}

bool ZoneFileReader::number_float(json::number_float_t value, const json::string_t&) {
    scalar({nullptr, {true, value}});
    return true;
}

bool ZoneFileReader::string(json::string_t& value) {
    scalar({&value, {}});
    return true;
}

bool ZoneFileReader::binary(json::binary_t&) {
    scalar({});
    return true;
}

bool ZoneFileReader::start_object(std::size_t) {
    if (!places_.empty() && places_.back() == Place::Geometry) {
        geometry_->startObject();
        places_.push_back(Place::Geometry);
        return true;
    }
    places_.push_back(opening(true));
    return true;
}

bool ZoneFileReader::start_array(std::size_t) {
    if (!places_.empty() && places_.back() == Place::Geometry) {
        geometry_->startArray();
        places_.push_back(Place::Geometry);
        return true;
    }
    places_.push_back(opening(false));
    return true;
}

bool ZoneFileReader::key(json::string_t& value) {
    if (places_.empty()) return true;
    switch (places_.back()) {
    case Place::Geometry:
        geometry_->key(value);
        break;
    case Place::Top:
        pending_ = value == "fences" ? Field::Fences : Field::Other;
        break;
    case Place::Fence:
        if (value == "_id") pending_ = Field::Id;
        else if (value == "name") pending_ = Field::Name;
        else if (value == "location") pending_ = Field::Location;
        else if (value == "radius") pending_ = Field::Radius;
        else if (value == "content_ids") pending_ = Field::ContentIds;
        else if (value == "geometry" && polygonFences_) pending_ = Field::Geometry;
        else pending_ = Field::Other;
        break;
    case Place::Location:
        if (value == "type") pending_ = Field::Type;
        else if (value == "coordinates") pending_ = Field::Coordinates;
        else pending_ = Field::Other;
        break;
    default:
        break;
    }
    return true;
}

bool ZoneFileReader::end_object() {
    if (places_.empty()) return true;
    const Place closing = places_.back();
    places_.pop_back();
    if (closing == Place::Geometry) {
        geometry_->endObject();
        closeGeometryContainer();
    }
    if (closing == Place::Fence) closeFence();
    return true;
}

bool ZoneFileReader::end_array() {
    if (places_.empty()) return true;
    const Place closing = places_.back();
    places_.pop_back();
    if (closing == Place::Geometry) {
        geometry_->endArray();
        closeGeometryContainer();
    }
    if (closing == Place::Coordinates && coordinateCount_ < 2) coordinatesBad_ = true;
    return true;
}

bool ZoneFileReader::parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) {
    return false;
}

void ZoneFileReader::scalar(const Scalar& value) {
    if (places_.empty()) return;
    switch (places_.back()) {
    case Place::Geometry:
        if (value.number.present) geometry_->number(value.number.value);
        else geometry_->scalar(value.text);
        break;
    case Place::Top:
        if (pending_ == Field::Fences) { // a "fences" that is not an array
            kept_.clear();
            fallbacks_.clear();
        }
        break;
    case Place::Fence:
        switch (pending_) {
        case Field::Id:
            if (value.text) fence_.id = *value.text;
            else fence_.id.clear();
            break;
        case Field::Name:
            if (value.text) fence_.name = *value.text;
            else fence_.name.clear();
            break;
        case Field::Radius:
            fence_.radius = value.number.present ? value.number.value : 0.0;
            break;
        case Field::Geometry:
            resetGeometry();
            // null: no geometry, as GeoJSON writes it.
            if (!value.isNull) {
                geometryGiven_ = true;
                geometryResult_.problem = "is not a GeoJSON object";
            }
            break;
        default:
            fenceFieldIsNot(pending_);
            break;
        }
        break;
    case Place::Location:
        if (pending_ == Field::Type) locationRejects_ = value.text && *value.text != "Point";
        else if (pending_ == Field::Coordinates) coordinatesPresent_ = false;
        break;
    case Place::Coordinates:
        if (coordinateCount_ < 2) {
            if (value.number.present) coordinates_[coordinateCount_] = value.number.value;
            else coordinatesBad_ = true;
        }
        ++coordinateCount_;
        break;
    case Place::ContentIds:
        if (value.text) fence_.content_ids.push_back(*value.text);
        break;
    default:
        break;
    }
}

ZoneFileReader::Place ZoneFileReader::opening(bool isObject) {
    if (places_.empty()) return isObject ? Place::Top : Place::Ignored;
    switch (places_.back()) {
    case Place::Top:
        if (pending_ != Field::Fences) return Place::Ignored;
        kept_.clear(); // the last "fences" is the one that counts
        fallbacks_.clear();
        return isObject ? Place::Ignored : Place::Fences;
    case Place::Fences:
        if (!isObject) return Place::Ignored; // an element that is not an object is skipped
        fence_ = Fence();
        resetLocation();
        resetGeometry();
        return Place::Fence;
    case Place::Fence:
        if (pending_ == Field::Location) {
            resetLocation();
            if (!isObject) return Place::Ignored;
            locationIsObject_ = true;
            return Place::Location;
        }
        if (pending_ == Field::ContentIds && !isObject) {
            fence_.content_ids.clear();
            return Place::ContentIds;
        }
        if (pending_ == Field::Geometry) {
            resetGeometry();
            geometryGiven_ = true;
            if (!isObject) {
                geometryResult_.problem = "is not a GeoJSON object";
                return Place::Ignored;
            }
            geometry_ = std::make_unique<GeometryReader>();
            geometry_->startObject();
            return Place::Geometry;
        }
        fenceFieldIsNot(pending_);
        return Place::Ignored;
    case Place::Location:
        if (pending_ == Field::Type) locationRejects_ = false;
        if (pending_ == Field::Coordinates) {
            coordinatesPresent_ = !isObject;
            coordinatesBad_ = false;
            coordinateCount_ = 0;
            if (!isObject) return Place::Coordinates;
        }
        return Place::Ignored;
    case Place::Coordinates:
        if (coordinateCount_ < 2) coordinatesBad_ = true;
        ++coordinateCount_;
        return Place::Ignored;
    default:
        return Place::Ignored;
    }
}

// The value of `field` turned out not to be of the type the rule wants: the field
// goes back to its default.
void ZoneFileReader::fenceFieldIsNot(Field field) {
    switch (field) {
    case Field::Id:
        fence_.id.clear();
        break;
    case Field::Name:
        fence_.name.clear();
        break;
    case Field::Radius:
        fence_.radius = 0.0;
        break;
    case Field::ContentIds:
        fence_.content_ids.clear();
        break;
    case Field::Location:
        resetLocation();
        break;
    default:
        break;
    }
}

void ZoneFileReader::resetLocation() {
    locationIsObject_ = false;
    locationRejects_ = false;
    coordinatesPresent_ = false;
    coordinatesBad_ = false;
    coordinateCount_ = 0;
}

void ZoneFileReader::closeFence() {
    if (locationIsObject_) {
        if (locationRejects_ || (coordinatesPresent_ && coordinatesBad_)) return;
        if (coordinatesPresent_) {
            fence_.longitude = coordinates_[0];
            fence_.latitude = coordinates_[1];
        }
    }
    if (geometryGiven_) {
        if (geometryResult_.geometry &&
            !geometryResult_.geometry->withinCircle(fence_.latitude, fence_.longitude, fence_.radius)) {
            geometryResult_.geometry.reset();
            geometryResult_.problem = "reaches beyond the fence's circle";
        }
        if (geometryResult_.geometry) fence_.geometry = std::move(geometryResult_.geometry);
        else fallbacks_.push_back({kept_.size(), fence_.id, std::move(geometryResult_.problem)});
        resetGeometry();
    }
    fence_.content_ids.shrink_to_fit();
    kept_.add(std::move(fence_));
}

void ZoneFileReader::resetGeometry() {
    geometry_.reset();
    geometryResult_ = {};
    geometryGiven_ = false;
}

void ZoneFileReader::closeGeometryContainer() {
    // The geometry object itself has closed: check it and build its index now, and
    // let go of the coordinates read.
    if (!geometry_->closed()) return;
    geometryResult_ = geometry_->finish();
    geometry_.reset();
}

std::string ZoneFileReader::geometryNotUsedText(const std::string& fenceId, const std::string& problem) {
    return "Polygon fence " + fenceId + " stays a circle: its geometry " + problem;
}

std::vector<std::shared_ptr<Fence>> ZoneFileReader::takeFences() {
    const std::size_t kept = kept_.size();
    for (const Fallback& fallback : fallbacks_)
        if (fallback.index < kept) // of the "fences" array that counts
            Logger::log(geometryNotUsedText(fallback.id, fallback.problem), LogCategory::FENCE,
                        "fenceFromJson(_:)", 1);
    fallbacks_.clear();
    return kept_.finish();
}

} // namespace bvgeo
