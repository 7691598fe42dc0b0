#include "ZslTestSupport.h"

#include <android-base/properties.h>
#include <android/log.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <utility>

#include "zebcam/utils/ULog.h"

namespace zsltest {

using NSCam::Type2Type;
using NSCam::Utils::ULog::ULogger;

namespace {

LogCapture* gCapture = nullptr;

void androidSink(__android_logger_data const* data, char const* message) {
  if (gCapture != nullptr) {
    gCapture->addAndroid(data->priority, message);
  }
}

std::vector<std::string> bodiesOf(std::vector<LogLine> const& lines, std::string const& needle) {
  std::vector<std::string> out;
  for (auto const& line : lines) {
    if (line.body.find(needle) != std::string::npos) {
      out.push_back(line.body);
    }
  }
  return out;
}

// Splits "[function::line]body".
LogLine parseLine(int priority, std::string_view raw) {
  LogLine line{priority, "", 0, std::string(raw), std::string(raw)};
  size_t const sep = raw.find("::");
  size_t const close = sep == std::string_view::npos ? sep : raw.find(']', sep);
  if (raw.empty() || raw[0] != '[' || close == std::string_view::npos) {
    return line;
  }
  line.function = std::string(raw.substr(1, sep - 1));
  line.line = std::atoi(std::string(raw.substr(sep + 2, close - sep - 2)).c_str());
  line.body = std::string(raw.substr(close + 1));
  return line;
}

std::string withoutErrorSuffix(std::string const& body) {
  size_t pos = body.rfind("){#");
  if (pos == std::string::npos) {
    return body;
  }
  size_t open = body.rfind(" (", pos);
  return open == std::string::npos ? body : body.substr(0, open);
}

}  // namespace

LogCapture::LogCapture(uint32_t detailsLevel, uint32_t mask, uint32_t mode) {
  gCapture = this;
  setGates(detailsLevel, mask, mode);
  __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
  __android_log_set_logger(androidSink);
  ULogger::setHostSink([](uint32_t, std::string_view, uint32_t level, std::string_view text) {
    if (gCapture != nullptr) {
      gCapture->addUnified(level, text);
    }
  });
}

LogCapture::~LogCapture() {
  ULogger::setHostSink(nullptr);
  __android_log_set_logger(__android_log_stderr_logger);
  gCapture = nullptr;
}

void LogCapture::setGates(uint32_t detailsLevel, uint32_t mask, uint32_t mode) {
  ULogger::sDetailsLevel = detailsLevel;
  ULogger::sNormalDetailsMask = mask;
  ULogger::sMode = mode;
}

std::vector<std::string> LogCapture::androidWith(std::string const& needle) const {
  return bodiesOf(mAndroid, needle);
}
std::vector<std::string> LogCapture::unifiedWith(std::string const& needle) const {
  return bodiesOf(mUnified, needle);
}

bool LogCapture::hasLine(std::string const& body) const {
  auto android = [&](LogLine const& l) {
    return l.body == body || withoutErrorSuffix(l.body) == body;
  };
  auto unified = [&](LogLine const& l) { return l.body == body; };
  return std::any_of(mAndroid.begin(), mAndroid.end(), android) &&
         std::any_of(mUnified.begin(), mUnified.end(), unified);
}

void LogCapture::addAndroid(int priority, char const* message) {
  mAndroid.push_back(parseLine(priority, message == nullptr ? "" : message));
}

void LogCapture::addUnified(uint32_t level, std::string_view text) {
  mUnified.push_back(parseLine(static_cast<int>(level), text));
}

StreamSets defaultStreams() {
  return StreamSets{{kImageStream}, {kHalMetaStream}, {kAppMetaStream}};
}

namespace {

template <typename T>
void put(IMetadata& meta, uint32_t tag, std::optional<T> const& value) {
  if (value) IMetadata::setEntry<T>(&meta, tag, *value);
}

IMetadata halMeta(FrameState const& state) {
  IMetadata meta;
  put(meta, ZEB_AE_SOFT_STABLE, state.aeSoftStable);
  put(meta, ZEB_FRAME_SYNC, state.frameSync);
  put(meta, ZEB_P1NODE_SENSOR_MODE, state.sensorMode);
  return meta;
}

}  // namespace

IMetadata appMeta(FrameState const& state) {
  IMetadata meta;
  put(meta, ZEB_CONTROL_AF_MODE, state.afMode);
  put(meta, ZEB_CONTROL_AF_STATE, state.afState);
  put(meta, ZEB_LENS_STATE, state.lensState);
  put(meta, ZEB_CONTROL_AE_STATE, state.aeState);
  put(meta, ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, state.ev);
  put(meta, ZEB_PSL_SETTING, state.psl);
  put(meta, ZEB_CONTROL_CAPTURE_PRE_COLLECT_HINT, state.preCollectHint);
  if (!state.sensorModeList.empty()) {
    IMetadata::IEntry entry(ZEB_SENSOR_MODE_LIST);
    for (int32_t item : state.sensorModeList) {
      entry.push_back(item, Type2Type<int32_t>());
    }
    meta.update(ZEB_SENSOR_MODE_LIST, entry);
  }
  return meta;
}

HistoryFrame makeFrame(uint32_t frameNo, int64_t ts, FrameState const& state) {
  HistoryFrame hf;
  hf.frameNo = frameNo;
  hf.requestNo = frameNo;
  hf.ts = ts;
  hf.ss = defaultStreams();
  hf.metas[kAppMetaStream] = appMeta(state);
  hf.metas[kHalMetaStream] = halMeta(state);
  return hf;
}

InflightFrame makeInflight(uint32_t frameNo, FrameState const& state) {
  InflightFrame frame;
  frame.frameNo = frameNo;
  frame.requestNo = frameNo;
  frame.ss = defaultStreams();
  frame.meta = appMeta(state);
  return frame;
}

ZslFrameInfo makeFrameInfo(std::optional<int32_t> cshot) {
  ZslFrameInfo info;
  info.needStreams = defaultStreams();
  IMetadata control;
  if (cshot) {
    IMetadata::setEntry<int32_t>(&control, ZEB_CSHOT_FEATURE_CAPTURE, *cshot);
  }
  info.metas[kAppMetaStream] = control;
  return info;
}

SelectInputParams makeStill(uint32_t requestNo, int64_t zsdTs, size_t wanted) {
  SelectInputParams in;
  in.requestNo = requestNo;
  in.zsdTs = zsdTs;
  for (size_t k = 0; k < wanted; ++k) {
    in.frameInfos[static_cast<int32_t>(k)] = makeFrameInfo(0);
  }
  return in;
}

SelectInputParams makeSeriesMember(uint32_t requestNo, int32_t idx, int32_t cnt) {
  SelectInputParams in;
  in.requestNo = requestNo;
  in.ispHidlFrameIdx = idx;
  in.ispHidlFrameCnt = cnt;
  in.frameInfos[0] = makeFrameInfo();
  return in;
}

int64_t tsOf(uint32_t frameNo) { return static_cast<int64_t>(frameNo) * 33'000'000; }

void addHistory(SelectInputParams& in, uint32_t first, uint32_t last, FrameState const& state) {
  for (uint32_t n = first; n <= last; ++n) {
    in.history[n] = makeFrame(n, tsOf(n), state);
  }
}

std::vector<std::pair<int32_t, uint32_t>> chosen(SelectOutputParams const& out) {
  std::vector<std::pair<int32_t, uint32_t>> result;
  for (auto const& [key, frame] : out.frames) {
    result.emplace_back(key, frame.frameNo);
  }
  return result;
}

std::vector<std::string> linesOf(std::vector<LogLine> const& lines,
                                 std::vector<std::string> const& functions) {
  std::vector<std::string> out;
  for (auto const& line : lines) {
    if (functions.empty() ||
        std::find(functions.begin(), functions.end(), line.function) != functions.end()) {
      out.push_back(line.function + ": " + withoutErrorSuffix(line.body));
    }
  }
  return out;
}

std::vector<std::string> bothSinks(LogCapture const& logs,
                                   std::vector<std::string> const& functions) {
  std::vector<std::string> android = linesOf(logs.android(), functions);
  std::vector<std::string> unified = linesOf(logs.unified(), functions);
  if (android == unified) {
    return unified;
  }
  android.insert(android.begin(), "<android>");
  android.push_back("<unified>");
  android.insert(android.end(), unified.begin(), unified.end());
  return android;
}

std::string answer(SelectOutputParams const& out) {
  std::string text;
  for (auto const& [key, frame] : out.frames) {
    text += key == 0 ? "" : "[" + std::to_string(key) + "]";
    text += frame.frameNo == kNoFrame ? "noZsl" : "F" + std::to_string(frame.frameNo);
    text += frame.aux == 0 ? " " : "/aux" + std::to_string(frame.aux) + " ";
  }
  text = text.empty() ? "none" : text.substr(0, text.size() - 1);
  for (auto const& [frameNo, op] : out.ops) {
    text += op == OpT::Lock ? " +" : op == OpT::Unlock ? " -" : " x";
    text += frameNo == kNoFrame ? "noZsl" : std::to_string(frameNo);
  }
  std::string set;
  for (uint32_t frameNo : out.frameSet) {
    set += (set.empty() ? " {" : " ") + std::to_string(frameNo);
  }
  return set.empty() ? text : text + set + "}";
}

SeriesCalls::SeriesCalls(int32_t hint, std::string function, std::string name)
    : mSelector(std::make_unique<CzRovaZslSelector>()),
      mFunction(std::move(function)),
      mName(std::move(name)) {
  if (hint >= 0) {
    setProperty("vendor.debug.camera.zsl.runtime.adb", "true");
    setProperty("vendor.debug.camera.zsl.force.hint", std::to_string(hint));
  }
}

SelectInputParams SeriesCalls::member(uint32_t requestNo, int32_t idx, int32_t cnt,
                                      int64_t elapsedMs) {
  logs.clear();
  mPrefix = "[r" + std::to_string(requestNo) + "," + std::to_string(elapsedMs) + "/1000ms]<" +
            mName + ">IspHidl(" + std::to_string(idx) + "/" + std::to_string(cnt) + ") ";
  SelectInputParams in = wants;
  in.requestNo = requestNo;
  in.ispHidlFrameIdx = idx;
  in.ispHidlFrameCnt = cnt;
  in.frameInfos[0] = makeFrameInfo();
  in.elapsedMs = elapsedMs;
  in.history = history;
  in.inflight = inflight;
  return in;
}

SelectOutputParams SeriesCalls::serve(SelectInputParams const& in) {
  SelectOutputParams out = mSelector->select(in);
  for (auto const& [frameNo, op] : out.ops) {
    auto hf = history.find(frameNo);
    if (hf != history.end() && op == OpT::Release) {
      history.erase(hf);
    } else if (hf != history.end()) {
      hf->second.locked = op == OpT::Lock;
    }
  }
  return out;
}

void SeriesCalls::restart() {
  mSelector = std::make_unique<CzRovaZslSelector>();
  history.clear();
  inflight.clear();
  wants = SelectInputParams{};
}

void SeriesCalls::capture(uint32_t first, uint32_t last, FrameState const& state) {
  for (uint32_t n = first; n <= last; ++n) {
    inflight[n] = makeInflight(n, state);
    history.erase(n);
  }
}

void SeriesCalls::arrive(uint32_t first, uint32_t last, FrameState const& state) {
  for (uint32_t n = first; n <= last; ++n) {
    inflight.erase(n);
    history[n] = makeFrame(n, tsOf(n), state);
  }
}

std::vector<std::string> SeriesCalls::said(std::vector<std::string> texts) const {
  for (auto& text : texts) text = line(text);
  return texts;
}

std::string SeriesCalls::missing(std::vector<std::string> const& texts) const {
  std::vector<std::string> const android = linesOf(logs.android(), {mFunction});
  std::vector<std::string> const unified = linesOf(logs.unified(), {mFunction});
  std::string out;
  for (auto const& text : texts) {
    // Lines that start with an upper-case state word follow the request prefix.
    std::string const want = mFunction + ": " + (std::isupper(text[0]) ? mPrefix : "") + text;
    if (std::count(android.begin(), android.end(), want) == 0 ||
        std::count(unified.begin(), unified.end(), want) == 0) {
      out += text + "\n";
    }
  }
  return out;
}

void setProperty(std::string const& key, std::string const& value) {
  android::base::SetProperty(key, value);
}

}  // namespace zsltest
