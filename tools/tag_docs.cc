// Prints docs/tags.md: one row for each tag, from the tables by which getField and setField work.
#include <iostream>
#include <string>

#include "tags/tag_table.h"

namespace tb {
namespace {

constexpr const char* kHead = R"(# Tags

<!-- Written by `./dev docs` from the module's own tables. -->

`getField` returns the value of a tag of the current directory, `setField` checks and stores one.
Both take the tag's number; a number that is not listed here raises `unrecognizedTagNumber`.

- Values are host arrays. A number to store is a double: it is range-checked (`argumentOutOfBounds`)
  and cut toward zero, so that 0 to 65535 stands for everything above -1 and below 65536; NaN is
  stored as 0 where the tag takes an integer. Single range is that of a 32-bit float.
- A wrong class or number of elements raises `tagValueNotDoublePrecisionScalar`,
  `tagValueNotDoublePrecisionArray`, `badTagValueCount`, `bad2DtagValue` or `argumentWasNotChar`
  with the tag's name.
- An absent tag without a default raises `tagRetrievalFailed` with the tag's name.
- What libtiff itself refuses raises `unableToWriteTag` with the tag's name, except for
  SMinSampleValue and SMaxSampleValue, whose refusal is not reported.
- A file open for reading accepts only JPEGQuality, JPEGColorMode, ZIPQuality and SGILogDataFmt; any
  other number raises `cannotWriteInReadMode`.
- Set PhotometricInterpretation first, then BitsPerSample: other tags are checked against them.

The checks stand in the order in which they are made. Nothing is stored when one fails.

| tag | name | getField returns | setField accepts | checks beyond class, count and range |
|---|---|---|---|---|
)";

constexpr const char* kFoot = R"(
## What libtiff adds

- Group3Options, Group4Options, Predictor, JPEGQuality, JPEGColorMode, ZIPQuality and SGILogDataFmt
  exist only once a Compression that defines them is set.
- ImageWidth and ImageLength, TileWidth and TileLength, XResolution and YResolution, XPosition and
  YPosition are marked as set together: after one is stored the other reads as 0 until it is stored.
- Refused: Orientation 0 and above 8; ResolutionUnit 0 and above 3; FillOrder other than 1 and 2;
  SampleFormat 0 and above 6; SamplesPerPixel 0; a negative or NaN XResolution or YResolution; more
  ExtraSamples than SamplesPerPixel, or values above 2 other than 999, which is stored as 2; arrays
  without elements for the GeoTIFF tags, RichTIFFIPTC and ICC Profile; more than 65535 values where
  the count has 16 bits (InkNames in bytes, ExtraSamples, the GeoTIFF tags).
- Once image data are written, the tags that fix their layout cannot be changed, nor can XMLPacket,
  RichTIFFIPTC, ICC Profile, StoNits and some others.
- A change of SamplesPerPixel or ExtraSamples drops SMinSampleValue, SMaxSampleValue and a
  TransferFunction that no longer has the right number of curves. A change of BitsPerSample keeps
  the entries of ColorMap and TransferFunction and adds zeros; above 16 bits both are dropped.
- Stored but fatal: with a negative or NaN XPosition or YPosition the directory cannot be written.
  WhitePoint and its like are written with 0 in place of negative elements and NaN.
- NumberOfInks follows the number of InkNames. A ZIPQuality that is refused is kept all the same.
)";

std::string returned(const ReadKind& reading) {
  if (reading.read == nullptr) return "refused: `unhandledTagId`";
  return reading.result != nullptr ? reading.result : "refused: `unsupportedTag`";
}

// The two last columns.
std::string accepted(const WriteKind& writing) {
  if (writing.write == nullptr) return "refused: `unrecognizedTagNumber` | ";
  if (writing.accepted == nullptr) return "refused: `unsupportedTag` | ";
  return std::string(writing.accepted) + " | " + writing.checks;
}

}  // namespace
}  // namespace tb

int main() {
  std::cout << tb::kHead;
  for (const tb::TagRow& row : tb::tagTable())
    std::cout << "| " << row.tag << " | " << row.name << " | " << tb::returned(row.reading) << " | "
              << tb::accepted(row.writing) << " |\n";
  std::cout << tb::kFoot;
}
