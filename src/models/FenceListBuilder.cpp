#include "models/FenceListBuilder.hpp"

#include <algorithm>

namespace bvgeo {

namespace {
// Blocks double from a small first one, so a short list wastes little; past the
// largest size a block of a big list stays well under a megabyte.
constexpr std::size_t kFirstBlockSize = 16;
constexpr std::size_t kLargestBlockSize = 4096;
} // namespace

void FenceListBuilder::add(Fence fence) {
    if (!blocks_) blocks_ = std::make_shared<Blocks>();
    if (usedInLastBlock_ == lastBlockSize_) {
        lastBlockSize_ = lastBlockSize_ == 0 ? kFirstBlockSize : std::min(lastBlockSize_ * 2, kLargestBlockSize);
        blocks_->blocks.push_back(std::make_unique<Fence[]>(lastBlockSize_));
        usedInLastBlock_ = 0;
    }
    blocks_->blocks.back()[usedInLastBlock_++] = std::move(fence);
    ++count_;
}

void FenceListBuilder::clear() { *this = FenceListBuilder(); }

std::vector<std::shared_ptr<Fence>> FenceListBuilder::finish() {
    std::vector<std::shared_ptr<Fence>> list;
    list.reserve(count_);
    std::size_t left = count_;
    std::size_t blockSize = kFirstBlockSize;
    if (blocks_) {
        for (auto& block : blocks_->blocks) {
            const std::size_t used = std::min(left, blockSize);
            // Aliasing pointers: they share the blocks' one control block.
            for (std::size_t i = 0; i < used; ++i) list.emplace_back(blocks_, &block[i]);
            left -= used;
            blockSize = std::min(blockSize * 2, kLargestBlockSize);
        }
    }
    clear();
    return list;
}

} // namespace bvgeo
