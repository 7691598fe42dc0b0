#include <benchmark/benchmark.h>

#include "ZslTestSupport.h"

using namespace zsltest;

namespace {

constexpr int32_t kCount = 4;

// A hint-5 member of a series of 4 over a 16-frame history (F1..F16, the
// shutter at F12) with F17..F20 in flight; gates shut.
SelectInputParams subSequenceMember(uint32_t requestNo, int32_t idx) {
  SelectInputParams in = makeSeriesMember(requestNo, idx, kCount);
  addHistory(in, 1, 16);
  for (uint32_t n = 17; n <= 20; ++n) {
    in.inflight[n] = makeInflight(n);
  }
  in.zsdTs = tsOf(12);
  in.pslSettings.assign(kCount, 0);
  in.evSettings.assign(kCount, 0);
  in.sensorModes.resize(kCount);
  return in;
}

// One whole series per iteration: planned by its first member, each member
// served in turn, the record erased by the last.
void BM_SubSequenceWholeSeries(benchmark::State& state) {
  LogCapture::setGates(0, 0, 3);
  CzRovaZslSelector selector;
  std::vector<SelectInputParams> members;
  for (int32_t idx = 0; idx < kCount; ++idx) {
    members.push_back(subSequenceMember(100 + static_cast<uint32_t>(idx), idx));
  }
  for (auto _ : state) {
    for (auto const& in : members) {
      benchmark::DoNotOptimize(selector.select(in));
    }
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_SubSequenceWholeSeries);

// A member polling out of turn: verification, the FIFO refusal and the locks.
void BM_SubSequenceWaitingMember(benchmark::State& state) {
  LogCapture::setGates(0, 0, 3);
  CzRovaZslSelector selector;
  selector.select(subSequenceMember(100, 0));
  SelectInputParams const waiting = subSequenceMember(102, 2);
  for (auto _ : state) {
    benchmark::DoNotOptimize(selector.select(waiting));
  }
}
BENCHMARK(BM_SubSequenceWaitingMember);

}  // namespace
