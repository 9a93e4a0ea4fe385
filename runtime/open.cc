// Opening files for libtiff.
#include <tiffio.h>

#include <boost/locale/encoding_utf.hpp>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "host/tiff_utilities.h"
#include "runtime/file_source.h"
#include "runtime/memory.h"
#include "runtime/messages.h"
#include "runtime/open_file.h"
#include "runtime/open_mode.h"

namespace tb::runtime {
namespace {

// Says why, the way libtiff does for its own failures.
std::nullopt_t refuse(const std::string& name, const std::string& reason) {
  TIFFError("TIFFOpen", "%s: %s", name.c_str(), reason.c_str());
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
    TIFFWarning("TIFFOpen", "%s: The letters \"%s\" of the mode are ignored", name.c_str(),
                mode->dropped.c_str());
  return mode;
}

TIFF* open(const std::u16string& fileName, const char* modeText) {
  const std::optional<std::string> name = utf8Name(fileName);
  if (!name) return nullptr;
  const std::optional<OpenMode> mode = knownMode(*name, modeText);
  if (!mode) return nullptr;
  std::unique_ptr<FileSource> file = openRegularFile(*name, *mode);
  if (file == nullptr) return nullptr;
  return openSource(std::move(file), *name, mode->forLibtiff, memoryLimit());
}

}  // namespace
}  // namespace tb::runtime

TIFF* tiffutils::UOpen(const std::u16string& fileName, const char* mode) {
  const std::size_t before = tb::runtime::messageCount();
  TIFF* tif = tb::runtime::open(fileName, mode);
  if (tif == nullptr) tb::runtime::dropRepeatedMessages(before);
  return tif;
}
