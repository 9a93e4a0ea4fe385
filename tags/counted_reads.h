// Readers of tags whose value is an array: bytes, floats of a known length, and arrays with a
// count.
//
// Each returns a finished array of the caller's and raises tagRetrievalFailed(tagName) first of all
// when the tag is absent. A count without values, which a file with an empty tag leads to, is 0.
#pragma once

#include <cstddef>

#include "tags/tag_table.h"

namespace tb {

// The bytes as a row of this class: vxCHAR, one character a byte, undecoded, or vxUINT8.
TagReaderWith<vxClassID> retrieveCountpVoidpp;

// So many floats as a double row: the length is the tag's, libtiff gives none.
TagReaderWith<std::size_t> retrieveFloatpp;

// What becomes of a tag of doubles that has another number of them than it should.
enum class WrongCount {
  passes,
  warns,            // wrongSizedTagRetrieval(expected, tagName, count)
  warnsCountFirst,  // badMultipleTagValueRetrieved(count, tagName, expected)
};

// The doubles as a row, whatever their number.
TagReaderWith<std::size_t, WrongCount> retrieveCountpDoublepp;

// ModelTiepointTag as a matrix with one tie point a row.
// Raises badMultipleTagValueRetrieved(count, tagName, 6).
TagReader retrieveTiepoints;

// GeoKeyDirectoryTag as a matrix with one key entry a row.
// Raises badMultipleTagValueRetrieved(count, tagName, 4), then unableToReadTag(tag).
TagReader retrieveGeoKeyDirectory;

// ExtraSamples as a double row, SubIFD as a uint64 row. Raise unableToReadTag(tag).
TagReader retrieveExtraSamples;
TagReader retrieveSubIfd;

}  // namespace tb
