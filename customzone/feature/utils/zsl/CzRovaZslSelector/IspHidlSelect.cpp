#include "CzRovaZslSelector.h"
#include "CzRovaZslSelectorUtils.h"

namespace NSCam::CustZone {

// Placeholder until the FIFO strategy lands: served as an unknown route.
ISelector::SelectOutputParams CzRovaZslSelector::ispHidlSelect(SelectInputParams const& params,
                                                               std::string const& prefix,
                                                               uint32_t policy) const {
  return multiFrameSelect(params, prefix, policy);
}

}  // namespace NSCam::CustZone
