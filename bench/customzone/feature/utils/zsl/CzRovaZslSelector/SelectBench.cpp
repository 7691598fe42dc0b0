#include <android/log.h>
#include <benchmark/benchmark.h>

#include "ZslTestSupport.h"
#include "zebcam/utils/ULog.h"

using namespace zsltest;
using NSCam::Utils::ULog::ULogger;

namespace {

// Both sinks take every line and drop it, so formatting is measured, not output.
void discardingSinks() {
  __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
  __android_log_set_logger([](__android_logger_data const*, char const*) {});
  ULogger::setHostSink([](uint32_t, std::string_view, uint32_t, std::string_view) {});
}

// A hint-0 still capture whose zero-shutter frame is the newest of
// `state.range(0)` history frames, under the given logger settings.
void stillCapture(benchmark::State& state, uint32_t detailsLevel, uint32_t mask, uint32_t mode) {
  discardingSinks();
  LogCapture::setGates(detailsLevel, mask, mode);
  CzRovaZslSelector selector;
  auto const frames = static_cast<uint32_t>(state.range(0));
  SelectInputParams in = makeStill(1, tsOf(frames));
  addHistory(in, 1, frames);
  for (auto _ : state) {
    auto out = selector.select(in);
    benchmark::DoNotOptimize(out);
    if (out.frames.size() != 1 || out.frames.begin()->second.frameNo != frames) {
      state.SkipWithError("unexpected choice");
      break;
    }
  }
  state.SetComplexityN(state.range(0));
}

// Nothing can be written: the reference for the cost of the gates.
void BM_Select_Mode0(benchmark::State& state) { stillCapture(state, 5, 0xFFFFFFFF, 0); }
// Both sinks on, every level shut except errors (none occur).
void BM_Select_GatesShut(benchmark::State& state) { stillCapture(state, 0, 0, 3); }
void BM_Select_InfoOpen(benchmark::State& state) { stillCapture(state, 3, 0, 3); }
void BM_Select_AllOpen(benchmark::State& state) { stillCapture(state, 5, 0xFFFFFFFF, 3); }

BENCHMARK(BM_Select_Mode0)->Arg(8)->Arg(32)->Arg(128)->Complexity(benchmark::oN);
BENCHMARK(BM_Select_GatesShut)->Arg(8)->Arg(32)->Arg(128)->Complexity(benchmark::oN);
BENCHMARK(BM_Select_InfoOpen)->Arg(8)->Arg(32)->Arg(128)->Complexity(benchmark::oN);
BENCHMARK(BM_Select_AllOpen)->Arg(8)->Arg(32)->Arg(128)->Complexity(benchmark::oN);

}  // namespace
