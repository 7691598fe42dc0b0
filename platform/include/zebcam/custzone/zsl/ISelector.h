#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "zebcam/metadata/IMetadata.h"

namespace NSCam {
class IImageBufferHeap;
}  // namespace NSCam

namespace NSCam::CustZone::ZslPolicy {

struct StreamSets {
  std::set<int32_t> halImages;
  std::set<int32_t> halMetas;
  std::set<int32_t> appMetas;
};

class ISelector {
 public:
  struct HistoryFrame {
    uint32_t frameNo = 0;
    uint32_t requestNo = 0;
    int64_t ts = 0;
    std::map<int32_t, std::shared_ptr<IImageBufferHeap>> images;
    std::map<int32_t, IMetadata> metas;
    StreamSets ss;
    bool locked = false;
    bool Recycle = false;
  };

  struct InflightFrame {
    uint32_t frameNo = 0;
    uint32_t requestNo = 0;
    StreamSets ss;
    bool flag = false;
    IMetadata meta;
  };

  struct ZslFrameInfo {
    StreamSets needStreams;
    std::map<int32_t, IMetadata> metas;
    std::unordered_map<uint32_t, IMetadata> auxMetas1;
    std::unordered_map<uint32_t, IMetadata> auxMetas2;
    uint32_t auxValue = 0;
    std::set<uint32_t> checkSensorIds;
  };

  // An announced sub-sequence frame that has not been captured yet.
  struct SubSeqReq {
    uint64_t setting = 0;  // PSL setting in the low byte, EV in the high 32 bits
    uint16_t flags = 0;
    std::unordered_map<uint32_t, uint32_t> sensorModes;
  };

  struct SelectInputParams {
    uint32_t requestNo = 0;
    int64_t elapsedMs = 0;
    int64_t zsdTs = 0;
    std::map<int32_t, ZslFrameInfo> frameInfos;
    std::unordered_map<uint32_t, uint32_t> sensorModeTargets;
    int32_t targetEv = 0;
    int32_t ispHidlFrameIdx = -1;
    int32_t ispHidlFrameCnt = -1;
    std::vector<uint8_t> pslSettings;
    std::vector<int32_t> evSettings;
    std::vector<std::unordered_map<uint32_t, uint32_t>> sensorModes;
    bool reusePsl = false;
    std::map<uint32_t, HistoryFrame> history;
    std::map<uint32_t, InflightFrame> inflight;
    std::map<uint32_t, SubSeqReq> subSeqReqs;
  };

  struct ZslFrameResult {
    uint32_t frameNo = 0;
    uint32_t aux = 0;
  };

  enum class OpT : uint32_t { Lock = 0, Unlock = 1, Release = 2 };

  struct SelectOutputParams {
    std::map<int32_t, ZslFrameResult> frames;
    std::map<uint32_t, OpT> ops;
    std::set<uint32_t> frameSet;
  };

  virtual ~ISelector();
  virtual std::string getName() const = 0;
  virtual SelectOutputParams select(SelectInputParams const& in) = 0;
};

inline ISelector::~ISelector() = default;

}  // namespace NSCam::CustZone::ZslPolicy
