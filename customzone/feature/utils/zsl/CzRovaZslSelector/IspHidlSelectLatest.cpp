#include "CzRovaZslSelector.h"
#include "CzRovaZslSelectorUtils.h"

namespace NSCam::CustZone {

// Placeholder until the latest-frame strategy lands.
ISelector::SelectOutputParams CzRovaZslSelector::ispHidlSelect_Latest(
    SelectInputParams const& params, std::string const& prefix) const {
  return multiFrameSelect(params, prefix, mPolicy);
}

}  // namespace NSCam::CustZone
