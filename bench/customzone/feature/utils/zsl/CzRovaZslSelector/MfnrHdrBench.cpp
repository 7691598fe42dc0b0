#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "ZslTestSupport.h"

using namespace zsltest;

namespace {

constexpr int32_t kSeries = 4;
constexpr uint32_t kHistory = 16;

struct Call {
  SelectInputParams in;
  std::string prefix;
};

Call member(uint32_t r, int32_t idx, SelectInputParams const& frames, bool preCollect) {
  Call call{makeSeriesMember(r, idx, kSeries), {}};
  call.in.history = frames.history;
  call.in.inflight = frames.inflight;
  if (preCollect) {
    IMetadata& control = call.in.frameInfos[0].metas[kAppMetaStream];
    IMetadata::setEntry<int32_t>(&control, ZEB_CONTROL_CAPTURE_PRE_COLLECT_HINT, 1);
    IMetadata::setEntry<int32_t>(&control, ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, 0);
  }
  call.prefix = "[r" + std::to_string(r) + ",0/1000ms]<ispHidlSelect_MFNR_HDR>IspHidl(" +
                std::to_string(idx) + "/" + std::to_string(kSeries) + ")";
  return call;
}

// One noise-reduction series of 4 followed by one HDR series of 4, over a
// 16-frame history with 4 frames in flight, gates shut. The first member meets
// the in-flight frames, the rest find them landed; every cycle ends where it
// began (noise-reduction phase, no open series).
void BM_MfnrHdrCycleGatesShut(benchmark::State& state) {
  LogCapture::setGates(0, 0, 3);
  CzRovaZslSelector selector;

  SelectInputParams before;
  addHistory(before, 1, kHistory);
  for (uint32_t n = kHistory + 1; n <= kHistory + kSeries; ++n) {
    before.inflight[n] = makeInflight(n);
  }
  SelectInputParams after;
  addHistory(after, kSeries + 1, kHistory + kSeries);
  FrameState hinted;
  hinted.preCollectHint = 1;
  for (uint32_t n = kHistory - 1; n <= kHistory + kSeries; ++n) {
    after.history[n] = makeFrame(n, tsOf(n), hinted);
  }

  std::vector<Call> calls;
  calls.push_back(member(100, 0, before, false));
  for (int32_t idx = 0; idx < kSeries; ++idx) {
    calls.push_back(member(100 + idx, idx, after, false));
  }
  for (int32_t idx = 0; idx < kSeries; ++idx) {
    calls.push_back(member(200 + idx, idx, after, true));
  }

  size_t served = 0;
  for (auto const& call : calls) {
    served += selector.ispHidlSelect_MFNR_HDR(call.in, call.prefix).frames.size();
  }
  if (served != 2 * kSeries) {
    state.SkipWithError("a cycle did not serve both series");
    return;
  }

  for (auto _ : state) {
    for (auto const& call : calls) {
      benchmark::DoNotOptimize(selector.ispHidlSelect_MFNR_HDR(call.in, call.prefix));
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(calls.size()));
}
BENCHMARK(BM_MfnrHdrCycleGatesShut);

}  // namespace
