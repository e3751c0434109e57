// Runs a fuzz target over the files of folders, where no fuzzer is at hand: run_... FOLDER...
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  int files = 0;
  for (int folder = 1; folder < argc; ++folder) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[folder])) {
      std::ifstream stream(entry.path(), std::ios::binary);
      const std::string text{std::istreambuf_iterator<char>(stream), {}};
      std::printf("%s\n", entry.path().c_str());
      std::fflush(stdout);  // a target that aborts leaves the name behind
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
      ++files;
    }
  }
  std::printf("%d files\n", files);
  return files > 0 ? 0 : 1;
}
