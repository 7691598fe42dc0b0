#include <algorithm>
#include <iterator>

#include "CzRovaZslSelector.h"
#include "CzRovaZslSelectorUtils.h"

namespace NSCam::CustZone {

ISelector::SelectOutputParams CzRovaZslSelector::multiFrameSelect(SelectInputParams const& params,
                                                                  std::string const& prefix,
                                                                  uint32_t policy) const {
  SelectOutputParams result;
  if (params.frameInfos.empty()) {
    return result;
  }
  auto const& firstInfo = params.frameInfos.begin()->second;
  SensorModeMap const reqSensorModes =
      filterSensorModes(params.sensorModeTargets, firstInfo.checkSensorIds);
  bool const timedOut = params.elapsedMs >= mTimeoutMs;
  auto const& history = params.history;

  auto qualifies = [&](HistoryFrame const& hf) {
    return isQualify(hf, firstInfo.needStreams, policy, timedOut, reqSensorModes, params.targetEv,
                     false);
  };

  auto start = history.begin();
  if ((policy & kPolicyZeroShutterDelay) && !timedOut) {
    start = std::partition_point(history.begin(), history.end(),
                                 [&](auto const& entry) { return entry.second.ts < params.zsdTs; });
    if (start == history.end()) {
      CZ_LOGI("%s zsdTs(%ld) => hf[null], do pending directly", prefix.c_str(),
              static_cast<long>(params.zsdTs));
      return result;
    }
    CZ_LOGI("%s zsdTs(%ld) => hf%s", prefix.c_str(), static_cast<long>(params.zsdTs),
            toString(start->second, false).c_str());
  }

  size_t const wanted = params.frameInfos.size();
  if (!(policy & kPolicyContinuousFrame)) {
    auto hf = start;
    for (auto const& entry : params.frameInfos) {
      while (hf != history.end() && !qualifies(hf->second)) {
        ++hf;
      }
      if (hf == history.end()) {
        break;
      }
      result.frames.emplace(entry.first, ZslFrameResult{hf->first, 0});
      ++hf;
    }
  } else {
    if (start != history.end()) {
      // Step back so that a run ending at the zero-shutter frame can be found.
      if (start != history.begin() && wanted != 1) {
        for (size_t step = 0; step + 1 < wanted && start != history.begin(); ++step) {
          --start;
        }
      }
      CZ_LOGI("%s search continuous from hf%s", prefix.c_str(),
              toString(start->second, false).c_str());
    }
    if (wanted != 0 && start != history.end()) {
      auto candidate = start;
      bool found = false;
      while (candidate != history.end()) {
        if (!qualifies(candidate->second)) {
          ++candidate;
          continue;
        }
        size_t run = 1;
        auto next = std::next(candidate);
        while (run < wanted && next != history.end() && qualifies(next->second)) {
          ++run;
          ++next;
        }
        if (run == wanted) {
          found = true;
          break;
        }
        if (next == history.end()) {
          candidate = next;
          break;
        }
        candidate = std::next(next);
      }
      if (found) {
        auto hf = candidate;
        for (auto const& entry : params.frameInfos) {
          result.frames.emplace(entry.first, ZslFrameResult{hf->first, 0});
          ++hf;
        }
      } else {
        CZ_LOGW("%s cannot get continuous hfs", prefix.c_str());
      }
    }
  }

  size_t const selected = result.frames.size();
  CZ_LOGD_L("%s select #%zu/%zu hfs", prefix.c_str(), selected, wanted);
  if (selected >= wanted) {
    return result;
  }
  if (timedOut) {
    CZ_LOGW("%s TIMEOUT: sel(#%zu) < zf(#%zu), change to non-Zsl", prefix.c_str(), selected,
            wanted);
    for (auto const& entry : params.frameInfos) {
      result.frames.emplace(entry.first, ZslFrameResult{kNoFrame, 0});
    }
    return result;
  }
  CZ_LOGD_L("%s PENDING: sel(#%zu) < zf(#%zu)", prefix.c_str(), selected, wanted);
  return result;
}

}  // namespace NSCam::CustZone
