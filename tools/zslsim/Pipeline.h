#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <queue>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Scenario.h"
#include "zebcam/custzone/zsl/ISelector.h"

// The camera pipeline model: every frame period a captured frame lands in the
// history and a new one goes in flight, the history keeps its depth by dropping
// its oldest unlocked frame, and every open capture request is asked again.

namespace zslsim {

using ISelector = NSCam::CustZone::ZslPolicy::ISelector;
using HistoryFrame = ISelector::HistoryFrame;
using InflightFrame = ISelector::InflightFrame;
using ZslFrameInfo = ISelector::ZslFrameInfo;
using SelectInputParams = ISelector::SelectInputParams;
using SelectOutputParams = ISelector::SelectOutputParams;
using SubSeqReq = ISelector::SubSeqReq;
using OpT = ISelector::OpT;
using SensorModeMap = std::unordered_map<uint32_t, uint32_t>;

// Whether a frame would serve a default still capture (policy AF stable and
// soft AE stable, target EV 0, no PSL), and the first reason why not.
enum class Verdict : uint8_t { Qualifies, PslFrame, EvNotZero, AfNotStable, AeNotSoftStable };
Verdict verdictOf(Conditions const& c);
char const* verdictName(Verdict v);

// Strategy name of a routing hint, as the selector's log prefix shows it.
char const* routeName(int32_t hint);
// "lock", "unlock", "release".
char const* opName(OpT op);

enum class LeaveReason : uint8_t { Trimmed, Handed, Released, Evicted };

// One capture request; a continuous shot or a series issues one per member.
struct Request {
  uint64_t seq = 0;  // issue order
  uint32_t requestNo = 0;
  RequestKind kind = RequestKind::Still;
  int32_t hint = 0;   // the route the pipeline expects
  int32_t index = 0;  // member of a continuous shot or a series
  int32_t members = 1;
  int32_t forcedHint = -1;
  bool preCollect = false;
  int64_t openNs = 0;
  int64_t zsdTs = 0;
  int64_t timeoutMs = 1000;  // the selector's time-out for this route
  SelectInputParams input;   // what every call starts from
  std::shared_ptr<std::vector<std::pair<uint32_t, SubSeqReq>>> announced;

  uint32_t calls = 0;
  uint32_t locks = 0;
  uint32_t unlocks = 0;
  uint32_t releases = 0;
  std::vector<std::pair<uint32_t, OpT>> notHeld;  // operations on frames not in the history
  uint32_t notHeldCount = 0;

  std::string label() const;
};

struct ChosenFrame {
  int32_t key = 0;
  uint32_t frameNo = kNoFrame;
  bool held = true;  // in the history at the call (always true for a new capture)
  int64_t lagNs = 0;
};

enum class Outcome : uint8_t { Zsl, PartZsl, NoZsl, Abandoned, Unanswered };

struct RequestDone {
  Request const& request;
  Outcome outcome;
  bool timedOut = false;
  int64_t doneNs = 0;
  int64_t waitedMs = 0;
  std::vector<ChosenFrame> frames;
};

struct LandedFrame {
  uint32_t frameNo;
  int64_t ts;
  Conditions const& conditions;
  Verdict verdict;
};

// The history and flight as the call saw them, for the trace.
struct InputSummary {
  std::vector<std::pair<uint32_t, bool>> history;  // frame, locked
  std::vector<uint32_t> inflight;
  std::vector<uint32_t> subSeqReqs;
};

struct CallRecord {
  uint64_t callNo;
  int64_t ns;
  Request const& request;
  int64_t elapsedMs;
  InputSummary const& input;
  SelectOutputParams const& output;
};

struct PipelineTotals {
  uint64_t frames = 0;
  uint64_t calls = 0;
  uint64_t locks = 0;
  uint64_t unlocks = 0;
  uint64_t releases = 0;
  uint64_t notHeld = 0;
  uint64_t evicted = 0;
  size_t peakLocked = 0;
  size_t lockedAtEnd = 0;
  size_t peakHistory = 0;
  size_t peakOpen = 0;
  uint64_t breaches = 0;
  long rssQuarterKiB = 0;
};

class Observer {
 public:
  virtual ~Observer() = default;
  virtual void frameLanded(LandedFrame const&) {}
  virtual void frameLeft(uint32_t /*frameNo*/, int64_t /*ns*/, LeaveReason,
                         uint32_t /*requestNo*/) {}
  virtual void lockChanged(uint32_t /*frameNo*/, int64_t /*ns*/, bool /*locked*/) {}
  virtual void beforeCall() {}
  virtual void call(CallRecord const&) {}
  virtual void requestDone(RequestDone const&) {}
  virtual void breach(std::string const& /*text*/) {}
};

class Pipeline {
 public:
  // `timeoutMs`: the selector's time-out as the scenario's properties leave it.
  Pipeline(Scenario const& scenario, int64_t timeoutMs);

  void addObserver(Observer* observer) { mObservers.push_back(observer); }
  // The input summary costs a walk per call: only built when asked for.
  void recordInputs(bool on) { mRecordInputs = on; }

  PipelineTotals run(ISelector& selector);

 private:
  struct Pending {
    InflightFrame frame;
    Conditions conditions;
  };
  struct Template {
    int64_t nextNs;
    size_t index;
    int64_t occurrence;
    bool operator>(Template const& other) const {
      return nextNs != other.nextNs ? nextNs > other.nextNs : index > other.index;
    }
  };
  using OpenKey = std::pair<uint32_t, uint64_t>;  // request number, issue order

  void putInFlight(uint32_t frameNo);
  void land(uint32_t frameNo, int64_t ns);
  void trim(int64_t ns);
  void leave(std::map<uint32_t, HistoryFrame>::iterator it, int64_t ns, LeaveReason reason,
             uint32_t requestNo);
  void setLocked(HistoryFrame& hf, bool locked, int64_t ns);
  void issue(int64_t ns);
  void instantiate(RequestSpec const& plan, int64_t groupNs);
  // True when the call answered the request.
  bool ask(ISelector& selector, Request& request, int64_t ns);
  void applyOps(Request& request, SelectOutputParams const& out, int64_t ns);
  void checkAnswer(Request const& request, SelectOutputParams const& out);
  void finish(Request const& request, Outcome outcome, int64_t ns, int64_t waitedMs,
              std::vector<ChosenFrame> frames);
  void reportBreach(std::string const& text);
  void setForcedHint(int32_t hint);
  InputSummary summarise(SelectInputParams const& in) const;

  HistoryFrame makeHistoryFrame(uint32_t frameNo, int64_t ts, Conditions const& c) const;
  NSCam::IMetadata settingsMeta(Conditions const& c) const;
  SensorModeMap sensorModesFor(std::optional<int32_t> mode) const;
  ZslFrameInfo frameInfoFor(RequestSpec const& plan, int32_t ev, int32_t cshot) const;

  Scenario const& mScenario;
  int64_t mTimeoutMs;
  std::vector<Observer*> mObservers;
  bool mRecordInputs = false;

  std::map<uint32_t, HistoryFrame> mHistory;
  std::map<uint32_t, Pending> mInflight;
  std::map<uint32_t, Announce> mAnnounced;  // overrides of frames not in flight yet
  int64_t mLastLanded = -1;
  size_t mLocked = 0;

  std::priority_queue<Template, std::vector<Template>, std::greater<Template>> mTemplates;
  std::multimap<int64_t, Request> mScheduled;  // by open time
  std::map<OpenKey, Request> mOpen;
  std::set<uint32_t> mAnswered;  // recent answered request numbers
  uint32_t mNextRequestNo = 1000;
  uint64_t mNextSeq = 0;
  int32_t mForcedHint = -1;

  PipelineTotals mTotals;
};

}  // namespace zslsim
