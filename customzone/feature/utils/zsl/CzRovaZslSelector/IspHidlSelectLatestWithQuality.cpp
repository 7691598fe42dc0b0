#include <map>
#include <optional>
#include <set>

#include "CzRovaZslSelector.h"
#include "CzRovaZslSelectorUtils.h"
#include "IspHidlSeries.h"

namespace NSCam::CustZone {

namespace {

using QualityCheckSets = std::map<uint32_t, CzRovaZslSelector::CustomQualityCheckSet>;

// "[index=F23, check=0][0]23 [1]24 ".
std::string needCheckSetForm(QualityCheckSets const& runs) {
  std::string out;
  for (auto const& [key, run] : runs) {
    out += "[index=F";
    out += std::to_string(key);
    out += ", check=";
    out += std::to_string(run.check);
    out += ']';
    for (auto const& [index, frame] : run.frameByIndex) {
      out += '[';
      out += std::to_string(index);
      out += ']';
      out += std::to_string(frame);
      out += ' ';
    }
  }
  return out;
}

}  // namespace

ISelector::SelectOutputParams CzRovaZslSelector::ispHidlSelect_LatestWithQuality(
    SelectInputParams const& params, std::string const& prefix, uint32_t policy) const {
  SelectOutputParams result;
  uint32_t const request = params.requestNo;
  uint32_t const first = series::seriesKey(params);
  int32_t const cnt = params.ispHidlFrameCnt;
  // The quality check narrows the caller's history; the caller's frames are
  // kept here, so that every later decision sees them all.
  std::optional<std::map<uint32_t, HistoryFrame>> callerHistory;
  auto history = [&]() -> std::map<uint32_t, HistoryFrame> const& {
    return callerHistory ? *callerHistory : params.history;
  };

  IspHidlReqObj_LatestWithQuality* record =
      series::findOrCreate(mIspHidlReqs_LatestWithQuality, params, prefix, __FUNCTION__);
  if (record == nullptr) {
    return result;
  }

  if (params.elapsedMs >= mTimeoutMs) {
    series::timeOut(*record, params.history, result, request, first, cnt, prefix, __FUNCTION__,
                    mLogLevel);
  }

  if (record->mapping.empty()) {
    if (record->needLockFrames.empty()) {
      std::set<uint32_t> const known = series::knownFrames(params.history, params.inflight);
      CZ_LOGD_L("%s DEBUG: curFrameNumbers={%s}", prefix.c_str(),
                series::frameNumbersForm(known).c_str());
      if (known.size() < static_cast<size_t>(cnt)) {
        CZ_LOGD_L("%s DEBUG: curFrameNumbers(%lu) < ispHidlFrameCnt(%d), send R%u to pending",
                  prefix.c_str(), static_cast<unsigned long>(known.size()), cnt, request);
        return result;
      }
      // One frame more than the series needs, so that two runs can be tried.
      int32_t const toleranceFrameCnt = cnt + 1;
      auto newest = known.rbegin();
      for (int32_t n = 0; n < toleranceFrameCnt && newest != known.rend(); ++n, ++newest) {
        record->needLockFrames.insert(*newest);
      }
      CZ_LOGD_L("%s DEBUG: toleranceFrameCnt=%d, needLockFrames={%s}", prefix.c_str(),
                toleranceFrameCnt, series::letteredForm(record->needLockFrames, 'F').c_str());
      auto start = record->needLockFrames.begin();
      for (int run = 0; run < 2 && start != record->needLockFrames.end(); ++run, ++start) {
        CustomQualityCheckSet checkSet;
        uint32_t index = 0;
        for (auto frame = start;
             frame != record->needLockFrames.end() && index < static_cast<uint32_t>(cnt);
             ++frame, ++index) {
          checkSet.frameByIndex[index] = *frame;
        }
        record->needCheckSet.emplace(*start, checkSet);
      }
      CZ_LOGD_L("%s DEBUG: toleranceFrameCnt=%d, needCheckSet={%s}", prefix.c_str(),
                toleranceFrameCnt, needCheckSetForm(record->needCheckSet).c_str());
    }

    for (uint32_t frame : record->needLockFrames) {
      auto hf = params.history.find(frame);
      if (hf != params.history.end() && !hf->second.locked) {
        result.ops.emplace(frame, OpT::Lock);
        CZ_LOGD_L("%s LOCK: (operate at R%u) hF%u for further quality check", prefix.c_str(),
                  request, frame);
      }
    }

    // Each run is tried once, alone, by the multi-frame strategy on the
    // caller's own record (the host passes it non-const and lets it be used).
    auto& input = const_cast<SelectInputParams&>(params);
    for (auto& [key, run] : record->needCheckSet) {
      if (run.check != 0) {
        continue;
      }
      series::wantEvery(input.frameInfos, cnt);
      std::map<uint32_t, HistoryFrame> narrowed;
      for (auto const& [index, frame] : run.frameByIndex) {
        auto hf = input.history.find(frame);
        if (hf == input.history.end()) {
          CZ_LOGD_L("%s DEBUG: (operate at R%u) cannot find F%d in history yet, pending...",
                    prefix.c_str(), request, static_cast<int>(frame));
          return result;
        }
        narrowed.emplace(frame, hf->second);
      }
      if (!callerHistory) {
        callerHistory = std::move(input.history);
      }
      input.history = std::move(narrowed);
      size_t const selected = multiFrameSelect(params, prefix, policy).frames.size();
      run.check = selected == static_cast<size_t>(cnt) ? 1 : -1;
    }
    CZ_LOGD_L("%s DEBUG: after check quality : needCheckSet={%s}", prefix.c_str(),
              needCheckSetForm(record->needCheckSet).c_str());
    if (record->needCheckSet.empty()) {
      return result;  // only a count below 1 leaves no run to choose
    }

    auto chosen = record->needCheckSet.rbegin();
    while (chosen != record->needCheckSet.rend() && chosen->second.check != 1) {
      ++chosen;
    }
    if (chosen != record->needCheckSet.rend()) {
      CZ_LOGI(
          "%s INFO: (operate at R%u) quality check success! set latest frame with quality "
          "check : index=%d",
          prefix.c_str(), request, static_cast<int>(chosen->first));
    } else {
      chosen = record->needCheckSet.rbegin();
      CZ_LOGI(
          "%s INFO: (operate at R%u) quality check failed! set latest frame anyway : "
          "needCheckSet size=%zu, index=%d",
          prefix.c_str(), request, record->needCheckSet.size(), static_cast<int>(chosen->first));
    }
    for (auto const& [index, frame] : chosen->second.frameByIndex) {
      record->mapping[first + index] = frame;
      record->needSelectReqs.insert(first + index);
    }
    CZ_LOGI("%s MAPPING: (operate at R%u) %s", prefix.c_str(), request,
            series::mappingForm(record->mapping).c_str());
  }

  if (!series::serveInOrder(*record, history(), result, request, prefix, __FUNCTION__, mLogLevel)) {
    return result;
  }
  // The candidates that were locked for the check and are not this member's
  // frame are no longer needed.
  auto mapped = record->mapping.find(request);
  uint32_t const servedFrame = mapped == record->mapping.end() ? 0 : mapped->second;
  for (uint32_t frame : record->needLockFrames) {
    auto hf = history().find(frame);
    if (hf != history().end() && hf->second.locked && frame != servedFrame) {
      result.ops.emplace(frame, OpT::Unlock);
      CZ_LOGD_L("%s UNLOCK: (operate at R%u) hF%u", prefix.c_str(), request, frame);
    }
  }
  series::erase(mIspHidlReqs_LatestWithQuality, first, request, prefix, __FUNCTION__);
  return result;
}

}  // namespace NSCam::CustZone
