// Runs fuzz inputs through a fuzz target's entry point without libFuzzer: every regular file of
// the directories (or the files) named on the command line, in name order. This is how the seed
// corpus and every crash kept in it replay as a test in the ordinary and sanitizer builds.
// Exit status 0 when every input ran; a fault in the target ends the process as it would under
// the fuzzer. Naming nothing that holds an input is an error, so an emptied corpus cannot pass.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern bool g_fuzz_report;  // defined by the target: report each open and walk on stderr

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    std::error_code ec;
    if (fs::is_directory(argv[i], ec)) {
      for (const auto& e : fs::directory_iterator(argv[i], ec))
        if (e.is_regular_file()) inputs.push_back(e.path());
    } else if (fs::is_regular_file(argv[i], ec)) {
      inputs.emplace_back(argv[i]);
    } else {
      std::fprintf(stderr, "fuzz_replay: no such file or directory: %s\n", argv[i]);
      return 2;
    }
  }
  if (inputs.empty()) {
    std::fprintf(stderr, "usage: fuzz_replay DIR|FILE...  (found no inputs)\n");
    return 2;
  }
  std::sort(inputs.begin(), inputs.end());
  g_fuzz_report = true;
  for (const fs::path& p : inputs) {
    std::ifstream in(p, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.eof() && in.fail()) {
      std::fprintf(stderr, "fuzz_replay: cannot read %s\n", p.c_str());
      return 2;
    }
    std::fprintf(stderr, "fuzz_replay: %s (%zu bytes)\n", p.filename().c_str(), bytes.size());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  std::printf("fuzz_replay: %zu inputs ran\n", inputs.size());
  return 0;
}
