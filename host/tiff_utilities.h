// The host's TIFF utility library: libtiff's diagnostics, codecs, tags and files.
#pragma once

#include <tiffio.h>

#include <cstdarg>
#include <cstdint>
#include <string>

// libtiff error and warning handlers. Messages that arrive on a thread which is inside a call of
// the module are put on that call's error stack; all others go to the handlers that were installed
// before (see ZQTIFFsetPreviousHandlers), because libtiff's handlers serve the whole process.
// `module` may be null; nothing is thrown, since libtiff's C frames lie between.
extern "C" {
void ZQTIFFerrHandler(const char* module, const char* format, std::va_list arguments);
void ZQTIFFwarnHandler(const char* module, const char* format, std::va_list arguments);
}

// Hands over what TIFFSetErrorHandler and TIFFSetWarningHandler returned when the two handlers
// above were installed. Handing over the two handlers themselves changes nothing.
void ZQTIFFsetPreviousHandlers(TIFFErrorHandler error, TIFFErrorHandler warning) noexcept;

// Installs the handlers that were there before the module's; called when the module is unloaded.
void ZQTIFFrestorePreviousHandlers() noexcept;

// Empties the error stack at the start of a call.
void ZQTIFFinitializeErrorStack();

// Reports what libtiff said during the call as host warnings (vxWarningMsgId), in order, and
// empties the stack. The identifiers are "KORVAL:pictoria:tiffutils:libtiffError" and
// "KORVAL:pictoria:tiffutils:libtiffWarning", the arguments libtiff's module name and its message.
void ZQTIFFcheckErrorAsWarning();

// Makes the host's JPEG 2000 codecs known to libtiff. Called at every entry; does its work once.
void registerJPEG2000Codecs();

// Forgets them, so that registerJPEG2000Codecs works again; called when the module is unloaded,
// after the files are closed.
void unregisterJPEG2000Codecs();

// Makes the GeoTIFF and RPC tags 33550, 33922, 34264, 34735, 34736, 34737 and 50844 known to every
// file that is opened afterwards, through TIFFSetTagExtender. Calling it again changes nothing.
void registerCustomGeoTags();

// Puts the tag extender that was there before back, so that registerCustomGeoTags works again.
void unregisterCustomGeoTags();

// The name of a compression scheme (tag 259) that this libtiff can decode; empty for any other.
std::string getCompressionScheme(std::uint16_t compression);

namespace tiffutils {

// Opens a TIFF file with libtiff; null when that fails. The name is UTF-16; `mode` is r, r+, w or a
// followed by libtiff's flags.
TIFF* UOpen(const std::u16string& fileName, const char* mode);

}  // namespace tiffutils
