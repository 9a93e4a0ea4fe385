// The host's TIFF utility library: libtiff's diagnostics, codecs, tags and files.
#pragma once

#include <tiffio.h>

#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <span>
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

// Whether a write to the handle's file failed (a full disk, a limit, an error of the device) since
// this was last asked of the handle. libtiff does not hand on every such failure: it may succeed
// with an operation whose bytes are not in the file. False for a handle that UOpen did not open.
bool ZQTIFFcheckWriteFailure(TIFF* tif);

// The same of a read of the file that failed, as opposed to one past its end. libtiff takes a link
// to the next directory that it cannot read for the end of the chain.
bool ZQTIFFcheckReadFailure(TIFF* tif);

// How many messages the error stack of this thread's call has, and back to so many: what libtiff
// said since is forgotten. For questions whose answer is no error, and for work that is done again.
std::size_t ZQTIFFmessageCount() noexcept;
void ZQTIFFforgetMessages(std::size_t count) noexcept;

// While this is on, the handle's file is read with the bits of each byte in reverse order. For data
// whose bits libtiff would turn round twice. No effect on a handle that UOpen did not open.
void ZQTIFFreverseBitsRead(TIFF* tif, bool isOn) noexcept;

// The bytes of the handle's file, all of them, when libtiff reads them from memory where they lie;
// empty when it does not, or when the host cannot tell: nothing is lost then but time. They stay
// there for as long as the handle is open.
std::span<const std::byte> ZQTIFFmapping(TIFF* tif) noexcept;

// Makes what libtiff writes for a handle happen as a whole or not at all. From ZQTIFFbeginUpdate
// on, writes to bytes that the file has already are held back, and reads see them; others are made.
// ZQTIFFcommitUpdate makes the held writes, the links of directories among them, and returns
// whether they and all others succeeded; when one did not, the file is as it was when the update
// began. ZQTIFFcancelUpdate makes none of them and cuts off what was added.
//
// ZQTIFFbeginUpdate returns false for a handle that tiffutils::UOpen did not open, and then
// libtiff's writes are made as they come.
bool ZQTIFFbeginUpdate(TIFF* tif);
bool ZQTIFFcommitUpdate(TIFF* tif);
void ZQTIFFcancelUpdate(TIFF* tif) noexcept;

// Whether libtiff may load the directory at `offset` of the handle's file, which is asked before a
// move to it: false, after an error message of libtiff's kind, when its tags, which may all be the
// same bytes, would take far more memory than the file's size accounts for. True where there is no
// directory; libtiff then says what is wrong. UOpen looks at the first directory itself.
bool ZQTIFFdirectoryFits(TIFF* tif, std::uint64_t offset);

// Makes the host's JPEG 2000 codecs known to libtiff. Called at every entry; does its work once.
void registerJPEG2000Codecs();

// Forgets them, so that registerJPEG2000Codecs works again; called when the module is unloaded,
// after the files are closed.
void unregisterJPEG2000Codecs();

// Makes the GeoTIFF and RPC tags, whose numbers tiffutils has, known to every file that is opened
// afterwards, through TIFFSetTagExtender. Calling it again changes nothing.
void registerCustomGeoTags();

// Puts the tag extender that was there before back, so that registerCustomGeoTags works again.
void unregisterCustomGeoTags();

// The name of a compression scheme (tag 259) that this libtiff can decode; empty for any other.
std::string getCompressionScheme(std::uint16_t compression);

namespace tiffutils {

// The tags of registerCustomGeoTags, which libtiff's headers do not name.
inline constexpr std::uint32_t kModelPixelScaleTag = 33550;
inline constexpr std::uint32_t kModelTiepointTag = 33922;
inline constexpr std::uint32_t kModelTransformationTag = 34264;
inline constexpr std::uint32_t kGeoKeyDirectoryTag = 34735;
inline constexpr std::uint32_t kGeoDoubleParamsTag = 34736;
inline constexpr std::uint32_t kGeoAsciiParamsTag = 34737;
inline constexpr std::uint32_t kRpcCoefficientTag = 50844;

// Opens a TIFF file with libtiff; null when that fails. The name is UTF-16; `mode` is r, r+, w or a
// followed by libtiff's flags.
TIFF* UOpen(const std::u16string& fileName, const char* mode);

// Waits for so long before the module tries again what failed. The module holds nothing then that
// another call could change or release, and nothing waits for this one.
void Pause(std::chrono::milliseconds duration);

}  // namespace tiffutils
