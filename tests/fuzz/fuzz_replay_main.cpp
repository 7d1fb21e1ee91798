// Replays fuzzing inputs without libFuzzer: every file named on the command
// line, or found in a directory named there, goes once through the harness's
// LLVMFuzzerTestOneInput. CTest runs the corpus this way in every build.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void replay(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::cerr << "replaying " << file.string() << " (" << bytes.size() << " bytes)\n";
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    std::filesystem::path path(argv[i]);
    if (std::filesystem::is_directory(path)) {
      for (const auto& entry : std::filesystem::directory_iterator(path))
        if (entry.is_regular_file()) {
          replay(entry.path());
          ++count;
        }
    } else {
      replay(path);
      ++count;
    }
  }
  std::cerr << count << " inputs replayed\n";
  return count > 0 ? 0 : 1;
}
