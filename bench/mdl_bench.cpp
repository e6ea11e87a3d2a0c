// SD file reading through the database: index the file, then build every entry's
// molecules. Uses the largest SD file of the corpus ($KORA_CORPUS or ../shared/corpus,
// bench/ then sdf/) when it is there, else a generated file of 50,000 drug-sized records.
//
//   mdl_bench [google benchmark flags]

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "kora/framework/flat_file_database.hpp"
#include "kora/mdl/mol_file.hpp"
#include "kora/mdl/sdfile_database_reader.hpp"

namespace {

namespace fs = std::filesystem;
using SdDatabase = kora::FlatFileDatabase<kora::CrystalStructureDatabaseEntry,
                                          kora::SDfileDatabaseReader, kora::MolFile>;

// A chain of 24 atoms with a charge line and three data items per record.
fs::path generated_file() {
  fs::path const path = fs::temp_directory_path() / "kora_mdl_bench.sdf";
  if (fs::exists(path)) return path;
  std::ofstream out(path, std::ios::binary);
  char line[128];
  for (int m = 0; m < 50000; ++m) {
    out << "MOL" << m << "\n  KORABNCH0101241200" << (m % 2 ? "3D" : "2D") << "\n\n";
    out << " 24 23  0  0  0  0  0  0  0  0999 V2000\n";
    for (int a = 0; a < 24; ++a) {
      std::snprintf(line, sizeof line, "%10.4f%10.4f%10.4f %-3s 0  0  0  0  0  0  0  0  0  0\n",
                    1.4 * a + 0.01 * m, 0.3 * (a % 5), m % 2 ? -0.7 * (a % 3) : 0.0,
                    a % 6 == 5 ? "N"
                    : a % 2    ? "H"
                               : "C");
      out << line;
    }
    for (int b = 0; b < 23; ++b) {
      std::snprintf(line, sizeof line, "%3d%3d%3d  0  0  0  0\n", b + 1, b + 2, b % 4 == 0 ? 2 : 1);
      out << line;
    }
    out << "M  CHG  1   6   1\nM  END\n";
    out << "> <ID>\n" << m << "\n\n> <logP>\n" << 0.001 * m << "\n\n> <name>\nbench molecule\n\n";
    out << "$$$$\n";
  }
  return path;
}

fs::path input_file() {
  char const* env = std::getenv("KORA_CORPUS");
  fs::path const corpus = env ? fs::path(env) : fs::path("../shared/corpus");
  fs::path best;
  std::error_code ec;
  for (fs::path const& dir : {corpus / "bench", corpus / "sdf"}) {
    if (!fs::is_directory(dir, ec)) continue;
    for (auto const& item : fs::directory_iterator(dir, ec)) {
      auto const extension = item.path().extension();
      if (extension != ".sdf" && extension != ".sd") continue;
      if (best.empty() || fs::file_size(item.path()) > fs::file_size(best)) best = item.path();
    }
    if (!best.empty()) break;
  }
  return best.empty() ? generated_file() : best;
}

fs::path const& file() {
  static fs::path const path = input_file();
  return path;
}

void BM_sd_index(benchmark::State& state) {
  double const megabytes = double(fs::file_size(file())) / 1e6;
  int entries = 0;
  for (auto _ : state) {
    SdDatabase const db(file().string());
    entries = db.size();
  }
  state.counters["records"] = entries;
  state.counters["MB/s"] =
      benchmark::Counter(megabytes * double(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["records/s"] =
      benchmark::Counter(double(entries) * double(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_sd_index_and_read_all(benchmark::State& state) {
  double const megabytes = double(fs::file_size(file())) / 1e6;
  long records = 0;
  long atoms = 0;
  for (auto _ : state) {
    SdDatabase const db(file().string());
    for (int i = 0; i < db.size(); ++i) {
      auto const maker = db.entry(i)->crystal_maker();
      for (int m = 0; m < maker->nmolecules(); ++m)
        atoms += maker->molecule(m)->natoms();
      ++records;
    }
  }
  benchmark::DoNotOptimize(atoms);
  state.counters["records/s"] = benchmark::Counter(double(records), benchmark::Counter::kIsRate);
  state.counters["MB/s"] =
      benchmark::Counter(megabytes * double(state.iterations()), benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(BM_sd_index)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_sd_index_and_read_all)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  std::cout << "input: " << file() << " (" << fs::file_size(file()) << " bytes)\n";
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
