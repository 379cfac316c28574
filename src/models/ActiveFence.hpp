// ActiveFence: a fence the device is inside as far as the trigger engine knows:
// when the stay began and when its last trigger was made. Shared by the lists that
// hold it; written only on the trigger engine's queue. The table operations run on
// the caller's thread.
#pragma once

#include "datastore/SqlValue.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace bvgeo {

class ActiveFence {
public:
    ActiveFence() = default;
    ActiveFence(std::string fenceId, std::int64_t activatedAt, std::string fenceName = "")
        : fenceId(std::move(fenceId)), activatedAt(activatedAt), lastTriggerAt(activatedAt),
          fenceName(std::move(fenceName)) {}

    std::string fenceId;
    std::int64_t activatedAt = 0;
    std::int64_t lastTriggerAt = 0;
    std::string fenceName; // not stored with the record; filled from the fence table

    // One row per fence id: saving again replaces the row.
    static bool save(const ActiveFence& fence);
    // The stored stays whose fence is still in the fence table, with its current name.
    static std::vector<std::shared_ptr<ActiveFence>> getActiveFences();
    static bool remove(const std::string& fenceId);
    static bool removeAll();
    // The statements save() and remove() run, for a durable unit that holds them.
    static SqlStatement saveStatement(const ActiveFence& fence);
    static SqlStatement removeStatement(const std::string& fenceId);
};

} // namespace bvgeo
