// Runs a fuzz target over the files of its seed corpus, and over the beginnings of the small ones,
// so that the corpus is a test everywhere.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int main(int argc, char **argv) {
  int ran = 0;
  for (int i = 1; i < argc; i++) {
    for (const auto &entry : std::filesystem::recursive_directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      std::ifstream file(entry.path(), std::ios::binary);
      std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
      // Each in memory of its own, so that a read behind the end is seen.
      for (std::size_t cut = bytes.size() <= 600 ? bytes.size() : 0;; cut--) {
        std::vector<std::uint8_t> begun(bytes.begin(), bytes.end() - static_cast<long>(cut));
        LLVMFuzzerTestOneInput(begun.data(), begun.size());
        if (cut == 0) break;
      }
      ran++;
    }
  }
  std::printf("%d inputs\n", ran);
  return ran > 0 ? 0 : 1;
}
