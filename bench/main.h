// What the benchmark programs have in common: main(), which makes a session of the command line
// "PROGRAM EFFORT FOLDER [TEXT]" and calls run().
#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

#include "bench/image_files.h"
#include "bench/timing.h"
#include "runtime/loader.h"

namespace tb::bench {

struct Session {
  runtime::Module module;
  Effort effort;
  std::filesystem::path folder;  // for the images, one at a time
  bool small;                    // only to show that everything works
  bool large;                    // also what takes gigabytes
  std::string_view text;         // measure() is only called for images whose names have it

  // The image as this session measures it.
  ImageSpec fit(ImageSpec spec) const;

  // Calls `measure` for the images that are asked for.
  void forEach(const std::vector<ImageSpec>& specs,
               void (*measure)(Session& session, const ImageSpec& spec));
};

// An image's file, removed at the end of the scope.
class TemporaryImage {
 public:
  TemporaryImage(const std::filesystem::path& folder, const ImageSpec& spec);
  // A file that `make` makes.
  TemporaryImage(const std::filesystem::path& path,
                 void (*make)(const std::filesystem::path&, const ImageSpec&),
                 const ImageSpec& spec);
  ~TemporaryImage();
  TemporaryImage(const TemporaryImage&) = delete;
  TemporaryImage& operator=(const TemporaryImage&) = delete;
  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  std::filesystem::path path_;
};

// The operation that reads a block of the image.
const char* readOperation(const ImageSpec& spec);

// Times reading all blocks of a file that is open and has its pages mapped, beside libtiff's loop.
Comparison compareReadsOfOpenFile(Session& session, const ImageSpec& spec);

// Every program defines it.
void run(Session& session);

}  // namespace tb::bench
