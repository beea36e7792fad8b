// replay_main: gives each stored input to the function that a fuzzer drives.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

int main(int argumentCount, char** arguments) {
  std::vector<std::filesystem::path> inputs;
  try {
    for (int index = 1; index < argumentCount; ++index) {
      std::filesystem::path const given(arguments[index]);
      if (std::filesystem::is_directory(given)) {
        for (auto const& entry : std::filesystem::directory_iterator(given)) {
          inputs.push_back(entry.path());
        }
      } else {
        inputs.push_back(given);
      }
    }
    std::sort(inputs.begin(), inputs.end());
    for (std::filesystem::path const& input : inputs) {
      std::ifstream stream(input, std::ios::binary);
      if (!stream) {
        std::fprintf(stderr, "cannot read %s\n", input.c_str());
        return 1;
      }
      std::string const bytes{std::istreambuf_iterator<char>(stream), {}};
      std::printf("%s\n", input.filename().c_str());
      std::fflush(stdout);
      LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
    }
  } catch (std::exception const& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
  if (inputs.empty()) {
    std::fprintf(stderr, "usage: %s FILE-OR-FOLDER...\n", arguments[0]);
    return 1;
  }
  std::printf("%zu inputs\n", inputs.size());
  return 0;
}
