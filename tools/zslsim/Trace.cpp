#include "Trace.h"

#include <nlohmann/json.hpp>

#include "Logs.h"

namespace zslsim {

namespace {

using nlohmann::json;

json inputOf(CallRecord const& r) {
  SelectInputParams const& in = r.request.input;
  json history = json::array();
  json locked = json::array();
  for (auto const& [frameNo, isLocked] : r.input.history) {
    history.push_back(frameNo);
    if (isLocked) {
      locked.push_back(frameNo);
    }
  }
  json input = {
      {"elapsed_ms", r.elapsedMs}, {"zsd_ts", in.zsdTs},        {"wanted", in.frameInfos.size()},
      {"target_ev", in.targetEv},  {"idx", in.ispHidlFrameIdx}, {"cnt", in.ispHidlFrameCnt},
      {"history", history},        {"locked", locked},          {"inflight", r.input.inflight}};
  if (!r.input.subSeqReqs.empty()) {
    input["sub_seq_reqs"] = r.input.subSeqReqs;
  }
  if (!in.evSettings.empty()) {
    input["ev_settings"] = in.evSettings;
    input["psl_settings"] = in.pslSettings;
  }
  return input;
}

json outputOf(SelectOutputParams const& out) {
  json frames = json::array();
  for (auto const& [key, result] : out.frames) {
    frames.push_back({{"key", key}, {"frame", result.frameNo}, {"aux", result.aux}});
  }
  json ops = json::array();
  for (auto const& [frameNo, op] : out.ops) {
    ops.push_back({{"frame", frameNo}, {"op", opName(op)}});
  }
  return {{"frames", frames}, {"ops", ops}, {"frame_set", out.frameSet}};
}

}  // namespace

bool Trace::open(std::string const& path, std::string& error) {
  mOut.open(path, std::ios::out | std::ios::trunc);
  if (!mOut) {
    error = "cannot write the trace to " + path;
    return false;
  }
  return true;
}

void Trace::beforeCall() { clearLogLines(); }

void Trace::call(CallRecord const& r) {
  json android = json::array();
  json unified = json::array();
  for (LogLine const& line : keptLogLines()) {
    (line.android ? android : unified).push_back({{"level", line.level}, {"text", line.text}});
  }
  json record = {{"call", r.callNo},
                 {"t_ms", static_cast<double>(r.ns) / 1e6},
                 {"request", r.request.requestNo},
                 {"kind", r.request.label()},
                 {"route", routeName(r.request.hint)},
                 {"call_of_request", r.request.calls},
                 {"input", inputOf(r)},
                 {"output", outputOf(r.output)},
                 {"log", {{"android", android}, {"unified", unified}}}};
  // Log text is the plug-in's: keep bytes that are not UTF-8 rather than fail.
  mOut << record.dump(-1, ' ', false, json::error_handler_t::replace) << '\n';
}

}  // namespace zslsim
