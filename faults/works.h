// What is done to files while the machine fails.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "faults/story.h"
#include "fuzz/sequence_files.h"

namespace tb::faults {

// What a turn of a work knows of itself besides its calls.
struct Done {
  // A directory was written for each of these, with all that belongs to it where one is true.
  std::vector<bool> appended;
  // What the handle answers when all is well again; no more is asked of one that has written.
  Story afterwards;
  bool closes = true;  // without an error, when all is well again
};

struct Work {
  const char* name;
  void (*run)(const std::string& fileName, Done& done);
  bool keepsFile = true;        // what was in the file stays there
  const char* onlyStarts = "";  // how the names of the files begin that it is for
};

std::span<const Work> works();

// Those that libtiff alone reads, and files of JPEG 2000.
std::span<const fuzz::StartingFile> startingFiles();

}  // namespace tb::faults
