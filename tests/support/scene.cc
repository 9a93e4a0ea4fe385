#include "tests/support/scene.h"

namespace tb::test {

Tags also(Tags tags, const Tags& more) {
  tags.insert(tags.end(), more.begin(), more.end());
  return tags;
}

namespace {

Tags imageTags(int photometric, int bits, int samples) {
  Tags tags{
      {TIFFTAG_PHOTOMETRIC, photometric}, {TIFFTAG_IMAGEWIDTH, 16}, {TIFFTAG_IMAGELENGTH, 16}};
  if (samples != 0)
    tags = also(tags, {{TIFFTAG_BITSPERSAMPLE, bits}, {TIFFTAG_SAMPLESPERPIXEL, samples}});
  return also(tags, {{TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG}});
}

}  // namespace

Tags stripTags(int photometric, int bits, int samples) {
  return also(imageTags(photometric, bits, samples), {{TIFFTAG_ROWSPERSTRIP, 16}});
}

Tags tileTags(int photometric, int bits, int samples) {
  return also(imageTags(photometric, bits, samples),
              {{TIFFTAG_TILEWIDTH, 16}, {TIFFTAG_TILELENGTH, 16}});
}

std::filesystem::path Scene::nextPath() {
  return folder_ / (std::to_string(files_.size()) + ".tif");
}

const OpenedFile& Scene::open(const std::filesystem::path& path, const char* mode) {
  return *files_.emplace_back(std::make_unique<OpenedFile>(path, mode));
}

const OpenedFile& Scene::fresh(const Tags& tags, const char* mode) {
  const OpenedFile& file = open(nextPath(), mode);
  setFields(file, tags);
  return file;
}

const OpenedFile& Scene::written(const std::vector<Layout>& directories, const char* mode) {
  const std::filesystem::path path = nextPath();
  writeTiff(path, directories);
  return open(path, mode);
}

const OpenedFile& Scene::raw(const std::vector<RawEntry>& entries, const char* mode) {
  const std::filesystem::path path = nextPath();
  writeRawTiff(path, entries, std::vector<std::byte>(4096, std::byte{1}));
  return open(path, mode);
}

}  // namespace tb::test
