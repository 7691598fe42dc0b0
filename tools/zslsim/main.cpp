// zslsim: a camera pipeline on the command line that runs the selector plug-in.

#include <android-base/properties.h>
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include "BuiltinScenario.h"
#include "Logs.h"
#include "Pipeline.h"
#include "Plugin.h"
#include "Report.h"
#include "Scenario.h"
#include "Timeline.h"
#include "Trace.h"

namespace {

using namespace zslsim;

constexpr int kExitBreach = 1;
constexpr int kExitRefused = 2;

constexpr char kRuntimeAdb[] = "vendor.debug.camera.zsl.runtime.adb";
constexpr char kForceHint[] = "vendor.debug.camera.zsl.force.hint";
constexpr char kForceTimeout[] = "vendor.debug.camera.zsl.force.timeout";
constexpr int64_t kDefaultTimeoutMs = 1000;

struct Options {
  std::string scenarioPath;
  std::string pluginPath = ZSLSIM_DEFAULT_PLUGIN;
  std::string tracePath;
  std::string timelinePath;
  std::optional<double> fromMs;
  std::optional<double> toMs;
  bool summaryOnly = false;
  bool log = false;
  bool printBuiltin = false;
  std::optional<long> maxRssGrowthKiB;
};

int refuse(std::string const& message) {
  std::fprintf(stderr, "zslsim: %s\n", message.c_str());
  return kExitRefused;
}

bool readFile(std::string const& path, std::string& text) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    return false;
  }
  std::ostringstream buffer;
  buffer << in.rdbuf();
  text = buffer.str();
  return static_cast<bool>(in) || in.eof();
}

std::string stemOf(std::string const& path) {
  size_t slash = path.find_last_of('/');
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

// Sets the scenario's properties before the selector exists (its constructor
// reads two of them) and returns the selector's time-out they leave in force.
int64_t applyProperties(Scenario const& scenario) {
  for (auto const& [key, value] : scenario.properties) {
    android::base::SetProperty(key, value);
  }
  bool forcedHint = false;
  for (RequestSpec const& r : scenario.requests) {
    forcedHint = forcedHint || (r.kind == RequestKind::Series && r.hint != 5);
  }
  // The flag is read once per process, at the first select: set it before.
  if (forcedHint && scenario.properties.count(kRuntimeAdb) == 0) {
    android::base::SetProperty(kRuntimeAdb, "1");
  }
  android::base::SetProperty(kForceHint, "-1");
  int64_t forced = android::base::GetIntProperty<int64_t>(kForceTimeout, -1);
  bool runtime = android::base::GetBoolProperty(kRuntimeAdb, false);
  return runtime && forced >= 0 ? forced : kDefaultTimeoutMs;
}

long peakRssKiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

int run(Options const& options) {
  std::string text = kBuiltinScenario;
  std::string name = "builtin";
  if (!options.scenarioPath.empty()) {
    if (!readFile(options.scenarioPath, text)) {
      return refuse("cannot read the scenario " + options.scenarioPath);
    }
    name = stemOf(options.scenarioPath);
  }
  std::string const source =
      options.scenarioPath.empty() ? "built-in scenario" : options.scenarioPath;
  LoadResult loaded = loadScenario(text, name);
  if (!loaded.scenario) {
    return refuse(source + ": " + loaded.error);
  }
  Scenario const& scenario = *loaded.scenario;

  std::optional<Timeline> timeline;
  if (!options.timelinePath.empty()) {
    int64_t from = static_cast<int64_t>(options.fromMs.value_or(0) * 1e6);
    int64_t to = options.toMs ? static_cast<int64_t>(*options.toMs * 1e6) : scenario.durationNs;
    if (to <= from) {
      return refuse("--to must be later than --from");
    }
    auto frames = static_cast<uint64_t>(static_cast<double>(to - from) / scenario.periodNs());
    if (frames > Timeline::kMaxFrames) {
      return refuse("the timeline shows at most " + std::to_string(Timeline::kMaxFrames) +
                    " frames and this window holds " + std::to_string(frames) +
                    ": choose one with --from and --to (ms)");
    }
    timeline.emplace(scenario, from, to);
  }
  Trace trace;
  std::string error;
  if (!options.tracePath.empty() && !trace.open(options.tracePath, error)) {
    return refuse(error);
  }

  installLogSinks(scenario.log, options.log || scenario.log.toStderr, !options.tracePath.empty());
  int64_t const timeoutMs = applyProperties(scenario);
  Plugin plugin;
  if (!plugin.load(options.pluginPath, error)) {
    removeLogSinks();
    return refuse(error);
  }

  Report report(options.summaryOnly ? nullptr : stdout);
  report.printHeader(scenario, plugin.selector().getName(), plugin.path());
  Pipeline pipeline(scenario, timeoutMs);
  pipeline.addObserver(&report);
  if (!options.tracePath.empty()) {
    pipeline.addObserver(&trace);
    pipeline.recordInputs(true);
  }
  if (timeline) {
    pipeline.addObserver(&*timeline);
  }
  auto const start = std::chrono::steady_clock::now();
  PipelineTotals const totals = pipeline.run(plugin.selector());
  double const seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  report.printSummary(stdout, scenario, totals);
  std::fflush(stdout);

  long const rss = peakRssKiB();
  std::fprintf(stderr,
               "zslsim: %llu frames in %.2f s (%.0f simulated frames/s), %llu select calls; peak "
               "RSS %.1f MiB (%.1f MiB after a quarter of the run)\n",
               static_cast<unsigned long long>(totals.frames), seconds,
               seconds > 0 ? static_cast<double>(totals.frames) / seconds : 0.0,
               static_cast<unsigned long long>(totals.calls), rss / 1024.0,
               totals.rssQuarterKiB / 1024.0);

  int status = totals.breaches == 0 ? 0 : kExitBreach;
  if (timeline && !timeline->write(options.timelinePath, error)) {
    std::fprintf(stderr, "zslsim: %s\n", error.c_str());
    status = kExitRefused;
  }
  if (!options.tracePath.empty() && !trace.good()) {
    std::fprintf(stderr, "zslsim: the trace %s was not written whole\n", options.tracePath.c_str());
    status = kExitRefused;
  }
  if (options.maxRssGrowthKiB && rss - totals.rssQuarterKiB > *options.maxRssGrowthKiB) {
    std::fprintf(stderr, "zslsim: memory grew by %ld KiB after the first quarter (bound %ld)\n",
                 rss - totals.rssQuarterKiB, *options.maxRssGrowthKiB);
    status = kExitBreach;
  }
  removeLogSinks();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{
      "zslsim: a camera pipeline that loads the ZSL selector plug-in, feeds it the frames and "
      "capture requests of a scenario, applies its answers and reports what happened. Without a "
      "scenario it plays the built-in one."};
  app.add_option("scenario", options.scenarioPath, "scenario file (JSON)");
  app.add_option("--plugin", options.pluginPath, "plug-in to load")->capture_default_str();
  app.add_option("--trace", options.tracePath,
                 "write one JSON line per select call (input, output, log lines)");
  app.add_option("--timeline", options.timelinePath, "draw the run as an SVG picture");
  app.add_option("--from", options.fromMs, "start of the timeline window (ms)");
  app.add_option("--to", options.toMs, "end of the timeline window (ms)");
  app.add_flag("--summary-only", options.summaryOnly,
               "print the summary alone (what scenarios/expected/ holds)");
  app.add_flag("--log", options.log, "copy the selector's log lines to stderr");
  app.add_flag("--print-builtin", options.printBuiltin, "print the built-in scenario and exit");
  app.add_option("--max-rss-growth-kib", options.maxRssGrowthKiB,
                 "exit 1 when the peak RSS grows by more than this after the first quarter");
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    int code = app.exit(e);
    return code == 0 ? 0 : kExitRefused;
  }
  if (options.printBuiltin) {
    std::fputs(kBuiltinScenario, stdout);
    return 0;
  }
  return run(options);
}
