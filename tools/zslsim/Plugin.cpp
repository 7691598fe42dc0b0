#include "Plugin.h"

#include <dlfcn.h>

namespace zslsim {

namespace {

using Factory = void (*)(std::shared_ptr<Plugin::ISelector>&);
constexpr char kFactory[] = "createCustomSelector";

}  // namespace

Plugin::~Plugin() {
  mSelector.reset();
  if (mHandle != nullptr) {
    dlclose(mHandle);
  }
}

bool Plugin::load(std::string const& path, std::string& error) {
  mPath = path;
  mHandle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (mHandle == nullptr) {
    char const* why = dlerror();
    error = "cannot load the plug-in: " + std::string(why != nullptr ? why : path);
    return false;
  }
  dlerror();
  auto factory = reinterpret_cast<Factory>(dlsym(mHandle, kFactory));
  if (factory == nullptr) {
    error = "the plug-in " + path + " does not export " + kFactory;
    return false;
  }
  factory(mSelector);
  if (!mSelector) {
    error = "the plug-in's " + std::string(kFactory) + " gave no selector";
    return false;
  }
  return true;
}

}  // namespace zslsim
