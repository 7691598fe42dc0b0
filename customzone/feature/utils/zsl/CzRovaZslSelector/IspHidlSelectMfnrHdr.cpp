#include "CzRovaZslSelector.h"
#include "CzRovaZslSelectorUtils.h"

namespace NSCam::CustZone {

// Placeholder until the noise-reduction/HDR strategy lands.
ISelector::SelectOutputParams CzRovaZslSelector::ispHidlSelect_MFNR_HDR(
    SelectInputParams const& params, std::string const& prefix) const {
  return multiFrameSelect(params, prefix, mPolicy);
}

}  // namespace NSCam::CustZone
