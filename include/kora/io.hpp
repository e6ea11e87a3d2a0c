#pragma once

/// \file
/// The facade: open any structure file as a list of entries, whatever its format, and write
/// entries in any format. Reading and writing follow each format's public conventions
/// (standard mode) unless the options ask for the classes' classic behaviour.
///
///     kora::Entries const entries = kora::open("ligands.sdf");
///     kora::EntryWriter out("ligand.mol2");
///     out.write(*entries.entry(3));
///     out.close();

#include <exception>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kora/formats.hpp"
#include "kora/framework/database.hpp"
#include "kora/framework/molecule_file.hpp"
#include "kora/framework/options.hpp"
#include "kora/kernel/database_entry.hpp"
#include "kora/kernel/molecule.hpp"

namespace kora {

/// A file that could not be opened, read as a whole or written; the message names the file.
struct io_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};
/// An input that does not exist, or is a directory or a device where a file was expected.
struct missing_file : io_error {
  using io_error::io_error;
};
/// A format name nobody knows, a file no format takes, or one the format asked for refuses.
struct unknown_format : io_error {
  using io_error::io_error;
};
/// An output file that could not be written.
struct output_error : io_error {
  using io_error::io_error;
};

// ---------------------------------------------------------------------------------------------
// Formats by name.

/// The short names of the formats: "mol2", "sdf", "pdb", "res". Maps a name or alias (mol2;
/// sdf, mol, sd, mdl; pdb, ent; res, ins), in any case, to it; "" when there is none.
std::string canonical_format(std::string const& name);
/// The short name of a descriptor of the registry; "" for another.
std::string canonical_format(FileFormat const& format);
/// The extension of a file name, without its dot ("" when it has none).
std::string extension_of(std::string const& file_name);
/// The format a file name's extension names ("" when none does).
std::string format_of_extension(std::string const& file_name);
/// A descriptor's extensions, as files are recognised by them (SHELX also takes "ins").
std::vector<std::string> format_extensions(FileFormat const& format);
/// The descriptor of a short name (null when there is none).
THandle<FileFormat> format_descriptor(std::string const& format);

/// The descriptor that takes a file: the registry's first that does, else the SHELX one for
/// a file named .res or .ins in any case or whose text begins like a SHELX file (TITL or CELL
/// first, after blank and REM lines). Null when nothing takes it.
THandle<FileFormat> identify_file(std::string const& file_name);

/// A new, empty file object of a format (short name), for reading one structure or writing.
std::unique_ptr<MoleculeFile> make_file_object(std::string const& format);

// ---------------------------------------------------------------------------------------------
// Reading.

/// How open() and Entries read an input.
struct OpenOptions {
  /// The format (a name canonical_format knows); empty: identified from the file.
  std::string format;
  /// How the entries are read: standard mode unless set otherwise.
  ReadOptions read = ReadOptions::standard_mode();
  /// SD records named by the six-to-eight-character codes of their first line rather than
  /// by the line as it stands.
  bool short_identifiers = false;
};

/// The entries of one input: its database (random access by index or identifier), or, when
/// the format takes the input but finds no entry boundaries in it, the whole input read as
/// one entry. Standard input ("-") is read through to its end first. Several threads may read
/// entries at once: they take turns (ReadAhead reads in parallel).
class Entries {
 public:
  /// Opens a file ("-": standard input) and indexes its entries. An input that is missing or
  /// not a file throws missing_file, one no format takes (or not the format asked for)
  /// unknown_format, and one that cannot be indexed io_error.
  explicit Entries(std::string const& path, OpenOptions const& options = {});
  /// The entries of a stream, read through to its end; `name` names it in messages.
  Entries(std::istream& in, std::string const& name, OpenOptions const& options = {});
  /// Takes over the input, and the temporary copy of a stream with it.
  Entries(Entries&&) noexcept;
  /// Takes over the input, and the temporary copy of a stream with it.
  Entries& operator=(Entries&&) noexcept;
  /// Removes the temporary copy of a stream.
  ~Entries();

  /// The input's name as given ("-" for standard input).
  std::string const& name() const { return name_; }
  /// The short name of the input's format.
  std::string const& format() const { return format_; }
  /// The number of entries.
  int size() const;
  /// The identifier of entry i, 0 <= i < size().
  DatabaseEntryIdentifier identifier(int i) const;
  /// Where entry i starts in the input, in bytes; -1 when unknown.
  long long offset(int i) const;
  /// Entry i; failures throw database_error, in one line: "input:line: entry i (identifier):
  /// cause", the line being where the entry starts.
  THandle<CrystalStructureDatabaseEntry> entry(int i) const;
  /// The bytes of entry i as the input holds them.
  std::string text(int i) const;
  /// Saves the index beside the input (the input's name followed by ".kora-index"), so that
  /// opening the same bytes again with the same format and options reads it instead of
  /// indexing; a saved index that no longer fits its file (another size, time or checksum of
  /// the first and last blocks) is ignored. A gzip file's index keeps its decompression
  /// checkpoints. Gives the saved file's name. Standard input and an input read as one entry
  /// throw io_error.
  std::string save_index() const;
  /// The index of the first entry with exactly this identifier; -1 when there is none.
  int find(std::string const& identifier) const;
  /// The entry with this identifier, else the first equal to it ignoring case, else the
  /// nearest after it, else before it; -1 when there is none.
  int nearest(std::string const& identifier,
              Database<CrystalStructureDatabaseEntry>::IdentifierMatch& match) const;

 private:
  void open_(std::string const& path, OpenOptions const& options);
  // A failure to open `path` (the input, or its copy) as a message about the input.
  std::string about_input(std::string const& path, std::string const& message) const;

  friend class ReadAhead;
  // Entry i read from its bytes with `file`, a file object of the input's format: what
  // entry(i) gives, for threads that each hold a file object of their own.
  THandle<CrystalStructureDatabaseEntry> entry_from_text_(int i, std::string&& text,
                                                          MoleculeFile& file) const;
  // The failure to read entry i as entry(i) reports it.
  database_error entry_failure_(int i, std::string const& cause) const;

  std::string name_;
  std::string format_;
  ReadOptions read_;
  std::string index_key_;  // what a saved index of this input must have been made for
  // Readers of the input take turns: the database reads through one file object.
  std::unique_ptr<std::mutex> turn_ = std::make_unique<std::mutex>();
  std::string spool_;  // a temporary copy of a stream, removed with the object
  THandle<Database<CrystalStructureDatabaseEntry>> database_;
  THandle<CrystalStructureDatabaseEntry> whole_file_;  // when the index found nothing
};

/// The entries of a file ("-": standard input).
Entries open(std::string const& path, OpenOptions const& options = {});

// ---------------------------------------------------------------------------------------------
// Reading on several threads.

/// One entry as ReadAhead hands it on.
struct EntryRead {
  int index = -1;  ///< the entry's index in its input
  /// Null when it could not be read, or when the options let go of entries.
  THandle<CrystalStructureDatabaseEntry> entry;
  std::string output;  ///< what the work made of the entry
  /// Why the entry could not be read (database_error, worded as Entries::entry words it), or
  /// what the work threw; null when all went well.
  std::exception_ptr error;
};

/// How many threads ReadAhead reads on, and how far ahead.
struct ReadAheadOptions {
  /// 0: one per core of the machine; 1: everything on the caller's thread, nothing started.
  int threads = 0;
  /// Entries read but not yet handed on, about; 0: 256 per thread. Threads take entries in
  /// batches of up to 64 entries or 256 KiB of text, and the window holds at least one batch
  /// per thread. Memory is bounded by it, never by the size of the input.
  int window = 0;
  /// Whether entries are handed on (EntryRead::entry), or let go of on the thread that read
  /// them once the work is done: when only the work's output is wanted, this spares the
  /// caller's thread the freeing of every entry.
  bool keep_entries = true;
};

/// The entries of an input read (and, if asked, worked on) by several threads and handed on
/// in the order asked for. Threads take batches of entries in turn: each takes the batch's
/// bytes from the input (one thread at a time) and reads them with its own file object of the
/// input's format, then runs the work on each entry. What next() gives is what Entries::entry(i)
/// would give, whatever the number of threads.
class ReadAhead {
 public:
  /// What is made of each entry on the thread that read it (the entry's text in an output
  /// format, its summary): handed on as EntryRead::output.
  using Work = std::function<std::string(int index, CrystalStructureDatabaseEntry const& entry)>;

  /// Starts reading `indices` of `entries` (which must outlive this object).
  ReadAhead(Entries const& entries, std::vector<int> indices, ReadAheadOptions const& options = {},
            Work work = {});
  ReadAhead(ReadAhead const&) = delete;
  ReadAhead& operator=(ReadAhead const&) = delete;
  /// Stops the threads; entries not yet handed on are dropped.
  ~ReadAhead();

  /// The next entry in order into `read`; false when every entry has been handed on.
  bool next(EntryRead& read);
  /// The number of threads reading (1 when the caller's thread does the work).
  int threads() const;

  /// The machine's cores (at least 1).
  static int hardware_threads();

 private:
  class State;
  std::unique_ptr<State> state_;
};

// ---------------------------------------------------------------------------------------------
// Writing.

/// Writes one entry through a file object of the output format, as the options say (MOL
/// blocks are V3000 when they ask for it); an SD record written as SD keeps its data items.
void write_entry(MoleculeFile& writer, CrystalStructureDatabaseEntry const& entry,
                 WriteOptions const& options, std::ostream& out);

/// The text write_entry makes of an entry in a format (a short name or alias), with a file
/// object of that format kept for the calling thread: threads may call it at once.
std::string entry_text(CrystalStructureDatabaseEntry const& entry, std::string const& format,
                       WriteOptions const& options);

/// Entries written to a file in one format. A path is written through a temporary file beside
/// it, put in place by close() with the replaced file's mode (or a new file's), so that a
/// failure leaves an existing file as it was; "-", devices and pipes are written directly.
/// Failures throw output_error naming the target.
class EntryWriter {
 public:
  /// The format is a short name or alias; empty: from the path's extension.
  explicit EntryWriter(std::string const& path, std::string const& format = "",
                       WriteOptions const& options = WriteOptions::standard_mode());
  /// Entries written to a stream the caller owns.
  EntryWriter(std::ostream& out, std::string const& format,
              WriteOptions const& options = WriteOptions::standard_mode());
  EntryWriter(EntryWriter const&) = delete;
  EntryWriter& operator=(EntryWriter const&) = delete;
  /// Without close(), a temporary file is removed and the target left as it was.
  ~EntryWriter();

  /// The short name of the output format.
  std::string const& format() const { return format_; }
  /// Writes one entry after those written before; output_error after close().
  void write(CrystalStructureDatabaseEntry const& entry);
  /// Writes text that write_entry made of an entry in this writer's format and options (on
  /// another thread, say) after what was written before; output_error after close().
  void write_text(std::string_view text);
  /// The options entries are written with.
  WriteOptions const& options() const { return options_; }
  /// Flushes and puts the file in place.
  void close();

 private:
  class Target;
  void check_();

  std::string format_;
  WriteOptions options_;
  std::unique_ptr<MoleculeFile> writer_;
  std::unique_ptr<Target> target_;
  std::ostream* out_ = nullptr;
};

// ---------------------------------------------------------------------------------------------
// Summaries.

/// Element counts written as a formula in Hill order: carbon, then hydrogen, then the other
/// symbols alphabetically; without carbon, every symbol alphabetically. Atoms without an
/// element count as "?" at the end.
class FormulaCounter {
 public:
  /// Counts the atoms of a molecule.
  void add(Molecule const& molecule);
  /// The formula of every atom counted so far; "" when there were none.
  std::string formula() const;

 private:
  std::map<std::string, int> counts_;
  int unknown_ = 0;
};

/// The formula of the molecules of an entry.
std::string formula(CrystalStructureDatabaseEntry const& entry);

/// The data items of an SD record, each item's name and its lines of value, in the order of
/// their header lines as text (the record holds its items keyed by header line; of two items
/// with the same header line, the later one is kept).
using DataItems = std::vector<std::pair<std::string, std::vector<std::string>>>;

/// The data items of an SD record, each named by the text between "<" and ">" of its header
/// line; nothing when the entry is not an SD record.
std::optional<DataItems> sd_data(CrystalStructureDatabaseEntry const& entry);

/// What can be said of an entry in a few lines.
struct Summary {
  int index = 0;                        ///< the entry's index in its input
  std::string identifier;               ///< the entry's identifier
  int molecules = 0;                    ///< molecules of the structure
  int atoms = 0;                        ///< atoms of every molecule
  int bonds = 0;                        ///< bonds of every molecule
  std::string formula;                  ///< Hill order; "?" for atoms without an element
  int charge = 0;                       ///< the sum of the atoms' formal charges
  bool has_cell = false;                ///< the structure has crystal data of its own
  double cell[6] = {0, 0, 0, 0, 0, 0};  ///< a, b, c, alpha, beta, gamma (degrees)
  std::string spacegroup;               ///< the compact Hermann-Mauguin symbol of the cell's group
  int spacegroup_number = 0;            ///< its number in International Tables; 0 when unknown
  int peaks = 0;                        ///< difference-map peaks of the structure (SHELX Q peaks)
  bool has_data = false;                ///< an SD record: data items follow
  DataItems data;                       ///< the SD record's data items
};

/// The summary of an entry, listed under `index`.
Summary summarise(int index, CrystalStructureDatabaseEntry const& entry);
/// The summary as indented text lines.
std::string summary_text(Summary const& s);
/// The summary as one line of JSON (no line end); a cell and space group the entry does not
/// have are null.
std::string summary_json(Summary const& s);

}  // namespace kora
