// Lets every allocation and every access to a file fail, one after the other, in everything that
// the module does with files of every kind. Each time there must be the same result as ever or an
// identified error or a warning, the handle must answer again or at least close, and nothing may be
// lost: no memory, no descriptor, no map, and nothing that is in the file.
//
//   faults [PART [FILEPART]]           every PARTth fault only (default 1), and every FILEPARTth of
//                                      those of files (default PART)
//   faults FILE WORK FAULT NUMBER      one, as the first form names it when it fails
#include <sys/mman.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "faults/interposed.h"
#include "faults/story.h"
#include "faults/works.h"
#include "fuzz/gateway_session.h"
#include "fuzz/sequence_model.h"
#include "runtime/memory.h"
#include "tags/tag_table.h"
#include "tests/support/file_content.h"

namespace tb::faults {
namespace {

using fuzz::MemoryFile;
using fuzz::Page;
using fuzz::StartingFile;
using Pages = std::vector<Page>;

struct Parts {
  std::size_t ofMemory = 1;
  std::size_t ofFiles = 1;
};

bool isOfMemory(Fault fault) {
  return fault == Fault::kAllocation || fault == Fault::kLargeAllocation;
}

// What passes, when whoever reads or writes goes on.
bool isHarmless(Fault fault) {
  constexpr Fault kHarmless[] = {Fault::kReadInterrupt, Fault::kReadShort, Fault::kWriteInterrupt,
                                 Fault::kWriteShort};
  return std::ranges::find(kHarmless, fault) != std::end(kHarmless);
}

bool isOfWriting(Fault fault) {
  return fault == Fault::kWriteError || fault == Fault::kDiskFull || fault == Fault::kRoomForOthers;
}

// --- A turn of a work

struct Turn {
  Story story;
  Done done;
  std::string contents;  // of the file, afterwards
  std::optional<Pages> pages;
  Story tags;                   // only where the contents are not as ever
  std::size_t descriptors = 0;  // that were left open
  std::size_t maps = 0;
  bool hasFailed = false;
};

// The descriptor that the next file will have: none below is free.
int nextDescriptor() {
  const int descriptor = dup(STDOUT_FILENO);
  ::close(descriptor);
  return descriptor;
}

// What getField says of each directory, but for where its parts lie.
Story tagsOf(const std::string& name) {
  constexpr std::uint32_t kPlaces[] = {TIFFTAG_STRIPOFFSETS, TIFFTAG_STRIPBYTECOUNTS,
                                       TIFFTAG_TILEOFFSETS, TIFFTAG_TILEBYTECOUNTS, TIFFTAG_SUBIFD};
  Story tags;
  const Telling telling(tags);
  const auto opened = fuzz::call("open", {matrix::create(name).get(), matrix::create("rm").get()});
  if (!opened[0]) return tags;
  const vxArray* file = opened[0].get();
  for (bool isLast = false; !isLast;) {
    for (const TagRow& row : tagTable())
      if (row.reading.read != nullptr && !std::ranges::count(kPlaces, row.tag))
        fuzz::call("getField", {file, fuzz::number(row.tag).get()});
    isLast = fuzz::scalarOr(fuzz::call("lastDirectory", {file}), 1) != 0 ||
             !fuzz::attempt("readDirectory", {file}).error.empty();
  }
  fuzz::call("close", {file});
  return tags;
}

Turn turnOf(const Work& work, const StartingFile& start, Fault fault, std::size_t number,
            const Turn* undisturbed = nullptr) {
  const MemoryFile file(start.contents);
  const std::string name = file.name();
  const int descriptor = nextDescriptor();
  Turn turn;
  {
    const Armed armed(fault, number);
    const Telling telling(turn.story);
    work.run(name, turn.done);
    turn.hasFailed = hasFailed();
  }
  turn.descriptors = static_cast<std::size_t>(nextDescriptor() - descriptor);
  turn.maps = mappedFiles();
  turn.contents = test::contentOf(name);
  turn.pages = fuzz::pagesOf(name);
  if (undisturbed == nullptr || turn.contents != undisturbed->contents) turn.tags = tagsOf(name);
  return turn;
}

// --- What is wrong with it

// What a file holds before a work, and what it holds after one that nothing disturbed.
struct Known {
  Pages before;
  Turn undisturbed;
  std::array<std::size_t, kFaultKinds> events{};

  const Pages& after() const { return *undisturbed.pages; }
};

bool isPage(const Page& before, const Page& after, const Page& now, bool mayLoseBlocks) {
  const auto isEither = [&](auto member) {
    return now.*member == before.*member || now.*member == after.*member;
  };
  if (!isEither(&Page::readable) || !isEither(&Page::layout) || !isEither(&Page::description))
    return false;
  if (now.blocks.size() != before.blocks.size() || now.subPages.size() != before.subPages.size())
    return now == after;
  for (std::size_t block = 0; block < now.blocks.size(); ++block) {
    const bool isReplaced = before.blocks[block] != after.blocks[block];
    if (now.blocks[block] != before.blocks[block] && now.blocks[block] != after.blocks[block] &&
        !(isReplaced && mayLoseBlocks))
      return false;
  }
  for (std::size_t page = 0; page < now.subPages.size(); ++page)
    if (!isPage(before.subPages[page], after.subPages[page], now.subPages[page], mayLoseBlocks))
      return false;
  return true;
}

// Whether libtiff alone reads each directory as it did before, or as the work was to leave it. A
// block that was being stored over its former bytes when the device failed is lost, but nothing
// else.
bool keepsDirectories(const Known& known, const Turn& turn, Fault fault) {
  if (!turn.pages || turn.pages->size() < known.before.size()) return known.before.empty();
  for (std::size_t page = 0; page < known.before.size(); ++page) {
    if (!isPage(known.before[page], known.after()[page], (*turn.pages)[page], isOfWriting(fault)))
      return false;
  }
  return true;
}

// A sub-directory that was announced may not have come to be written, or not with its block.
bool isAppendedPage(Page now, const Page& after) {
  if (now.subPages.size() != after.subPages.size()) return false;
  for (std::size_t page = 0; page < after.subPages.size(); ++page)
    if (now.subPages[page].blocks != after.subPages[page].blocks)
      now.subPages[page] = after.subPages[page];
  return now == after;
}

// Whether what writeDirectory succeeded with is in the file, behind what was there. A directory
// without its block is one that libtiff need not read.
bool hasWhatWasAppended(const Work& work, const Known& known, const Turn& turn) {
  const std::size_t first = work.keepsFile ? known.before.size() : 0;
  const std::vector<bool>& appended = turn.done.appended;
  if (!turn.pages || turn.pages->size() < first + appended.size()) return appended.empty();
  for (std::size_t page = 0; page < appended.size(); ++page)
    if (appended[page] && !isAppendedPage((*turn.pages)[first + page], known.after()[first + page]))
      return false;
  return true;
}

// A warning for which there is no memory is not given; all else must be as ever.
Story withoutLostWarnings(Story undisturbed, const Story& story) {
  for (std::size_t step = 0; step < std::min(undisturbed.size(), story.size()); ++step)
    undisturbed[step].warnings = std::min(undisturbed[step].warnings, story[step].warnings);
  return undisturbed;
}

// Empty when all is well.
std::string wrongWith(const Work& work, const Known& known, const Turn& turn, Fault fault) {
  const Turn& undisturbed = known.undisturbed;
  if (turn.descriptors > 0) return "a descriptor was left open";
  if (turn.maps > 0) return "a map was left";
  if (!turn.done.closes) return "the handle could not be closed";
  if (!turn.done.afterwards.empty() && turn.done.afterwards != undisturbed.done.afterwards)
    return "afterwards, " + firstDifference(undisturbed.done.afterwards, turn.done.afterwards);
  if (work.keepsFile && !keepsDirectories(known, turn, fault)) return "the file lost something";
  if (!hasWhatWasAppended(work, known, turn)) return "what was appended is not there";
  const std::string difference = firstDifference(
      isOfMemory(fault) ? withoutLostWarnings(undisturbed.story, turn.story) : undisturbed.story,
      turn.story);
  const bool hasSameBytes = turn.contents == undisturbed.contents;
  if (isHarmless(fault)) return difference.empty() && hasSameBytes ? "" : "noticed: " + difference;
  // The parts of a file may lie elsewhere in it.
  const bool hasSameParts =
      hasSameBytes || (turn.pages == undisturbed.pages && turn.tags == undisturbed.tags);
  if (difference.empty() && hasSameParts) return "";
  if (!isNoticed(undisturbed.story, turn.story))
    return difference.empty() ? "silence about another file" : "silence: " + difference;
  return "";
}

// --- All turns of a work

// Shared with the parent, which tells what a child that died was at.
struct Progress {
  std::size_t fault;  // index into kFaults
  std::size_t number;
  std::size_t failures;
  std::array<std::size_t, kFaultKinds> faults;
  std::array<std::size_t, kFaultKinds> lostBytes;
};

constexpr Fault kFaults[] = {
    Fault::kAllocation, Fault::kLargeAllocation, Fault::kReadError,      Fault::kReadInterrupt,
    Fault::kReadShort,  Fault::kWriteError,      Fault::kWriteInterrupt, Fault::kWriteShort,
    Fault::kDiskFull,   Fault::kRoomForOthers,   Fault::kOpen,           Fault::kClose,
    Fault::kStatus,     Fault::kTruncate};

// What is made at the first use is made by then.
Known learn(const Work& work, const StartingFile& start) {
  Known known;
  {
    const MemoryFile file(start.contents);
    known.before = fuzz::pagesOf(file.name()).value_or(Pages{});
  }
  for (int turn = 0; turn < 2; ++turn) known.undisturbed = turnOf(work, start, Fault::kNone, 0);
  for (const Fault fault : kFaults) known.events[static_cast<std::size_t>(fault)] = eventsOf(fault);
  if (!known.undisturbed.pages) known.undisturbed.pages.emplace();
  return known;
}

// Bytes that are lost at each such turn. What is kept for later, as a slab or a message, is kept
// once.
std::size_t lostBytes(const std::function<void()>& turn) {
  std::size_t lost = 0;
  for (int turns = 0; turns < 3; ++turns) {
    runtime::releaseCachedMemory();
    const std::size_t live = liveBytes();
    turn();
    runtime::releaseCachedMemory();
    lost = liveBytes() > live ? liveBytes() - live : 0;
    if (lost == 0) break;
  }
  return lost;
}

void report(const Work& work, const StartingFile& start, Fault fault, std::size_t number,
            const std::string& what) {
  std::printf("FAILED: %s '%s' '%s' %zu: %s\n", start.name, work.name, nameOf(fault), number,
              what.c_str());
  std::fflush(stdout);
}

// Where to begin with each part of the events: all places come up in one work or another.
std::size_t firstOf(std::size_t part, const Work& work, const StartingFile& start, Fault fault) {
  const std::string names = std::string(start.name) + work.name + nameOf(fault);
  return std::hash<std::string>{}(names) % part;
}

void runAll(const Work& work, const StartingFile& start, const Parts& parts, Progress& progress) {
  const Known known = learn(work, start);
  for (; progress.fault < std::size(kFaults); ++progress.fault) {
    const Fault fault = kFaults[progress.fault];
    const auto kind = static_cast<std::size_t>(fault);
    const std::size_t part = isOfMemory(fault) ? parts.ofMemory : parts.ofFiles;
    const std::size_t events = known.events[kind];
    for (progress.number = firstOf(part, work, start, fault); progress.number < events;
         progress.number += part) {
      std::string wrong;
      bool hasCome = false;
      const std::size_t lost = lostBytes([&] {
        const Turn turn = turnOf(work, start, fault, progress.number, &known.undisturbed);
        hasCome = turn.hasFailed;
        wrong = wrongWith(work, known, turn, fault);
      });
      if (!hasCome) break;
      ++progress.faults[kind];
      progress.lostBytes[kind] += lost;
      if (lost > 0) wrong.append("; bytes lost: ").append(std::to_string(lost));
      if (wrong.empty()) continue;
      ++progress.failures;
      report(work, start, fault, progress.number, wrong);
    }
  }
}

// In children, so that a crash ends this fault only.
void runGuarded(const Work& work, const StartingFile& start, const Parts& parts,
                Progress& progress) {
  constexpr unsigned kSecondsAtMost = 1800;
  for (progress.fault = 0; progress.fault < std::size(kFaults); ++progress.fault) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(kSecondsAtMost);
      runAll(work, start, parts, progress);
      _exit(EXIT_SUCCESS);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) std::abort();
    if (WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS) return;
    ++progress.failures;
    report(work, start, kFaults[progress.fault], progress.number,
           WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "ended");
  }
}

// --- The program

bool isFor(const Work& work, const StartingFile& start) {
  return std::string_view(start.name).starts_with(work.onlyStarts);
}

// In this process, for a debugger.
int runOne(const std::string& file, const std::string& workName, const std::string& faultName,
           std::size_t number) {
  for (const Work& work : works()) {
    for (const StartingFile& start : startingFiles()) {
      for (const Fault fault : kFaults) {
        if (file != start.name || workName != work.name || faultName != nameOf(fault)) continue;
        const Known known = learn(work, start);
        const Turn turn = turnOf(work, start, fault, number, &known.undisturbed);
        const std::string wrong = wrongWith(work, known, turn, fault);
        std::printf("%s\n", turn.hasFailed ? "the fault came" : "so many events did not come");
        for (const Step& step : turn.story)
          std::printf("%-20s %s %zu\n", step.operation.c_str(), step.error.c_str(), step.warnings);
        std::printf("%s\n", wrong.empty() ? "all is well" : wrong.c_str());
        return wrong.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
      }
    }
  }
  std::fprintf(stderr, "there is no such file, work or fault\n");
  return EXIT_FAILURE;
}

int run(const Parts& parts) {
  auto* const progress = static_cast<Progress*>(
      mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  if (progress == MAP_FAILED) return EXIT_FAILURE;
  for (const Work& work : works())
    for (const StartingFile& start : startingFiles())
      if (isFor(work, start)) runGuarded(work, start, parts, *progress);
  for (const Fault fault : kFaults) {
    const auto kind = static_cast<std::size_t>(fault);
    std::printf("%-18s %8zu faults, %zu bytes lost\n", nameOf(fault), progress->faults[kind],
                progress->lostBytes[kind]);
  }
  std::printf("%zu of them found something wrong\n", progress->failures);
  return progress->failures > 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}

std::size_t partFrom(const char* text) {
  return static_cast<std::size_t>(std::max(std::atol(text), 1L));
}

int runWith(int argc, char** argv) {
  (void)startingFiles();  // before the children, who then share them
  fuzz::observeCalls(countEvents);
  if (argc == 5) return runOne(argv[1], argv[2], argv[3], std::strtoul(argv[4], nullptr, 10));
  Parts parts;
  if (argc > 1) parts.ofMemory = parts.ofFiles = partFrom(argv[1]);
  if (argc > 2) parts.ofFiles = partFrom(argv[2]);
  return run(parts);
}

}  // namespace
}  // namespace tb::faults

int main(int argc, char** argv) { return tb::faults::runWith(argc, argv); }
