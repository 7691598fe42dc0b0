#include "Pipeline.h"

#include <android-base/properties.h>
#include <sys/resource.h>

#include <algorithm>

#include "zebcam/metadata/IMetadata.h"
#include "zebcam/metadata/ZebMetadataTag.h"

namespace zslsim {

namespace {

using NSCam::IMetadata;
using NSCam::Type2Type;

constexpr char kForceHint[] = "vendor.debug.camera.zsl.force.hint";
constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kPslTimeoutMs = 5000;
constexpr size_t kAnsweredKept = 4096;
constexpr size_t kNotHeldShown = 8;
// How far locked frames may push the history past its depth before the
// pipeline drops them all the same.
constexpr size_t kLockedOverflow = kMaxSeriesCount;

int32_t controlCshot(RequestKind kind) { return kind == RequestKind::ContinuousShot ? 1 : 0; }

long peakRssKiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

}  // namespace

Verdict verdictOf(Conditions const& c) {
  if (c.psl != 0) {
    return Verdict::PslFrame;
  }
  if (c.ev != 0) {
    return Verdict::EvNotZero;
  }
  // AF modes that report states: settled when the lens rests and focus is
  // reached, or when both are idle.
  bool statesMatter = c.afMode >= 1 && c.afMode <= 4;
  bool settled = (c.lensState != 1 && (c.afState > 3 || c.afState == 2)) ||
                 (c.lensState == 0 && c.afState == 0);
  if (statesMatter && !settled) {
    return Verdict::AfNotStable;
  }
  if (c.aeSoftStable != 1) {
    return Verdict::AeNotSoftStable;
  }
  return Verdict::Qualifies;
}

char const* verdictName(Verdict v) {
  switch (v) {
    case Verdict::Qualifies:
      return "qualifies";
    case Verdict::PslFrame:
      return "PSL frame";
    case Verdict::EvNotZero:
      return "EV not 0";
    case Verdict::AfNotStable:
      return "AF not stable";
    case Verdict::AeNotSoftStable:
      return "AE not soft-stable";
  }
  return "?";
}

char const* routeName(int32_t hint) {
  switch (hint) {
    case 0:
      return "multiFrame";
    case 1:
      return "ispHidl";
    case 2:
      return "ispHidlSelect_Latest";
    case 3:
      return "ispHidlSelect_LatestWithQuality";
    case 4:
      return "ispHidlSelect_MFNR_HDR";
    case 5:
      return "ispHidlSelect_SubSequence";
    default:
      return "none";
  }
}

char const* opName(OpT op) {
  switch (op) {
    case OpT::Lock:
      return "lock";
    case OpT::Unlock:
      return "unlock";
    case OpT::Release:
      return "release";
  }
  return "unknown";
}

std::string Request::label() const {
  switch (kind) {
    case RequestKind::Still:
      return input.frameInfos.size() == 1 ? "still"
                                          : "still x" + std::to_string(input.frameInfos.size());
    case RequestKind::ContinuousShot:
      return "cshot " + std::to_string(index + 1) + "/" + std::to_string(members);
    case RequestKind::Series:
      break;
  }
  std::string out = "series " + std::to_string(index) + "/" + std::to_string(members);
  if (forcedHint >= 0) {
    out += " hint " + std::to_string(forcedHint);
  }
  if (preCollect) {
    out += " hdr";
  }
  return out;
}

Pipeline::Pipeline(Scenario const& scenario, int64_t timeoutMs)
    : mScenario(scenario), mTimeoutMs(timeoutMs) {}

IMetadata Pipeline::settingsMeta(Conditions const& c) const {
  IMetadata meta;
  IMetadata::setEntry<uint8_t>(&meta, ZEB_CONTROL_AF_MODE, c.afMode);
  IMetadata::setEntry<int32_t>(&meta, ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, c.ev);
  IMetadata::setEntry<uint8_t>(&meta, ZEB_PSL_SETTING, c.psl);
  if (c.preCollectHint) {
    IMetadata::setEntry<int32_t>(&meta, ZEB_CONTROL_CAPTURE_PRE_COLLECT_HINT, *c.preCollectHint);
  }
  IMetadata::IEntry modes(ZEB_SENSOR_MODE_LIST);
  for (Sensor const& sensor : mScenario.camera.sensors) {
    modes.push_back(static_cast<int32_t>(sensor.id), Type2Type<int32_t>());
    modes.push_back(c.sensorMode.value_or(sensor.modes.front()), Type2Type<int32_t>());
  }
  meta.update(ZEB_SENSOR_MODE_LIST, modes);
  return meta;
}

HistoryFrame Pipeline::makeHistoryFrame(uint32_t frameNo, int64_t ts, Conditions const& c) const {
  HistoryFrame hf;
  hf.frameNo = frameNo;
  hf.requestNo = frameNo;
  hf.ts = ts;
  for (int32_t stream : mScenario.camera.imageStreams) {
    hf.images[stream] = nullptr;
    hf.ss.halImages.insert(stream);
  }
  IMetadata app = settingsMeta(c);
  IMetadata::setEntry<uint8_t>(&app, ZEB_CONTROL_AF_STATE, c.afState);
  IMetadata::setEntry<uint8_t>(&app, ZEB_LENS_STATE, c.lensState);
  IMetadata::setEntry<uint8_t>(&app, ZEB_CONTROL_AE_STATE, c.aeState);
  hf.metas[kAppMetaStream] = std::move(app);
  hf.ss.appMetas.insert(kAppMetaStream);
  for (Sensor const& sensor : mScenario.camera.sensors) {
    int32_t stream = kHalMetaStreamBase | static_cast<int32_t>(sensor.id);
    IMetadata hal;
    IMetadata::setEntry<int32_t>(&hal, ZEB_AE_SOFT_STABLE, c.aeSoftStable);
    IMetadata::setEntry<int64_t>(&hal, ZEB_FRAME_SYNC, c.frameSync);
    IMetadata::setEntry<int32_t>(&hal, ZEB_P1NODE_SENSOR_MODE,
                                 c.sensorMode.value_or(sensor.modes.front()));
    hf.metas[stream] = std::move(hal);
    hf.ss.halMetas.insert(stream);
  }
  return hf;
}

SensorModeMap Pipeline::sensorModesFor(std::optional<int32_t> mode) const {
  SensorModeMap modes;
  if (mode) {
    for (Sensor const& sensor : mScenario.camera.sensors) {
      modes[sensor.id] = static_cast<uint32_t>(*mode);
    }
  }
  return modes;
}

ZslFrameInfo Pipeline::frameInfoFor(RequestSpec const& plan, int32_t ev, int32_t cshot) const {
  ZslFrameInfo info;
  for (int32_t stream : mScenario.camera.imageStreams) {
    info.needStreams.halImages.insert(stream);
  }
  for (Sensor const& sensor : mScenario.camera.sensors) {
    info.needStreams.halMetas.insert(kHalMetaStreamBase | static_cast<int32_t>(sensor.id));
  }
  info.needStreams.appMetas.insert(kAppMetaStream);
  IMetadata control;
  if (plan.kind != RequestKind::Series) {
    IMetadata::setEntry<int32_t>(&control, ZEB_CSHOT_FEATURE_CAPTURE, cshot);
  }
  IMetadata::setEntry<int32_t>(&control, ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, ev);
  if (plan.preCollect) {
    IMetadata::setEntry<int32_t>(&control, ZEB_CONTROL_CAPTURE_PRE_COLLECT_HINT, 1);
  }
  info.metas[kAppMetaStream] = std::move(control);
  return info;
}

void Pipeline::putInFlight(uint32_t frameNo) {
  Conditions c = mScenario.conditionsAt(mScenario.frameTimeNs(frameNo));
  if (auto it = mAnnounced.find(frameNo); it != mAnnounced.end()) {
    c.psl = it->second.psl;
    c.ev = it->second.ev;
    if (it->second.sensorMode) {
      c.sensorMode = it->second.sensorMode;
    }
    mAnnounced.erase(it);
  }
  Pending pending;
  pending.frame.frameNo = frameNo;
  pending.frame.requestNo = frameNo;
  pending.frame.ss = makeHistoryFrame(frameNo, 0, c).ss;
  pending.frame.meta = settingsMeta(c);
  pending.conditions = c;
  mInflight.emplace(frameNo, std::move(pending));
}

void Pipeline::land(uint32_t frameNo, int64_t ns) {
  if (mInflight.count(frameNo) == 0) {
    putInFlight(frameNo);
  }
  auto it = mInflight.find(frameNo);
  Conditions const c = it->second.conditions;
  mInflight.erase(it);
  mHistory.emplace(frameNo, makeHistoryFrame(frameNo, ns, c));
  mLastLanded = frameNo;
  LandedFrame landed{frameNo, ns, c, verdictOf(c)};
  for (Observer* o : mObservers) {
    o->frameLanded(landed);
  }
}

void Pipeline::leave(std::map<uint32_t, HistoryFrame>::iterator it, int64_t ns, LeaveReason reason,
                     uint32_t requestNo) {
  if (it->second.locked) {
    --mLocked;
  }
  uint32_t frameNo = it->first;
  mHistory.erase(it);
  for (Observer* o : mObservers) {
    o->frameLeft(frameNo, ns, reason, requestNo);
  }
}

void Pipeline::setLocked(HistoryFrame& hf, bool locked, int64_t ns) {
  if (hf.locked == locked) {
    return;
  }
  hf.locked = locked;
  mLocked = locked ? mLocked + 1 : mLocked - 1;
  for (Observer* o : mObservers) {
    o->lockChanged(hf.frameNo, ns, locked);
  }
}

void Pipeline::trim(int64_t ns) {
  auto depth = static_cast<size_t>(mScenario.camera.historyDepth);
  while (mHistory.size() > depth) {
    auto oldest = std::find_if(mHistory.begin(), mHistory.end(),
                               [](auto const& entry) { return !entry.second.locked; });
    if (oldest != mHistory.end()) {
      leave(oldest, ns, LeaveReason::Trimmed, 0);
      continue;
    }
    if (mHistory.size() <= depth + kLockedOverflow) {
      return;
    }
    ++mTotals.evicted;
    leave(mHistory.begin(), ns, LeaveReason::Evicted, 0);
  }
}

void Pipeline::instantiate(RequestSpec const& plan, int64_t groupNs) {
  uint32_t first = plan.requestNo.value_or(mNextRequestNo);
  if (!plan.requestNo) {
    mNextRequestNo += static_cast<uint32_t>(plan.members);
  }
  std::vector<Announce> toAnnounce = plan.announce;
  if (plan.captureSettings) {
    // The members' frames come right after those already in flight.
    for (size_t i = 0; i < plan.settings.size(); ++i) {
      MemberSettings const& m = plan.settings[i];
      toAnnounce.push_back(Announce{static_cast<int32_t>(i) + 1, m.psl, m.ev, m.sensorMode});
    }
  }
  std::shared_ptr<std::vector<std::pair<uint32_t, SubSeqReq>>> announced;
  if (!toAnnounce.empty()) {
    int64_t newest = mInflight.empty() ? mLastLanded : mInflight.rbegin()->first;
    announced = std::make_shared<std::vector<std::pair<uint32_t, SubSeqReq>>>();
    for (Announce const& a : toAnnounce) {
      auto frameNo = static_cast<uint32_t>(newest + a.inFrames);
      mAnnounced[frameNo] = a;
      SubSeqReq req;
      req.setting = a.psl | (static_cast<uint64_t>(static_cast<uint32_t>(a.ev)) << 32);
      req.sensorModes = sensorModesFor(a.sensorMode);
      announced->emplace_back(frameNo, req);
    }
  }
  bool series = plan.kind == RequestKind::Series;
  size_t pslIndex = 0;
  while (pslIndex < plan.settings.size() && plan.settings[pslIndex].psl == 0) {
    ++pslIndex;
  }
  for (int32_t i = 0; i < plan.members; ++i) {
    Request r;
    r.seq = mNextSeq++;
    r.requestNo = first + static_cast<uint32_t>(i);
    r.kind = plan.kind;
    r.hint = series ? plan.hint : 0;
    r.forcedHint = series && plan.hint != 5 ? plan.hint : -1;
    r.index = i;
    r.members = plan.members;
    r.preCollect = plan.preCollect;
    r.openNs = groupNs + plan.spacingNs * i;
    r.zsdTs = plan.zsdTs.value_or(series ? groupNs : r.openNs);
    // The sub-sequence route waits longer for a series that starts with a PSL frame.
    r.timeoutMs = series && plan.hint == 5 && pslIndex == 0 ? kPslTimeoutMs : mTimeoutMs;
    r.announced = announced;
    SelectInputParams& in = r.input;
    in.requestNo = r.requestNo;
    in.zsdTs = r.zsdTs;
    MemberSettings member;
    if (series && !plan.settings.empty()) {
      member = plan.settings[static_cast<size_t>(i)];
    } else if (!series) {
      member.ev = plan.ev;
      member.sensorMode = plan.sensorMode;
    }
    ZslFrameInfo info = frameInfoFor(plan, member.ev, controlCshot(plan.kind));
    in.sensorModeTargets = sensorModesFor(member.sensorMode);
    for (auto const& [sensorId, mode] : in.sensorModeTargets) {
      (void)mode;
      info.checkSensorIds.insert(sensorId);
    }
    int32_t wanted = plan.kind == RequestKind::Still ? plan.wanted : 1;
    for (int32_t k = 0; k < wanted; ++k) {
      in.frameInfos[k] = info;
    }
    in.targetEv = member.ev;
    if (series) {
      in.ispHidlFrameIdx = i;
      in.ispHidlFrameCnt = plan.members;
      in.reusePsl = plan.reusePsl;
      for (MemberSettings const& m : plan.settings) {
        in.pslSettings.push_back(m.psl);
        in.evSettings.push_back(m.ev);
        in.sensorModes.push_back(sensorModesFor(m.sensorMode));
      }
    }
    mScheduled.emplace(r.openNs, std::move(r));
  }
}

void Pipeline::issue(int64_t ns) {
  while (!mTemplates.empty() && mTemplates.top().nextNs <= ns) {
    Template t = mTemplates.top();
    mTemplates.pop();
    RequestSpec const& plan = mScenario.requests[t.index];
    instantiate(plan, t.nextNs);
    ++t.occurrence;
    t.nextNs = plan.atNs + plan.everyNs * t.occurrence;
    if (plan.everyNs > 0 && t.occurrence < plan.times && t.nextNs < mScenario.durationNs) {
      mTemplates.push(t);
    }
  }
  while (!mScheduled.empty() && mScheduled.begin()->first <= ns) {
    Request r = std::move(mScheduled.begin()->second);
    mScheduled.erase(mScheduled.begin());
    OpenKey key{r.requestNo, r.seq};
    mOpen.emplace(key, std::move(r));
  }
}

void Pipeline::setForcedHint(int32_t hint) {
  if (hint == mForcedHint) {
    return;
  }
  mForcedHint = hint;
  android::base::SetProperty(kForceHint, std::to_string(hint));
}

InputSummary Pipeline::summarise(SelectInputParams const& in) const {
  InputSummary s;
  for (auto const& [frameNo, hf] : in.history) {
    s.history.emplace_back(frameNo, hf.locked);
  }
  for (auto const& entry : in.inflight) {
    s.inflight.push_back(entry.first);
  }
  for (auto const& entry : in.subSeqReqs) {
    s.subSeqReqs.push_back(entry.first);
  }
  return s;
}

void Pipeline::reportBreach(std::string const& text) {
  ++mTotals.breaches;
  for (Observer* o : mObservers) {
    o->breach(text);
  }
}

void Pipeline::checkAnswer(Request const& request, SelectOutputParams const& out) {
  std::set<uint32_t> seen;
  std::string who =
      "R" + std::to_string(request.requestNo) + " (call " + std::to_string(request.calls) + ")";
  for (auto const& [key, result] : out.frames) {
    if (result.frameNo == kNoFrame) {
      continue;
    }
    if (mHistory.count(result.frameNo) == 0) {
      reportBreach(who + ": frame " + std::to_string(key) + " is F" +
                   std::to_string(result.frameNo) + ", neither a new capture nor in the history");
    }
    if (!seen.insert(result.frameNo).second) {
      reportBreach(who + ": F" + std::to_string(result.frameNo) + " chosen twice in one answer");
    }
  }
  for (auto const& [frameNo, op] : out.ops) {
    if (static_cast<uint32_t>(op) > static_cast<uint32_t>(OpT::Release)) {
      reportBreach(who + ": unknown operation " + std::to_string(static_cast<uint32_t>(op)) +
                   " on F" + std::to_string(frameNo));
    }
  }
}

void Pipeline::applyOps(Request& request, SelectOutputParams const& out, int64_t ns) {
  for (auto const& [frameNo, op] : out.ops) {
    switch (op) {
      case OpT::Lock:
        ++request.locks;
        ++mTotals.locks;
        break;
      case OpT::Unlock:
        ++request.unlocks;
        ++mTotals.unlocks;
        break;
      case OpT::Release:
        ++request.releases;
        ++mTotals.releases;
        break;
      default:
        continue;
    }
    auto it = mHistory.find(frameNo);
    if (it == mHistory.end()) {
      // Legal: the pipeline simply has nothing to apply it to.
      ++request.notHeldCount;
      ++mTotals.notHeld;
      if (request.notHeld.size() < kNotHeldShown) {
        request.notHeld.emplace_back(frameNo, op);
      }
      continue;
    }
    if (op == OpT::Release) {
      leave(it, ns, LeaveReason::Released, request.requestNo);
    } else {
      setLocked(it->second, op == OpT::Lock, ns);
    }
  }
  mTotals.peakLocked = std::max(mTotals.peakLocked, mLocked);
}

void Pipeline::finish(Request const& request, Outcome outcome, int64_t ns, int64_t waitedMs,
                      std::vector<ChosenFrame> frames) {
  bool answered =
      outcome == Outcome::Zsl || outcome == Outcome::PartZsl || outcome == Outcome::NoZsl;
  RequestDone done{request, outcome,  answered && waitedMs >= request.timeoutMs,
                   ns,      waitedMs, std::move(frames)};
  for (Observer* o : mObservers) {
    o->requestDone(done);
  }
}

bool Pipeline::ask(ISelector& selector, Request& request, int64_t ns) {
  SelectInputParams in = request.input;
  int64_t elapsedMs = (ns - request.openNs) / kNsPerMs;
  in.elapsedMs = elapsedMs;
  in.history = mHistory;
  for (auto const& [frameNo, pending] : mInflight) {
    in.inflight.emplace(frameNo, pending.frame);
  }
  if (request.announced) {
    for (auto const& [frameNo, req] : *request.announced) {
      if (static_cast<int64_t>(frameNo) > mLastLanded) {
        in.subSeqReqs.emplace(frameNo, req);
      }
    }
  }
  setForcedHint(request.forcedHint);
  InputSummary summary;
  if (mRecordInputs) {
    summary = summarise(in);
  }
  for (Observer* o : mObservers) {
    o->beforeCall();
  }
  SelectOutputParams const out = selector.select(in);
  ++request.calls;
  ++mTotals.calls;
  CallRecord record{mTotals.calls, ns, request, elapsedMs, summary, out};
  for (Observer* o : mObservers) {
    o->call(record);
  }

  checkAnswer(request, out);
  bool complete = out.frames.size() >= request.input.frameInfos.size();
  std::vector<ChosenFrame> chosen;
  if (complete) {
    for (auto const& [key, result] : out.frames) {
      ChosenFrame c;
      c.key = key;
      c.frameNo = result.frameNo;
      if (result.frameNo != kNoFrame) {
        auto it = mHistory.find(result.frameNo);
        c.held = it != mHistory.end();
        c.lagNs = c.held ? it->second.ts - request.zsdTs : 0;
      }
      chosen.push_back(c);
    }
  }
  applyOps(request, out, ns);
  if (!complete) {
    return false;
  }
  if (!mAnswered.insert(request.requestNo).second) {
    reportBreach("R" + std::to_string(request.requestNo) + " (call " +
                 std::to_string(request.calls) + ") answered twice");
  }
  if (mAnswered.size() > kAnsweredKept) {
    mAnswered.erase(mAnswered.begin());
  }
  size_t fresh = 0;
  for (ChosenFrame const& c : chosen) {
    if (c.frameNo == kNoFrame) {
      ++fresh;
      continue;
    }
    // The capture takes the frame out of the history.
    if (auto it = mHistory.find(c.frameNo); it != mHistory.end()) {
      leave(it, ns, LeaveReason::Handed, request.requestNo);
    }
  }
  Outcome outcome = fresh == 0               ? Outcome::Zsl
                    : fresh == chosen.size() ? Outcome::NoZsl
                                             : Outcome::PartZsl;
  finish(request, outcome, ns, elapsedMs, std::move(chosen));
  return true;
}

PipelineTotals Pipeline::run(ISelector& selector) {
  for (size_t i = 0; i < mScenario.requests.size(); ++i) {
    mTemplates.push(Template{mScenario.requests[i].atNs, i, 0});
  }
  auto const depth = static_cast<uint32_t>(mScenario.camera.inflightDepth);
  for (uint32_t f = 0; f < depth; ++f) {
    putInFlight(f);
  }
  uint64_t const frames = mScenario.frameCount();
  for (uint64_t k = 0; k < frames; ++k) {
    auto const frameNo = static_cast<uint32_t>(k);
    int64_t const ns = mScenario.frameTimeNs(k);
    land(frameNo, ns);
    trim(ns);
    if (depth > 0) {
      putInFlight(frameNo + depth);
    }
    issue(ns);
    mTotals.peakOpen = std::max(mTotals.peakOpen, mOpen.size());
    for (auto it = mOpen.begin(); it != mOpen.end();) {
      Request& request = it->second;
      if (ask(selector, request, ns)) {
        it = mOpen.erase(it);
        continue;
      }
      // A pipeline does not wait for ever: it gives the capture up.
      if (ns - request.openNs >= mScenario.camera.giveUpNs) {
        finish(request, Outcome::Abandoned, ns, (ns - request.openNs) / kNsPerMs, {});
        it = mOpen.erase(it);
        continue;
      }
      ++it;
    }
    mTotals.peakHistory = std::max(mTotals.peakHistory, mHistory.size());
    if (k == frames / 4) {
      mTotals.rssQuarterKiB = peakRssKiB();
    }
  }
  // Requests due after the last frame, and those still waiting, end unanswered.
  int64_t const endNs = mScenario.durationNs;
  issue(endNs - 1);
  for (auto const& entry : mOpen) {
    Request const& request = entry.second;
    finish(request, Outcome::Unanswered, endNs, (endNs - request.openNs) / kNsPerMs, {});
  }
  mOpen.clear();
  mTotals.frames = frames;
  mTotals.lockedAtEnd = mLocked;
  return mTotals;
}

}  // namespace zslsim
