#include "fuzz/seeded_runs.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <sstream>
#include <utility>

#include "fuzz/finding.h"

// There when a sanitizer that looks for leaks is.
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

namespace tb::fuzz {
namespace {

// Of processor time, which other work on the machine does not lengthen; a child that waits for
// something that never comes is ended by the clock.
constexpr unsigned kSecondsAtMost = 10;
constexpr unsigned kSecondsByTheClock = 10 * kSecondsAtMost;
constexpr long kKilobytesAtMost = 2L << 20;

// Inputs of a child: leaks are looked for at its end, and cannot be told from those before.
constexpr std::uint64_t kBatch = 500;

// SIGPROF and SIGALRM end the process. Zeros lift the limits.
void limitTime(unsigned secondsOfWork, unsigned secondsByTheClock) {
  itimerval work{};
  work.it_value.tv_sec = secondsOfWork;
  setitimer(ITIMER_PROF, &work, nullptr);
  alarm(secondsByTheClock);
}

// A child must end in time and within its memory.
void runGuarded(const Target& run, const Bytes& bytes) {
  limitTime(kSecondsAtMost, kSecondsByTheClock);
  run(bytes);
  limitTime(0, 0);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  if (usage.ru_maxrss <= kKilobytesAtMost) return;
  fail("the memory rose to " + std::to_string(usage.ru_maxrss >> 10) + " MB");
}

class Ending {
 public:
  Ending(bool isGood, std::string said) : good(isGood), output(std::move(said)) {}

  const bool good;
  const std::string output;  // what the child said on standard error

  // What tells one failure from another: the first words about it and the first function of
  // libtiff's or of the module's on the stack.
  std::string kind() const {
    if (good) return "";
    const std::string words = lineWith({"finding: ", "SUMMARY: ", "Assertion", "runtime error: "});
    const std::string frame = lineWith({" in TIFF", " in _TIFF", "/libtiff/tif_", " in tb::"});
    const std::size_t name = frame.find(" in ");
    const bool isFrame = frame.find(" #") != std::string::npos && name != std::string::npos;
    return (words.empty() ? "killed by a signal" : words) + (isFrame ? frame.substr(name) : "");
  }

 private:
  std::string lineWith(std::initializer_list<const char*> marks) const {
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
      if (line.find("tif_unix.c") != std::string::npos)
        continue;  // memcpy and write by other names
      for (const char* mark : marks)
        if (line.find(mark) != std::string::npos) return line;
    }
    return "";
  }
};

std::string readAll(int descriptor) {
  std::string said;
  char buffer[4096];
  for (ssize_t size = 0; (size = read(descriptor, buffer, sizeof buffer)) > 0;)
    said.append(buffer, static_cast<std::size_t>(size));
  return said;
}

// Standard error goes through a pipe, which has no limit of the kind that sequences set to files.
Ending inChild(const std::function<void()>& work) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
  const pid_t child = fork();
  if (child < 0) std::abort();
  if (child == 0) {
    dup2(ends[1], STDERR_FILENO);
    work();
    _exit(0);
  }
  close(ends[1]);
  std::string said = readAll(ends[0]);
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  const int signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  if (signal == SIGPROF || signal == SIGALRM) said += "finding: no end in time\n";
  return {WIFEXITED(status) && WEXITSTATUS(status) == 0, said};
}

// What a child tells its parent even when it crashes.
std::uint64_t& sharedNumber() {
  void* const memory = mmap(nullptr, sizeof(std::uint64_t), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) std::abort();
  return *static_cast<std::uint64_t*>(memory);
}

void writeFile(const std::filesystem::path& path, const void* data, std::size_t size) {
  std::ofstream(path, std::ios::binary)
      .write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
}

void report(const SeededInputs& inputs, std::uint64_t index, const Ending& ending,
            const std::filesystem::path& keep) {
  std::printf("seed %" PRIu64 ", %s %" PRIu64 ": %s\n", inputs.seed, inputs.name.c_str(), index,
              ending.kind().c_str());
  if (keep.empty()) {
    std::fprintf(stderr, "%s", ending.output.c_str());
    return;
  }
  std::filesystem::create_directories(keep);
  const Bytes bytes = inputs.make(index);
  const std::string name = std::to_string(inputs.seed) + "-" + std::to_string(index);
  writeFile(keep / name, bytes.data(), bytes.size());
  writeFile(keep / (name + ".log"), ending.output.data(), ending.output.size());
}

void lookForLeaks() {
  if (__lsan_do_recoverable_leak_check != nullptr && __lsan_do_recoverable_leak_check() != 0)
    fail("memory was lost by this input or one of its batch before it");
}

}  // namespace

int runSeeded(const SeededInputs& inputs, std::uint64_t count, const std::filesystem::path& keep) {
  std::printf("%" PRIu64 " inputs (%s) from seed %" PRIu64 "\n", count, inputs.name.c_str(),
              inputs.seed);
  std::fflush(stdout);
  std::uint64_t& current = sharedNumber();
  std::uint64_t failures = 0;
  for (std::uint64_t next = 0; next < count; next = current + 1) {
    const std::uint64_t last = std::min(next + kBatch, count) - 1;
    const Ending ending = inChild([&] {
      for (current = next;; ++current) {
        runGuarded(inputs.run, inputs.make(current));
        if (current == last) break;
      }
      lookForLeaks();
    });
    if (ending.good) continue;
    ++failures;
    report(inputs, current, ending, keep);
    std::fflush(stdout);
  }
  std::printf("%" PRIu64 " failures\n", failures);
  return failures == 0 ? 0 : 1;
}

int minimize(const std::filesystem::path& path, std::size_t header, std::size_t step,
             const Target& run) {
  std::ifstream file(path, std::ios::binary);
  Bytes bytes{std::istreambuf_iterator<char>(file), {}};
  const auto kindOf = [&](const Bytes& input) {
    return inChild([&] { runGuarded(run, input); }).kind();
  };
  const std::string kind = kindOf(bytes);
  if (kind.empty()) return 1;
  for (bool shorter = true; shorter;) {
    shorter = false;
    for (std::size_t at = header; at < bytes.size();) {
      Bytes without = bytes;
      const std::size_t end = std::min(at + step, bytes.size());
      without.erase(without.begin() + static_cast<std::ptrdiff_t>(at),
                    without.begin() + static_cast<std::ptrdiff_t>(end));
      if (kindOf(without) != kind) {
        at += step;
        continue;
      }
      bytes = std::move(without);
      shorter = true;
    }
  }
  writeFile(path, bytes.data(), bytes.size());
  std::printf("%zu bytes: %s\n", bytes.size(), kind.c_str());
  return 0;
}

std::mt19937_64 randomOf(std::uint64_t seed, std::uint64_t index) {
  return std::mt19937_64(seed * 0x9E3779B97F4A7C15ULL + index);
}

Bytes randomBytes(std::mt19937_64& random, std::size_t size) {
  Bytes bytes(size);
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random() >> 32);
  return bytes;
}

std::uint64_t argumentOr(int argc, char** argv, int place, std::uint64_t fallback) {
  return place < argc ? std::strtoull(argv[place], nullptr, 10) : fallback;
}

}  // namespace tb::fuzz
