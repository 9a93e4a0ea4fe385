// Files and directories for tests of tags.
#pragma once

#include <tiffio.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "tests/support/gateway_call.h"
#include "tests/support/host_value.h"
#include "tests/support/tiff_files.h"

namespace tb::test {

// Makes the GeoTIFF and RPC tags known to one handle, as a program that writes them does.
void defineGeoTags(TIFF* tif);

// A function that stores a tag with libtiff and fails the test when libtiff refuses.
template <class... Values>
std::function<void(TIFF*)> stores(std::uint32_t tag, Values... values) {
  return [=](TIFF* tif) {
    defineGeoTags(tif);
    EXPECT_EQ(TIFFSetField(tif, tag, values...), 1) << "libtiff refused tag " << tag;
  };
}

// What getField says of a tag: its value or the error's identifier.
struct Answer {
  HostValue value;
  std::string error;

  bool operator==(const Answer&) const = default;
};
void PrintTo(const Answer& answer, std::ostream* out);
Answer answerFor(const Input& file, std::uint32_t tag);

// The answers for every tag that getField serves: the current directory as a host sees it.
std::map<std::uint32_t, Answer> directoryOf(const Input& file);

// Expects the error from setField, and the directory to be the same before and after.
template <class Id>
void expectRefused(const Input& file, double tag, const Input& value, const Arguments& arguments) {
  const auto before = directoryOf(file);
  expectError<Id>(arguments, [&] { call("setField", file, tag, value); });
  EXPECT_EQ(directoryOf(file), before) << "the refused setField changed the directory";
}

}  // namespace tb::test
