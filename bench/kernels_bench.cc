// Each pixel kernel beside a memcpy of the same bytes, timed in turn within one run. The counter
// `of_memcpy` is the kernel's rate as a fraction of that of the copy; both work on warm buffers.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "bench/page_buffer.h"
#include "kernels/block_copy.h"
#include "kernels/logicals.h"
#include "kernels/ycbcr_units.h"

namespace tb {
namespace {

using Sizes = std::initializer_list<std::size_t>;

using Buffer = bench::PageBuffer;
using Clock = std::chrono::steady_clock;

// Seconds of the fastest of several batches of `calls` calls.
double secondsPerCall(std::size_t calls, const std::function<void()>& call) {
  const auto start = Clock::now();
  for (std::size_t i = 0; i < calls; ++i) call();
  return std::chrono::duration<double>(Clock::now() - start).count() / static_cast<double>(calls);
}

// Alternates batches of the kernel with batches of the copy; the fastest batch of each counts, as
// whatever else the machine does can only add.
void compareWithMemcpy(benchmark::State& state, std::size_t bytes,
                       const std::function<void()>& kernel) {
  const Buffer from(bytes), to(bytes);
  const std::function<void()> copy = [&] {
    std::memcpy(to.data(), from.data(), bytes);
    benchmark::ClobberMemory();
  };
  const std::size_t calls = std::max<std::size_t>(1, (std::size_t{1} << 22) / bytes);
  double kernelBest = 1e9, copyBest = 1e9;
  for ([[maybe_unused]] auto _ : state) {
    copyBest = std::min(copyBest, secondsPerCall(calls, copy));
    const double seconds = secondsPerCall(calls, kernel);
    kernelBest = std::min(kernelBest, seconds);
    state.SetIterationTime(seconds * static_cast<double>(calls));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(calls * bytes));
  state.counters["of_memcpy"] = copyBest / kernelBest;
}

struct Size {
  std::size_t rows, columns;
};

BlockShape shapeOf(const Size& size, std::size_t samples, std::size_t rowBytes, std::size_t rows) {
  return {size.rows, size.columns, samples, rowBytes, rows, rows * size.columns};
}

// The array may be taller than the block, as it is when a block is read in pieces.
void benchmarkCopies(std::size_t elementSize, const Size& size, std::size_t samples,
                     std::size_t arrayRows) {
  const std::string layout = fmt::format("u{}/{}x{}x{}/of_{}_rows", 8 * elementSize, size.rows,
                                         size.columns, samples, arrayRows);
  const std::size_t rowBytes = size.columns * samples * elementSize;
  const std::size_t bytes = rowBytes * size.rows;
  const BlockShape shape = shapeOf(size, samples, rowBytes, arrayRows);
  const std::size_t planeBytes = arrayRows * rowBytes;
  const auto run = [=](auto copy, bool toColumns) {
    return [=](benchmark::State& state) {
      const Buffer block(bytes), planes(planeBytes);
      const std::byte* from = (toColumns ? block : planes).data();
      std::byte* to = (toColumns ? planes : block).data();
      compareWithMemcpy(state, bytes, [=] { copy(from, to, elementSize, shape); });
    };
  };
  benchmark::RegisterBenchmark(("block_to_columns/" + layout).c_str(),
                               run(copyBlockToColumns, true))
      ->UseManualTime();
  benchmark::RegisterBenchmark(("columns_to_block/" + layout).c_str(),
                               run(copyColumnsToBlock, false))
      ->UseManualTime();
}

void benchmarkLogicals(const Size& size) {
  const std::string layout = fmt::format("{}x{}", size.rows, size.columns);
  const std::size_t bytes = size.rows * size.columns;
  const BlockShape shape = shapeOf(size, 1, (size.columns + 7) / 8, size.rows);
  const auto run = [=](auto kernel, bool toColumns) {
    return [=](benchmark::State& state) {
      const Buffer block(shape.blockStride * size.rows), planes(bytes);
      const std::byte* from = (toColumns ? block : planes).data();
      std::byte* to = (toColumns ? planes : block).data();
      compareWithMemcpy(state, bytes, [=] { kernel(from, to, shape); });
    };
  };
  benchmark::RegisterBenchmark(("bits_to_logicals/" + layout).c_str(),
                               run(unpackBitsToLogicals, true))
      ->UseManualTime();
  benchmark::RegisterBenchmark(("logicals_to_bits/" + layout).c_str(),
                               run(packLogicalsToBits, false))
      ->UseManualTime();
}

void benchmarkUnits(const Size& size, std::size_t horizontal, std::size_t vertical) {
  const std::string layout =
      fmt::format("{}x{}/{}x{}", size.rows, size.columns, horizontal, vertical);
  const std::size_t unitRows = size.rows / vertical, unitColumns = size.columns / horizontal;
  const YCbCrShape shape{unitRows,  unitColumns,  unitColumns, horizontal, vertical,
                         size.rows, size.columns, size.rows,   unitRows};
  const std::size_t bytes = unitRows * unitColumns * (horizontal * vertical + 2);
  const auto run = [=](bool split) {
    return [=](benchmark::State& state) {
      const Buffer units(bytes), y(size.rows * size.columns), cb(unitRows * unitColumns),
          cr(unitRows * unitColumns);
      compareWithMemcpy(state, bytes, [&] {
        if (split)
          splitYCbCrUnits(units.data(), y.data(), cb.data(), cr.data(), shape);
        else
          joinYCbCrUnits(y.data(), cb.data(), cr.data(), units.data(), shape);
      });
    };
  };
  benchmark::RegisterBenchmark(("split_ycbcr_units/" + layout).c_str(), run(true))->UseManualTime();
  benchmark::RegisterBenchmark(("join_ycbcr_units/" + layout).c_str(), run(false))->UseManualTime();
}

void registerBenchmarks() {
  // libtiff's usual strips are wide and thin.
  constexpr std::size_t kThin[] = {1, 2, 3, 4, 5, 8, 12, 16, 64, 256};
  for (const std::size_t elementSize : Sizes{1, 2, 4, 8})
    for (const std::size_t samples : Sizes{1, 3, 4}) {
      for (const Size size : {Size{256, 256}, {255, 257}})
        benchmarkCopies(elementSize, size, samples, size.rows);
      for (const std::size_t rows : kThin)
        benchmarkCopies(elementSize, {rows, 4096}, samples, rows);
      for (const std::size_t rows : Sizes{1, 2})
        benchmarkCopies(elementSize, {rows, 4096}, samples, 256);
      benchmarkCopies(elementSize, {4096, 64}, samples, 4096);  // columns that share cache sets
    }
  benchmarkLogicals({256, 256});
  for (const std::size_t rows : kThin) benchmarkLogicals({rows, 4096});
  for (const std::size_t factor : Sizes{1, 2, 4}) benchmarkUnits({256, 256}, factor, factor);
  benchmarkUnits({256, 256}, 2, 1);
  benchmarkUnits({16, 4096}, 2, 2);
}

}  // namespace
}  // namespace tb

int main(int argc, char** argv) {
  tb::registerBenchmarks();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return EXIT_SUCCESS;
}
