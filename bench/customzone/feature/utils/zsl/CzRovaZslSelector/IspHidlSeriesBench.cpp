#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "ZslTestSupport.h"

using namespace zsltest;

namespace {

constexpr uint32_t kFirstRequest = 100;
constexpr int32_t kCount = 4;
constexpr uint32_t kHistoryFrames = 16;
std::string const kPrefix = "[r100,0/1000ms]<bench>IspHidl(0/4)";

// The inputs a pipeline passes for one series over a 16-frame history, one per
// call in `order` (member indexes): each sees the locks the calls before it
// asked for. Recorded once, so the timed loop only runs the strategy.
template <typename Strategy>
std::vector<SelectInputParams> recordSeries(Strategy strategy, std::vector<int32_t> const& order,
                                            bool& complete) {
  CzRovaZslSelector selector;
  SelectInputParams frames;
  addHistory(frames, 1, kHistoryFrames);
  std::vector<SelectInputParams> calls;
  size_t answered = 0;
  for (int32_t idx : order) {
    SelectInputParams in = makeSeriesMember(kFirstRequest + idx, idx, kCount);
    in.zsdTs = tsOf(kHistoryFrames - 3);
    in.history = frames.history;
    calls.push_back(in);
    SelectOutputParams out = strategy(selector, in);
    answered += out.frames.size();
    for (auto const& [frameNo, op] : out.ops) {
      if (auto hf = frames.history.find(frameNo); hf != frames.history.end()) {
        hf->second.locked = op == OpT::Lock;
      }
    }
  }
  complete = answered == static_cast<size_t>(kCount);
  return calls;
}

// One whole series per iteration, on one selector, gates shut. The inputs are
// copied outside the timing: two of the strategies write into them.
template <typename Strategy>
void serveSeries(benchmark::State& state, Strategy strategy, std::vector<int32_t> const& order) {
  LogCapture::setGates(0, 0, 3);
  bool complete = false;
  std::vector<SelectInputParams> const recorded = recordSeries(strategy, order, complete);
  if (!complete) {
    state.SkipWithError("the series was not answered in full");
    return;
  }
  CzRovaZslSelector selector;
  std::vector<SelectInputParams> calls;
  for (auto _ : state) {
    state.PauseTiming();
    calls = recorded;
    state.ResumeTiming();
    for (auto const& in : calls) {
      benchmark::DoNotOptimize(strategy(selector, in));
    }
  }
  state.counters["calls"] = static_cast<double>(order.size());
}

auto const kFifo = [](CzRovaZslSelector const& selector, SelectInputParams const& in) {
  return selector.ispHidlSelect(in, kPrefix, 0x30005);
};
auto const kLatest = [](CzRovaZslSelector const& selector, SelectInputParams const& in) {
  return selector.ispHidlSelect_Latest(in, kPrefix);
};
auto const kLatestWithQuality = [](CzRovaZslSelector const& selector, SelectInputParams const& in) {
  return selector.ispHidlSelect_LatestWithQuality(in, kPrefix, 0x20005);
};

void BM_SeriesFifo(benchmark::State& state) { serveSeries(state, kFifo, {0, 1, 2, 3}); }
void BM_SeriesLatest(benchmark::State& state) { serveSeries(state, kLatest, {0, 1, 2, 3}); }
// The first call checks the older run and waits for the newer one.
void BM_SeriesLatestWithQuality(benchmark::State& state) {
  serveSeries(state, kLatestWithQuality, {0, 0, 1, 2, 3});
}

BENCHMARK(BM_SeriesFifo);
BENCHMARK(BM_SeriesLatest);
BENCHMARK(BM_SeriesLatestWithQuality);

}  // namespace
