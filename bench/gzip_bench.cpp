// Inflating gzip and BGZF input: zlib against libdeflate on the same text, and kora's own
// paths (a gzip file read whole through InputFile; one entry read at random from an indexed
// .sdf.gz). The text is the CDK ring templates of the corpus when present, else generated SD
// records, compressed here at zlib's default level.
//
// Figures in bench/README.md ("Compressed input").

#include <benchmark/benchmark.h>
#include <zlib.h>
#ifdef KORA_BENCH_LIBDEFLATE
#include <libdeflate.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "../tests/io/gzip_writer.hpp"
#include "kora/formats.hpp"
#include "kora/framework/input_file.hpp"

namespace {

std::string corpus_text() {
  char const* root = std::getenv("KORA_CORPUS");
  std::filesystem::path const file = std::filesystem::path(root ? root : "../shared/corpus") /
                                     "bench" / "bench_cdk_ringTemplateStructures.sdf";
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  if (in) {
    text << in.rdbuf();
    return text.str();
  }
  for (int e = 0; e < 100000; ++e) {
    text << "mol" << e << "\n  bench\n\n  3  2  0  0  0  0  0  0  0  0999 V2000\n";
    for (int a = 0; a < 3; ++a) {
      char line[96];
      std::snprintf(line, sizeof line,
                    "%10.4f%10.4f%10.4f C   0  0  0  0  0  0  0  0  0  0  0  0\n",
                    1.5 * a + 0.001 * e, 0.1 * a, 0.0);
      text << line;
    }
    text << "  1  2  1  0\n  2  3  1  0\nM  END\n$$$$\n";
  }
  return text.str();
}

std::string const& text() {
  static std::string const t = corpus_text();
  return t;
}

std::string const& gzip_text() {
  static std::string const gz = kora::test::deflated(text(), 31);
  return gz;
}

// The text as BGZF blocks' deflate data (65,280 bytes of text each), with each block's size.
struct Blocks {
  std::vector<std::string> data;
  std::vector<std::size_t> sizes;
};
Blocks const& bgzf_blocks() {
  static Blocks const blocks = [] {
    Blocks b;
    for (std::size_t at = 0; at < text().size(); at += 65280) {
      std::size_t const n = std::min<std::size_t>(65280, text().size() - at);
      b.data.push_back(kora::test::deflated(std::string_view(text()).substr(at, n), -15));
      b.sizes.push_back(n);
    }
    return b;
  }();
  return blocks;
}

void report(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(text().size()));
}

// zlib streaming, as InputFile inflates a plain gzip file: 256 KiB of output at a time.
void BM_ZlibStream(benchmark::State& state) {
  std::vector<unsigned char> out(std::size_t(1) << 18);
  for (auto _ : state) {
    z_stream s{};
    inflateInit2(&s, 31);
    s.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(gzip_text().data()));
    s.avail_in = static_cast<uInt>(gzip_text().size());
    int result = Z_OK;
    while (result == Z_OK) {
      s.next_out = out.data();
      s.avail_out = static_cast<uInt>(out.size());
      result = inflate(&s, Z_NO_FLUSH);
    }
    benchmark::DoNotOptimize(s.total_out);
    inflateEnd(&s);
  }
  report(state);
}
BENCHMARK(BM_ZlibStream)->Unit(benchmark::kMillisecond);

// zlib inflating each BGZF block whole, with its CRC.
void BM_ZlibBgzfBlocks(benchmark::State& state) {
  std::vector<unsigned char> out(65536);
  z_stream s{};
  inflateInit2(&s, -15);
  for (auto _ : state) {
    for (std::size_t k = 0; k < bgzf_blocks().data.size(); ++k) {
      std::string const& block = bgzf_blocks().data[k];
      inflateReset(&s);
      s.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(block.data()));
      s.avail_in = static_cast<uInt>(block.size());
      s.next_out = out.data();
      s.avail_out = static_cast<uInt>(out.size());
      inflate(&s, Z_FINISH);
      benchmark::DoNotOptimize(crc32(0, out.data(), static_cast<uInt>(bgzf_blocks().sizes[k])));
    }
  }
  inflateEnd(&s);
  report(state);
}
BENCHMARK(BM_ZlibBgzfBlocks)->Unit(benchmark::kMillisecond);

#ifdef KORA_BENCH_LIBDEFLATE
// libdeflate inflating each BGZF block whole, with its CRC.
void BM_LibdeflateBgzfBlocks(benchmark::State& state) {
  std::vector<unsigned char> out(65536);
  libdeflate_decompressor* d = libdeflate_alloc_decompressor();
  for (auto _ : state) {
    for (std::size_t k = 0; k < bgzf_blocks().data.size(); ++k) {
      std::string const& block = bgzf_blocks().data[k];
      std::size_t made = 0;
      libdeflate_deflate_decompress(d, block.data(), block.size(), out.data(), out.size(), &made);
      benchmark::DoNotOptimize(libdeflate_crc32(0, out.data(), made));
    }
  }
  libdeflate_free_decompressor(d);
  report(state);
}
BENCHMARK(BM_LibdeflateBgzfBlocks)->Unit(benchmark::kMillisecond);

// libdeflate on the whole single-member file at once (it cannot stream): the output must be
// allocated whole, which a reader of unbounded files cannot do.
void BM_LibdeflateWholeFile(benchmark::State& state) {
  std::vector<unsigned char> out(text().size());
  libdeflate_decompressor* d = libdeflate_alloc_decompressor();
  for (auto _ : state) {
    std::size_t made = 0;
    libdeflate_gzip_decompress(d, gzip_text().data(), gzip_text().size(), out.data(), out.size(),
                               &made);
    benchmark::DoNotOptimize(made);
  }
  libdeflate_free_decompressor(d);
  report(state);
}
BENCHMARK(BM_LibdeflateWholeFile)->Unit(benchmark::kMillisecond);
#endif

std::string scratch(std::string const& name, std::string const& bytes) {
  std::string const path = (std::filesystem::temp_directory_path() / name).string();
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  return path;
}

// The text of a .sdf.gz through kora::InputFile, a block at a time.
void BM_InputFileGzip(benchmark::State& state) {
  std::string const path = scratch("kora_gzip_bench.sdf.gz", gzip_text());
  std::vector<char> block(std::size_t(1) << 18);
  for (auto _ : state) {
    kora::InputFile in(path);
    std::size_t total = 0;
    while (in.read(block.data(), static_cast<std::streamsize>(block.size())) || in.gcount() > 0)
      total += static_cast<std::size_t>(in.gcount());
    benchmark::DoNotOptimize(total);
  }
  report(state);
  std::filesystem::remove(path);
}
BENCHMARK(BM_InputFileGzip)->Unit(benchmark::kMillisecond);

// Opening a .sdf.gz as a database (index and checkpoints in one pass), then reading its
// middle entry.
void BM_SdGzipIndexAndMiddleEntry(benchmark::State& state) {
  std::string const path = scratch("kora_gzip_bench_db.sdf.gz", gzip_text());
  for (auto _ : state) {
    auto const format = kora::find_file_format({path, "sdf"});
    auto const db = format->make_database({path, "sdf"});
    benchmark::DoNotOptimize(db->entry(db->size() / 2));
  }
  std::filesystem::remove(path);
}
BENCHMARK(BM_SdGzipIndexAndMiddleEntry)->Unit(benchmark::kMillisecond);

// One entry from the middle of an indexed .sdf.gz: inflating from the checkpoint before it.
void BM_SdGzipMiddleEntry(benchmark::State& state) {
  std::string const path = scratch("kora_gzip_bench_middle.sdf.gz", gzip_text());
  auto const db = kora::find_file_format({path, "sdf"})->make_database({path, "sdf"});
  for (auto _ : state)
    benchmark::DoNotOptimize(db->entry(db->size() / 2));
  std::filesystem::remove(path);
}
BENCHMARK(BM_SdGzipMiddleEntry)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
