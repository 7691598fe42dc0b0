#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

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

// "R57 R58 " with the letter 'R', "F23 F24 " with 'F'.
inline std::string letteredForm(std::set<uint32_t> const& numbers, char letter) {
  std::string out;
  for (uint32_t number : numbers) {
    out += letter;
    out += std::to_string(number);
    out += ' ';
  }
  return out;
}

// "R57 R58 ".
inline std::string pendingForm(std::set<uint32_t> const& requests) {
  return letteredForm(requests, 'R');
}

// "[0]F13 [1]F14 ".
inline std::string indexedFramesForm(std::map<uint32_t, uint32_t> const& frameByIndex) {
  std::string out;
  for (auto const& [index, frame] : frameByIndex) {
    out += '[';
    out += std::to_string(index);
    out += "]F";
    out += std::to_string(frame);
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
template <typename Records>
typename Records::mapped_type* findOrCreate(Records& records,
                                            ISelector::SelectInputParams const& in,
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
  auto [pos, inserted] = records.emplace(request, typename Records::mapped_type{});
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

// The frame numbers the host has or is capturing, ascending.
inline std::set<uint32_t> knownFrames(
    std::map<uint32_t, ISelector::HistoryFrame> const& history,
    std::map<uint32_t, ISelector::InflightFrame> const& inflight) {
  std::set<uint32_t> frames;
  for (auto const& entry : history) {
    frames.insert(frames.end(), entry.first);
  }
  for (auto const& entry : inflight) {
    frames.insert(entry.first);
  }
  return frames;
}

// " F10 F11 F12".
template <typename Frames>
std::string frameNumbersForm(Frames const& frames) {
  std::string out;
  for (uint32_t frame : frames) {
    out += " F";
    out += std::to_string(frame);
  }
  return out;
}

// Wants `cnt` frames, the missing ones with the first wanted frame's needs.
inline void wantEvery(std::map<int32_t, ISelector::ZslFrameInfo>& frameInfos, int32_t cnt) {
  if (frameInfos.empty()) {
    return;
  }
  // Map nodes stay put, so the first entry can be copied from while inserting.
  ISelector::ZslFrameInfo const& firstInfo = frameInfos.begin()->second;
  for (int32_t k = 1; k < cnt; ++k) {
    frameInfos.try_emplace(k, firstInfo);
  }
}

// Every member of the series, `cnt` requests from `first`, goes without ZSL.
inline void mapToNoFrame(CzRovaZslSelector::IspHidlReqObj& record, uint32_t first, int32_t cnt) {
  for (int32_t u = 0; u < cnt; ++u) {
    uint32_t const member = first + static_cast<uint32_t>(u);
    record.mapping[member] = kNoFrame;
    record.needSelectReqs.insert(member);
  }
}

// The series waited too long: its open members go without ZSL and give up
// their locked frames; members answered earlier keep their frames.
inline void timeOut(CzRovaZslSelector::IspHidlReqObj& record,
                    std::map<uint32_t, ISelector::HistoryFrame> const& history,
                    ISelector::SelectOutputParams& result, uint32_t request, uint32_t first,
                    int32_t cnt, std::string const& prefix, char const* fn, int32_t logLevel) {
  if (record.mapping.empty()) {
    mapToNoFrame(record, first, cnt);
  } else {
    for (uint32_t member : record.needSelectReqs) {
      uint32_t& mapped = record.mapping[member];
      uint32_t const frame = mapped;
      mapped = kNoFrame;
      auto hf = history.find(frame);
      if (hf != history.end() && hf->second.locked) {
        result.ops.emplace(frame, ISelector::OpT::Unlock);
        CZ_LOGD_LV_AT(logLevel, fn, "%s UNLOCK: (TIMEOUT: operate at R%u) R%u [hF%u]",
                      prefix.c_str(), request, member, frame);
      }
    }
  }
  CZ_LOGI_AT(fn, "%s MAPPING: (TIMEOUT: operate at R%u) %s", prefix.c_str(), request,
             mappingForm(record.mapping).c_str());
}

// The frame mapped to a request that is due; a due request without one is a
// broken invariant.
inline uint32_t mappedFrame(std::map<uint32_t, uint32_t> const& mapping, uint32_t request,
                            std::string const& prefix, char const* fn) {
  auto mapped = mapping.find(request);
  if (mapped == mapping.end()) {
    CZ_LOG_FATAL_AT(fn, "%s INVALID: R%u fail to get request mapping", prefix.c_str(), request);
  }
  return mapped->second;
}

// Adds an entry that the caller has just looked up and not found; a clash is a
// broken invariant.
template <typename Map>
typename Map::iterator emplaceNew(Map& map, typename Map::key_type key,
                                  typename Map::mapped_type value, std::string const& prefix,
                                  char const* fn) {
  auto [pos, inserted] = map.emplace(key, std::move(value));
  if (!inserted) {
    CZ_LOG_FATAL_AT(fn, "%s INVALID: fail to create a new mapping", prefix.c_str());
  }
  return pos;
}

// Answers `request` when it is the oldest member still waiting and its frame
// is at hand (or it goes without ZSL); otherwise the request waits.
inline void handOut(CzRovaZslSelector::IspHidlReqObj& record,
                    std::map<uint32_t, ISelector::HistoryFrame> const& history,
                    ISelector::SelectOutputParams& result, uint32_t request,
                    std::string const& prefix, char const* fn, int32_t logLevel) {
  if (!record.needSelectReqs.empty() && *record.needSelectReqs.begin() != request) {
    CZ_LOGD_LV_AT(logLevel, fn, "%s DEBUG: cannot select R%u (FIFO), needSelectReqs={%s}",
                  prefix.c_str(), request, pendingForm(record.needSelectReqs).c_str());
    return;
  }
  uint32_t const frame = mappedFrame(record.mapping, request, prefix, fn);
  if (frame != kNoFrame && history.count(frame) == 0) {
    return;
  }
  result.frames[0] = ISelector::ZslFrameResult{frame, 0};
  record.needSelectReqs.erase(request);
  CZ_LOGD_LV_AT(logLevel, fn, "%s SELECT: R%u [hF%u]", prefix.c_str(), request, frame);
}

// One call's turn of a mapped series: the due member is answered and the
// frames of the later ones are locked. True once every member is answered.
inline bool serveInOrder(CzRovaZslSelector::IspHidlReqObj& record,
                         std::map<uint32_t, ISelector::HistoryFrame> const& history,
                         ISelector::SelectOutputParams& result, uint32_t request,
                         std::string const& prefix, char const* fn, int32_t logLevel) {
  handOut(record, history, result, request, prefix, fn, logLevel);
  lockPending(record, history, result, request, prefix, fn, logLevel);
  return record.needSelectReqs.empty();
}

}  // namespace NSCam::CustZone::series
