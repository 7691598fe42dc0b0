#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Pipeline.h"

// --timeline: an SVG picture of a window of the run. Frames on a time axis
// coloured by whether they would qualify (and why not), lock spans, and each
// request's shutter time with arrows to the frames it got.

namespace zslsim {

class Timeline : public Observer {
 public:
  // The picture stays readable up to this many frames; longer runs need a window.
  static constexpr uint64_t kMaxFrames = 3000;

  Timeline(Scenario const& scenario, int64_t fromNs, int64_t toNs);

  void frameLanded(LandedFrame const& frame) override;
  void frameLeft(uint32_t frameNo, int64_t ns, LeaveReason reason, uint32_t requestNo) override;
  void lockChanged(uint32_t frameNo, int64_t ns, bool locked) override;
  void requestDone(RequestDone const& done) override;

  // False with `error` when the file cannot be written.
  bool write(std::string const& path, std::string& error) const;

 private:
  struct Frame {
    uint32_t frameNo;
    int64_t ts;
    Verdict verdict;
    LeaveReason fate = LeaveReason::Trimmed;
    uint32_t requestNo = 0;
  };
  struct LockSpan {
    uint32_t frameNo;
    int64_t fromNs;
    int64_t toNs;
    bool open;  // still locked when the run ended
  };
  struct Req {
    uint32_t requestNo;
    std::string label;
    int64_t openNs;
    int64_t zsdTs;
    int64_t doneNs;
    std::vector<uint32_t> frames;
    std::string outcome;
  };

  bool inWindow(int64_t fromNs, int64_t toNs) const { return toNs >= mFromNs && fromNs <= mToNs; }
  Frame* findFrame(uint32_t frameNo);
  void closeLock(uint32_t frameNo, int64_t ns);

  Scenario const& mScenario;
  int64_t mFromNs;
  int64_t mToNs;
  std::vector<Frame> mFrames;  // by frame number
  std::map<uint32_t, int64_t> mLockedSince;
  std::vector<LockSpan> mLocks;
  std::vector<Req> mRequests;
};

}  // namespace zslsim
