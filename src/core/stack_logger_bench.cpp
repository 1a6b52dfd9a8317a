// What a function pays for its entry record. Compare BM_FunctionEntry with
// twice BM_ThreadLocalReadWrite: the push and the pop are one thread-local
// read and one write each. BM_SlotReadWrite is the platform's TLS slot, for
// comparison. The "allocations" counter (per iteration) must stay 0.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "core/stack_logger.h"
#include "platform/thread_local_slot.h"

namespace {
std::atomic<long> g_allocations{0};
}  // namespace

// Counts every allocation of the program. GCC takes the free() of memory
// from this operator new for a mismatch.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) {
  ++g_allocations;
  if (void* memory = std::malloc(size ? size : 1)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

void BM_SlotReadWrite(benchmark::State& state) {
  PIM::ThreadLocalSlot slot;
  int value = 0;
  for (auto _ : state) {
    void* current = slot.get();
    benchmark::DoNotOptimize(current);
    slot.set(&value);
  }
}
BENCHMARK(BM_SlotReadWrite);

thread_local void* t_value = nullptr;

void BM_ThreadLocalReadWrite(benchmark::State& state) {
  int value = 0;
  for (auto _ : state) {
    void* current = t_value;
    benchmark::DoNotOptimize(current);
    t_value = &value;
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_ThreadLocalReadWrite);

void enterAndLeave(benchmark::State& state) {
  PIM_ENTRY("PIM::caller");  // the measured record has a caller, as in real code
  long before = g_allocations;
  for (auto _ : state) {
    PIM::StackEntry entry(__FILE__, __LINE__, "PIM::benchmarkedFunction");
    benchmark::DoNotOptimize(entry.depth);
  }
  state.counters["allocations"] =
      benchmark::Counter(double(g_allocations - before), benchmark::Counter::kAvgIterations);
}

void BM_FunctionEntry(benchmark::State& state) {
  PIM::StackLogger::initialise();
  enterAndLeave(state);
  PIM::StackLogger::shutdown();
}
BENCHMARK(BM_FunctionEntry);

}  // namespace
