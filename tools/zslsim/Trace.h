#pragma once

#include <fstream>
#include <string>

#include "Pipeline.h"

// --trace: one JSON line per select call with what the call was given, its
// whole answer and the log lines it wrote to both sinks.

namespace zslsim {

class Trace : public Observer {
 public:
  // False with `error` when the file cannot be written.
  bool open(std::string const& path, std::string& error);

  void beforeCall() override;
  void call(CallRecord const& record) override;
  bool good() const { return mOut.good(); }

 private:
  std::ofstream mOut;
};

}  // namespace zslsim
