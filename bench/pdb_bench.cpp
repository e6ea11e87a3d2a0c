// PDB reading with bond detection and residue bond typing: the corpus's largest PDB files
// ($KORA_CORPUS or ../shared/corpus, bench/: a 14-model NMR entry and an 18,000-atom
// crystal structure) when they are there, else a generated 100,000-atom protein; and a
// generated 100,000-atom file of HETATM records without CONECT records, whose bonds come
// from one search over the whole model. Writing is timed on the crystal structure.
//
//   pdb_bench [google benchmark flags]

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "kora/pdb/pdb_file.hpp"

namespace {

namespace fs = std::filesystem;

fs::path corpus() {
  char const* env = std::getenv("KORA_CORPUS");
  return env ? fs::path(env) : fs::path("../shared/corpus");
}

// Chains of alanines laid out flat in the xy plane (bonds 1.45 A, non-bonded atoms at
// least 2.5 A apart), stacked 6 A apart in y and z: 20,000 residues of 5 atoms.
fs::path generated_protein(char const* record, char const* name) {
  fs::path const path = fs::temp_directory_path() / name;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << "CRYST1  200.000  200.000  200.000  90.00  90.00  90.00 P 1           1\n";
  double const dx = 1.2557;
  double const dy = 0.725;
  char line[128];
  int serial = 0;
  for (int chain = 0; chain < 200; ++chain) {
    double const y0 = 6.0 * (chain % 20);
    double const z0 = 6.0 * (chain / 20);
    for (int residue = 0; residue < 100; ++residue) {
      struct Place {
        char const* name;
        double x, y;
      };
      int const m = 3 * residue;  // N, CA, C at zig-zag points m, m + 1, m + 2
      auto const zig = [&](int k) { return (k % 2) * dy; };
      auto const side = [&](int k) { return k % 2 ? dy + 1.45 : -1.45; };
      Place const atoms[5] = {{"N", m * dx, zig(m)},
                              {"CA", (m + 1) * dx, zig(m + 1)},
                              {"C", (m + 2) * dx, zig(m + 2)},
                              {"O", (m + 2) * dx, side(m + 2)},
                              {"CB", (m + 1) * dx, side(m + 1)}};
      for (Place const& a : atoms) {
        // A HETATM serial must leave the blank after the record name.
        serial = serial % (record[0] == 'H' ? 9999 : 99999) + 1;
        std::snprintf(line, sizeof line,
                      "%-6s%5d  %-3s ALA %c%4d    %8.3f%8.3f%8.3f  1.00 20.00           %c\n",
                      record, serial, a.name, 'A' + chain % 26, residue + 1, a.x, y0 + a.y, z0,
                      a.name[0]);
        out << line;
      }
    }
    out << "TER\n";
  }
  out << "END\n";
  return path;
}

struct Input {
  std::string name;
  fs::path path;
};

std::vector<Input> const& inputs() {
  static std::vector<Input> const list = [] {
    std::vector<Input> found;
    for (char const* name : {"bench_cdk_1CKV.pdb", "bench_openbabel_3G61.pdb"}) {
      fs::path const path = corpus() / "bench" / name;
      if (fs::exists(path)) found.push_back({name, path});
    }
    if (found.empty()) {
      found.push_back({"generated_protein", generated_protein("ATOM", "kora_pdb_bench_atom.pdb")});
    }
    found.push_back({"generated_hetatm", generated_protein("HETATM", "kora_pdb_bench_hetatm.pdb")});
    return found;
  }();
  return list;
}

std::string contents(fs::path const& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

int atoms_of(kora::PdbFile const& file) {
  int n = 0;
  for (auto const& m : *file.molecules())
    n += m->natoms();
  return n;
}

// Reading from memory, so that the figure is the reader's, not the disk's.
void BM_pdb_read(benchmark::State& state, Input const& input) {
  std::string const text = contents(input.path);
  long atoms = 0;
  long bonds = 0;
  for (auto _ : state) {
    std::istringstream in(text);
    kora::PdbFile file;
    file.read(in);
    atoms = atoms_of(file);
    bonds = 0;
    for (auto const& m : *file.molecules())
      bonds += m->nbonds();
    benchmark::DoNotOptimize(bonds);
  }
  state.counters["atoms"] = double(atoms);
  state.counters["bonds"] = double(bonds);
  state.counters["atoms/s"] =
      benchmark::Counter(double(atoms) * double(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["MB/s"] = benchmark::Counter(
      double(text.size()) / 1e6 * double(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_pdb_print(benchmark::State& state, Input const& input) {
  kora::PdbFile file;
  {
    std::istringstream in(contents(input.path));
    file.read(in);
  }
  int const atoms = atoms_of(file);
  std::size_t bytes = 0;
  for (auto _ : state) {
    std::ostringstream out;
    file.print(out);
    bytes = out.str().size();
  }
  state.counters["atoms/s"] =
      benchmark::Counter(double(atoms) * double(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["MB/s"] = benchmark::Counter(double(bytes) / 1e6 * double(state.iterations()),
                                              benchmark::Counter::kIsRate);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  for (Input const& input : inputs()) {
    std::cout << input.name << ": " << input.path << " (" << fs::file_size(input.path)
              << " bytes)\n";
    benchmark::RegisterBenchmark(("BM_pdb_read/" + input.name).c_str(), BM_pdb_read, input)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
  }
  Input const* crystal = &inputs().front();
  for (Input const& input : inputs())
    if (input.name.find("3G61") != std::string::npos) crystal = &input;
  benchmark::RegisterBenchmark(("BM_pdb_print/" + crystal->name).c_str(), BM_pdb_print, *crystal)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
