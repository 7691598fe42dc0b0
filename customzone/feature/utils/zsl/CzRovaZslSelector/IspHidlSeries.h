#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "CzRovaZslSelector.h"
#include "CzRovaZslSelectorUtils.h"

// Series mechanics shared by the reprocessing strategies. Each takes the
// calling strategy's name, so that its lines read as that strategy's own.

namespace NSCam::CustZone::series {

// "index=57 60 ", or "index=null " when there is no series.
template <typename Map>
std::string recordList(Map const& records) {
  std::string out = "index=";
  if (records.empty()) {
    return out + "null ";
  }
  for (auto const& entry : records) {
    out += std::to_string(entry.first);
    out += ' ';
  }
  return out;
}

// "R57[hF120] R58[hF121] ".
inline std::string mappingForm(std::map<uint32_t, uint32_t> const& mapping) {
  std::string out;
  for (auto const& [request, frame] : mapping) {
    out += 'R';
    out += std::to_string(request);
    out += "[hF";
    out += std::to_string(frame);
    out += "] ";
  }
  return out;
}

// "R57 R58 ".
inline std::string pendingForm(std::set<uint32_t> const& requests) {
  std::string out;
  for (uint32_t request : requests) {
    out += 'R';
    out += std::to_string(request);
    out += ' ';
  }
  return out;
}

// The series key: the first request of the series, in unsigned arithmetic.
inline uint32_t seriesKey(ISelector::SelectInputParams const& in) {
  return in.requestNo - static_cast<uint32_t>(in.ispHidlFrameIdx);
}

// The record of `in`'s series; index 0 creates it. A later member whose series
// does not exist gets the error line and nullptr.
template <typename Record>
Record* findOrCreate(std::map<uint32_t, Record>& records, ISelector::SelectInputParams const& in,
                     std::string const& prefix, char const* fn) {
  uint32_t const request = in.requestNo;
  int32_t const idx = in.ispHidlFrameIdx;
  if (auto it = records.find(seriesKey(in)); it != records.end()) {
    return &it->second;
  }
  if (idx != 0) {
    CZ_LOGE_AT(fn,
               "%s INVALID: fail to find IspHidlReqObj(%u - %d), please check frame count/index of "
               "R%u (cnt=%d, idx=%d) : IspHidlReqObj={%s}",
               prefix.c_str(), request, idx, request, in.ispHidlFrameCnt, idx,
               recordList(records).c_str());
    return nullptr;
  }
  auto [pos, inserted] = records.emplace(request, Record{});
  if (!inserted) {
    CZ_LOG_FATAL_AT(fn,
                    "%s INVALID: fail to create a new IspHidlReqObj(%u - %d), IspHidlReqObj={%s}",
                    prefix.c_str(), request, 0, recordList(records).c_str());
  }
  CZ_LOGI_AT(fn, "%s EMPLACE: new IspHidlReqObj(%u - %d), existing IspHidlReqObj={%s}",
             prefix.c_str(), request, 0, recordList(records).c_str());
  return &pos->second;
}

// Drops a finished series.
template <typename Record>
void erase(std::map<uint32_t, Record>& records, uint32_t key, uint32_t request,
           std::string const& prefix, char const* fn) {
  records.erase(key);
  CZ_LOGI_AT(fn, "%s ERASE: (operate at R%u) IspHidlReqObj[index=%u], remaining IspHidlReqObj={%s}",
             prefix.c_str(), request, key, recordList(records).c_str());
}

// Asks the host to keep the history frames of the members still waiting; frames
// already locked are not asked again, and a frame's first operation wins.
inline void lockPending(CzRovaZslSelector::IspHidlReqObj const& record,
                        std::map<uint32_t, ISelector::HistoryFrame> const& history,
                        ISelector::SelectOutputParams& result, uint32_t request,
                        std::string const& prefix, char const* fn, int32_t logLevel) {
  for (auto const& [member, frame] : record.mapping) {
    if (frame == kNoFrame || record.needSelectReqs.count(member) == 0) {
      continue;
    }
    auto hf = history.find(frame);
    if (hf == history.end() || hf->second.locked) {
      continue;
    }
    result.ops.emplace(frame, ISelector::OpT::Lock);
    CZ_LOGD_LV_AT(logLevel, fn, "%s LOCK: (operate at R%u) R%u [hF%u]", prefix.c_str(), request,
                  member, frame);
  }
}

}  // namespace NSCam::CustZone::series
