// A codec buffer with guard bytes on both sides, for checking that a call
// writes exactly where it should and nowhere else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <vector>

namespace codectest {

constexpr uint8_t kFill = 0xA5;

class Guarded {
public:
  static constexpr size_t kGuard = 16;
  explicit Guarded(size_t size) : size_(size), all_(size + 2 * kGuard, kFill) {}
  uint8_t *begin() { return all_.data() + kGuard; }
  uint8_t *limit() { return begin() + size_; }
  // Every byte, guards included, for before/after comparisons.
  const std::vector<uint8_t> &all() const { return all_; }
  bool guardsIntact() const {
    auto fill = [](uint8_t b) { return b == kFill; };
    return std::all_of(all_.begin(), all_.begin() + kGuard, fill) &&
           std::all_of(all_.end() - kGuard, all_.end(), fill);
  }
  std::vector<uint8_t> bytes(size_t from, size_t count) const {
    return {all_.begin() + kGuard + from, all_.begin() + kGuard + from + count};
  }

private:
  size_t size_;
  std::vector<uint8_t> all_;
};

} // namespace codectest
