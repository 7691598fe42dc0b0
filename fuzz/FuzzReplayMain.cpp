// Runs the fuzz harness without libFuzzer: over files or directories given on
// the command line, or over inputs drawn from a seeded generator.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

namespace {

int replayFile(std::filesystem::path const& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                             std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 0;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--generate") == 0 && i + 1 < argc) {
      long count = std::strtol(argv[++i], nullptr, 10);
      unsigned seed = 1;
      if (i + 2 < argc && std::strcmp(argv[i + 1], "--seed") == 0) {
        seed = static_cast<unsigned>(std::strtoul(argv[i + 2], nullptr, 10));
        i += 2;
      }
      std::mt19937 rng(seed);
      for (long n = 0; n < count; ++n) {
        std::vector<uint8_t> bytes(static_cast<size_t>(rng() % 2048));
        for (auto& byte : bytes) {
          byte = static_cast<uint8_t>(rng());
        }
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++runs;
      }
      continue;
    }
    std::filesystem::path path(argv[i]);
    if (std::filesystem::is_directory(path)) {
      for (auto const& entry : std::filesystem::directory_iterator(path)) {
        runs += replayFile(entry.path());
      }
    } else {
      runs += replayFile(path);
    }
  }
  std::printf("replayed %d inputs\n", runs);
  return 0;
}
