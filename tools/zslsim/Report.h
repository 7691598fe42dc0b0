#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "Pipeline.h"

// The report: one line per request as it ends, then the summary.

namespace zslsim {

class Report : public Observer {
 public:
  // Request and breach lines go to `lines` (nullptr: not shown).
  explicit Report(std::FILE* lines) : mLines(lines) {}

  void printHeader(Scenario const& scenario, std::string const& selectorName,
                   std::string const& pluginPath) const;
  void printSummary(std::FILE* out, Scenario const& scenario, PipelineTotals const& totals) const;

  void requestDone(RequestDone const& done) override;
  void breach(std::string const& text) override;

 private:
  std::FILE* mLines;
  uint64_t mRequests = 0;
  uint64_t mAnswered = 0;
  uint64_t mAbandoned = 0;
  uint64_t mZsl = 0;
  uint64_t mPartZsl = 0;
  uint64_t mNoZsl = 0;
  uint64_t mTimeouts = 0;
  int64_t mWaitSumMs = 0;
  int64_t mWaitWorstMs = 0;
  uint64_t mCallsSum = 0;
  uint64_t mLagFrames = 0;
  int64_t mLagSumNs = 0;
  int64_t mLagWorstNs = 0;
};

// "F12", or "new" for a capture made anew.
std::string frameName(uint32_t frameNo);
// Milliseconds with one decimal and a sign, from nanoseconds.
std::string signedMs(int64_t ns);

}  // namespace zslsim
