// Runs a fuzz target over the files of its seed corpus, so that the corpus is a test everywhere.
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
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
      ran++;
    }
  }
  std::printf("%d inputs\n", ran);
  return ran > 0 ? 0 : 1;
}
