#include "Report.h"

#include <cinttypes>
#include <cstdlib>

namespace zslsim {

namespace {

char const* outcomeName(RequestDone const& done) {
  switch (done.outcome) {
    case Outcome::Zsl:
      return done.timedOut ? "ZSL after time-out" : "ZSL";
    case Outcome::PartZsl:
      return done.timedOut ? "part ZSL after time-out" : "part ZSL";
    case Outcome::NoZsl:
      return done.timedOut ? "no ZSL after time-out" : "no ZSL";
    case Outcome::Abandoned:
      return "abandoned";
    case Outcome::Unanswered:
      return "unanswered";
  }
  return "?";
}

std::string opsText(Request const& r) {
  std::string out;
  auto add = [&out](char const* name, uint32_t n) {
    if (n != 0) {
      out += out.empty() ? "" : ", ";
      out += name + std::string(" ") + std::to_string(n);
    }
  };
  add("lock", r.locks);
  add("unlock", r.unlocks);
  add("release", r.releases);
  if (r.notHeldCount != 0) {
    out += "; not held:";
    for (auto const& [frameNo, op] : r.notHeld) {
      out += std::string(" ") + opName(op) + " " + frameName(frameNo);
    }
    if (r.notHeldCount > r.notHeld.size()) {
      out += " +" + std::to_string(r.notHeldCount - r.notHeld.size());
    }
  }
  return out;
}

std::string tenths(int64_t sum, uint64_t count) {
  if (count == 0) {
    return "-";
  }
  char buffer[32];
  std::snprintf(buffer, sizeof(buffer), "%.1f",
                static_cast<double>(sum) / static_cast<double>(count));
  return buffer;
}

}  // namespace

std::string frameName(uint32_t frameNo) {
  return frameNo == kNoFrame ? "new" : "F" + std::to_string(frameNo);
}

std::string signedMs(int64_t ns) {
  char buffer[32];
  std::snprintf(buffer, sizeof(buffer), "%+.1f", static_cast<double>(ns) / 1e6);
  return buffer;
}

void Report::printHeader(Scenario const& scenario, std::string const& selectorName,
                         std::string const& pluginPath) const {
  if (mLines == nullptr) {
    return;
  }
  Camera const& c = scenario.camera;
  std::fprintf(mLines, "zslsim: %s from %s\n", selectorName.c_str(), pluginPath.c_str());
  std::fprintf(mLines,
               "scenario \"%s\": %g fps, history %d, in flight %d, %g ms (%" PRIu64 " frames)\n",
               scenario.name.c_str(), c.fps, c.historyDepth, c.inflightDepth,
               static_cast<double>(scenario.durationNs) / 1e6, scenario.frameCount());
  if (!scenario.description.empty()) {
    std::fprintf(mLines, "  %s\n", scenario.description.c_str());
  }
  std::fprintf(mLines, "\n%-7s %9s  %-22s %-31s %-16s %6s %8s  %-16s %s\n", "request", "at(ms)",
               "kind", "route", "frames", "calls", "wait(ms)", "lag(ms)", "outcome");
}

void Report::requestDone(RequestDone const& done) {
  Request const& r = done.request;
  ++mRequests;
  switch (done.outcome) {
    case Outcome::Zsl:
      ++mZsl;
      break;
    case Outcome::PartZsl:
      ++mPartZsl;
      break;
    case Outcome::NoZsl:
      ++mNoZsl;
      break;
    case Outcome::Abandoned:
      ++mAbandoned;
      break;
    case Outcome::Unanswered:
      break;
  }
  bool answered = done.outcome != Outcome::Abandoned && done.outcome != Outcome::Unanswered;
  std::string frames;
  std::string lags;
  if (answered) {
    ++mAnswered;
    mTimeouts += done.timedOut ? 1 : 0;
    mWaitSumMs += done.waitedMs;
    mWaitWorstMs = std::max(mWaitWorstMs, done.waitedMs);
    mCallsSum += r.calls;
    for (ChosenFrame const& c : done.frames) {
      frames += frames.empty() ? "" : " ";
      frames += frameName(c.frameNo);
      if (c.frameNo == kNoFrame || !c.held) {
        frames += c.held ? "" : "(not held)";
        continue;
      }
      lags += lags.empty() ? "" : " ";
      lags += signedMs(c.lagNs);
      ++mLagFrames;
      mLagSumNs += c.lagNs;
      if (std::llabs(c.lagNs) > std::llabs(mLagWorstNs)) {
        mLagWorstNs = c.lagNs;
      }
    }
  }
  if (mLines == nullptr) {
    return;
  }
  std::string ops = opsText(r);
  std::fprintf(mLines, "R%-6u %9.1f  %-22s %-31s %-16s %6u %8" PRId64 "  %-16s %s%s%s\n",
               r.requestNo, static_cast<double>(r.openNs) / 1e6, r.label().c_str(),
               routeName(r.hint), frames.empty() ? "-" : frames.c_str(), r.calls, done.waitedMs,
               lags.empty() ? "-" : lags.c_str(), outcomeName(done), ops.empty() ? "" : "  ",
               ops.c_str());
}

void Report::breach(std::string const& text) {
  std::fprintf(mLines != nullptr ? mLines : stderr, "BREACH %s\n", text.c_str());
}

void Report::printSummary(std::FILE* out, Scenario const& scenario, PipelineTotals const& t) const {
  uint64_t unanswered = mRequests - mAnswered - mAbandoned;
  std::fprintf(out, "\nsummary of \"%s\"\n", scenario.name.c_str());
  std::fprintf(out,
               "  requests            %" PRIu64 ": %" PRIu64 " answered, %" PRIu64
               " unanswered (%" PRIu64 " given up by the pipeline)\n",
               mRequests, mAnswered, unanswered + mAbandoned, mAbandoned);
  std::fprintf(out,
               "  served with ZSL     %" PRIu64 " of %" PRIu64 " (%s %%); %" PRIu64
               " partly, %" PRIu64 " without\n",
               mZsl, mRequests, tenths(static_cast<int64_t>(mZsl) * 100, mRequests).c_str(),
               mPartZsl, mNoZsl);
  std::fprintf(out, "  time-outs           %" PRIu64 "\n", mTimeouts);
  std::fprintf(out, "  wait                mean %s ms, worst %" PRId64 " ms; mean %s calls\n",
               tenths(mWaitSumMs, mAnswered).c_str(), mWaitWorstMs,
               tenths(static_cast<int64_t>(mCallsSum), mAnswered).c_str());
  std::fprintf(
      out, "  shutter lag         mean %s ms, worst %s ms over %" PRIu64 " frames\n",
      mLagFrames == 0 ? "-" : signedMs(mLagSumNs / static_cast<int64_t>(mLagFrames)).c_str(),
      mLagFrames == 0 ? "-" : signedMs(mLagWorstNs).c_str(), mLagFrames);
  std::fprintf(out,
               "  operations          lock %" PRIu64 ", unlock %" PRIu64 ", release %" PRIu64
               "; %" PRIu64 " on frames not held\n",
               t.locks, t.unlocks, t.releases, t.notHeld);
  std::fprintf(out, "  locked frames       peak %zu, still locked at the end %zu\n", t.peakLocked,
               t.lockedAtEnd);
  std::fprintf(out,
               "  pipeline            %" PRIu64 " frames, %" PRIu64
               " calls, peak history %zu, peak open requests %zu, locked frames dropped %" PRIu64
               "\n",
               t.frames, t.calls, t.peakHistory, t.peakOpen, t.evicted);
  std::fprintf(out, "  invariant breaches  %" PRIu64 "\n", t.breaches);
}

}  // namespace zslsim
