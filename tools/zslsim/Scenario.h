#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

// A scenario: the camera, what its frames report over time, the capture
// requests, and the process settings the run starts with.

namespace zslsim {

// Android enum values as the metadata carries them.
struct Conditions {
  uint8_t afMode = 4;   // CONTINUOUS_PICTURE
  uint8_t afState = 2;  // PASSIVE_FOCUSED
  uint8_t lensState = 0;
  uint8_t aeState = 2;  // CONVERGED
  int32_t aeSoftStable = 1;
  int64_t frameSync = 0;
  int32_t ev = 0;
  uint8_t psl = 0;
  std::optional<int32_t> sensorMode;  // unset: each sensor's first mode
  std::optional<int32_t> preCollectHint;
};

struct Segment {
  int64_t fromNs = 0;
  Conditions conditions;  // complete: unlisted fields carry over from the segment before
};

struct Sensor {
  uint32_t id = 0;
  std::vector<int32_t> modes;
};

struct Camera {
  double fps = 30.0;
  int32_t historyDepth = 8;
  int32_t inflightDepth = 4;
  std::vector<Sensor> sensors;
  std::vector<int32_t> imageStreams;
  int64_t giveUpNs = 10'000'000'000;
};

enum class RequestKind { Still, ContinuousShot, Series };

// Settings of one member of a series.
struct MemberSettings {
  int32_t ev = 0;
  uint8_t psl = 0;
  std::optional<int32_t> sensorMode;
};

// A frame the pipeline announces before it is in flight, and captures with
// these settings.
struct Announce {
  int32_t inFrames = 1;  // after the newest frame in flight when the series starts
  uint8_t psl = 1;
  int32_t ev = 0;
  std::optional<int32_t> sensorMode;
};

struct RequestSpec {
  std::string path;  // where the scenario declares it, for messages
  int64_t atNs = 0;
  RequestKind kind = RequestKind::Still;
  int32_t wanted = 1;   // frames a still wants
  int32_t members = 1;  // shots of a continuous shot, count of a series
  int64_t spacingNs = 0;
  int32_t hint = 5;  // series: 1-4 forced through the debug property, 5 the default route
  int32_t ev = 0;
  std::optional<int32_t> sensorMode;
  std::optional<int64_t> zsdTs;
  std::optional<uint32_t> requestNo;
  std::vector<MemberSettings> settings;
  bool reusePsl = false;
  bool preCollect = false;
  bool captureSettings = false;  // the pipeline captures and announces the members' frames
  std::vector<Announce> announce;
  int64_t everyNs = 0;  // 0: once
  int64_t times = 1;
};

struct LogSettings {
  uint32_t detailsLevel = 2;
  uint32_t mask = 0;
  uint32_t mode = 3;
  bool toStderr = false;
};

struct Scenario {
  std::string name;
  std::string description;
  int64_t durationNs = 0;
  Camera camera;
  std::vector<Segment> segments;  // by fromNs
  int64_t conditionsRepeatNs = 0;
  std::vector<RequestSpec> requests;
  std::map<std::string, std::string> properties;
  LogSettings log;

  int64_t periodNs() const;
  int64_t frameTimeNs(uint64_t frame) const;
  uint64_t frameCount() const;
  Conditions conditionsAt(int64_t ns) const;
};

// Ids the frames carry.
inline constexpr int32_t kAppMetaStream = 0x40000001;
inline constexpr int32_t kHalMetaStreamBase = 0x2000000;
inline constexpr uint32_t kNoFrame = 0xFFFFFFFF;
inline constexpr int32_t kMaxSeriesCount = 256;

struct LoadResult {
  std::optional<Scenario> scenario;
  std::string error;  // "$.path: why"
};

// Parses and checks a scenario; nothing of a refused one is used.
LoadResult loadScenario(std::string const& text, std::string const& defaultName);

}  // namespace zslsim
