#include "tests/support/tag_files.h"

#include <ostream>

#include "host/tiff_utilities.h"
#include "tags/tag_table.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {

void defineGeoTags(TIFF* tif) {
  static char names[7][24] = {"GeoPixelScale",   "GeoTiePoints",    "GeoTransMatrix",
                              "GeoKeyDirectory", "GeoDoubleParams", "GeoASCIIParams",
                              "RPCCoefficient"};
  const auto field = [](std::uint32_t tag, TIFFDataType type, unsigned char passCount, char* name) {
    return TIFFFieldInfo{tag, -1, -1, type, FIELD_CUSTOM, 1, passCount, name};
  };
  static const TIFFFieldInfo fields[] = {
      field(tiffutils::kModelPixelScaleTag, TIFF_DOUBLE, 1, names[0]),
      field(tiffutils::kModelTiepointTag, TIFF_DOUBLE, 1, names[1]),
      field(tiffutils::kModelTransformationTag, TIFF_DOUBLE, 1, names[2]),
      field(tiffutils::kGeoKeyDirectoryTag, TIFF_SHORT, 1, names[3]),
      field(tiffutils::kGeoDoubleParamsTag, TIFF_DOUBLE, 1, names[4]),
      field(tiffutils::kGeoAsciiParamsTag, TIFF_ASCII, 0, names[5]),
      field(tiffutils::kRpcCoefficientTag, TIFF_DOUBLE, 1, names[6]),
  };
  TIFFMergeFieldInfo(tif, fields, std::size(fields));
}

Answer answerFor(const Input& file, std::uint32_t tag) {
  try {
    return {valueOf(call("getField", file, tag)), {}};
  } catch (const foundation::core::except::IMsgIDException& error) {
    return {{}, error.message().identifier()};
  }
}

std::map<std::uint32_t, Answer> directoryOf(const Input& file) {
  std::map<std::uint32_t, Answer> answers;
  for (const TagRow& row : tagTable())
    if (row.reading.read != nullptr) answers[row.tag] = answerFor(file, row.tag);
  return answers;
}

void expectRefused(const Input& file, double tag, const Input& value, const Expectation& expected) {
  const auto before = directoryOf(file);
  expectError(expected.error, expected.arguments, [&] { call("setField", file, tag, value); });
  EXPECT_EQ(directoryOf(file), before) << "the refused setField changed the directory";
}

void PrintTo(const Answer& answer, std::ostream* out) {
  if (answer.error.empty())
    PrintTo(answer.value, out);
  else
    *out << answer.error;
}

void PrintTo(const Accepted& row, std::ostream* out) { *out << row.name; }
void PrintTo(const Refused& row, std::ostream* out) { *out << row.name; }

void expectStored(const Accepted& row) {
  const TemporaryFolder folder;
  const OpenedFile file(folder / "new.tif", "w");
  setFields(file, row.setup);
  call("setField", file, row.tag, row.value);
  EXPECT_EQ(row.fetch(file.handle()), row.held);
  EXPECT_EQ(valueOf(call("getField", file, row.tag)), row.returned);
}

void expectRefused(const Refused& row) {
  const TemporaryFolder folder;
  const OpenedFile file(folder / "new.tif", "w");
  setFields(file, row.setup);
  expectRefused(file, row.tag, row.value, row.expectation);
}

std::function<std::vector<double>(TIFF*)> fetchesPair(std::uint32_t tag) {
  return [tag](TIFF* tif) -> std::vector<double> {
    std::uint16_t pair[2] = {};
    if (TIFFGetField(tif, tag, &pair[0], &pair[1]) != 1) return {};
    return {static_cast<double>(pair[0]), static_cast<double>(pair[1])};
  };
}

std::function<std::vector<double>(TIFF*)> fetchesText(std::uint32_t tag) {
  return [tag](TIFF* tif) -> std::vector<double> {
    const char* text = nullptr;
    if (TIFFGetField(tif, tag, &text) != 1) return {};
    return aText(text).elements;
  };
}

std::vector<Tag> operator+(std::vector<Tag> first, const std::vector<Tag>& more) {
  first.insert(first.end(), more.begin(), more.end());
  return first;
}

}  // namespace tb::test
