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
struct Expectation {
  ErrorClass error;
  Arguments arguments;
};
template <class Id>
Expectation refusedWith(const Arguments& arguments = {}) {
  return {errorClass<Id>(), arguments};
}
void expectRefused(const Input& file, double tag, const Input& value, const Expectation& expected);
template <class Id>
void expectRefused(const Input& file, double tag, const Input& value, const Arguments& arguments) {
  expectRefused(file, tag, value, refusedWith<Id>(arguments));
}

// --- Rows of cases for setField. Each starts with a new file in which `setup` is set.

// A value that setField takes: what libtiff then holds, in libtiff's order, and what getField
// returns.
struct Accepted {
  const char* name;
  std::vector<Tag> setup;
  std::uint32_t tag;
  Input value;
  std::function<std::vector<double>(TIFF*)> fetch;
  std::vector<double> held;
  HostValue returned;
};
void PrintTo(const Accepted& row, std::ostream* out);
void expectStored(const Accepted& row);

// A value that setField refuses, and the error.
struct Refused {
  const char* name;
  std::vector<Tag> setup;
  double tag;
  Input value;
  Expectation expectation;
};
void PrintTo(const Refused& row, std::ostream* out);
void expectRefused(const Refused& row);

// The names of a suite's rows.
template <class Row>
std::string nameOf(const testing::TestParamInfo<Row>& test) {
  return test.param.name;
}

// What libtiff holds for a tag: numbers that it hands out one by one, an array of known length or
// with a count, text.
template <class T>
std::function<std::vector<double>(TIFF*)> fetchesOne(std::uint32_t tag) {
  return [tag](TIFF* tif) -> std::vector<double> {
    T value{};
    if (TIFFGetField(tif, tag, &value) != 1) return {};
    return {static_cast<double>(value)};
  };
}
std::function<std::vector<double>(TIFF*)> fetchesPair(std::uint32_t tag);
std::function<std::vector<double>(TIFF*)> fetchesText(std::uint32_t tag);
template <class T>
std::function<std::vector<double>(TIFF*)> fetchesArray(std::uint32_t tag, std::size_t length) {
  return [=](TIFF* tif) -> std::vector<double> {
    const T* values = nullptr;
    if (TIFFGetField(tif, tag, &values) != 1) return {};
    return {values, values + length};
  };
}
template <class Count, class T>
std::function<std::vector<double>(TIFF*)> fetchesCounted(std::uint32_t tag) {
  return [tag](TIFF* tif) -> std::vector<double> {
    Count count = 0;
    const T* values = nullptr;
    if (TIFFGetField(tif, tag, &count, &values) != 1) return {};
    return {values, values + count};
  };
}

// The row of an array with a count.
template <class Count, class T>
Accepted counted(const char* name, std::uint32_t tag, const Input& value,
                 const std::vector<double>& held, const HostValue& returned,
                 const std::vector<Tag>& setup = {}) {
  return {name, setup, tag, value, fetchesCounted<Count, T>(tag), held, returned};
}

// Tags by which a new file becomes an image of some kind.
inline std::vector<Tag> gray(int bits = 8) { return {{262, 1}, {258, bits}, {277, 1}}; }
inline std::vector<Tag> rgb() { return {{262, 2}, {258, 8}, {277, 3}}; }
inline std::vector<Tag> separated() { return {{262, 5}, {258, 8}, {277, 4}}; }
std::vector<Tag> operator+(std::vector<Tag> first, const std::vector<Tag>& more);

}  // namespace tb::test
