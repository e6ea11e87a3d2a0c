// Compressed input: gzip and BGZF files read as the text they hold, through the databases,
// the file objects and identification; damaged data is refused naming the file.

#include <gtest/gtest.h>

#include "../framework/sample_files.hpp"
#include "framework/gzip.hpp"
#include "gzip_writer.hpp"
#include "kora/formats.hpp"
#include "kora/framework/input_file.hpp"
#include "kora/kernel/string_functions.hpp"

namespace {

using namespace kora;
using namespace kora::test;

std::string const truncated = ": truncated gzip data: the file ends inside a compressed member";

std::string read_all(std::string const& file) {
  InputFile in(file);
  std::string text;
  for (std::string line; kora::getline(in, line);)
    text += line + "\n";
  return text;
}

// The ways a text is stored compressed, by name.
using Packing = std::pair<char const*, std::string (*)(std::string_view)>;
std::vector<Packing> const packings = {
    {"gzip", gzip},
    {"bgzf_small_blocks", [](std::string_view t) { return bgzf(t, 100); }},
    // Two members, joined as `cat a.gz b.gz` joins them, split inside an entry.
    {"two_members",
     [](std::string_view t) {
       return gzip(t.substr(0, t.size() / 2)) + gzip(t.substr(t.size() / 2));
     }},
    // Padding of zero bytes after the last member, which gzip accepts.
    {"zero_padded", [](std::string_view t) { return gzip(t) + std::string(100, '\0'); }},
};

class CompressedSample : public ::testing::TestWithParam<std::tuple<SampleFormat, Packing>> {};

TEST_P(CompressedSample, ReadsTheEntriesOfThePlainFile) {
  auto const& [f, packing] = GetParam();
  ScratchFolder const scratch;
  std::string const text = f.text();
  std::string const plain = scratch.write("sample." + f.extension, text);
  std::string const packed_bytes = packing.second(text);
  std::string const packed = scratch.write("sample." + f.extension + ".gz", packed_bytes);
  EXPECT_EQ(read_all(packed), text);

  THandle<EntryDatabase> const expected = f.open(plain);
  THandle<EntryDatabase> const db = f.open(packed);
  ASSERT_EQ(db->size(), f.entries);
  // Positions are offsets in the text; entries read back to front, then front to back.
  auto const index = handle_dynamic_cast<FlatFileDatabaseIndex>(db);
  auto const plain_index = handle_dynamic_cast<FlatFileDatabaseIndex>(expected);
  for (int k = 1 - db->size(); k < db->size(); ++k) {
    int const i = k < 0 ? -k : k;
    EXPECT_EQ(index->position(i), plain_index->position(i));
    EXPECT_EQ(describe(*db->entry(i)), describe(*expected->entry(i)));
  }

  // Identification looks at the text; the file object reads it by name.
  FileFormat::OpenParameters const parameters{packed, format_extension(packed)};
  EXPECT_EQ(parameters.extension, f.extension);
  THandle<FileFormat> const found = find_file_format(parameters);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->name(), f.descriptor()->name());
  THandle<MoleculeFile> const file = f.file_object();
  THandle<MoleculeFile> const plain_file = f.file_object();
  file->read(packed);
  plain_file->read(plain);
  EXPECT_EQ(describe(*file->database_entry()), describe(*plain_file->database_entry()));

  // Every reader passes on the fault of a cut file, naming the file.
  std::string const cut = scratch.write("cut." + f.extension + ".gz",
                                        packed_bytes.substr(0, packed_bytes.size() * 3 / 5));
  EXPECT_EQ(thrown_message<std::runtime_error>([&] { f.open(cut); }), cut + truncated);
}

INSTANTIATE_TEST_SUITE_P(Formats, CompressedSample,
                         ::testing::Combine(::testing::ValuesIn(sample_formats()),
                                            ::testing::ValuesIn(packings)),
                         [](auto const& info) {
                           return std::get<0>(info.param).name + "_" +
                                  std::get<1>(info.param).first;
                         });

TEST(CompressedInput, FormatsAreRecognisedByTheirBytesNotTheirNames) {
  ScratchFolder const scratch;
  // A gzip file named .sdf, and a plain file named .gz.
  std::string const hidden = scratch.write("hidden.sdf", gzip(sd_entries(3)));
  std::string const named = scratch.write("named.sdf.gz", sd_entries(3));
  EXPECT_TRUE(is_gzip_file(hidden));
  EXPECT_FALSE(is_gzip_file(named));
  EXPECT_EQ(read_all(hidden), sd_entries(3));
  EXPECT_EQ(read_all(named), sd_entries(3));
  // Positions are offsets in the text, also when counted from where the stream stands.
  InputFile in(hidden);
  in.seekg(300);
  in.seekg(-20, std::ios::cur);
  std::string piece(10, '\0');
  in.read(piece.data(), 10);
  EXPECT_EQ(piece, sd_entries(3).substr(280, 10));
  EXPECT_EQ(SdDatabase(hidden, FileFormat::verbatim_identifiers).size(), 3);
  // The format of a compressed file is that of the name under ".gz".
  std::pair<char const*, char const*> const extensions[] = {
      {"x.sdf.gz", "sdf"}, {"dir.d/x.mol2.GZ", "mol2"}, {"x.pdb", "pdb"}, {"x.gz", ""}, {"x", ""}};
  for (auto const& [name, extension] : extensions)
    EXPECT_EQ(format_extension(name), extension) << name;
}

// What reading the middle entry of a large file costs in inflated text.
TEST(CompressedInput, RandomAccessInflatesAtMostOneCheckpointInterval) {
  ScratchFolder const scratch;
  std::string const text = sd_entries(100000);
  auto const size = static_cast<std::int64_t>(text.size());
  auto const begin = static_cast<std::int64_t>(text.find("mol50000\n"));
  auto const end = static_cast<std::int64_t>(text.find("mol50001\n"));
  std::string const expected = text.substr(text.find("mol50000\n"), std::size_t(end - begin));
  for (auto const& [name, packed] :
       {std::pair{"gzip", gzip(text)}, std::pair{"bgzf", bgzf(text)}}) {
    std::string const file = scratch.write(std::string("big_") + name + ".sdf.gz", packed);
    detail::IndexedFile indexed(file);
    {
      // The reader's pass over the text records the checkpoints.
      detail::IndexedFile::Indexing const indexing(indexed);
      std::vector<DatabaseEntryIdentifier> identifiers;
      std::vector<std::streampos> positions;
      SDfileDatabaseReader(file, FileFormat::verbatim_identifiers).parse(identifiers, positions);
      ASSERT_EQ(std::streamoff(positions.at(50000)), begin);
    }
    ASSERT_EQ(indexed.finish_indexing(), size);
    // Checkpoints are at deflate block starts: an interval is the spacing and at most one
    // block (zlib's blocks hold at most 16 Ki symbols; far less than 256 KiB of text here).
    std::int64_t const bound =
        (std::string_view(name) == "bgzf" ? 65536 : detail::GzipIndex::first_spacing + (1 << 18)) +
        static_cast<std::int64_t>(expected.size());
    std::string entry;
    ASSERT_EQ(indexed.read(begin, end, entry), detail::IndexedFile::complete);
    EXPECT_EQ(entry, expected);
    EXPECT_LE(indexed.inflated(), bound) << name;
    // A saved index keeps the checkpoints: a later open reads as cheaply, with no pass.
    detail::EntryIndex index;
    index.add("mol50000", begin);
    detail::save_index(indexed, "key", index);
    detail::IndexedFile reopened(file);
    ASSERT_TRUE(detail::load_saved_index(reopened, "key").has_value()) << name;
    EXPECT_TRUE(reopened.gzip_index()->complete()) << name;
    EXPECT_EQ(reopened.finish_indexing(), size);
    ASSERT_EQ(reopened.read(begin, end, entry), detail::IndexedFile::complete);
    EXPECT_EQ(entry, expected);
    EXPECT_LE(reopened.inflated(), bound) << name;
  }
}

// Opening, identifying and reading a damaged file.
TEST(CompressedInput, TruncatedAndCorruptDataAreRefusedNamingTheFile) {
  ScratchFolder const scratch;
  std::string const text = sd_entries(2000);
  std::string const gz = gzip(text);
  std::string corrupt = gz;
  for (std::size_t k = gz.size() / 2; k < gz.size() / 2 + 16; ++k)
    corrupt[k] = static_cast<char>(corrupt[k] ^ 0x5a);
  std::string bad_crc = gz;
  bad_crc[gz.size() - 6] = static_cast<char>(bad_crc[gz.size() - 6] ^ 1);
  std::pair<std::string, std::string> const cases[] = {
      {gz.substr(0, gz.size() / 2), truncated},
      {gz.substr(0, 5), truncated},  // the header only
      {corrupt, ": corrupt gzip data ("},
      {bad_crc, ": corrupt gzip data (incorrect data check)"},
      {gz + "trailing text", ": corrupt gzip data (bytes after a member"},
      {bgzf(text, 1000).substr(0, 5000), truncated},
  };
  int n = 0;
  for (auto const& [bytes, message] : cases) {
    std::string const file = scratch.write("case" + std::to_string(n++) + ".sdf.gz", bytes);
    std::string const opened = thrown_message<std::runtime_error>(
        [&] { SdDatabase(file, FileFormat::verbatim_identifiers); });
    EXPECT_EQ(opened.rfind(file + message, 0), 0u) << opened;
    EXPECT_NO_THROW(MolFileFileFormat(FileFormat::verbatim_identifiers).identify(file));
    std::string const read = thrown_message<std::runtime_error>([&] { read_all(file); });
    EXPECT_EQ(read.rfind(file + message, 0), 0u) << read;
  }
}

}  // namespace
