#include "fuzz/faulty_object.h"

#include <algorithm>

#include "fuzz/file_limit.h"

namespace tb::fuzz {
namespace {

constexpr std::size_t kShortTransfer = 7;

}  // namespace

// The fault of this call.
Fault FaultyObject::next() noexcept {
  if (healthyCalls_ > 0) {
    --healthyCalls_;
    return Fault::kNone;
  }
  if (fault_ == Fault::kFails) hasFailed_ = true;
  return fault_;
}

std::size_t FaultyObject::read(std::uint64_t offset, std::span<std::byte> bytes) noexcept {
  const Fault fault = next();
  const std::size_t end = fault == Fault::kLosesBytes ? contents_.size() / 2 : contents_.size();
  if (fault == Fault::kFails || offset >= end) return 0;
  std::size_t count = std::min(bytes.size(), end - static_cast<std::size_t>(offset));
  if (fault == Fault::kIsShort) count = std::min(count, kShortTransfer);
  const auto from = std::as_bytes(std::span(contents_)).subspan(offset, count);
  std::ranges::copy(from, bytes.begin());
  return count;
}

std::size_t FaultyObject::write(std::uint64_t offset, std::span<const std::byte> bytes) noexcept {
  const Fault fault = next();
  if (fault == Fault::kFails || offset > kLargestFile) return 0;
  if (fault == Fault::kLosesBytes) return bytes.size();
  if (fault == Fault::kIsShort) bytes = bytes.first(std::min(bytes.size(), kShortTransfer));
  const std::size_t end = static_cast<std::size_t>(offset) + bytes.size();
  if (contents_.size() < end) contents_.resize(end);
  std::ranges::transform(bytes, contents_.begin() + static_cast<std::ptrdiff_t>(offset),
                         [](std::byte each) { return static_cast<unsigned char>(each); });
  return bytes.size();
}

std::uint64_t FaultyObject::size() noexcept {
  const Fault fault = next();
  if (fault == Fault::kFails) return 0;
  return fault == Fault::kLosesBytes ? contents_.size() / 2 : contents_.size();
}

bool FaultyObject::clear() noexcept {
  contents_.clear();
  return next() != Fault::kFails;
}

}  // namespace tb::fuzz
