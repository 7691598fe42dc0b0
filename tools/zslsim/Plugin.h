#pragma once

#include <memory>
#include <string>

#include "zebcam/custzone/zsl/ISelector.h"

namespace zslsim {

// The plug-in as a pipeline holds it: the library handle and the selector it
// made. The selector is dropped before the library is closed.
class Plugin {
 public:
  using ISelector = NSCam::CustZone::ZslPolicy::ISelector;

  Plugin() = default;
  ~Plugin();
  Plugin(Plugin const&) = delete;
  Plugin& operator=(Plugin const&) = delete;

  // Loads `path` and creates its selector; false with a one-line `error` otherwise.
  bool load(std::string const& path, std::string& error);
  ISelector& selector() { return *mSelector; }
  std::string const& path() const { return mPath; }

 private:
  void* mHandle = nullptr;
  std::shared_ptr<ISelector> mSelector;
  std::string mPath;
};

}  // namespace zslsim
