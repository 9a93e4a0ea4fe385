// What a read costs in memory, and how its time grows with the image: page faults of a call, the
// peak of the process above what it held before, time per pixel.
#include <sys/resource.h>

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/image_files.h"
#include "bench/main.h"
#include "bench/module_calls.h"
#include "bench/report.h"
#include "bench/timing.h"
#include "runtime/memory.h"

namespace tb::bench {
namespace {

using Specs = std::vector<ImageSpec>;

// --- Page faults

long faults() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt;
}

// Reads every block of the image a few times. The first turn does not count: that one maps the
// file and fills the cache of released memory.
void measureReadFaults(Session& session, const ImageSpec& spec) {
  const TemporaryImage image(session.folder, spec);
  const ModuleFile file(session.module, image.path(), "r");
  Operation read(file, readOperation(spec));
  const std::uint32_t count = blockCount(openTiff(image.path(), "r").get());
  const auto readAll = [&] {
    for (std::uint32_t block = 0; block < count; ++block) read(block);
  };
  readAll();
  constexpr int kTurns = 10;
  const long before = faults();
  for (int turn = 0; turn < kTurns; ++turn) readAll();
  report("page faults", spec, static_cast<double>(faults() - before) / kTurns / count);
}

void measureWriteFaults(Session& session, const ImageSpec& spec) {
  const TemporaryImage source(session.folder, spec);
  const TemporaryImage target(session.folder / "written.tif", makeEmptyImage, spec);
  const ModuleFile from(session.module, source.path(), "r"),
      to(session.module, target.path(), "r+");
  Operation read(from, "readEncodedStrip"), write(to, "writeEncodedStrip", 0);
  read(0);
  const vxArrayPtr block = read.takeResult();
  write(0, block.get());
  constexpr int kTurns = 20;
  const long before = faults();
  for (int turn = 0; turn < kTurns; ++turn) write(0, block.get());
  report("page faults of writes", spec, static_cast<double>(faults() - before) / kTurns);
}

Specs strips() {
  Specs specs;
  for (const std::uint32_t rows : {16U, 64U, 256U, 1024U, 4096U}) {
    specs.push_back({"u8", "none", false, rows, 4096, 2 * rows});
  }
  return specs;
}

// --- Peak memory

// A line of the process's status, in bytes.
double statusBytes(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(key + ":")) return 1024 * std::stod(line.substr(key.size() + 1));
  }
  throw std::runtime_error("the system does not tell " + key);
}

void resetPeak() {
  std::ofstream("/proc/self/clear_refs") << "5";  // the kernel's command for the resident peak
}

// The peak while one block is read, above what the process held with the file open, as a multiple
// of the block's buffer and the resulting array. Pages of the file, which libtiff maps, are the
// system's and do not count.
void measurePeak(Session& session, const ImageSpec& spec) {
  const TemporaryImage image(session.folder, spec);
  const ModuleFile file(session.module, image.path(), "r");
  Operation read(file, "readEncodedStrip");
  const std::size_t blockBytes = blockSize(openTiff(image.path(), "r").get());
  runtime::releaseCachedMemory();
  resetPeak();
  const double before = statusBytes("VmRSS"), mappedBefore = statusBytes("RssFile");
  read(0);
  const vxArrayPtr array = read.takeResult();
  const double mapped = statusBytes("RssFile") - mappedBefore;
  const double peak = statusBytes("VmHWM") - before - mapped;
  const double needed = static_cast<double>(blockBytes + vxGetNumberOfElements(array.get()) *
                                                             vxGetElementSize(array.get()));
  report("peak memory", spec, peak / needed);
}

// --- Time and size

void measureGrowth(Session& session, const ImageSpec& spec) {
  report("growth", spec, compareReadsOfOpenFile(session, spec).ours);
}

Specs squares(std::uint32_t largest) {
  Specs specs;
  for (std::uint32_t side = 1024; side <= largest; side *= 2) {
    specs.push_back({"u8", "none", true, 256, side, side});
  }
  return specs;
}

}  // namespace

void run(Session& session) {
  session.forEach(strips(), measureReadFaults);
  session.forEach({{"rgb", "none", false, 1024, 4096, 4096},
                   {"f64", "none", true, 1024, 4096, 4096},
                   {"rgb", "lzw", true, 512, 2048, 2048}},
                  measureReadFaults);
  session.forEach(strips(), measureWriteFaults);
  session.forEach({{"u8", "none", false, 4096, 4096, 8192},
                   {"u8", "deflate", false, 4096, 4096, 8192},
                   {"rgb", "deflate", false, 2048, 4096, 4096}},
                  measurePeak);
  session.forEach(squares(session.large ? 32768 : 8192), measureGrowth);
}

}  // namespace tb::bench
