// Every error that the module raises: one list makes the tag types, and with them the exception
// classes and raise functions. The host's catalog holds the texts.
//
// Spellings are part of the interface with the host's catalog, irregular capitals included
// (tileWritefailure, badSampleFormatfor1Bps, colorMapShouldbeSet, unableToChangeSubdir).
#pragma once

#include <exception>
#include <string>
#include <utility>

#include "host/errors.h"

// X(group, identifier), in the order of the catalog.
#define TAGBRIDGE_ERRORS(X)                                 \
  X(validate, argumentOutOfBounds)                          \
  X(validate, wrongNumberOfInputs)                          \
  X(Tiff, InvalidOperation)                                 \
  X(Tiff, tagRetrievalFailed)                               \
  X(Tiff, unableToReadDir)                                  \
  X(Tiff, unableToWriteDir)                                 \
  X(Tiff, unableToWriteCurrentDir)                          \
  X(Tiff, unableToChangeDir)                                \
  X(Tiff, noSubDirectories)                                 \
  X(Tiff, noSuchSubDirectory)                               \
  X(Tiff, unableToChangeSubdir)                             \
  X(Tiff, argumentWasNotChar)                               \
  X(Tiff, unableToOpenFile)                                 \
  X(Tiff, tagRetrievalBeforeWriteFailed)                    \
  X(Tiff, photometricInterpretationNotSeparated)            \
  X(Tiff, badTagUsedWithPhotometric)                        \
  X(Tiff, badTransferFunctionSppCombination)                \
  X(Tiff, strippedOperationOnTiledImage)                    \
  X(Tiff, tiledOperationOnStrippedImage)                    \
  X(Tiff, badMultipleTagValueRetrieved)                     \
  X(Tiff, unsupportedTag)                                   \
  X(Tiff, unhandledTagId)                                   \
  X(Tiff, unableToReadTag)                                  \
  X(Tiff, notCellString)                                    \
  X(Tiff, badNumberOfInkNames)                              \
  X(Tiff, badTransferFunctionSize)                          \
  X(Tiff, badTagValueCount)                                 \
  X(Tiff, badColorMap)                                      \
  X(Tiff, colorMapValuesNotNormalized)                      \
  X(Tiff, badCompressionForSgiLogDataFmt)                   \
  X(Tiff, fmtAlreadySet)                                    \
  X(Tiff, invalidSGILogDataFmtValue)                        \
  X(Tiff, unableToWriteTag)                                 \
  X(Tiff, tagValueNotDoublePrecisionScalar)                 \
  X(Tiff, badSMinMaxValueForBiLevelImage)                   \
  X(Tiff, badSampleFormatBitsPerSampleCombination)          \
  X(Tiff, invalidNumberOfInksValue)                         \
  X(Tiff, doNotSetForLogLuv)                                \
  X(Tiff, badSamplesPerPixelBitsPerSampleCombination)       \
  X(Tiff, sampleFormatValueNotSupported)                    \
  X(Tiff, badValue)                                         \
  X(Tiff, badSampleFormatfor1Bps)                           \
  X(Tiff, badBitsPerSampleCompressionCombination)           \
  X(Tiff, ccittNotSupportedForCreating)                     \
  X(Tiff, unsupportedCompressionScheme)                     \
  X(Tiff, badThresholdingValue)                             \
  X(Tiff, badBitsPerSampleValue)                            \
  X(Tiff, badPhotometricLabPaletteBitsPerSampleCombination) \
  X(Tiff, badPlanarConfigurationValue)                      \
  X(Tiff, badPhotometricPlanarConfigurationCombination)     \
  X(Tiff, badUninterpretedTagType)                          \
  X(Tiff, lengthTooShort)                                   \
  X(Tiff, cannotWriteInReadMode)                            \
  X(Tiff, dateTimeTooLong)                                  \
  X(Tiff, zeroLengthDimension)                              \
  X(Tiff, badTileDimension)                                 \
  X(Tiff, badXmlPacketTagType)                              \
  X(Tiff, unrecognizedTagNumber)                            \
  X(Tiff, complexSampleFormat)                              \
  X(Tiff, unknownSampleFormat)                              \
  X(Tiff, sampleFormatMustBeIeeeFpFor64Bits)                \
  X(Tiff, unhandledBitsPerSample)                           \
  X(Tiff, unsupportedYCbCrConfiguration)                    \
  X(Tiff, readWithJpegColorModeRGB)                         \
  X(Tiff, luvCodecNotSet)                                   \
  X(Tiff, imageDepthStrippedLayoutMismatch)                 \
  X(Tiff, badStripNumber)                                   \
  X(Tiff, tooManyBytes)                                     \
  X(Tiff, badTileNumber)                                    \
  X(Tiff, imageDatatypeNotLogical)                          \
  X(Tiff, imageDatatypeNot8bit)                             \
  X(Tiff, imageDatatypeNot16bit)                            \
  X(Tiff, imageDatatypeNot32bit)                            \
  X(Tiff, imageDatatypeNotDouble)                           \
  X(Tiff, unsupportedBitsPerSample)                         \
  X(Tiff, badPlanarImage)                                   \
  X(Tiff, badContigImageOneSpp)                             \
  X(Tiff, badContigImageMultipleSpp)                        \
  X(Tiff, badDatatypeForSampleFormat)                       \
  X(Tiff, badSampleFormat)                                  \
  X(Tiff, badExtraSamples)                                  \
  X(Tiff, improperUsageOfExtraSamples)                      \
  X(Tiff, wrongNumberOfInputImages)                         \
  X(Tiff, badRgbSamplesPerPixelConfiguration)               \
  X(Tiff, badYCbCrDimensions)                               \
  X(Tiff, badDatatypeForPaletteImage)                       \
  X(Tiff, badPaletteWriteConfiguration)                     \
  X(Tiff, colorMapShouldbeSet)                              \
  X(Tiff, eightBitSgiFormatNotAllowedWhenWriting)           \
  X(Tiff, jpegBitsPerSampleMustBeEight)                     \
  X(Tiff, jpegCompressionRequiresThreeSamplesPerPixel)      \
  X(Tiff, tiledJpegCompressionRequires16)                   \
  X(Tiff, strippedJpegInvalidRowsPerStrip)                  \
  X(Tiff, imageDimensionsNotSet)                            \
  X(Tiff, tileDimensionsNotSet)                             \
  X(Tiff, badPlanarConfigurationSamplesPerPixelCombination) \
  X(Tiff, stripNumberTooLarge)                              \
  X(Tiff, stripWriteFailure)                                \
  X(Tiff, tileNumberTooLarge)                               \
  X(Tiff, tileWritefailure)                                 \
  X(Tiff, stripReadErrorRGBA)                               \
  X(Tiff, tileReadErrorRGBA)                                \
  X(Tiff, imageReadErrorRGBA)                               \
  X(Tiff, badFileId)                                        \
  X(Tiff, invalidFileId)                                    \
  X(Tiff, sampleParameterRequired)                          \
  X(Tiff, sampleParameterNotAllowedInChunkyCase)            \
  X(Tiff, bad2DtagValue)                                    \
  X(Tiff, tagValueNotDoublePrecisionArray)

// X(identifier): warnings of the Tiff group. They have no class, since nobody catches them.
#define TAGBRIDGE_WARNINGS(X)      \
  X(closingFileHandle)             \
  X(directoryNotWritten)           \
  X(wrongSizedTagRetrieval)        \
  X(badMultipleTagValueRetrieved)  \
  X(missingExtraSamples)           \
  X(dataLengthExceedsRowsPerStrip) \
  X(dataLengthExceedsTileLength)   \
  X(dataWidthExceedsImageWidth)    \
  X(dataWidthExceedsTileWidth)

#define TAGBRIDGE_ID(group, id)                                  \
  namespace KORVAL::pictoria::group {                            \
  struct id {                                                    \
    static constexpr auto component = "KORVAL:pictoria:" #group; \
    static constexpr auto name = #id;                            \
  };                                                             \
  }
TAGBRIDGE_ERRORS(TAGBRIDGE_ID)
#undef TAGBRIDGE_ID

namespace tb {

namespace Tiff = ::KORVAL::pictoria::Tiff;
namespace validate = ::KORVAL::pictoria::validate;

enum class Warning {
#define TAGBRIDGE_WARNING(id) id,
  TAGBRIDGE_WARNINGS(TAGBRIDGE_WARNING)
#undef TAGBRIDGE_WARNING
};

// An error that the host has been told of.
template <class Id, class... Args>
foundation::core::except::Exception<Id, std::exception> reportedError(Args&&... args) {
  resource_core::BaseMsgID message(Id::component, Id::name);
  (message.append(std::forward<Args>(args)), ...);
  foundation::core::except::Exception<Id, std::exception> error(std::move(message));
  matrix::detail::do_legacy_vx_error(error);
  return error;
}

// Reports the error to the host, then throws it. The arguments are those of the identifier, in
// order; the catalog refers to them by position. The error is made where it is thrown from, so that
// nothing here has to be copied or unwound.
template <class Id, class... Args>
[[noreturn]] void raise(Args&&... args) {
  throw reportedError<Id>(std::forward<Args>(args)...);
}

// The message of a warning without arguments yet.
resource_core::BaseMsgID warningMessage(Warning warning);

// Issues a warning through the host; execution goes on.
template <class... Args>
void warn(Warning warning, Args&&... args) {
  resource_core::BaseMsgID message = warningMessage(warning);
  (message.append(std::forward<Args>(args)), ...);
  vxWarningMsgId(message);
}

// Returns when `status`, the result of a libtiff fetch, is not 0.
// Raises tagRetrievalFailed(tagName) otherwise.
void check_field_status(int status, std::string tagName);

}  // namespace tb
