#include "CzRovaZslSelector.h"
#include "CzRovaZslSelectorUtils.h"

namespace NSCam::CustZone {

// Placeholder until the quality-check strategy lands.
ISelector::SelectOutputParams CzRovaZslSelector::ispHidlSelect_LatestWithQuality(
    SelectInputParams const& params, std::string const& prefix, uint32_t /*policy*/) const {
  return multiFrameSelect(params, prefix, mPolicy);
}

}  // namespace NSCam::CustZone
