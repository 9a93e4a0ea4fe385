// Lets every allocation and every access to a file fail, one after the other, in everything that
// the module does with files of every kind. Each time there must be an ordinary result or an
// identified error, the handle must close, no memory may be lost, and no directory of the file.
//
//   faults [PART]                      every PARTth fault only (default 1)
//   faults FILE WORK FAULT NUMBER      one, as the first form names it when it fails
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "faults/interposed.h"
#include "fuzz/gateway_session.h"
#include "fuzz/sequence_files.h"
#include "fuzz/sequence_model.h"
#include "fuzz/sequence_values.h"
#include "runtime/memory.h"

namespace tb::faults {
namespace {

using fuzz::MemoryFile;
using fuzz::number;
using fuzz::Outcome;

// --- What is done to a file

vxArrayPtr open(const std::string& name, const char* mode) {
  const vxArrayPtr path = matrix::create(name), letters = matrix::create(mode);
  Outcome opened = fuzz::attempt("open", {path.get(), letters.get()});
  return std::move(opened.outputs[0]);
}

void readAll(const std::string& name, const char* mode) {
  const vxArrayPtr file = open(name, mode);
  if (file == nullptr) return;
  fuzz::readEverything(file.get());
  fuzz::call("close", {file.get()});
}

void writeBlock(const vxArray* file, std::uint32_t block) {
  const fuzz::BlockLayout layout(file);
  const std::vector<vxArrayPtr> arrays = fuzz::arraysForBlock(layout, block, 3);
  const char* operation = layout.tiled ? "writeEncodedTile" : "writeEncodedStrip";
  const vxArrayPtr place = number(block);
  if (arrays.size() == 1) {
    fuzz::call(operation, {file, place.get(), arrays[0].get()});
  } else {
    fuzz::call(operation, {file, place.get(), arrays[0].get(), arrays[1].get(), arrays[2].get()});
  }
}

void setField(const vxArray* file, double tag, double value) {
  fuzz::call("setField", {file, number(tag).get(), number(value).get()});
}

void appendImage(const vxArray* file) {
  constexpr double kTags[][2] = {{262, 1}, {256, 20}, {257, 20}, {258, 8}, {277, 1}, {259, 5}};
  for (const auto& [tag, value] : kTags) setField(file, tag, value);
  writeBlock(file, 0);
  fuzz::call("writeDirectory", {file});
}

void edit(const std::string& name) {
  const vxArrayPtr file = open(name, "r+");
  if (file == nullptr) return;
  fuzz::call("setField",
             {file.get(), number(270).get(), matrix::create("edited, and rather longer").get()});
  writeBlock(file.get(), 0);
  fuzz::call("rewriteDirectory", {file.get()});
  fuzz::call("setDirectory", {file.get(), number(0).get()});
  writeBlock(file.get(), 0);
  fuzz::call("close", {file.get()});
}

void append(const std::string& name) {
  const vxArrayPtr file = open(name, "a");
  if (file == nullptr) return;
  appendImage(file.get());
  appendImage(file.get());
  fuzz::call("close", {file.get()});
}

void writeAnew(const std::string& name) {
  const vxArrayPtr file = open(name, "w8");
  if (file == nullptr) return;
  appendImage(file.get());
  appendImage(file.get());
  fuzz::call("close", {file.get()});
}

struct Work {
  const char* name;
  std::function<void(const std::string&)> run;
  bool keepsFile;  // what was in the file stays readable
};

const Work kWorks[] = {
    {"read", [](const std::string& name) { readAll(name, "r"); }, true},
    {"read unmapped", [](const std::string& name) { readAll(name, "rm"); }, true},
    {"edit", edit, true},
    {"append", append, true},
    {"write anew", writeAnew, false},
};

constexpr Fault kFaults[] = {Fault::kAllocation,     Fault::kLargeAllocation, Fault::kReadError,
                             Fault::kReadInterrupt,  Fault::kReadShort,       Fault::kWriteError,
                             Fault::kWriteInterrupt, Fault::kWriteShort,      Fault::kDiskFull};

// --- One work, one kind of fault, at every place

// Shared with the parent, which tells what a child that died was at.
struct Progress {
  std::size_t number;
  std::size_t faults;
  std::size_t lostBytes;
};

// Whether libtiff alone still reads each directory that it read before. A block that was being
// stored over its former bytes when the device failed is lost, but nothing else.
bool keepsDirectories(const std::vector<fuzz::Page>& before, const std::string& name) {
  const auto now = fuzz::pagesOf(name);
  if (!now || now->size() < before.size()) return before.empty();
  for (std::size_t page = 0; page < before.size(); ++page) {
    if (before[page].readable && !(*now)[page].readable) return false;
  }
  return true;
}

// Returns whether the fault came.
bool runOnce(const Work& work, const fuzz::StartingFile& start, Fault fault, std::size_t number,
             const std::vector<fuzz::Page>& before) {
  const MemoryFile file(start.contents);
  const std::string name = file.name();
  bool hasFailed = false;
  {
    const Armed armed(fault, number);
    work.run(name);
    hasFailed = armed.hasFailed();
  }
  if (work.keepsFile && !keepsDirectories(before, name)) {
    fuzz::fail("a directory was lost");
  }
  return hasFailed;
}

// What is made at the first use is made.
void warmUp(const Work& work, const fuzz::StartingFile& start) {
  for (int turn = 0; turn < 2; ++turn) runOnce(work, start, Fault::kNone, 0, {});
  runtime::releaseCachedMemory();
}

void runAll(const Work& work, const fuzz::StartingFile& start, Fault fault, std::size_t part,
            Progress& progress) {
  std::vector<fuzz::Page> before;
  {
    const MemoryFile file(start.contents);
    before = fuzz::pagesOf(file.name()).value_or(std::vector<fuzz::Page>{});
  }
  warmUp(work, start);
  for (progress.number = 0;; progress.number += part) {
    runtime::releaseCachedMemory();
    const std::size_t live = liveBytes();
    if (!runOnce(work, start, fault, progress.number, before)) break;
    ++progress.faults;
    runtime::releaseCachedMemory();
    if (liveBytes() <= live) continue;
    // What is kept for later, as a slab or a message, is kept once.
    runOnce(work, start, fault, progress.number, before);
    runtime::releaseCachedMemory();
    const std::size_t again = liveBytes();
    runOnce(work, start, fault, progress.number, before);
    runtime::releaseCachedMemory();
    if (liveBytes() > again) progress.lostBytes += liveBytes() - again;
  }
}

// In a child, so that a crash ends this part only. Returns whether all was well.
bool runGuarded(const Work& work, const fuzz::StartingFile& start, Fault fault, std::size_t part,
                Progress& progress) {
  constexpr unsigned kSecondsAtMost = 900;
  progress = {};
  const pid_t child = fork();
  if (child == 0) {
    alarm(kSecondsAtMost);
    runAll(work, start, fault, part, progress);
    _exit(progress.lostBytes > 0 ? EXIT_FAILURE : EXIT_SUCCESS);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return false;
  if (WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS) return true;
  std::printf("FAILED: %s, %s, %s %zu: %s; %zu bytes lost\n", start.name, work.name, nameOf(fault),
              progress.number, WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "ended",
              progress.lostBytes);
  return false;
}

// In this process, for a debugger.
int runOne(const std::string& file, const std::string& work, const std::string& fault,
           std::size_t number) {
  for (const Work& candidate : kWorks) {
    for (const fuzz::StartingFile& start : fuzz::startingFiles()) {
      for (const Fault kind : kFaults) {
        if (file != start.name || work != candidate.name || fault != nameOf(kind)) continue;
        warmUp(candidate, start);
        const bool hasFailed = runOnce(candidate, start, kind, number, {});
        std::printf("%s\n", hasFailed ? "the fault came" : "so many events did not come");
        return EXIT_SUCCESS;
      }
    }
  }
  std::fprintf(stderr, "there is no such file, work or fault\n");
  return EXIT_FAILURE;
}

int run(std::size_t part) {
  auto* const progress = static_cast<Progress*>(
      mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  if (progress == MAP_FAILED) return EXIT_FAILURE;
  std::size_t failures = 0;
  for (const Fault fault : kFaults) {
    std::size_t faults = 0, lost = 0;
    for (const Work& work : kWorks) {
      for (const fuzz::StartingFile& start : fuzz::startingFiles()) {
        if (!start.whole) continue;
        failures += runGuarded(work, start, fault, part, *progress) ? 0 : 1;
        faults += progress->faults;
        lost += progress->lostBytes;
      }
    }
    std::printf("%-18s %8zu faults, %zu bytes lost\n", nameOf(fault), faults, lost);
    std::fflush(stdout);
  }
  std::printf("%zu of the runs failed\n", failures);
  return failures > 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace
}  // namespace tb::faults

int main(int argc, char** argv) {
  (void)tb::fuzz::startingFiles();  // before the children, who then share them
  tb::fuzz::observeCalls(tb::faults::countEvents);
  if (argc == 5) {
    return tb::faults::runOne(argv[1], argv[2], argv[3], std::strtoul(argv[4], nullptr, 10));
  }
  const long part = argc > 1 ? std::atol(argv[1]) : 1;
  return tb::faults::run(static_cast<std::size_t>(std::max(part, 1L)));
}
