// A file object over bytes in memory that from some call on does not do what a file does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "runtime/file_objects.h"

namespace tb::fuzz {

enum class Fault : unsigned char {
  kNone,
  kFails,      // every call fails
  kIsShort,    // some bytes are transferred at a time, though there are more
  kLosesBytes  // half of the file is gone, and what is written adds nothing
};

class FaultyObject final : public runtime::FileObject {
 public:
  // Has the fault from the call with the number `firstFaulty` on.
  FaultyObject(std::span<const unsigned char> contents, Fault fault, unsigned firstFaulty)
      : contents_(contents.begin(), contents.end()), fault_(fault), healthyCalls_(firstFaulty) {}

  std::size_t read(std::uint64_t offset, std::span<std::byte> bytes) noexcept override;
  std::size_t write(std::uint64_t offset, std::span<const std::byte> bytes) noexcept override;
  std::uint64_t size() noexcept override;
  bool clear() noexcept override;
  bool hasFailed() const noexcept override { return hasFailed_; }

 private:
  Fault next() noexcept;

  std::vector<unsigned char> contents_;
  Fault fault_;
  unsigned healthyCalls_;
  bool hasFailed_ = false;
};

// Offers an object for as long as it lives.
class OfferedObject {
 public:
  explicit OfferedObject(std::shared_ptr<runtime::FileObject> object)
      : name_(runtime::addFileObject(std::move(object), "object")) {}
  ~OfferedObject() { runtime::removeFileObject(name_); }
  OfferedObject(const OfferedObject&) = delete;
  OfferedObject& operator=(const OfferedObject&) = delete;

  std::string name() const { return {name_.begin(), name_.end()}; }

 private:
  const std::u16string name_;
};

}  // namespace tb::fuzz
