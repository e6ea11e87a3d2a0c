// Line-reading throughput: kora::getline against std::getline on the same 100 MB file of
// 80-column lines, read from the page cache through std::ifstream. kora::getline is also
// timed on the same text with CR LF and with lone CR line ends, which std::getline cannot
// split. Prints each figure in MB/s, then a summary with the ratio of the two readers.
//
//   getline_bench [--keep-files] [google benchmark flags]

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "kora/kernel/string_functions.hpp"

namespace {

constexpr std::size_t file_bytes = 100u * 1000u * 1000u;
constexpr std::size_t line_width = 80;  // characters before the line end

std::filesystem::path bench_file(std::string const& ending_name) {
  return std::filesystem::temp_directory_path() / ("kora_getline_bench_" + ending_name + ".txt");
}

// Writes about 100 MB of PDB-like 80-column lines ended by `ending`, once per run.
std::filesystem::path make_file(std::string const& ending_name, std::string const& ending) {
  std::filesystem::path const path = bench_file(ending_name);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  std::string line;
  char buffer[line_width + 1];
  std::size_t written = 0;
  for (unsigned serial = 1; written < file_bytes; ++serial) {
    std::snprintf(buffer, sizeof buffer,
                  "ATOM  %5u  CA  ALA A%4u    %8.3f%8.3f%8.3f  1.00 %5.2f           C  ",
                  serial % 100000, serial % 10000, (serial % 997) * 0.125, (serial % 991) * 0.25,
                  (serial % 983) * 0.5, (serial % 89) * 0.5);
    line.assign(buffer, line_width);
    line += ending;
    out << line;
    written += line.size();
  }
  return path;
}

std::map<std::string, std::filesystem::path>& files() {
  static std::map<std::string, std::filesystem::path> f;
  return f;
}

template <class Reader>
void read_file(benchmark::State& state, std::filesystem::path const& path, Reader reader) {
  std::string line;
  std::size_t bytes = 0;
  std::size_t lines = 0;
  std::vector<char> buffer(1 << 16);
  for (auto _ : state) {
    std::ifstream in;
    in.rdbuf()->pubsetbuf(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    in.open(path, std::ios::binary);
    std::size_t n = 0;
    while (reader(in, line)) {
      benchmark::DoNotOptimize(line.data());
      ++n;
    }
    lines = n;
    bytes += static_cast<std::size_t>(std::filesystem::file_size(path));
  }
  state.counters["MB/s"] = benchmark::Counter(double(bytes) / 1e6, benchmark::Counter::kIsRate);
  state.counters["lines"] = double(lines);
}

std::istream& kora_reader(std::istream& in, std::string& line) {
  return kora::getline(in, line);
}
std::istream& std_reader(std::istream& in, std::string& line) {
  return std::getline(in, line);
}

void BM_kora_getline_LF(benchmark::State& s) {
  read_file(s, files().at("LF"), kora_reader);
}
void BM_std_getline_LF(benchmark::State& s) {
  read_file(s, files().at("LF"), std_reader);
}
void BM_kora_getline_CRLF(benchmark::State& s) {
  read_file(s, files().at("CRLF"), kora_reader);
}
void BM_kora_getline_CR(benchmark::State& s) {
  read_file(s, files().at("CR"), kora_reader);
}

// Collects MB/s per benchmark (median of repetitions when there are several) for the
// summary while printing the usual table.
class Collector : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(std::vector<Run> const& runs) override {
    for (Run const& run : runs) {
      auto const it = run.counters.find("MB/s");
      if (it == run.counters.end() || run.error_occurred) continue;
      bool const aggregate = run.run_type == Run::RT_Aggregate;
      if (aggregate && run.aggregate_name != "median") continue;
      std::string const name = run.run_name.function_name;
      if (aggregate || !medians_.count(name)) rates[name] = it->second.value;
      if (aggregate) medians_[name] = true;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> rates;

 private:
  std::map<std::string, bool> medians_;
};

}  // namespace

BENCHMARK(BM_kora_getline_LF)->MinTime(1.0)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_std_getline_LF)->MinTime(1.0)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_kora_getline_CRLF)->MinTime(1.0)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_kora_getline_CR)->MinTime(1.0)->UseRealTime()->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
  bool keep = false;
  std::vector<char*> args;
  for (int i = 0; i < argc; ++i) {
    if (std::string(argv[i]) == "--keep-files") {
      keep = true;
    } else {
      args.push_back(argv[i]);
    }
  }
  int n = static_cast<int>(args.size());
  benchmark::Initialize(&n, args.data());
  if (benchmark::ReportUnrecognizedArguments(n, args.data())) return 1;

  files()["LF"] = make_file("LF", "\n");
  files()["CRLF"] = make_file("CRLF", "\r\n");
  files()["CR"] = make_file("CR", "\r");

  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  benchmark::Shutdown();
  if (!keep) {
    for (auto const& [name, path] : files())
      std::filesystem::remove(path);
  }

  auto const rate = [&](char const* name) {
    auto const it = collector.rates.find(name);
    return it == collector.rates.end() ? 0.0 : it->second;
  };
  double const kora_lf = rate("BM_kora_getline_LF");
  double const std_lf = rate("BM_std_getline_LF");
  std::printf("\nsummary (MB/s, 100 MB file of 80-column lines, page cache)\n");
  std::printf("  kora::getline LF    %8.0f\n", kora_lf);
  std::printf("  std::getline  LF    %8.0f\n", std_lf);
  std::printf("  kora::getline CRLF  %8.0f\n", rate("BM_kora_getline_CRLF"));
  std::printf("  kora::getline CR    %8.0f\n", rate("BM_kora_getline_CR"));
  if (kora_lf > 0 && std_lf > 0) {
    std::printf("  time of kora::getline / time of std::getline on LF: %.2f\n", std_lf / kora_lf);
  }
  return 0;
}
