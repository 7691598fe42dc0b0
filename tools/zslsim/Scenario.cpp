#include "Scenario.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <initializer_list>
#include <limits>
#include <set>
#include <utility>

#include <nlohmann/json.hpp>

namespace zslsim {

namespace {

using nlohmann::json;

constexpr int64_t kNsPerMs = 1'000'000;
constexpr double kMaxDurationMs = 24.0 * 3600 * 1000;

constexpr char kRuntimeAdb[] = "vendor.debug.camera.zsl.runtime.adb";
constexpr char kForceHint[] = "vendor.debug.camera.zsl.force.hint";

// A refused scenario: where and why.
struct Refusal {
  std::string path;
  std::string why;
};

using NameTable = std::initializer_list<std::pair<char const*, int>>;

constexpr NameTable kAfModes = {
    {"off", 0}, {"auto", 1}, {"macro", 2}, {"continuous_video", 3}, {"continuous_picture", 4},
    {"edof", 5}};
constexpr NameTable kAfStates = {
    {"inactive", 0},       {"passive_scan", 1},       {"passive_focused", 2},  {"active_scan", 3},
    {"focused_locked", 4}, {"not_focused_locked", 5}, {"passive_unfocused", 6}};
constexpr NameTable kLensStates = {{"stationary", 0}, {"moving", 1}};
constexpr NameTable kAeStates = {{"inactive", 0}, {"searching", 1},      {"converged", 2},
                                 {"locked", 3},   {"flash_required", 4}, {"precapture", 5}};
constexpr NameTable kKinds = {{"still", static_cast<int>(RequestKind::Still)},
                              {"cshot", static_cast<int>(RequestKind::ContinuousShot)},
                              {"series", static_cast<int>(RequestKind::Series)}};

std::string typeName(json const& value) {
  if (value.is_number_integer()) {
    return "integer";
  }
  return value.type_name();
}

std::string keyPath(std::string const& parent, std::string const& key) {
  bool plain = !key.empty() && std::all_of(key.begin(), key.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
  });
  return plain ? parent + "." + key : parent + "[\"" + key + "\"]";
}

std::string indexPath(std::string const& parent, size_t index) {
  return parent + "[" + std::to_string(index) + "]";
}

int namedValue(json const& value, std::string const& where, NameTable table) {
  std::string names;
  for (auto const& [name, number] : table) {
    names += names.empty() ? "" : ", ";
    names += name;
    if (value.is_string() && value.get<std::string>() == name) {
      return number;
    }
  }
  throw Refusal{where, "must be one of " + names + " (got " + value.dump() + ")"};
}

std::string shown(double value) {
  json j = value;
  if (value == std::floor(value) && std::fabs(value) < 1e15) {
    j = static_cast<int64_t>(value);
  }
  return j.dump();
}

// One JSON object of the scenario: refuses keys it does not know and reads
// typed, range-checked fields.
class Object {
 public:
  Object(json const& value, std::string path, std::initializer_list<char const*> keys)
      : mValue(value), mPath(std::move(path)) {
    if (!value.is_object()) {
      throw Refusal{mPath, "must be an object (got " + typeName(value) + ")"};
    }
    for (auto const& [key, unused] : value.items()) {
      (void)unused;
      if (std::none_of(keys.begin(), keys.end(), [&](char const* k) { return key == k; })) {
        std::string allowed;
        for (char const* k : keys) {
          allowed += allowed.empty() ? "" : ", ";
          allowed += k;
        }
        throw Refusal{keyPath(mPath, key), "unknown key (known here: " + allowed + ")"};
      }
    }
  }

  bool has(char const* key) const { return mValue.contains(key); }
  json const& at(char const* key) const { return mValue.at(key); }
  std::string path(char const* key) const { return keyPath(mPath, key); }
  std::string const& path() const { return mPath; }

  void require(char const* key) const {
    if (!has(key)) {
      throw Refusal{path(key), "is required"};
    }
  }

  double number(char const* key, double lo, double hi, double fallback) const {
    if (!has(key)) {
      return fallback;
    }
    json const& value = at(key);
    if (!value.is_number()) {
      throw Refusal{path(key), "must be a number (got " + typeName(value) + ")"};
    }
    return inRange(key, value.get<double>(), lo, hi);
  }

  int64_t integer(char const* key, int64_t lo, int64_t hi, int64_t fallback) const {
    if (!has(key)) {
      return fallback;
    }
    return integerValue(at(key), path(key), lo, hi);
  }

  std::optional<int64_t> optionalInteger(char const* key, int64_t lo, int64_t hi) const {
    if (!has(key)) {
      return std::nullopt;
    }
    return integerValue(at(key), path(key), lo, hi);
  }

  bool boolean(char const* key, bool fallback) const {
    if (!has(key)) {
      return fallback;
    }
    if (!at(key).is_boolean()) {
      throw Refusal{path(key), "must be true or false (got " + typeName(at(key)) + ")"};
    }
    return at(key).get<bool>();
  }

  std::string string(char const* key, std::string fallback) const {
    if (!has(key)) {
      return fallback;
    }
    if (!at(key).is_string()) {
      throw Refusal{path(key), "must be a string (got " + typeName(at(key)) + ")"};
    }
    return at(key).get<std::string>();
  }

  int named(char const* key, NameTable table, int fallback) const {
    return has(key) ? namedValue(at(key), path(key), table) : fallback;
  }

  json const& array(char const* key, size_t minSize, size_t maxSize) const {
    json const& value = at(key);
    if (!value.is_array()) {
      throw Refusal{path(key), "must be an array (got " + typeName(value) + ")"};
    }
    if (value.size() < minSize || value.size() > maxSize) {
      throw Refusal{path(key), "must hold " + std::to_string(minSize) + " to " +
                                   std::to_string(maxSize) + " items (got " +
                                   std::to_string(value.size()) + ")"};
    }
    return value;
  }

  static int64_t integerValue(json const& value, std::string const& where, int64_t lo, int64_t hi) {
    if (!value.is_number_integer()) {
      throw Refusal{where, "must be an integer (got " + typeName(value) + ")"};
    }
    if (value.is_number_unsigned() &&
        value.get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
      throw Refusal{where, "must be between " + std::to_string(lo) + " and " + std::to_string(hi) +
                               " (got " + value.dump() + ")"};
    }
    int64_t n = value.get<int64_t>();
    if (n < lo || n > hi) {
      throw Refusal{where, "must be between " + std::to_string(lo) + " and " + std::to_string(hi) +
                               " (got " + std::to_string(n) + ")"};
    }
    return n;
  }

 private:
  double inRange(char const* key, double n, double lo, double hi) const {
    if (!(n >= lo && n <= hi)) {
      throw Refusal{path(key), "must be between " + shown(lo) + " and " + shown(hi) + " (got " +
                                   shown(n) + ")"};
    }
    return n;
  }

  json const& mValue;
  std::string mPath;
};

// A list of distinct integers, each in [lo, hi].
std::vector<int32_t> distinctIntegers(Object const& o, char const* key, size_t maxSize, int64_t lo,
                                      int64_t hi, char const* what) {
  json const& items = o.array(key, 1, maxSize);
  std::vector<int32_t> out;
  for (size_t i = 0; i < items.size(); ++i) {
    std::string where = indexPath(o.path(key), i);
    auto n = static_cast<int32_t>(Object::integerValue(items[i], where, lo, hi));
    if (std::count(out.begin(), out.end(), n) != 0) {
      throw Refusal{where, std::string(what) + " " + std::to_string(n) + " is listed twice"};
    }
    out.push_back(n);
  }
  return out;
}

int64_t msToNs(double ms) { return std::llround(ms * static_cast<double>(kNsPerMs)); }

Camera readCamera(json const& value, std::string const& path) {
  Object o(value, path,
           {"fps", "history_depth", "inflight_depth", "sensors", "image_streams", "give_up_ms"});
  Camera camera;
  camera.fps = o.number("fps", 1, 1000, camera.fps);
  camera.historyDepth = static_cast<int32_t>(o.integer("history_depth", 1, 64, 8));
  camera.inflightDepth = static_cast<int32_t>(o.integer("inflight_depth", 0, 16, 4));
  camera.giveUpNs = msToNs(o.number("give_up_ms", 1000, 600'000, 10'000));
  if (o.has("sensors")) {
    json const& sensors = o.array("sensors", 1, 4);
    std::set<uint32_t> ids;
    for (size_t i = 0; i < sensors.size(); ++i) {
      Object s(sensors[i], indexPath(o.path("sensors"), i), {"id", "modes"});
      s.require("id");
      Sensor sensor;
      sensor.id = static_cast<uint32_t>(s.integer("id", 0, 15, 0));
      if (!ids.insert(sensor.id).second) {
        throw Refusal{s.path("id"), "sensor id " + std::to_string(sensor.id) + " is used twice"};
      }
      sensor.modes = s.has("modes") ? distinctIntegers(s, "modes", 16, 0, 255, "mode")
                                    : std::vector<int32_t>{0};
      camera.sensors.push_back(sensor);
    }
  } else {
    camera.sensors = {Sensor{0, {0}}};
  }
  camera.imageStreams = o.has("image_streams")
                            ? distinctIntegers(o, "image_streams", 8, 1, 0xFFFFFF, "stream")
                            : std::vector<int32_t>{1};
  return camera;
}

// A sensor mode is possible when every sensor of the camera has it.
int32_t checkedSensorMode(Object const& o, char const* key, Camera const& camera) {
  auto mode = static_cast<int32_t>(o.integer(key, 0, 255, 0));
  for (Sensor const& sensor : camera.sensors) {
    if (std::count(sensor.modes.begin(), sensor.modes.end(), mode) == 0) {
      throw Refusal{o.path(key),
                    "sensor " + std::to_string(sensor.id) + " has no mode " + std::to_string(mode)};
    }
  }
  return mode;
}

void readConditions(Object const& o, Camera const& camera, Conditions& c) {
  c.afMode = static_cast<uint8_t>(o.named("af_mode", kAfModes, c.afMode));
  c.afState = static_cast<uint8_t>(o.named("af_state", kAfStates, c.afState));
  c.lensState = static_cast<uint8_t>(o.named("lens", kLensStates, c.lensState));
  c.aeState = static_cast<uint8_t>(o.named("ae_state", kAeStates, c.aeState));
  c.aeSoftStable =
      static_cast<int32_t>(o.integer("ae_soft_stable", INT32_MIN, INT32_MAX, c.aeSoftStable));
  c.frameSync = o.integer("frame_sync", INT64_MIN, INT64_MAX, c.frameSync);
  c.ev = static_cast<int32_t>(o.integer("ev", -64, 64, c.ev));
  c.psl = static_cast<uint8_t>(o.integer("psl", 0, 255, c.psl));
  if (o.has("sensor_mode")) {
    c.sensorMode = checkedSensorMode(o, "sensor_mode", camera);
  }
  if (o.has("pre_collect_hint")) {
    if (o.at("pre_collect_hint").is_null()) {
      c.preCollectHint.reset();
    } else {
      c.preCollectHint =
          static_cast<int32_t>(o.integer("pre_collect_hint", INT32_MIN, INT32_MAX, 0));
    }
  }
}

std::vector<Segment> readSegments(json const& value, std::string const& path, int64_t limitNs,
                                  char const* limitName, Camera const& camera) {
  if (!value.is_array()) {
    throw Refusal{path, "must be an array (got " + typeName(value) + ")"};
  }
  std::vector<Segment> segments;
  Conditions current;
  for (size_t i = 0; i < value.size(); ++i) {
    Object o(value[i], indexPath(path, i),
             {"from_ms", "af_mode", "af_state", "lens", "ae_state", "ae_soft_stable", "frame_sync",
              "ev", "psl", "sensor_mode", "pre_collect_hint", "note"});
    o.require("from_ms");
    int64_t from = msToNs(o.number("from_ms", 0, kMaxDurationMs, 0));
    if (from >= limitNs) {
      throw Refusal{o.path("from_ms"), std::string("must be before ") + limitName};
    }
    if (!segments.empty() && from <= segments.back().fromNs) {
      throw Refusal{o.path("from_ms"), "must be later than the segment before"};
    }
    o.string("note", "");
    readConditions(o, camera, current);
    segments.push_back(Segment{from, current});
  }
  return segments;
}

void readSeriesFields(Object const& o, Camera const& camera, RequestSpec& r) {
  r.members = static_cast<int32_t>(o.integer("count", 1, kMaxSeriesCount, 1));
  r.hint = static_cast<int32_t>(o.integer("hint", 1, 5, 5));
  r.reusePsl = o.boolean("reuse_psl", false);
  r.preCollect = o.boolean("pre_collect", false);
  if (r.preCollect && r.hint != 4) {
    throw Refusal{o.path("pre_collect"), "only a series with hint 4 carries the pre-collect hint"};
  }
  r.captureSettings = o.boolean("capture_settings", false);
  if (r.captureSettings && !o.has("settings")) {
    throw Refusal{o.path("capture_settings"), "needs the members' settings"};
  }
  if (o.has("settings")) {
    json const& settings = o.array("settings", 1, kMaxSeriesCount);
    if (settings.size() != static_cast<size_t>(r.members)) {
      throw Refusal{o.path("settings"), "must hold one entry per member (count " +
                                            std::to_string(r.members) + ", got " +
                                            std::to_string(settings.size()) + ")"};
    }
    for (size_t i = 0; i < settings.size(); ++i) {
      Object s(settings[i], indexPath(o.path("settings"), i), {"ev", "psl", "sensor_mode"});
      MemberSettings m;
      m.ev = static_cast<int32_t>(s.integer("ev", -64, 64, 0));
      m.psl = static_cast<uint8_t>(s.integer("psl", 0, 255, 0));
      if (s.has("sensor_mode")) {
        m.sensorMode = checkedSensorMode(s, "sensor_mode", camera);
      }
      r.settings.push_back(m);
    }
  }
  if (o.has("announce")) {
    json const& announce = o.array("announce", 1, 16);
    for (size_t i = 0; i < announce.size(); ++i) {
      Object a(announce[i], indexPath(o.path("announce"), i),
               {"in_frames", "psl", "ev", "sensor_mode"});
      a.require("in_frames");
      Announce entry;
      entry.inFrames = static_cast<int32_t>(a.integer("in_frames", 1, 1024, 1));
      entry.psl = static_cast<uint8_t>(a.integer("psl", 0, 255, 1));
      entry.ev = static_cast<int32_t>(a.integer("ev", -64, 64, 0));
      if (a.has("sensor_mode")) {
        entry.sensorMode = checkedSensorMode(a, "sensor_mode", camera);
      }
      r.announce.push_back(entry);
    }
  }
}

RequestSpec readRequest(json const& value, std::string const& path, Scenario const& s) {
  if (!value.is_object()) {
    throw Refusal{path, "must be an object (got " + typeName(value) + ")"};
  }
  if (!value.contains("kind")) {
    throw Refusal{keyPath(path, "kind"), "is required"};
  }
  auto kind = static_cast<RequestKind>(namedValue(value.at("kind"), keyPath(path, "kind"), kKinds));
  // Keys a kind does not use are refused, so that a misplaced field is not silently ignored.
  std::initializer_list<char const*> stillKeys = {"kind",        "at_ms",     "every_ms", "times",
                                                  "request_no",  "zsd_ts_ns", "note",     "ev",
                                                  "sensor_mode", "frames"};
  std::initializer_list<char const*> cshotKeys = {"kind",        "at_ms",     "every_ms",  "times",
                                                  "request_no",  "zsd_ts_ns", "note",      "ev",
                                                  "sensor_mode", "shots",     "spacing_ms"};
  std::initializer_list<char const*> seriesKeys = {
      "kind",      "at_ms",       "every_ms", "times",      "request_no",
      "zsd_ts_ns", "note",        "count",    "hint",       "settings",
      "reuse_psl", "pre_collect", "announce", "spacing_ms", "capture_settings"};
  Object o(value, path,
           kind == RequestKind::Still            ? stillKeys
           : kind == RequestKind::ContinuousShot ? cshotKeys
                                                 : seriesKeys);
  o.require("at_ms");
  o.string("note", "");
  RequestSpec r;
  r.path = path;
  r.kind = kind;
  double durationMs = static_cast<double>(s.durationNs) / kNsPerMs;
  r.atNs = msToNs(o.number("at_ms", 0, durationMs, 0));
  if (r.atNs >= s.durationNs) {
    throw Refusal{o.path("at_ms"), "must be before the end of the run (duration_ms)"};
  }
  r.everyNs = msToNs(o.number("every_ms", 1, kMaxDurationMs, 0));
  r.times = o.integer("times", 1, 1'000'000'000, r.everyNs > 0 ? 1'000'000'000 : 1);
  if (o.has("times") && r.everyNs == 0 && r.times > 1) {
    throw Refusal{o.path("times"), "needs every_ms"};
  }
  if (auto n = o.optionalInteger("request_no", 0, 0xFFFFFFFE)) {
    r.requestNo = static_cast<uint32_t>(*n);
  }
  r.zsdTs = o.optionalInteger("zsd_ts_ns", INT64_MIN, INT64_MAX);
  r.spacingNs = msToNs(o.number("spacing_ms", 0, 60'000, 0));
  switch (kind) {
    case RequestKind::Still:
      r.wanted = static_cast<int32_t>(o.integer("frames", 1, 16, 1));
      break;
    case RequestKind::ContinuousShot:
      r.members = static_cast<int32_t>(o.integer("shots", 1, kMaxSeriesCount, 1));
      break;
    case RequestKind::Series:
      readSeriesFields(o, s.camera, r);
      break;
  }
  if (kind != RequestKind::Series) {
    r.ev = static_cast<int32_t>(o.integer("ev", -64, 64, 0));
    if (o.has("sensor_mode")) {
      r.sensorMode = checkedSensorMode(o, "sensor_mode", s.camera);
    }
  }
  return r;
}

std::string propertyValue(json const& value, std::string const& where) {
  if (value.is_string()) {
    return value.get<std::string>();
  }
  if (value.is_number_integer()) {
    return value.dump();
  }
  if (value.is_boolean()) {
    return value.get<bool>() ? "1" : "0";
  }
  throw Refusal{where, "must be a string, an integer or a boolean (got " + typeName(value) + ")"};
}

LogSettings readLog(json const& value, std::string const& path) {
  Object o(value, path, {"details_level", "mask", "mode", "stderr"});
  LogSettings log;
  log.detailsLevel = static_cast<uint32_t>(o.integer("details_level", 0, 10, log.detailsLevel));
  log.mode = static_cast<uint32_t>(o.integer("mode", 0, 15, log.mode));
  log.toStderr = o.boolean("stderr", false);
  if (o.has("mask") && o.at("mask").is_string()) {
    std::string text = o.at("mask").get<std::string>();
    char* end = nullptr;
    unsigned long long mask = std::strtoull(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || mask > 0xFFFFFFFFull) {
      throw Refusal{o.path("mask"),
                    "must be a 32-bit number such as \"0x101000\" (got \"" + text + "\")"};
    }
    log.mask = static_cast<uint32_t>(mask);
  } else {
    log.mask = static_cast<uint32_t>(o.integer("mask", 0, 0xFFFFFFFF, 0));
  }
  return log;
}

void checkProperties(Scenario const& s) {
  auto runtime = s.properties.find(kRuntimeAdb);
  bool runtimeOff = runtime != s.properties.end() &&
                    (runtime->second == "0" || runtime->second == "false" ||
                     runtime->second == "n" || runtime->second == "no" || runtime->second == "off");
  if (s.properties.count(kForceHint) != 0) {
    throw Refusal{keyPath("$.properties", kForceHint),
                  "is set by the simulator before every call; give a series its hint instead"};
  }
  for (RequestSpec const& r : s.requests) {
    if (runtimeOff && r.kind == RequestKind::Series && r.hint != 5) {
      throw Refusal{r.path + ".hint", std::string("a forced hint needs ") + kRuntimeAdb +
                                          ", which the scenario switches off"};
    }
  }
}

Scenario readScenario(json const& root, std::string const& defaultName) {
  Object o(root, "$",
           {"name", "description", "duration_ms", "camera", "conditions", "conditions_repeat_ms",
            "requests", "properties", "log"});
  Scenario s;
  s.name = o.string("name", defaultName);
  s.description = o.string("description", "");
  o.require("duration_ms");
  s.durationNs = msToNs(o.number("duration_ms", 1, kMaxDurationMs, 0));
  if (o.has("camera")) {
    s.camera = readCamera(o.at("camera"), o.path("camera"));
  } else {
    s.camera = readCamera(json::object(), o.path("camera"));
  }
  if (s.durationNs < s.periodNs()) {
    throw Refusal{o.path("duration_ms"), "is shorter than one frame period"};
  }
  s.conditionsRepeatNs = msToNs(o.number("conditions_repeat_ms", 1, kMaxDurationMs, 0));
  if (o.has("conditions")) {
    bool repeats = s.conditionsRepeatNs > 0;
    s.segments = readSegments(o.at("conditions"), o.path("conditions"),
                              repeats ? s.conditionsRepeatNs : s.durationNs,
                              repeats ? "conditions_repeat_ms" : "the end of the run", s.camera);
  }
  if (o.has("requests")) {
    json const& requests = o.array("requests", 0, 4096);
    for (size_t i = 0; i < requests.size(); ++i) {
      s.requests.push_back(readRequest(requests[i], indexPath(o.path("requests"), i), s));
    }
  }
  if (o.has("properties")) {
    json const& props = o.at("properties");
    if (!props.is_object()) {
      throw Refusal{o.path("properties"), "must be an object (got " + typeName(props) + ")"};
    }
    for (auto const& [key, value] : props.items()) {
      std::string where = keyPath(o.path("properties"), key);
      if (key.empty()) {
        throw Refusal{where, "a property needs a name"};
      }
      s.properties[key] = propertyValue(value, where);
    }
  }
  if (o.has("log")) {
    s.log = readLog(o.at("log"), o.path("log"));
  }
  checkProperties(s);
  return s;
}

}  // namespace

int64_t Scenario::periodNs() const { return std::llround(1e9 / camera.fps); }

int64_t Scenario::frameTimeNs(uint64_t frame) const {
  return std::llround(static_cast<double>(frame) * 1e9 / camera.fps);
}

uint64_t Scenario::frameCount() const {
  // Frames whose capture time falls inside the run.
  auto count = static_cast<uint64_t>(std::ceil(static_cast<double>(durationNs) * camera.fps / 1e9));
  while (count > 0 && frameTimeNs(count - 1) >= durationNs) {
    --count;
  }
  while (frameTimeNs(count) < durationNs) {
    ++count;
  }
  return count;
}

Conditions Scenario::conditionsAt(int64_t ns) const {
  if (conditionsRepeatNs > 0) {
    ns %= conditionsRepeatNs;
  }
  auto it = std::upper_bound(segments.begin(), segments.end(), ns,
                             [](int64_t t, Segment const& seg) { return t < seg.fromNs; });
  if (it == segments.begin()) {
    return Conditions{};
  }
  return std::prev(it)->conditions;
}

LoadResult loadScenario(std::string const& text, std::string const& defaultName) {
  LoadResult result;
  json root;
  try {
    root = json::parse(text);
  } catch (json::parse_error const& e) {
    result.error = "$: not valid JSON: " + std::string(e.what());
    return result;
  }
  try {
    result.scenario = readScenario(root, defaultName);
  } catch (Refusal const& r) {
    result.error = r.path + ": " + r.why;
  }
  return result;
}

}  // namespace zslsim
