// Mol2 reading through the database: index the file, then build every entry's molecules.
// Uses the largest Mol2 file of the corpus ($KORA_CORPUS or ../shared/corpus, bench/) when
// it is there, else a generated file of 20,000 drug-sized molecules.
//
//   mol2_bench [google benchmark flags]

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "kora/framework/flat_file_database.hpp"
#include "kora/mol2/mol2_database_reader.hpp"
#include "kora/mol2/mol2_file.hpp"

namespace {

namespace fs = std::filesystem;
using Mol2Database = kora::FlatFileDatabase<kora::CrystalStructureDatabaseEntry,
                                            kora::Mol2DatabaseReader, kora::Mol2File>;

// A ring-and-chain molecule of 32 heavy and hydrogen atoms, repeated with shifted
// coordinates.
fs::path generated_file() {
  fs::path const path = fs::temp_directory_path() / "kora_mol2_bench.mol2";
  if (fs::exists(path)) return path;
  std::ofstream out(path, std::ios::binary);
  char line[128];
  for (int m = 0; m < 20000; ++m) {
    out << "@<TRIPOS>MOLECULE\nMOL" << m << "\n   32    31     1\nSMALL\nUSER_CHARGES\n\n";
    out << "@<TRIPOS>ATOM\n";
    for (int a = 0; a < 32; ++a) {
      bool const h = a % 2 == 1;
      std::snprintf(line, sizeof line, "%7d %-4s%d %10.4f %10.4f %10.4f %-6s %3d UNL1 %10.4f\n",
                    a + 1, h ? "H" : "C", a + 1, 1.4 * a + 0.01 * m, 0.3 * (a % 5), -0.7 * (a % 3),
                    h ? "H" : "C.3", 1, h ? 0.0612 : -0.1224);
      out << line;
    }
    out << "@<TRIPOS>BOND\n";
    for (int b = 0; b < 31; ++b) {
      std::snprintf(line, sizeof line, "%6d %5d %5d %s\n", b + 1, b + 1, b + 2,
                    b % 4 == 0 ? "ar" : "1");
      out << line;
    }
  }
  return path;
}

fs::path input_file() {
  char const* env = std::getenv("KORA_CORPUS");
  fs::path const corpus = env ? fs::path(env) : fs::path("../shared/corpus");
  fs::path best;
  std::error_code ec;
  for (fs::path const& dir : {corpus / "bench", corpus / "mol2"}) {
    if (!fs::is_directory(dir, ec)) continue;
    for (auto const& item : fs::directory_iterator(dir, ec)) {
      if (item.path().extension() != ".mol2") continue;
      if (best.empty() || fs::file_size(item.path()) > fs::file_size(best)) best = item.path();
    }
  }
  return best.empty() ? generated_file() : best;
}

fs::path const& file() {
  static fs::path const path = input_file();
  return path;
}

void BM_mol2_index(benchmark::State& state) {
  double const megabytes = double(fs::file_size(file())) / 1e6;
  int entries = 0;
  for (auto _ : state) {
    Mol2Database const db(file().string());
    entries = db.size();
  }
  state.counters["entries"] = entries;
  state.counters["MB/s"] =
      benchmark::Counter(megabytes * double(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_mol2_index_and_read_all(benchmark::State& state) {
  double const megabytes = double(fs::file_size(file())) / 1e6;
  long molecules = 0;
  long atoms = 0;
  for (auto _ : state) {
    Mol2Database const db(file().string());
    for (int i = 0; i < db.size(); ++i) {
      auto const maker = db.entry(i)->crystal_maker();
      for (int m = 0; m < maker->nmolecules(); ++m)
        atoms += maker->molecule(m)->natoms();
      ++molecules;
    }
  }
  benchmark::DoNotOptimize(atoms);
  state.counters["molecules/s"] =
      benchmark::Counter(double(molecules), benchmark::Counter::kIsRate);
  state.counters["MB/s"] =
      benchmark::Counter(megabytes * double(state.iterations()), benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(BM_mol2_index)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_mol2_index_and_read_all)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  std::cout << "input: " << file() << " (" << fs::file_size(file()) << " bytes)\n";
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
