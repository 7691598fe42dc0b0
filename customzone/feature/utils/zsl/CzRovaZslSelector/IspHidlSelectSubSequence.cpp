#include "CzRovaZslSelector.h"
#include "CzRovaZslSelectorUtils.h"

namespace NSCam::CustZone {

// Placeholder until the sub-sequence strategy lands.
ISelector::SelectOutputParams CzRovaZslSelector::ispHidlSelect_SubSequence(
    SelectInputParams const& params, std::string const& prefix) const {
  return multiFrameSelect(params, prefix, mPolicy);
}

}  // namespace NSCam::CustZone
