#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <random>
#include <vector>

namespace tb::test {

using Sizes = std::initializer_list<std::size_t>;

// Bytes that a kernel reads. The vector ends with the last byte that the kernel may touch, so that
// a sanitizer sees any read behind it, and begins at an odd address.
class KernelInput {
 public:
  explicit KernelInput(std::size_t size) : bytes_(size + 1) {
    std::minstd_rand random(static_cast<unsigned>(size));
    for (std::byte& byte : bytes_) byte = static_cast<std::byte>(random() >> 8);
  }
  std::byte* data() { return bytes_.data() + 1; }

 private:
  std::vector<std::byte> bytes_;
};

// Bytes that a kernel writes, with guard bytes on both sides. Everything starts from one pattern,
// so that two outputs are equal only if the same places were written.
class KernelOutput {
 public:
  explicit KernelOutput(std::size_t size) : bytes_(size + 2 * kGuard, std::byte{0xA5}) {}
  std::byte* data() { return bytes_.data() + kGuard; }
  friend bool operator==(const KernelOutput&, const KernelOutput&) = default;

 private:
  static constexpr std::size_t kGuard = 129;
  std::vector<std::byte> bytes_;
};

}  // namespace tb::test
