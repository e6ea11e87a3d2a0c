// SHELX RES reading: every RES/INS file of the corpus ($KORA_CORPUS or ../shared/corpus,
// res/) or, when it is absent, generated structures; each is read completely (space group,
// sites, complete molecules). Prints structures/s and the slowest file.
//
//   res_bench [google benchmark flags]

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "kora/shelx/res_file.hpp"

namespace {

namespace fs = std::filesystem;

struct Input {
  std::string name;
  std::string text;
};

// A P21/c structure of 60 atoms in chains, repeated with different cells.
std::string generated_structure(int k) {
  std::ostringstream out;
  out << "TITL GEN" << k << "\nCELL 0.71073 " << 10 + k % 7 << " 12.5 " << 14 + k % 5 << " 90 "
      << 95 + k % 11 << " 90\nZERR 4 0.001 0.001 0.001 0 0.01 0\nLATT 1\n"
      << "SYMM -X, 1/2+Y, 1/2-Z\nSFAC C H N O\nUNIT 160 80 8 8\nFVAR 1.0\n";
  char line[128];
  for (int a = 0; a < 60; ++a) {
    int const chain = a / 15, step = a % 15;
    std::snprintf(line, sizeof line, "C%d 1 %.5f %.5f %.5f 11.00000 0.03\n", a + 1,
                  0.05 + 0.06 * step, 0.1 + 0.2 * chain, 0.2 + 0.03 * (step % 2));
    out << line;
  }
  out << "HKLF 4\nEND\n";
  return out.str();
}

std::vector<Input> const& inputs() {
  static std::vector<Input> const all = [] {
    std::vector<Input> list;
    char const* env = std::getenv("KORA_CORPUS");
    fs::path const dir = (env ? fs::path(env) : fs::path("../shared/corpus")) / "res";
    std::error_code ec;
    if (fs::is_directory(dir, ec)) {
      for (auto const& item : fs::directory_iterator(dir, ec)) {
        if (fs::file_size(item.path()) == 0) continue;  // an empty file has no structure
        std::ifstream in(item.path(), std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        list.push_back({item.path().filename().string(), text.str()});
      }
    }
    if (list.empty()) {
      for (int k = 0; k < 40; ++k)
        list.push_back({"generated" + std::to_string(k), generated_structure(k)});
    }
    return list;
  }();
  return all;
}

void BM_res_read_all(benchmark::State& state) {
  long structures = 0;
  for (auto _ : state) {
    for (Input const& input : inputs()) {
      std::istringstream in(input.text);
      kora::ResFile file;
      file.read(in);
      benchmark::DoNotOptimize(file.molecules()->size());
      ++structures;
    }
  }
  state.counters["structures/s"] =
      benchmark::Counter(double(structures), benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(BM_res_read_all)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  // The slowest structure, each read 20 times and its median kept.
  std::string slowest;
  double slowest_ms = 0.0;
  for (Input const& input : inputs()) {
    std::vector<double> times;
    for (int i = 0; i < 20; ++i) {
      auto const start = std::chrono::steady_clock::now();
      std::istringstream in(input.text);
      kora::ResFile file;
      file.read(in);
      times.push_back(
          std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
              .count());
    }
    std::nth_element(times.begin(), times.begin() + 10, times.end());
    if (times[10] > slowest_ms) {
      slowest_ms = times[10];
      slowest = input.name;
    }
  }
  std::printf("%zu structures; slowest: %s, %.3f ms\n", inputs().size(), slowest.c_str(),
              slowest_ms);
  return 0;
}
