#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
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
using SubSeqReq = NSCam::CustZone::ZslPolicy::ISelector::SubSeqReq;
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
  // Bodies of every captured line of one sink, in order.
  std::vector<std::string> androidBodies() const;
  std::vector<std::string> unifiedBodies() const;
  // Bodies of the lines of one sink that contain `needle`.
  std::vector<std::string> androidWith(std::string const& needle) const;
  std::vector<std::string> unifiedWith(std::string const& needle) const;
  // Whether both sinks hold a line whose body is exactly `body` (the Android
  // copy of an error line compared without its location suffix).
  bool hasLine(std::string const& body) const;
  void clear();

  // Called by the sinks.
  void addAndroid(int priority, char const* message);
  void addUnified(uint32_t level, std::string_view text);

 private:
  std::vector<LogLine> mAndroid;
  std::vector<LogLine> mUnified;
};

// Splits "[function::line]body".
LogLine parseLine(int priority, std::string_view raw);
// Drops the " (function){#line:path}" suffix of an Android error line.
std::string withoutErrorSuffix(std::string const& body);

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

// Frame numbers chosen, by key; operations as (frame, op) pairs.
std::vector<std::pair<int32_t, uint32_t>> chosen(SelectOutputParams const& out);
std::vector<std::pair<uint32_t, uint32_t>> opsOf(SelectOutputParams const& out);

// "function: body" of each line whose function is one of `functions` (all when
// empty); Android error lines without their location suffix.
std::vector<std::string> linesOf(std::vector<LogLine> const& lines,
                                 std::vector<std::string> const& functions = {});
// linesOf both sinks when they agree; otherwise both lists, marked, so that a
// comparison with the expected lines fails and shows the difference.
std::vector<std::string> bothSinks(LogCapture const& logs,
                                   std::vector<std::string> const& functions = {});

// A host that keeps its history and in-flight frames across select calls as a
// pipeline would: the selector's lock and unlock operations set the frames'
// `locked`, frames arrive from flight and leave the history.
struct SeriesHost {
  CzRovaZslSelector selector;
  std::map<uint32_t, HistoryFrame> history;
  std::map<uint32_t, InflightFrame> inflight;

  // A series member seeing the current history and in-flight frames.
  SelectInputParams member(uint32_t requestNo, int32_t idx, int32_t cnt,
                           int64_t elapsedMs = 0) const;
  // Calls select and applies the lock and unlock operations to the history.
  SelectOutputParams serve(SelectInputParams const& in);
  SelectOutputParams call(uint32_t requestNo, int32_t idx, int32_t cnt, int64_t elapsedMs = 0);
  // Frames first..last captured (in flight), arrived in the history, or gone.
  void capture(uint32_t first, uint32_t last, FrameState const& state = {});
  void arrive(uint32_t first, uint32_t last, FrameState const& state = {});
  void leave(uint32_t frameNo);
};

// Serves series members through one strategy, whose routing hint the debug
// override forces for every select of the process, and keeps that strategy's
// lines of the last call.
class SeriesCalls {
 public:
  // `function` names the strategy in its lines, `name` in the request prefix.
  SeriesCalls(int32_t hint, std::string function, std::string name);

  // A member seeing the host's frames; starts a new call's lines.
  SelectInputParams member(uint32_t requestNo, int32_t idx, int32_t cnt, int64_t elapsedMs = 0);
  SelectOutputParams serve(SelectInputParams const& in) { return host.serve(in); }
  SelectOutputParams call(uint32_t requestNo, int32_t idx, int32_t cnt, int64_t elapsedMs = 0) {
    return serve(member(requestNo, idx, cnt, elapsedMs));
  }
  // The request prefix of the last member, e.g. "[r57,0/1000ms]<ispHidl>IspHidl(0/3) ".
  std::string const& prefix() const { return mPrefix; }
  // A line of the strategy in the last call, as bothSinks lists it.
  std::string line(std::string const& text) const;
  std::vector<std::string> said(std::vector<std::string> const& texts) const;
  // The strategy's lines of the last call on both sinks.
  std::vector<std::string> lines() const;

  LogCapture logs;
  SeriesHost host;

 private:
  std::string mFunction;
  std::string mName;
  std::string mPrefix;
};

// Sets or clears (empty value) an Android system property of this process.
void setProperty(std::string const& key, std::string const& value);

}  // namespace zsltest
