#include "Timeline.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "Report.h"

namespace zslsim {

namespace {

constexpr double kLeft = 120;
constexpr double kRight = 40;
constexpr double kFramesTop = 96;
constexpr double kFrameHeight = 26;
constexpr double kLockLaneHeight = 13;
constexpr double kRequestLaneHeight = 30;
constexpr double kCharWidth = 6.4;  // of the 11 px label font
constexpr size_t kMaxLockLanes = 24;
constexpr size_t kMaxRequestLanes = 40;

char const* const kArrowColours[] = {"#1565c0", "#6a1b9a", "#00838f", "#ad1457",
                                     "#2e7d32", "#4e342e", "#283593", "#e65100"};
constexpr size_t kColourCount = sizeof(kArrowColours) / sizeof(kArrowColours[0]);

char const* verdictColour(Verdict v) {
  switch (v) {
    case Verdict::Qualifies:
      return "#66bb6a";
    case Verdict::PslFrame:
      return "#42a5f5";
    case Verdict::EvNotZero:
      return "#ab47bc";
    case Verdict::AfNotStable:
      return "#ef5350";
    case Verdict::AeNotSoftStable:
      return "#ffa726";
  }
  return "#9e9e9e";
}

std::string escaped(std::string const& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// Puts each [from, to] interval on the first lane free by then; the last lane
// takes the overflow.
template <typename Span>
std::vector<size_t> assignLanes(std::vector<Span> const& spans, size_t maxLanes, size_t& lanes) {
  std::vector<size_t> order(spans.size());
  for (size_t i = 0; i < order.size(); ++i) {
    order[i] = i;
  }
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return spans[a].first < spans[b].first; });
  std::vector<double> laneEnd;
  std::vector<size_t> lane(spans.size(), 0);
  for (size_t i : order) {
    size_t l = 0;
    while (l < laneEnd.size() && laneEnd[l] > spans[i].first) {
      ++l;
    }
    if (l == laneEnd.size()) {
      if (laneEnd.size() < maxLanes) {
        laneEnd.push_back(0);
      } else {
        l = laneEnd.size() - 1;
      }
    }
    laneEnd[l] = std::max(laneEnd[l], spans[i].second);
    lane[i] = l;
  }
  lanes = laneEnd.size();
  return lane;
}

double niceStepMs(double pxPerMs) {
  for (double step : {1.0, 2.0, 5.0, 10.0, 20.0, 50.0, 100.0, 200.0, 500.0, 1000.0, 2000.0, 5000.0,
                      10000.0, 20000.0, 60000.0, 120000.0, 300000.0}) {
    if (step * pxPerMs >= 70) {
      return step;
    }
  }
  return 600000.0;
}

}  // namespace

Timeline::Timeline(Scenario const& scenario, int64_t fromNs, int64_t toNs)
    : mScenario(scenario), mFromNs(fromNs), mToNs(toNs) {}

Timeline::Frame* Timeline::findFrame(uint32_t frameNo) {
  auto it = std::lower_bound(mFrames.begin(), mFrames.end(), frameNo,
                             [](Frame const& f, uint32_t n) { return f.frameNo < n; });
  return it != mFrames.end() && it->frameNo == frameNo ? &*it : nullptr;
}

void Timeline::frameLanded(LandedFrame const& frame) {
  if (frame.ts >= mFromNs && frame.ts <= mToNs) {
    mFrames.push_back(Frame{frame.frameNo, frame.ts, frame.verdict});
  }
}

void Timeline::closeLock(uint32_t frameNo, int64_t ns) {
  auto it = mLockedSince.find(frameNo);
  if (it == mLockedSince.end()) {
    return;
  }
  if (inWindow(it->second, ns)) {
    mLocks.push_back(LockSpan{frameNo, it->second, ns, false});
  }
  mLockedSince.erase(it);
}

void Timeline::frameLeft(uint32_t frameNo, int64_t ns, LeaveReason reason, uint32_t requestNo) {
  closeLock(frameNo, ns);
  if (Frame* f = findFrame(frameNo)) {
    f->fate = reason;
    f->requestNo = requestNo;
  }
}

void Timeline::lockChanged(uint32_t frameNo, int64_t ns, bool locked) {
  if (locked) {
    mLockedSince.emplace(frameNo, ns);
  } else {
    closeLock(frameNo, ns);
  }
}

void Timeline::requestDone(RequestDone const& done) {
  Request const& r = done.request;
  if (!inWindow(std::min(r.openNs, r.zsdTs), done.doneNs)) {
    return;
  }
  Req req{r.requestNo, r.label(), r.openNs, r.zsdTs, done.doneNs, {}, {}};
  for (ChosenFrame const& c : done.frames) {
    req.frames.push_back(c.frameNo);
  }
  std::ostringstream outcome;
  outcome << "waited " << done.waitedMs << " ms over " << r.calls << " calls";
  if (done.outcome == Outcome::Abandoned || done.outcome == Outcome::Unanswered) {
    outcome << (done.outcome == Outcome::Abandoned ? ", given up" : ", unanswered");
  } else if (done.timedOut) {
    outcome << ", after the time-out";
  }
  req.outcome = outcome.str();
  mRequests.push_back(std::move(req));
}

bool Timeline::write(std::string const& path, std::string& error) const {
  int64_t const period = mScenario.periodNs();
  int64_t const endNs = std::min(mToNs, mScenario.durationNs);
  double const frames = std::max<double>(1, static_cast<double>(endNs - mFromNs) / period);
  double const pxPerFrame = std::clamp(1300.0 / frames, 4.0, 28.0);
  double const scale = pxPerFrame / static_cast<double>(period);
  auto x = [&](int64_t ns) { return kLeft + static_cast<double>(ns - mFromNs) * scale; };
  // Spans that began before the window start at its edge.
  auto clamped = [&](int64_t ns) { return std::max(kLeft - 4, x(ns)); };
  double const width = x(endNs) + pxPerFrame + kRight;

  std::vector<LockSpan> locks = mLocks;
  for (auto const& [frameNo, since] : mLockedSince) {
    if (inWindow(since, endNs)) {
      locks.push_back(LockSpan{frameNo, since, endNs, true});
    }
  }
  std::vector<std::pair<double, double>> lockSpans;
  for (LockSpan const& l : locks) {
    lockSpans.emplace_back(x(l.fromNs), x(l.toNs) + 30);
  }
  size_t lockLanes = 0;
  std::vector<size_t> lockLane = assignLanes(lockSpans, kMaxLockLanes, lockLanes);

  std::vector<std::string> labels;
  std::vector<std::pair<double, double>> requestSpans;
  for (Req const& r : mRequests) {
    std::string label = "R" + std::to_string(r.requestNo) + " " + r.label;
    size_t fresh = static_cast<size_t>(std::count(r.frames.begin(), r.frames.end(), kNoFrame));
    if (fresh != 0) {
      label += fresh == 1 ? " · new" : " · new x" + std::to_string(fresh);
    }
    if (r.frames.empty()) {
      label += " · no answer";
    }
    labels.push_back(label);
    double from = std::min(clamped(r.openNs), clamped(r.zsdTs)) - 6;
    requestSpans.emplace_back(from, x(r.doneNs) + 10 + kCharWidth * label.size());
  }
  size_t requestLanes = 0;
  std::vector<size_t> requestLane = assignLanes(requestSpans, kMaxRequestLanes, requestLanes);

  double const framesBottom = kFramesTop + kFrameHeight;
  double const lockTop = framesBottom + 22;
  double const requestTop = lockTop + std::max<size_t>(1, lockLanes) * kLockLaneHeight + 22;
  double const height = requestTop + std::max<size_t>(1, requestLanes) * kRequestLaneHeight + 24;

  std::ostringstream svg;
  svg.setf(std::ios::fixed);
  svg.precision(1);
  svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\"" << height
      << "\" viewBox=\"0 0 " << width << " " << height
      << "\" font-family=\"DejaVu Sans, Verdana, sans-serif\" font-size=\"11\">\n"
      << "<defs>";
  // One arrow head per colour: not every viewer fills a marker from its line.
  for (size_t c = 0; c < kColourCount; ++c) {
    svg << "<marker id=\"arrow" << c << "\" viewBox=\"0 0 10 10\" refX=\"9\" refY=\"5\" "
        << "markerWidth=\"7\" markerHeight=\"7\" orient=\"auto\"><path d=\"M0,0 L10,5 L0,10 z\" "
        << "fill=\"" << kArrowColours[c] << "\"/></marker>";
  }
  svg << "</defs>\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
  svg << "<text x=\"12\" y=\"22\" font-size=\"15\" font-weight=\"bold\">zslsim timeline: "
      << escaped(mScenario.name) << "</text>\n";
  svg << "<text x=\"12\" y=\"40\" fill=\"#455a64\">" << mScenario.camera.fps << " fps, history "
      << mScenario.camera.historyDepth << ", in flight " << mScenario.camera.inflightDepth << "; "
      << static_cast<double>(mFromNs) / 1e6 << " to " << static_cast<double>(endNs) / 1e6
      << " ms. Frames coloured by whether a default still capture could take them.</text>\n";

  // Legend.
  double lx = 12;
  auto legendSwatch = [&](char const* colour, char const* text) {
    svg << "<rect x=\"" << lx << "\" y=\"50\" width=\"12\" height=\"12\" fill=\"" << colour
        << "\"/><text x=\"" << lx + 16 << "\" y=\"60\">" << text << "</text>\n";
    lx += 24 + kCharWidth * std::string(text).size();
  };
  for (Verdict v : {Verdict::Qualifies, Verdict::AfNotStable, Verdict::AeNotSoftStable,
                    Verdict::EvNotZero, Verdict::PslFrame}) {
    legendSwatch(verdictColour(v), verdictName(v));
  }
  svg << "<text x=\"" << lx << "\" y=\"60\" fill=\"#455a64\">black outline: taken by a capture; "
      << "slash: released; dark bar: lock span; ▲ shutter, grey bar: wait, arrows: frames "
         "chosen</text>\n";

  // Time axis and grid.
  double const stepMs = niceStepMs(scale * 1e6);
  double const firstMs = std::ceil(static_cast<double>(mFromNs) / 1e6 / stepMs) * stepMs;
  for (double ms = firstMs; ms * 1e6 <= static_cast<double>(endNs); ms += stepMs) {
    double gx = x(static_cast<int64_t>(ms * 1e6));
    svg << "<line x1=\"" << gx << "\" y1=\"78\" x2=\"" << gx << "\" y2=\"" << height - 16
        << "\" stroke=\"#eceff1\"/><text x=\"" << gx << "\" y=\"76\" text-anchor=\"middle\" "
        << "fill=\"#607d8b\">" << static_cast<int64_t>(ms) << "</text>\n";
  }
  svg << "<text x=\"12\" y=\"76\" fill=\"#607d8b\">time (ms)</text>\n";
  svg << "<text x=\"12\" y=\"" << kFramesTop + 17 << "\" font-weight=\"bold\">frames</text>\n"
      << "<text x=\"12\" y=\"" << lockTop + 10 << "\" font-weight=\"bold\">locks</text>\n"
      << "<text x=\"12\" y=\"" << requestTop + 18 << "\" font-weight=\"bold\">requests</text>\n";

  // Frames.
  size_t const labelEvery =
      pxPerFrame >= 26 ? 1 : static_cast<size_t>(std::ceil(36.0 / pxPerFrame));
  for (Frame const& f : mFrames) {
    double fx = x(f.ts) - pxPerFrame / 2 + 0.5;
    double fw = std::max(1.0, pxPerFrame - 1);
    std::string title = "F" + std::to_string(f.frameNo) + " at " +
                        std::to_string(f.ts / 1'000'000) + " ms: " + verdictName(f.verdict);
    std::string stroke;
    if (f.fate == LeaveReason::Handed) {
      title += "; taken by R" + std::to_string(f.requestNo);
      stroke = " stroke=\"#000000\" stroke-width=\"1.5\"";
    } else if (f.fate == LeaveReason::Released) {
      title += "; released at R" + std::to_string(f.requestNo) + "'s call";
    } else if (f.fate == LeaveReason::Evicted) {
      title += "; dropped although locked";
      stroke = " stroke=\"#b71c1c\" stroke-width=\"1.5\" stroke-dasharray=\"3,2\"";
    }
    svg << "<rect x=\"" << fx << "\" y=\"" << kFramesTop << "\" width=\"" << fw << "\" height=\""
        << kFrameHeight << "\" fill=\"" << verdictColour(f.verdict) << "\"" << stroke << "><title>"
        << title << "</title></rect>\n";
    if (f.fate == LeaveReason::Released) {
      svg << "<line x1=\"" << fx << "\" y1=\"" << framesBottom << "\" x2=\"" << fx + fw
          << "\" y2=\"" << kFramesTop << "\" stroke=\"#212121\" stroke-width=\"1.5\"/>\n";
    }
    if (f.frameNo % labelEvery == 0) {
      svg << "<text x=\"" << x(f.ts) << "\" y=\"" << framesBottom + 11
          << "\" text-anchor=\"middle\" font-size=\"9\" fill=\"#455a64\">" << f.frameNo
          << "</text>\n";
    }
  }

  // Lock spans.
  for (size_t i = 0; i < locks.size(); ++i) {
    LockSpan const& l = locks[i];
    double ly = lockTop + lockLane[i] * kLockLaneHeight;
    double lx0 = clamped(l.fromNs);
    double lw = std::max(2.0, x(l.toNs) - lx0);
    svg << "<rect x=\"" << lx0 << "\" y=\"" << ly << "\" width=\"" << lw
        << "\" height=\"9\" rx=\"2\" fill=\"#37474f\"><title>F" << l.frameNo << " locked from "
        << static_cast<double>(l.fromNs) / 1e6 << " ms"
        << (l.open ? ", still locked at the end"
                   : " to " + std::to_string(l.toNs / 1'000'000) + " ms")
        << "</title></rect><text x=\"" << lx0 + lw + 3 << "\" y=\"" << ly + 8
        << "\" font-size=\"9\" fill=\"#37474f\">F" << l.frameNo << (l.open ? " (still)" : "")
        << "</text>\n";
  }

  // Requests: wait bar, shutter marker, arrows to the frames chosen.
  for (size_t i = 0; i < mRequests.size(); ++i) {
    Req const& r = mRequests[i];
    size_t const colourIndex = i % kColourCount;
    char const* colour = kArrowColours[colourIndex];
    double ry = requestTop + requestLane[i] * kRequestLaneHeight;
    double sx = clamped(r.zsdTs);
    double bx = clamped(r.openNs);
    double bw = std::max(2.0, x(r.doneNs) - bx);
    svg << "<g><title>R" << r.requestNo << " " << escaped(r.label) << ": ";
    for (uint32_t frameNo : r.frames) {
      svg << frameName(frameNo) << " ";
    }
    svg << escaped(r.outcome) << "</title>\n";
    svg << "<rect x=\"" << bx << "\" y=\"" << ry + 14 << "\" width=\"" << bw
        << "\" height=\"6\" fill=\"#b0bec5\"/>\n";
    for (uint32_t frameNo : r.frames) {
      if (frameNo == kNoFrame) {
        svg << "<circle cx=\"" << bx + bw << "\" cy=\"" << ry + 17
            << "\" r=\"5\" fill=\"#ffffff\" stroke=\"#d32f2f\" stroke-width=\"2\"/>\n";
        continue;
      }
      auto it = std::lower_bound(mFrames.begin(), mFrames.end(), frameNo,
                                 [](Frame const& f, uint32_t n) { return f.frameNo < n; });
      if (it == mFrames.end() || it->frameNo != frameNo) {
        continue;
      }
      svg << "<line x1=\"" << sx << "\" y1=\"" << ry + 6 << "\" x2=\"" << x(it->ts) << "\" y2=\""
          << framesBottom + 2 << "\" stroke=\"" << colour
          << "\" stroke-width=\"1.4\" opacity=\"0.85\" marker-end=\"url(#arrow" << colourIndex
          << ")\"/>\n";
    }
    svg << "<path d=\"M" << sx << "," << ry + 2 << " l-5,9 l10,0 z\" fill=\"" << colour << "\"/>\n";
    svg << "<text x=\"" << bx + bw + 8 << "\" y=\"" << ry + 21 << "\" fill=\"" << colour << "\">"
        << escaped(labels[i]) << "</text></g>\n";
  }
  svg << "</svg>\n";

  std::ofstream out(path, std::ios::out | std::ios::trunc);
  out << svg.str();
  if (!out) {
    error = "cannot write the timeline to " + path;
    return false;
  }
  return true;
}

}  // namespace zslsim
