#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "zebcam/custzone/zsl/ISelector.h"

namespace NSCam::CustZone {

// The ZSL frame selector. A request enters at `select`, which picks a strategy
// by the routing hint; the reprocessing strategies keep their per-series
// records in the five maps below between calls.
class CzRovaZslSelector : public ZslPolicy::ISelector {
 public:
  using StreamSets = ZslPolicy::StreamSets;
  using SensorModeMap = std::unordered_map<uint32_t, uint32_t>;

  // Largest series count served; larger ones are treated as invalid.
  static constexpr int32_t kMaxIspHidlFrameCnt = 256;

  // One reprocessing series, keyed by its first request number.
  struct IspHidlReqObj {
    std::set<uint32_t> needSelectReqs;
    std::map<uint32_t, uint32_t> mapping;
    std::vector<StreamSets> needStreams;
    std::vector<SensorModeMap> sensorModeChecks;
  };
  struct IspHidlReqObj_Latest : IspHidlReqObj {};
  struct CustomQualityCheckSet {
    std::map<uint32_t, uint32_t> frameByIndex;
    int8_t check = 0;
  };
  struct IspHidlReqObj_LatestWithQuality : IspHidlReqObj {
    std::map<uint32_t, CustomQualityCheckSet> needCheckSet;
    std::set<uint32_t> needLockFrames;
  };
  struct IspHidlReqObj_SubSequence : IspHidlReqObj {};
  struct IspHidlReqObj_PreCollect {
    struct PreCollectObj {
      uint32_t targetFrameNo = 0xFFFFFFFF;
      int32_t evSetting = 0;
      int32_t status = 0;
    };
    std::map<uint32_t, PreCollectObj> mapping;
  };

  CzRovaZslSelector();
  ~CzRovaZslSelector() override;

  std::string getName() const override;
  SelectOutputParams select(SelectInputParams const& in) override;

  // The strategies, one per routing hint.
  SelectOutputParams multiFrameSelect(SelectInputParams const& params, std::string const& prefix,
                                      uint32_t policy) const;
  SelectOutputParams ispHidlSelect(SelectInputParams const& params, std::string const& prefix,
                                   uint32_t policy) const;
  SelectOutputParams ispHidlSelect_Latest(SelectInputParams const& params,
                                          std::string const& prefix) const;
  SelectOutputParams ispHidlSelect_LatestWithQuality(SelectInputParams const& params,
                                                     std::string const& prefix,
                                                     uint32_t policy) const;
  SelectOutputParams ispHidlSelect_MFNR_HDR(SelectInputParams const& params,
                                            std::string const& prefix) const;
  SelectOutputParams ispHidlSelect_SubSequence(SelectInputParams const& params,
                                               std::string const& prefix) const;

 private:
  void invokeADB(int32_t& hint);

  int64_t mTimeoutMs;
  int64_t mPslTimeoutMs;
  int32_t mLogLevel;
  int64_t mZslTimeMs;
  uint32_t mPolicy;
  uint32_t mCShotPolicy;
  mutable std::map<uint32_t, IspHidlReqObj> mIspHidlReqs;
  mutable std::map<uint32_t, IspHidlReqObj_Latest> mIspHidlReqs_Latest;
  mutable std::map<uint32_t, IspHidlReqObj_SubSequence> mIspHidlReqs_SubSequence;
  mutable std::map<uint32_t, IspHidlReqObj_LatestWithQuality> mIspHidlReqs_LatestWithQuality;
  mutable std::map<uint32_t, IspHidlReqObj_PreCollect> mIspHidlReqs_PreCollect;
};

}  // namespace NSCam::CustZone

extern "C" __attribute__((visibility("default"))) void createCustomSelector(
    std::shared_ptr<NSCam::CustZone::ZslPolicy::ISelector>& out);
