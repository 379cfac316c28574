// Trigger: the library's side of BVTrigger: the trigger table's operations. They run
// on the caller's thread (the trigger engine's queue, or the host for list()).
#pragma once

#include "datastore/SqlValue.hpp"

#include <bvgeo/BVTrigger.hpp>

#include <memory>
#include <vector>

namespace bvgeo {

class Trigger : public BVTrigger {
public:
    using BVTrigger::BVTrigger;

    // Adds a row; the same trigger saved twice is two rows.
    static bool save(const BVTrigger& trigger);
    // The statement save() runs, for a durable unit that holds it among others.
    static SqlStatement saveStatement(const BVTrigger& trigger);
    // Every stored trigger, oldest first. Rows whose event text is not one of ours are skipped.
    static std::vector<std::shared_ptr<BVTrigger>> list();
    static bool removeAll();
};

} // namespace bvgeo
