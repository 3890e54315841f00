// Hands a fuzzer every file of the folders that are named, once: a corpus as an ordinary test,
// where there is no libFuzzer.

#include <cstdio>
#include <filesystem>

#include "tests/fuzz/fuzzing.h"
#include "tests/support/temp_root.h"

int main(int argc, char** argv) {
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      const std::string input = pelmar::test::contentOf(entry.path());
      std::printf("%s\n", entry.path().c_str());
      std::fflush(stdout);  // the last one is the one that ended the process
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
      ++count;
    }
  }
  pelmar::fuzz::require(count > 0, "a corpus has files");
}
