#include <benchmark/benchmark.h>

#include "ZslTestSupport.h"

using namespace zsltest;

namespace {

// A hint-0 still capture over a history of `state.range(0)` frames, gates shut.
void BM_StillCaptureGatesShut(benchmark::State& state) {
  LogCapture::setGates(0, 0, 3);
  CzRovaZslSelector selector;
  SelectInputParams in = makeStill(1, 0);
  addHistory(in, 1, static_cast<uint32_t>(state.range(0)));
  in.zsdTs = tsOf(static_cast<uint32_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(selector.select(in));
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_StillCaptureGatesShut)->Arg(8)->Arg(32)->Arg(128)->Complexity();

}  // namespace
