#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CzRovaZslSelector.h"
#include "zebcam/custzone/zsl/ISelector.h"
#include "zebcam/metadata/IMetadata.h"
#include "zebcam/metadata/ZebMetadataTag.h"

namespace zsltest {

using NSCam::IMetadata;
using NSCam::CustZone::CzRovaZslSelector;
using HistoryFrame = NSCam::CustZone::ZslPolicy::ISelector::HistoryFrame;
using InflightFrame = NSCam::CustZone::ZslPolicy::ISelector::InflightFrame;
using ZslFrameInfo = NSCam::CustZone::ZslPolicy::ISelector::ZslFrameInfo;
using SelectInputParams = NSCam::CustZone::ZslPolicy::ISelector::SelectInputParams;
using SelectOutputParams = NSCam::CustZone::ZslPolicy::ISelector::SelectOutputParams;
using OpT = NSCam::CustZone::ZslPolicy::ISelector::OpT;
using StreamSets = NSCam::CustZone::ZslPolicy::StreamSets;

inline constexpr int32_t kImageStream = 0x1;
inline constexpr int32_t kHalMetaStream = 0x2000000;   // P1 metadata of sensor 0
inline constexpr int32_t kAppMetaStream = 0x40000001;  // control metadata
inline constexpr uint32_t kNoFrame = 0xFFFFFFFF;

// One log line as a sink received it.
struct LogLine {
  int priority = 0;      // Android priority or unified level
  std::string function;  // from "[function::line]"
  int line = 0;
  std::string body;  // everything after "[function::line]"
  std::string raw;
};

// Captures both sinks for its lifetime and sets the logger's gates. Only one
// may live at a time.
class LogCapture {
 public:
  explicit LogCapture(uint32_t detailsLevel = 5, uint32_t mask = 0x101000, uint32_t mode = 3);
  ~LogCapture();
  LogCapture(LogCapture const&) = delete;
  LogCapture& operator=(LogCapture const&) = delete;

  static void setGates(uint32_t detailsLevel, uint32_t mask, uint32_t mode);

  std::vector<LogLine> const& android() const { return mAndroid; }
  std::vector<LogLine> const& unified() const { return mUnified; }
  // Bodies of the lines of one sink that contain `needle`.
  std::vector<std::string> androidWith(std::string const& needle) const;
  std::vector<std::string> unifiedWith(std::string const& needle) const;
  // Whether both sinks hold a line whose body is exactly `body` (the Android
  // copy of an error line compared without its location suffix).
  bool hasLine(std::string const& body) const;
  void clear() {
    mAndroid.clear();
    mUnified.clear();
  }

  // Called by the sinks.
  void addAndroid(int priority, char const* message);
  void addUnified(uint32_t level, std::string_view text);

 private:
  std::vector<LogLine> mAndroid;
  std::vector<LogLine> mUnified;
};

// What a frame's metadata reports; absent optionals leave the tag out.
struct FrameState {
  std::optional<uint8_t> afMode = 4;   // CONTINUOUS_PICTURE
  std::optional<uint8_t> afState = 2;  // PASSIVE_FOCUSED
  std::optional<uint8_t> lensState = 0;
  std::optional<uint8_t> aeState = 2;  // CONVERGED
  std::optional<int32_t> aeSoftStable = 1;
  std::optional<int64_t> frameSync = 0;
  std::optional<int32_t> ev = 0;
  std::optional<uint8_t> psl;
  std::optional<int32_t> sensorMode = 0;  // P1 sensor mode of sensor 0
  std::optional<int32_t> preCollectHint;
  std::vector<int32_t> sensorModeList;  // (key, value) pairs, left out when empty
};

// `state` with one field set, e.g. with(&FrameState::psl, 1).
template <typename T, typename V>
FrameState with(T FrameState::*field, V value, FrameState state = {}) {
  state.*field = std::move(value);
  return state;
}

// The streams every test frame carries and every test request needs.
StreamSets defaultStreams();
// Application metadata (under kAppMetaStream) built from `state`.
IMetadata appMeta(FrameState const& state);
HistoryFrame makeFrame(uint32_t frameNo, int64_t ts, FrameState const& state = {});
InflightFrame makeInflight(uint32_t frameNo, FrameState const& state = {});
// A wanted frame needing the default streams; `cshot` sets ZEB_CSHOT_FEATURE_CAPTURE.
ZslFrameInfo makeFrameInfo(std::optional<int32_t> cshot = std::nullopt);
// A still capture (continuous-shot tag 0) wanting `wanted` frames.
SelectInputParams makeStill(uint32_t requestNo, int64_t zsdTs, size_t wanted = 1);
// One member of a reprocessing series (no continuous-shot tag).
SelectInputParams makeSeriesMember(uint32_t requestNo, int32_t idx, int32_t cnt);
// History of frames first..last, frame n at ts n * 33'000'000 ns.
void addHistory(SelectInputParams& in, uint32_t first, uint32_t last, FrameState const& state = {});
int64_t tsOf(uint32_t frameNo);

// Frame numbers chosen, by key.
std::vector<std::pair<int32_t, uint32_t>> chosen(SelectOutputParams const& out);

// "function: body" of each line whose function is one of `functions` (all when
// empty); Android error lines without their location suffix.
std::vector<std::string> linesOf(std::vector<LogLine> const& lines,
                                 std::vector<std::string> const& functions = {});
// linesOf both sinks when they agree; otherwise both lists, marked, so that a
// comparison with the expected lines fails and shows the difference.
std::vector<std::string> bothSinks(LogCapture const& logs,
                                   std::vector<std::string> const& functions = {});

// One call's answer as one string: each frame by key ("F13", "[1]F28", "noZsl"
// for kNoFrame, "/aux1" for an aux value), "none" for no frame; then each
// operation ("+14" lock, "-15" unlock, "x10" release) and the frame set ("{13 14}").
std::string answer(SelectOutputParams const& out);

// Serves series members through one strategy as a pipeline would: the history
// and in-flight frames persist across calls, lock and unlock operations set the
// frames' `locked`, released frames leave the history. A `hint` of 0 or more is
// forced for every select of the process through the debug override.
class SeriesCalls {
 public:
  // `function` names the strategy in its lines, `name` in the request prefix.
  SeriesCalls(int32_t hint, std::string function, std::string name);

  // A member built on `wants`, seeing the host's frames; starts a new call's lines.
  SelectInputParams member(uint32_t requestNo, int32_t idx, int32_t cnt, int64_t elapsedMs = 0);
  SelectOutputParams serve(SelectInputParams const& in);
  std::string ask(uint32_t requestNo, int32_t idx, int32_t cnt, int64_t elapsedMs = 0) {
    return answer(serve(member(requestNo, idx, cnt, elapsedMs)));
  }
  // A new selector, no frames, nothing wanted.
  void restart();
  // Frames first..last captured (in flight), arrived in the history, or gone.
  void capture(uint32_t first, uint32_t last, FrameState const& state = {});
  void arrive(uint32_t first, uint32_t last, FrameState const& state = {});
  void leave(uint32_t frameNo) { history.erase(frameNo); }

  // The request prefix of the last member, e.g. "[r57,0/1000ms]<ispHidl>IspHidl(0/3) ".
  std::string const& prefix() const { return mPrefix; }
  // Lines of the strategy in the last call, as bothSinks lists them.
  std::string line(std::string const& text) const { return mFunction + ": " + mPrefix + text; }
  std::vector<std::string> said(std::vector<std::string> texts) const;
  // The strategy's lines of the last call on both sinks.
  std::vector<std::string> lines() const { return bothSinks(logs, {mFunction}); }
  // The `texts` that the strategy did not say on both sinks in the last call, one
  // a line; a text that starts with an upper-case state word follows `prefix()`.
  std::string missing(std::vector<std::string> const& texts) const;

  LogCapture logs;
  std::map<uint32_t, HistoryFrame> history;
  std::map<uint32_t, InflightFrame> inflight;
  SelectInputParams wants;  // settings, shutter time and announced frames of every member

 private:
  std::unique_ptr<CzRovaZslSelector> mSelector;
  std::string mFunction;
  std::string mName;
  std::string mPrefix;
};

// Sets or clears (empty value) an Android system property of this process.
void setProperty(std::string const& key, std::string const& value);

}  // namespace zsltest
