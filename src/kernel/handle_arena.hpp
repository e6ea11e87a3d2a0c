#pragma once

// Handles to many small objects made together. The objects live in blocks, one allocation
// per block instead of one per object, and every handle shares the ownership of its block:
// a block is freed with the last handle into it. For the atoms, sites and bonds that readers
// make by the thousand. Objects never move once made.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "kora/kernel/handle.hpp"

namespace kora::detail {

template <class T>
class HandleArena {
 public:
  // `expected` objects are likely: the first block holds that many (within limits), later
  // blocks twice as many as the one before.
  explicit HandleArena(std::size_t expected = 0)
      : next_size_(std::clamp<std::size_t>(expected, 8, largest_block)) {}

  template <class... Args>
  THandle<T> make(Args&&... args) {
    if (!block_ || block_->size() == block_->capacity()) {
      block_ = std::make_shared<std::vector<T>>();
      block_->reserve(next_size_);
      next_size_ = std::min(2 * next_size_, largest_block);
    }
    block_->emplace_back(std::forward<Args>(args)...);
    return THandle<T>(std::shared_ptr<T>(block_, &block_->back()));
  }

 private:
  static constexpr std::size_t largest_block = 4096;

  std::shared_ptr<std::vector<T>> block_;
  std::size_t next_size_;
};

}  // namespace kora::detail
