// The event tree with 1,000 and with 1,000,000 pending files, in one folder, in as many folders as
// each has files, and at the end of a chain of 64 folders. "per_event" is in bytes of heap.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "client/event-list2.h"

namespace {

size_t heap_bytes = 0;

// Every allocation with what the allocator adds to it. One thread allocates here.
void* CountedAllocate(size_t size) {
  void* block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  heap_bytes += malloc_usable_size(block) + sizeof(size_t);
  return block;
}
void CountedFree(void* block) {
  if (block == nullptr) return;
  heap_bytes -= malloc_usable_size(block) + sizeof(size_t);
  std::free(block);
}

}  // namespace

void* operator new(size_t size) { return CountedAllocate(size); }
void operator delete(void* block) noexcept { CountedFree(block); }
void operator delete(void* block, size_t) noexcept { CountedFree(block); }

namespace {

using tolven::Event;
using tolven::EventList2;

enum Shape { FOLDER, SQUARE, CHAIN };

std::string FolderOf(Shape shape, int64_t number, int64_t side) {
  std::string folder;
  switch (shape) {
    case FOLDER:
      return "/projects/2024";
    case SQUARE:
      return "/projects/" + std::to_string(number / side);
    case CHAIN:
      for (int depth = 0; depth < 64; ++depth) folder += "/d" + std::to_string(depth);
  }
  return folder;
}

class Filler {
 public:
  Filler(Shape shape, int64_t count)
      : shape_(shape), side_(static_cast<int64_t>(std::sqrt(static_cast<double>(count)))) {
    event_.m_type = Event::EV_CREATE;
    event_.m_data_size = 123456;
    event_.m_time = 1700000000;
    event_.m_data_hash = std::string(32, 'f');
    event_.m_sess_id = 1;
  }

  // About 40 bytes of path in the two flat shapes.
  const Event& EventOf(int64_t number) {
    if (shape_ == SQUARE ? number % side_ == 0 : number == 0) {
      folder_ = FolderOf(shape_, number, side_) + "/a document number ";
    }
    event_.m_path = folder_ + std::to_string(1000000 + number);
    return event_;
  }

 private:
  const Shape shape_;
  const int64_t side_;
  std::string folder_;
  Event event_;
};

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Fill(EventList2& list, Shape shape, int64_t count) {
  Filler filler(shape, count);
  for (int64_t number = 0; number < count; ++number) list.Push(filler.EventOf(number));
}

void Push(benchmark::State& state, Shape shape) {
  const int64_t count = state.range(0);
  for (auto _ : state) {
    const size_t before = heap_bytes;
    EventList2 list;
    const auto start = std::chrono::steady_clock::now();
    Fill(list, shape, count);
    state.SetIterationTime(SecondsSince(start));
    state.counters["per_event"] =
        static_cast<double>(heap_bytes - before) / static_cast<double>(count);
  }
  state.SetItemsProcessed(state.iterations() * count);
}

// Each event is finished before the next leaves, as by one worker.
void PopAndDone(benchmark::State& state, Shape shape) {
  for (auto _ : state) {
    EventList2 list;
    Fill(list, shape, state.range(0));
    Event event;
    const auto start = std::chrono::steady_clock::now();
    while (list.Pop(event) == 0) list.DoneEvent(event);
    state.SetIterationTime(SecondsSince(start));
    if (!list.IsEmpty()) state.SkipWithError("events were left");
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// All that may leave is out at once, then each event goes back, or is finished, with its place in
// the middle of all the others.
void WithAllOut(benchmark::State& state, Shape shape, bool redo) {
  int64_t total = 0;
  for (auto _ : state) {
    EventList2 list;
    Fill(list, shape, state.range(0));
    std::vector<Event> out;
    for (Event event; list.Pop(event) == 0;) {
      Event given;
      given.m_path = event.m_path;
      given.m_mode = event.m_mode;
      out.push_back(given);
    }
    const auto start = std::chrono::steady_clock::now();
    for (size_t i = 0; i < out.size(); ++i) {
      const Event& event = out[(i * 7919) % out.size()];
      const int result = redo ? list.Redo(event) : list.DoneEvent(event);
      benchmark::DoNotOptimize(result);
    }
    state.SetIterationTime(SecondsSince(start));
    total += static_cast<int64_t>(out.size());
  }
  state.SetItemsProcessed(total);
}

void Sizes(benchmark::internal::Benchmark* bench) {
  bench->UseManualTime()->Unit(benchmark::kMillisecond)->Arg(1000);
}
void Million(benchmark::internal::Benchmark* bench) {
  bench->UseManualTime()->Unit(benchmark::kMillisecond)->Arg(1000000)->Iterations(2);
}

#define BOTH_SIZES(function, name, ...)                         \
  BENCHMARK_CAPTURE(function, name, __VA_ARGS__)->Apply(Sizes); \
  BENCHMARK_CAPTURE(function, name, __VA_ARGS__)->Apply(Million)

BOTH_SIZES(Push, one_folder, FOLDER);
BOTH_SIZES(Push, square, SQUARE);
BOTH_SIZES(Push, chain_64, CHAIN);
BOTH_SIZES(PopAndDone, one_folder, FOLDER);
BOTH_SIZES(PopAndDone, square, SQUARE);
BOTH_SIZES(PopAndDone, chain_64, CHAIN);
BOTH_SIZES(WithAllOut, done_one_folder, FOLDER, false);
BOTH_SIZES(WithAllOut, redo_one_folder, FOLDER, true);

}  // namespace
