// Opening files for libtiff.
#include <fcntl.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <boost/locale/encoding_utf.hpp>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "host/tiff_utilities.h"
#include "runtime/directory_bounds.h"
#include "runtime/file_objects.h"
#include "runtime/file_source.h"
#include "runtime/memory.h"
#include "runtime/messages.h"
#include "runtime/open_file.h"
#include "runtime/open_mode.h"
#include "runtime/open_object.h"

namespace tb::runtime {
namespace {

// Says why, the way libtiff does for its own failures.
std::nullopt_t refuse(const std::string& name, const std::string& reason) {
  sayError("TIFFOpen", "%s: %s", name.c_str(), reason.c_str());
  return std::nullopt;
}

// Null when the text is no file name: an unpaired surrogate would be replaced and a NUL would cut
// it, and then another file would be opened than the one asked for.
std::optional<std::string> utf8Name(const std::u16string& name) try {
  std::string utf8 = boost::locale::conv::utf_to_utf<char>(name, boost::locale::conv::stop);
  if (utf8.find('\0') != std::string::npos)
    return refuse(utf8.c_str(), "The file name holds a NUL character");
  return utf8;
} catch (const boost::locale::conv::conversion_error&) {
  return refuse("?", "The file name is not valid UTF-16 text");
}

std::optional<OpenMode> knownMode(const std::string& name, const char* text) {
  std::optional<OpenMode> mode = parseOpenMode(text);
  if (!mode) return refuse(name, std::string("Bad mode \"") + text + "\"");
  if (!mode->dropped.empty())
    sayWarning("TIFFOpen", "%s: The letters \"%s\" of the mode are ignored", name.c_str(),
               mode->dropped.c_str());
  return mode;
}

// libtiff takes a header that cannot be read for one that is missing, and a handle that can write
// then puts a new one in its place: the images would be lost.
bool mayBeLoaded(FileSource& file, const std::string& name, const OpenMode& mode) {
  if (mode.truncates) return true;
  const bool loads = (mode.flags & O_CREAT) == 0;
  const bool canWrite = (mode.flags & O_ACCMODE) != O_RDONLY;
  std::array<std::byte, 1> start;
  const bool fits = loads ? firstDirectoryFits(file, name, canWrite) : file.readAt(0, start) <= 1;
  const int failure = file.takeReadFailure();
  if (failure != 0) (void)refuse(name, std::generic_category().message(failure));
  return fits && failure == 0;
}

// What libtiff allocates at once when it reads: encoded blocks, tables and tags, which are not
// larger than the file, and decoded blocks, which some decoders and the conversion to RGBA need
// whole. No coder makes more of a byte than Zstandard does, but for images of one colour, and those
// have the floor. A file that is edited may get larger blocks than it has.
std::size_t largestAllocation(FileSource& file, const OpenMode& mode) {
  constexpr std::size_t kFloorForReading = std::size_t{256} << 20;
  constexpr std::size_t kFloorForEditing = std::size_t{1} << 30;
  constexpr std::size_t kMostFromAByte = 32768;
  const std::size_t limit = memoryLimit();
  if ((mode.flags & O_CREAT) != 0) return limit;
  const std::size_t floor =
      (mode.flags & O_ACCMODE) == O_RDONLY ? kFloorForReading : kFloorForEditing;
  const auto size =
      static_cast<std::size_t>(std::min<std::uint64_t>(file.size(), limit / kMostFromAByte));
  return std::min(limit, std::max(floor, size * kMostFromAByte));
}

// The size of offsets and the byte order are the file's own once there is a file; libtiff would mix
// the letters with what the header says when it appends.
std::string libtiffMode(FileSource& file, const OpenMode& mode) {
  std::string letters = mode.forLibtiff;
  const bool isNew = mode.truncates || file.size() == 0;
  if (!isNew)
    std::erase_if(letters,
                  [](char c) { return kOnlyForNewFiles.find(c) != kOnlyForNewFiles.npos; });
  return letters;
}

// libtiff takes what it cannot read of the first directory, such as the link to the next one, for
// missing, and a handle that can write could put that into the file.
TIFF* unlessReadInPart(TIFF* tif, const std::string& name, const OpenMode& mode) {
  if (tif == nullptr || (mode.flags & O_ACCMODE) == O_RDONLY) return tif;
  const int failure = sourceOf(tif)->takeReadFailure();
  if (failure == 0) return tif;
  (void)TIFFSetMode(tif, O_RDONLY);  // nothing is written
  TIFFClose(tif);
  (void)refuse(name, std::generic_category().message(failure));
  return nullptr;
}

TIFF* openSourceOf(std::unique_ptr<FileSource> file, const std::string& name,
                   const OpenMode& mode) {
  if (file == nullptr || !mayBeLoaded(*file, name, mode)) return nullptr;
  const std::size_t limit = largestAllocation(*file, mode);
  const std::string letters = libtiffMode(*file, mode);
  return unlessReadInPart(openSource(std::move(file), name, letters, limit), name, mode);
}

TIFF* openNamedObject(const NamedFileObject& named, const char* modeText) {
  const std::optional<OpenMode> mode = knownMode(named.label, modeText);
  if (!mode) return nullptr;
  TIFF* tif = openSourceOf(openObject(named, *mode), named.label, *mode);
  if (!named.object->hasFailed()) return tif;
  if (tif != nullptr) TIFFClose(tif);
  throw FileObjectFailure();
}

TIFF* open(const std::u16string& fileName, const char* modeText) {
  if (const auto named = findFileObject(fileName)) return openNamedObject(*named, modeText);
  const std::optional<std::string> name = utf8Name(fileName);
  if (!name) return nullptr;
  const std::optional<OpenMode> mode = knownMode(*name, modeText);
  return mode ? openSourceOf(openRegularFile(*name, *mode), *name, *mode) : nullptr;
}

}  // namespace
}  // namespace tb::runtime

TIFF* tiffutils::UOpen(const std::u16string& fileName, const char* mode) {
  const std::size_t before = tb::runtime::messageCount();
  TIFF* tif = tb::runtime::open(fileName, mode);
  if (tif == nullptr) tb::runtime::dropRepeatedMessages(before);
  return tif;
}
