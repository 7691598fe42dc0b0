#include <algorithm>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "CzRovaZslSelector.h"
#include "CzRovaZslSelectorUtils.h"
#include "IspHidlSeries.h"

namespace NSCam::CustZone {

namespace {

using Record = CzRovaZslSelector::IspHidlReqObj_SubSequence;
using Input = ISelector::SelectInputParams;
using Output = ISelector::SelectOutputParams;
using OpT = ISelector::OpT;

constexpr char kFn[] = "ispHidlSelect_SubSequence";

// What one call works on; the series key is the request of index 0.
struct Call {
  Input const& in;
  std::string const& prefix;
  int32_t logLevel;
  uint32_t request;
  uint32_t key;
  uint32_t cnt;
  size_t pslIndex;
};

// The wanted settings, read in place. With the PSL-first arrangement in force
// each vector reads as its PSL part followed by the whole vector, so that the
// PSL frames can be taken first and reused.
class WantedSettings {
 public:
  WantedSettings(Input const& in, size_t pslIndex, bool pslFirst)
      : mIn(in), mPslIndex(pslIndex), mPslFirst(pslFirst) {}

  bool pslFirst() const { return mPslFirst; }
  void setPslFirst(bool on) { mPslFirst = on; }
  // A missing PSL setting is 0.
  uint8_t psl(size_t i) const {
    uint8_t const* psl = at(mIn.pslSettings, i);
    return psl == nullptr ? 0 : *psl;
  }
  // nullptr when the vector ends before `i`: any EV and PSL match.
  int32_t const* ev(size_t i) const { return at(mIn.evSettings, i); }
  SensorModeMap const* sensorModes(size_t i) const { return at(mIn.sensorModes, i); }

 private:
  template <typename T>
  T const* at(std::vector<T> const& own, size_t i) const {
    size_t const lead = mPslFirst ? own.size() - std::min(mPslIndex, own.size()) : 0;
    if (i < lead) {
      return &own[own.size() - lead + i];
    }
    i -= lead;
    return i < own.size() ? &own[i] : nullptr;
  }

  Input const& mIn;
  size_t mPslIndex;
  bool mPslFirst;
};

int asInt(uint32_t value) { return static_cast<int>(value); }

// Whether the sensor-mode list of a captured frame holds every wanted pair. A
// frame that reports no list passes: it cannot be told apart from a match.
bool hasSensorModes(IMetadata const& meta, SensorModeMap const& wanted, uint32_t frameNo, bool ret,
                    std::string const& prefix) {
  IMetadata::IEntry const* list = meta.findEntry(ZEB_SENSOR_MODE_LIST);
  if (wanted.empty() || list == nullptr || list->count() == 0 ||
      list->type() != IMetadata::ItemType::I32) {
    return ret;
  }
  size_t const items = list->count();
  if (items % 2 != 0) {
    CZ_LOGE_AT(kFn, "%s INVALID: F%u sensor-mode list has odd length %zu, its last item is ignored",
               prefix.c_str(), frameNo, items);
  }
  for (auto const& [key, value] : wanted) {
    bool found = false;
    for (size_t pos = 0; pos + 1 < items; pos += 2) {
      int32_t listKey = 0;
      int32_t listValue = 0;
      list->tryItemAt(pos, listKey);
      list->tryItemAt(pos + 1, listValue);
      if (static_cast<uint32_t>(listKey) != key) {
        continue;
      }
      found = true;
      ret = ret && static_cast<uint32_t>(listValue) == value;
      CZ_LOGI_AT(kFn, "ret:%d hissm:%d selectsm:%d", ret, listValue, asInt(value));
      break;
    }
    ret = ret && found;
  }
  return ret;
}

// Whether candidate `frameNo` carries the wanted settings of index `i`.
bool matches(Input const& in, uint32_t frameNo, size_t i, WantedSettings const& wanted,
             std::string const& prefix) {
  CZ_LOGI_AT(kFn, "match frame:%d with index:%zu", asInt(frameNo), i);
  int32_t const* ev = wanted.ev(i);
  IMetadata const* meta = nullptr;
  if (auto hf = in.history.find(frameNo); hf != in.history.end()) {
    auto control = hf->second.metas.find(kControlMetaStreamId);
    if (control == hf->second.metas.end()) {
      return false;
    }
    meta = &control->second;
  } else if (auto inflight = in.inflight.find(frameNo); inflight != in.inflight.end()) {
    meta = &inflight->second.meta;
  } else {
    auto announced = in.subSeqReqs.find(frameNo);
    if (announced == in.subSeqReqs.end()) {
      return false;
    }
    uint64_t const setting = announced->second.setting;
    return ev == nullptr || (static_cast<uint8_t>(setting & 0xFF) == wanted.psl(i) &&
                             static_cast<int32_t>(setting >> 32) == *ev);
  }

  bool ret = true;
  if (ev != nullptr) {
    uint8_t psl = 0;
    int32_t frameEv = 0;
    IMetadata::getEntry<uint8_t>(meta, TAG_PSL_SETTING, psl);
    bool const hasEv =
        IMetadata::getEntry<int32_t>(meta, ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, frameEv);
    ret = hasEv && frameEv == *ev && psl == wanted.psl(i);
    CZ_LOGI_AT(kFn, "ret:%d hisev:%d selectev:%d hispsl:%d selectpsl:%d", ret, frameEv, *ev, psl,
               wanted.psl(i));
  }
  SensorModeMap const* modes = wanted.sensorModes(i);
  return modes == nullptr ? ret : hasSensorModes(*meta, *modes, frameNo, ret, prefix);
}

// The first start index from which every candidate, up to the series length or
// the list's end, matches; the list size when there is none. `i` is where the
// last attempt stopped.
size_t searchRun(Call const& c, std::vector<uint32_t> const& list, WantedSettings const& wanted,
                 size_t& i) {
  size_t const span = std::max<size_t>(c.cnt, 1);
  size_t first = 0;
  i = 0;
  for (; first < list.size(); ++first) {
    bool all = true;
    for (i = 0; i < span && first + i < list.size(); ++i) {
      if (!matches(c.in, list[first + i], i, wanted, c.prefix)) {
        all = false;
        break;
      }
    }
    if (all) {
      break;
    }
  }
  return first;
}

// Candidates newer than the shutter, from the last discontinuity on, then the
// frames in flight and the announced ones. Older frames go to `releaseList`.
std::vector<uint32_t> collectCandidates(Call const& c, int64_t zslTimeMs,
                                        std::vector<uint32_t>& releaseList) {
  Input const& in = c.in;
  std::vector<uint32_t> frameNoList;
  CZ_LOGI_AT(kFn, "select hf from ts:%ld", static_cast<long>(in.zsdTs));
  // Doubles keep a wild time stamp from overflowing the difference.
  double const maxGapNs = static_cast<double>(zslTimeMs) * 1000000.0;
  int64_t prevTs = std::numeric_limits<int64_t>::max();
  for (auto const& [frameNo, hf] : in.history) {
    if (!frameNoList.empty() &&
        static_cast<double>(hf.ts) - static_cast<double>(prevTs) > maxGapNs) {
      releaseList.insert(releaseList.end(), frameNoList.begin(), frameNoList.end());
      frameNoList.clear();
      CZ_LOGW_AT(kFn, "discontinuous hf:%d, clear frameNoList", asInt(frameNo));
    }
    if (in.zsdTs < hf.ts) {
      frameNoList.push_back(frameNo);
    } else {
      CZ_LOGI_AT(kFn, "outdate hf:%d", asInt(frameNo));
      releaseList.push_back(frameNo);
    }
    prevTs = hf.ts;
  }
  for (auto const& entry : in.inflight) {
    frameNoList.push_back(entry.first);
  }
  for (auto const& entry : in.subSeqReqs) {
    if (in.history.count(entry.first) == 0 && in.inflight.count(entry.first) == 0) {
      CZ_LOGI_AT(kFn, "push psl frameNo:%d", asInt(entry.first));
      frameNoList.push_back(entry.first);
    }
  }
  std::sort(frameNoList.begin(), frameNoList.end());
  // A frame reported both in the history and in flight is one candidate.
  frameNoList.erase(std::unique(frameNoList.begin(), frameNoList.end()), frameNoList.end());
  CZ_LOGD_LV_AT(c.logLevel, kFn, "%s DEBUG: curFrameNumbers={%s}", c.prefix.c_str(),
                series::frameNumbersForm(frameNoList).c_str());
  return frameNoList;
}

// Maps the series to the first matching run of candidates and releases the
// frames it will not use. Leaves `wanted` in the arrangement that was kept.
void plan(Call const& c, int64_t zslTimeMs, WantedSettings& wanted, Record& record,
          Output& result) {
  std::vector<uint32_t> releaseList;
  std::vector<uint32_t> const frameNoList = collectCandidates(c, zslTimeMs, releaseList);

  // A short run may be found whole in the other arrangement; keep the earlier start.
  int retryCnt = 1;
  size_t i = 0;
  size_t firstSelectIndex = searchRun(c, frameNoList, wanted, i);
  size_t bestIndex = firstSelectIndex;
  bool bestPslFirst = wanted.pslFirst();
  for (;;) {
    size_t const selectCnt = frameNoList.size() - firstSelectIndex;
    CZ_LOGI_AT(kFn,
               "reusePsl=%d i=%zu usedReusePsl=%d firstSelectIndex=%zu retryCnt=%d selectCnt=%d",
               c.in.reusePsl, i, wanted.pslFirst(), firstSelectIndex, retryCnt,
               static_cast<int>(selectCnt));
    if (selectCnt >= c.cnt || retryCnt == 0) {
      break;
    }
    wanted.setPslFirst(!wanted.pslFirst());
    --retryCnt;
    firstSelectIndex = searchRun(c, frameNoList, wanted, i);
    if (firstSelectIndex < bestIndex) {
      bestIndex = firstSelectIndex;
      bestPslFirst = wanted.pslFirst();
    }
  }
  wanted.setPslFirst(bestPslFirst);
  firstSelectIndex = bestIndex;

  CZ_LOGI_AT(kFn, "firstSelectIndex:%zu, frameNoList size:%lu pslIndex=%d reusePsl=%d",
             firstSelectIndex, static_cast<unsigned long>(frameNoList.size()),
             static_cast<int>(c.pslIndex), c.in.reusePsl);
  // Frames past the list are counted on from the last one, skipping a series' worth.
  uint32_t const last = frameNoList.empty() ? c.request : frameNoList.back();
  std::map<uint32_t, uint32_t> selectSubSequence;
  for (uint32_t k = 0; k < c.cnt; ++k) {
    uint32_t const index = wanted.pslFirst() ? static_cast<uint32_t>((c.pslIndex + k) % c.cnt) : k;
    size_t const pos = firstSelectIndex + k;
    uint32_t const frame = pos < frameNoList.size()
                               ? frameNoList[pos]
                               : last + 1 + static_cast<uint32_t>(pos - frameNoList.size()) + c.cnt;
    selectSubSequence.emplace(index, frame);
  }
  CZ_LOGD_LV_AT(c.logLevel, kFn, "%s DEBUG: selectSubSequence={%s}", c.prefix.c_str(),
                series::indexedFramesForm(selectSubSequence).c_str());

  uint32_t minMapFn = kNoFrame;
  for (auto const& [index, frame] : selectSubSequence) {
    record.mapping[c.key + index] = frame;
    record.needSelectReqs.insert(c.key + index);
    result.frameSet.insert(frame);
    minMapFn = std::min(minMapFn, frame);
  }
  for (uint32_t frame : frameNoList) {
    CZ_LOGI_AT(kFn, "release hf:%d minMapFn=%d", asInt(frame), asInt(minMapFn));
    if (frame < minMapFn) {
      releaseList.push_back(frame);
    }
  }
  for (uint32_t frame : releaseList) {
    CZ_LOGW_AT(kFn, "release hf:%d", asInt(frame));
    result.ops[frame] = OpT::Release;
  }
  CZ_LOGI_AT(kFn, "%s MAPPING: (operate at R%u) %s", c.prefix.c_str(), c.request,
             series::mappingForm(record.mapping).c_str());
}

// Re-checks the mapping against the frames that have arrived; from the first
// entry that fails on, the series is captured without zero shutter lag.
void verify(Call const& c, Record& record, Output& result) {
  Input const& in = c.in;
  uint32_t newestFn = 0;
  if (!in.inflight.empty()) {
    newestFn = in.inflight.rbegin()->first;
  } else if (!in.history.empty()) {
    newestFn = in.history.rbegin()->first;
  }
  uint32_t const firstReq = record.mapping.begin()->first;
  bool failed = false;
  for (auto& [member, frame] : record.mapping) {
    auto hf = in.history.find(frame);
    bool const inHistory = hf != in.history.end();
    size_t const k = member - firstReq;
    // A member without recorded streams (wrapped request numbers) is not checked.
    if (member <= c.request && inHistory && !failed && k < record.needStreams.size()) {
      int32_t const ev = k < in.evSettings.size() ? in.evSettings[k] : in.targetEv;
      bool const psl = k < in.pslSettings.size() && in.pslSettings[k] != 0;
      if (!isQualify(hf->second, record.needStreams[k], 0, false, record.sensorModeChecks[k], ev,
                     psl)) {
        CZ_LOGI_AT(kFn, "cur req:%d first req:%d", asInt(member), asInt(firstReq));
        failed = true;
      }
    }
    if (!failed && frame < newestFn && !inHistory && in.inflight.count(frame) == 0 &&
        record.needSelectReqs.count(member) != 0) {
      CZ_LOGI_AT(kFn, "%s INVALID: R%u fail to find F:%d in hf/inf", c.prefix.c_str(), member,
                 asInt(frame));
      failed = true;
    }
    if (!failed) {
      continue;
    }
    if (inHistory && hf->second.locked) {
      result.ops.emplace(frame, OpT::Unlock);
    }
    if (result.frameSet.erase(frame) != 0) {
      CZ_LOGI_AT(kFn, "%s INVALID: R%u fail to selected, remove F:%d from selectFrames",
                 c.prefix.c_str(), member, asInt(frame));
    }
    frame = kNoFrame;
  }
  if (failed) {
    CZ_LOGI_AT(kFn, "%s MAPPING: (Verify failed! operate at R%u) %s", c.prefix.c_str(), c.request,
               series::mappingForm(record.mapping).c_str());
  }
}

// Serves the request once no earlier member is waiting and its frame is there.
void handOut(Call const& c, bool pslFirst, Record& record, Output& result) {
  auto& pending = record.needSelectReqs;
  if (!pending.empty() && *pending.begin() < c.request) {
    CZ_LOGD_LV_AT(c.logLevel, kFn, "%s DEBUG: cannot select R%u (FIFO), needSelectReqs={%s}",
                  c.prefix.c_str(), c.request, series::pendingForm(pending).c_str());
    return;
  }
  uint32_t const frame = series::mappedFrame(record.mapping, c.request, c.prefix, kFn);
  if (frame != kNoFrame && c.in.history.count(frame) == 0) {
    return;
  }
  // Frames of the sequence proper, after its PSL part, are marked for the host.
  uint32_t const position = c.request - record.mapping.begin()->first;
  uint32_t const aux = !pslFirst && position >= c.pslIndex ? 1 : 0;
  result.frames[0] = ISelector::ZslFrameResult{frame, aux};
  result.ops.emplace(frame, OpT::Unlock);
  pending.erase(c.request);
  CZ_LOGD_LV_AT(c.logLevel, kFn, "%s SELECT: R%u [hF%u]", c.prefix.c_str(), c.request, frame);
}

}  // namespace

ISelector::SelectOutputParams CzRovaZslSelector::ispHidlSelect_SubSequence(
    SelectInputParams const& params, std::string const& prefix) const {
  int32_t const idx = params.ispHidlFrameIdx;
  int32_t const cnt = params.ispHidlFrameCnt;
  auto outsideSeries = [&](int32_t seriesCnt) {
    CZ_LOGE_AT(kFn,
               "%s INVALID: R%u (idx=%d) is outside its series of %d, use multiFrameSelect with "
               "policy=%s instead.",
               prefix.c_str(), params.requestNo, idx, seriesCnt, toString(mPolicy).c_str());
    return multiFrameSelect(params, prefix, mPolicy);
  };
  // Index-aligned bookkeeping only ever grows up to the series count.
  if (params.frameInfos.empty() || idx < 0 || cnt < 1 || cnt > kMaxIspHidlFrameCnt || idx >= cnt) {
    return outsideSeries(cnt);
  }

  size_t pslIndex = 0;
  while (pslIndex < params.pslSettings.size() && params.pslSettings[pslIndex] == 0) {
    ++pslIndex;
  }
  size_t const need = static_cast<size_t>(cnt);
  if (params.pslSettings.size() < need || params.evSettings.size() < need ||
      params.sensorModes.size() < need) {
    CZ_LOGE(
        "%s INVALID: settings shorter than cnt=%d (psl=%zu ev=%zu sensorModes=%zu): a missing "
        "PSL is 0, a missing EV or sensor mode matches any frame, EV verified against "
        "targetEv=%d",
        prefix.c_str(), cnt, params.pslSettings.size(), params.evSettings.size(),
        params.sensorModes.size(), params.targetEv);
  }
  WantedSettings wanted(params, pslIndex, params.reusePsl);

  Record* record = series::findOrCreate(mIspHidlReqs_SubSequence, params, prefix, kFn);
  if (record == nullptr) {
    return {};
  }
  Call const call{params,
                  prefix,
                  mLogLevel,
                  params.requestNo,
                  series::seriesKey(params),
                  static_cast<uint32_t>(cnt),
                  pslIndex};

  // Members not seen yet take this member's streams; a series shares them.
  if (record->needStreams.size() <= static_cast<size_t>(idx)) {
    auto const& first = params.frameInfos.begin()->second;
    SensorModeMap const checks = filterSensorModes(params.sensorModeTargets, first.checkSensorIds);
    size_t const size = static_cast<size_t>(idx) + 1;
    record->needStreams.resize(size, first.needStreams);
    record->sensorModeChecks.resize(size, checks);
  }

  SelectOutputParams result;
  int64_t const limitMs = pslIndex != 0 ? mTimeoutMs : mPslTimeoutMs;
  if (params.elapsedMs >= limitMs) {
    series::timeOut(*record, params.history, result, call.request, call.key, cnt, prefix, kFn,
                    mLogLevel);
  }
  if (record->mapping.empty()) {
    plan(call, mZslTimeMs, wanted, *record, result);
  }
  // A member past the series as it was planned has no frame to wait for.
  if (static_cast<size_t>(idx) >= record->mapping.size()) {
    return outsideSeries(static_cast<int32_t>(record->mapping.size()));
  }

  verify(call, *record, result);
  handOut(call, wanted.pslFirst(), *record, result);
  series::lockPending(*record, params.history, result, call.request, prefix, kFn, mLogLevel);
  if (record->needSelectReqs.empty()) {
    series::erase(mIspHidlReqs_SubSequence, call.key, call.request, prefix, kFn);
  }
  return result;
}

}  // namespace NSCam::CustZone
