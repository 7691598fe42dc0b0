// A selector for the simulator's own tests: it answers as ZSLSIM_FAKE says,
// well or badly, so that the pipeline's bookkeeping and checks can be seen at work.

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "zebcam/custzone/zsl/ISelector.h"

namespace {

using NSCam::CustZone::ZslPolicy::ISelector;
using OpT = ISelector::OpT;

constexpr uint32_t kNoFrame = 0xFFFFFFFF;

std::string mode() {
  char const* value = std::getenv("ZSLSIM_FAKE");
  return value == nullptr ? "" : value;
}

class FakeSelector : public ISelector {
 public:
  std::string getName() const override { return "FakeSelector(" + mode() + ")"; }

  SelectOutputParams select(SelectInputParams const& in) override {
    SelectOutputParams out;
    if (in.history.empty()) {
      return out;
    }
    std::string const m = mode();
    uint32_t const oldest = in.history.begin()->first;
    uint32_t const newest = in.history.rbegin()->first;
    if (m == "foreign") {
      out.frames[0] = {newest + 1000, 0};
    } else if (m == "same-twice") {
      for (auto const& entry : in.frameInfos) {
        out.frames[entry.first] = {newest, 0};
      }
    } else if (m == "model") {
      return model(in, oldest, newest);
    } else {
      // Newest frame for every wanted one, a new capture where the history runs out.
      auto hf = in.history.rbegin();
      for (auto const& entry : in.frameInfos) {
        out.frames[entry.first] = {hf == in.history.rend() ? kNoFrame : hf->first, 0};
        if (hf != in.history.rend()) {
          ++hf;
        }
      }
    }
    return out;
  }

 private:
  // First call: lock the oldest frame (and, uselessly, an in-flight one);
  // third call: take the locked frame, release the newest, unlock a new capture.
  SelectOutputParams model(SelectInputParams const& in, uint32_t oldest, uint32_t newest) {
    SelectOutputParams out;
    uint32_t& calls = mCalls[in.requestNo];
    ++calls;
    if (calls == 1) {
      mLocked[in.requestNo] = oldest;
      out.ops[oldest] = OpT::Lock;
      if (!in.inflight.empty()) {
        out.ops[in.inflight.begin()->first] = OpT::Lock;
      }
    } else if (calls == 3) {
      out.frames[0] = {mLocked[in.requestNo], 0};
      out.ops[newest] = OpT::Release;
      out.ops[kNoFrame] = OpT::Unlock;
      mCalls.erase(in.requestNo);
      mLocked.erase(in.requestNo);
    }
    return out;
  }

  std::map<uint32_t, uint32_t> mCalls;
  std::map<uint32_t, uint32_t> mLocked;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) void createCustomSelector(
    std::shared_ptr<ISelector>& out) {
  if (mode() == "null") {
    out.reset();
    return;
  }
  out = std::make_shared<FakeSelector>();
}
