// FenceListBuilder: gathers the fences of one list into a few large blocks that the
// finished list owns together. A list of 100,000 fences then costs one control
// block and a few dozen allocations (plus the text too long to live inside a
// record) instead of one control block and record per fence. Every pointer of the
// finished list keeps all of its blocks alive; the records are never changed after
// finish(). One thread builds; the finished list may be read from any thread.
#pragma once

#include "models/Fence.hpp"

#include <cstddef>
#include <memory>
#include <vector>

namespace bvgeo {

class FenceListBuilder {
public:
    void add(Fence fence);
    std::size_t size() const { return count_; }
    // Forgets every fence added so far.
    void clear();
    // The fences in the order they were added; the builder is empty afterwards.
    std::vector<std::shared_ptr<Fence>> finish();

private:
    struct Blocks {
        std::vector<std::unique_ptr<Fence[]>> blocks;
    };

    std::shared_ptr<Blocks> blocks_;
    std::size_t count_ = 0;
    std::size_t lastBlockSize_ = 0;
    std::size_t usedInLastBlock_ = 0;
};

} // namespace bvgeo
