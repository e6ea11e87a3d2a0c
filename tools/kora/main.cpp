// kora: identify, list, summarise, extract and convert Mol2, MOL/SD, PDB and SHELX RES files.
//
// Exit status: 0 success; 1 a file could not be read or written (or is of no known
// format); 2 a usage error; 3 convert --keep-going skipped entries.

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "kora/io.hpp"

namespace {

using namespace kora;
namespace fs = std::filesystem;

// A usage error (exit status 2).
struct Usage : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Progress on standard error, on a terminal only and once the work has taken a second:
// entries done, their rate and the time left.
class Progress {
 public:
  Progress(int total, bool quiet)
      : total_(total),
        shown_(!quiet && total > 1 && isatty(STDERR_FILENO)),
        start_(std::chrono::steady_clock::now()) {}
  ~Progress() {
    if (drawn_) std::cerr << '\n';
  }
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;

  void update(int done) {
    if (!shown_) return;
    auto const now = std::chrono::steady_clock::now();
    double const seconds = std::chrono::duration<double>(now - start_).count();
    if (seconds < 1.0) return;
    if (done < total_ && now - last_ < std::chrono::milliseconds(100)) return;
    last_ = now;
    double const fraction = total_ > 0 ? double(done) / total_ : 1.0;
    double const left = fraction > 0 ? seconds * (1.0 - fraction) / fraction : 0.0;
    int const width = 30;
    int const filled = static_cast<int>(fraction * width);
    char line[160];
    std::snprintf(line, sizeof line, "\r[%s%s] %d/%d entries, %.0f/s, %d:%02d left ",
                  std::string(static_cast<std::size_t>(filled), '=').c_str(),
                  std::string(static_cast<std::size_t>(width - filled), ' ').c_str(), done, total_,
                  done / seconds, static_cast<int>(left) / 60, static_cast<int>(left) % 60);
    std::cerr << line << std::flush;
    drawn_ = true;
  }

 private:
  int total_;
  bool shown_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point last_;
};

// What the input options of a command ask for.
struct Input {
  std::string file;
  std::string from;
  bool short_ids = false;
  bool classic = false;
  bool quiet = false;
  int jobs = 0;  // 0: the machine's cores

  // Entries read on `jobs` threads, made into text there and let go of there.
  ReadAheadOptions reading() const {
    ReadAheadOptions options;
    options.threads = jobs;
    options.keep_entries = false;
    return options;
  }

  Entries open() const {
    OpenOptions options;
    options.format = from;
    options.short_identifiers = short_ids;
    options.read = classic ? ReadOptions::classic_mode() : ReadOptions::standard_mode();
    return Entries(file, options);
  }
};

// The entry chosen by --entry or --id (with --nearest, the nearest identifier), or all.
struct Choice {
  std::optional<int> entry;
  std::string id;
  bool nearest = false;

  std::vector<int> of(Entries const& entries) const {
    if (entry) {
      if (*entry < 0 || *entry >= entries.size()) {
        throw io_error(entries.name() + ": no entry " + std::to_string(*entry) + " (it has " +
                       std::to_string(entries.size()) + ")");
      }
      return {*entry};
    }
    if (!id.empty()) {
      int i = entries.find(id);
      if (i < 0 && nearest) {
        Database<CrystalStructureDatabaseEntry>::IdentifierMatch match{};
        i = entries.nearest(id, match);
      }
      if (i < 0) throw io_error(entries.name() + ": no entry named '" + id + "'");
      return {i};
    }
    std::vector<int> all(static_cast<std::size_t>(entries.size()));
    for (int i = 0; i < entries.size(); ++i)
      all[static_cast<std::size_t>(i)] = i;
    return all;
  }
};

int run_formats() {
  for (THandle<FileFormat> const& format : file_formats()) {
    std::string joined;
    for (std::string const& e : format_extensions(*format))
      joined += (joined.empty() ? "" : ",") + e;
    std::cout << format->name() << '\t' << joined << '\t'
              << (format->writeable() ? "writeable" : "read-only") << '\n';
  }
  return 0;
}

int run_identify(std::vector<std::string> const& files) {
  int status = 0;
  for (std::string const& file : files) {
    std::string name = "unknown";
    if (file == "-") {
      try {
        name = format_descriptor(Entries(file).format())->name();
      } catch (io_error const&) {
      }
    } else {
      std::error_code ec;
      if (fs::is_regular_file(file, ec)) {
        if (THandle<FileFormat> const format = identify_file(file)) name = format->name();
      }
    }
    std::cout << file << '\t' << name << '\n';
    if (name == "unknown") status = 1;
  }
  return status;
}

int run_list(Input const& input) {
  Entries const entries = input.open();
  std::cout << "index\tidentifier\toffset\n";
  for (int i = 0; i < entries.size(); ++i)
    std::cout << i << '\t' << entries.identifier(i) << '\t' << entries.offset(i) << '\n';
  return 0;
}

int run_info(Input const& input, Choice const& choice, bool json) {
  Entries const entries = input.open();
  std::vector<int> chosen = choice.of(entries);
  Progress progress(static_cast<int>(chosen.size()), input.quiet);
  // Entries are summarised on the threads that read them and printed in order.
  ReadAhead reading(entries, std::move(chosen), input.reading(),
                    [json](int i, CrystalStructureDatabaseEntry const& entry) {
                      Summary const s = summarise(i, entry);
                      return json ? summary_json(s) + '\n' : summary_text(s);
                    });
  int done = 0;
  for (EntryRead read; reading.next(read);) {
    if (read.error) std::rethrow_exception(read.error);
    std::cout << read.output;
    progress.update(++done);
  }
  return 0;
}

// Saves the index beside the file, for later commands to open it without a pass over it.
int run_index(Input const& input) {
  Entries const entries = input.open();
  std::string const saved = entries.save_index();
  std::cout << saved << '\t' << entries.size() << " entries\n";
  return 0;
}

// The raw text of entries named by identifier, or by index when no entry has that name.
int run_get(Input const& input, std::vector<std::string> const& names) {
  Entries const entries = input.open();
  for (std::string const& name : names) {
    int i = entries.find(name);
    if (i < 0 && !name.empty() && name.size() < 10 &&
        name.find_first_not_of("0123456789") == std::string::npos) {
      i = std::stoi(name);
      if (i >= entries.size()) i = -1;
    }
    if (i < 0) throw io_error(entries.name() + ": no entry named '" + name + "'");
    std::cout << entries.text(i);
  }
  std::cout.flush();
  return 0;
}

// The file of entry `index` when each entry is written to its own file: OUT with the
// entry's index, padded to the width of the last one, before its extension
// (out.mol2 -> out_007.mol2).
std::string split_name(std::string const& out, int index, int count) {
  fs::path const path(out);
  std::string number = std::to_string(index);
  std::size_t const width = std::to_string(std::max(count - 1, 0)).size();
  if (number.size() < width) number.insert(0, width - number.size(), '0');
  fs::path named = path.parent_path() / (path.stem().string() + "_" + number);
  named += path.extension();
  return named.string();
}

struct ConvertOptions {
  std::string out;
  std::string to;
  bool v3000 = false;
  bool keep_going = false;
  bool split = false;
};

int run_convert(Input const& input, Choice const& choice, ConvertOptions const& c) {
  std::string const format = c.to.empty() ? format_of_extension(c.out) : canonical_format(c.to);
  if (!c.to.empty() && format.empty()) throw Usage("unknown output format '" + c.to + "'");
  if (format.empty()) {
    throw Usage(c.out == "-" ? "give --to when writing to standard output"
                             : "cannot tell the output format from '" + c.out + "': give --to");
  }
  if (c.split && c.out == "-") throw Usage("--split writes files: give a file name, not -");
  WriteOptions options =
      input.classic ? WriteOptions::classic_mode() : WriteOptions::standard_mode();
  options.v3000 = c.v3000;
  Entries const entries = input.open();
  std::vector<int> chosen = choice.of(entries);
  if (format == "res" && chosen.size() > 1 && !c.split) {
    throw Usage("a RES file holds one structure and " + input.file + " has " +
                std::to_string(chosen.size()) +
                " entries: choose one with --entry or --id, or give --split");
  }
  std::optional<EntryWriter> writer;
  if (!c.split) writer.emplace(c.out, format, options);
  Progress progress(static_cast<int>(chosen.size()), input.quiet);
  int const total = static_cast<int>(chosen.size());
  // Entries are read and written as text on several threads and put out in order, so the
  // output is the same whatever the number of threads.
  ReadAhead reading(entries, std::move(chosen), input.reading(),
                    [&format, &options](int, CrystalStructureDatabaseEntry const& entry) {
                      return entry_text(entry, format, options);
                    });
  int skipped = 0;
  int done = 0;
  for (EntryRead read; reading.next(read);) {
    if (read.error) {
      try {
        std::rethrow_exception(read.error);
      } catch (database_error const& error) {
        if (!c.keep_going) throw;
        std::cerr << "kora: skipped " << error.what() << '\n';
        ++skipped;
        progress.update(++done);
        continue;
      }
    }
    if (c.split) {
      EntryWriter one(split_name(c.out, read.index, entries.size()), format, options);
      one.write_text(read.output);
      one.close();
    } else {
      writer->write_text(read.output);
    }
    progress.update(++done);
  }
  if (writer) writer->close();
  if (skipped > 0) {
    std::cerr << "kora: skipped " << skipped << " of " << total << " entries\n";
    return 3;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // A reader that goes away (`kora convert ... - | head`) ends the program quietly, as it
  // ends any program writing into a pipe.
  std::signal(SIGPIPE, SIG_DFL);
  CLI::App app{
      "kora: identify, list, summarise, extract and convert Mol2, MOL/SD, PDB and "
      "SHELX RES files"};
  app.require_subcommand(1);
  app.set_help_all_flag("--help-all", "Help for every command");
  app.set_version_flag("--version", std::string("kora ") + KORA_VERSION);

  app.add_subcommand("formats", "List the formats: name, extensions, writeable");

  std::vector<std::string> identify_files;
  auto* identify = app.add_subcommand("identify", "Name the format of each file (- for stdin)");
  identify->add_option("FILE", identify_files, "Files to identify")->required();

  Input input;
  Choice choice;
  ConvertOptions convert_options;
  bool json = false;
  std::vector<std::string> names;
  auto const add_input = [&](CLI::App* command, char const* what) {
    command->add_option("FILE", input.file, what)->required();
    command->add_option("--from", input.from,
                        "Input format: mol2, sdf (mol, sd, mdl), pdb (ent), res (ins)");
    command->add_flag("--short-ids", input.short_ids,
                      "Name SD records by their six-to-eight-character codes");
    command->add_flag("--classic", input.classic,
                      "Read (and write) as the library's format classes do by default, instead "
                      "of following each format's public conventions");
    command->add_flag("-q,--quiet", input.quiet, "No progress bar");
  };
  auto const add_jobs = [&](CLI::App* command) {
    command
        ->add_option("-j,--jobs", input.jobs,
                     "Threads reading the entries (default: one per core); the output is the "
                     "same whatever their number")
        ->check(CLI::NonNegativeNumber);
  };
  auto const add_choice = [&](CLI::App* command) {
    auto* by_index =
        command->add_option("--entry", choice.entry, "Only the entry with this index (from 0)");
    auto* by_id = command->add_option("--id", choice.id, "Only the entry with this identifier")
                      ->excludes(by_index);
    command
        ->add_flag("--nearest", choice.nearest,
                   "With --id: the entry of the nearest identifier when none is equal")
        ->needs(by_id);
  };

  auto* list = app.add_subcommand("list", "List the entries of a file: index, identifier, offset");
  add_input(list, "Input file, or - for standard input");
  list->add_option("-j,--jobs", input.jobs,
                   "Accepted as by info and convert; a list needs only the index, made in one "
                   "pass")
      ->check(CLI::NonNegativeNumber);

  auto* index = app.add_subcommand(
      "index",
      "Save the index of a file beside it (FILE.kora-index): later commands that open the "
      "file with the same options read it instead of indexing, while the file is unchanged");
  add_input(index, "Input file (the index saved is the one these options read it with)");

  auto* info = app.add_subcommand("info", "Summarise every entry (or one)");
  add_input(info, "Input file, or - for standard input");
  add_choice(info);
  add_jobs(info);
  info->add_flag("--json", json, "One JSON object per entry per line");

  auto* get = app.add_subcommand("get", "Print entries as the file holds them, byte for byte");
  add_input(get, "Input file, or - for standard input");
  get->add_option("ID", names, "Identifiers (or indexes, from 0) of the entries")->required();

  auto* convert = app.add_subcommand("convert", "Write the entries of a file in another format");
  add_input(convert, "Input file, or - for standard input");
  convert->add_option("OUT", convert_options.out, "Output file, or - for standard output")
      ->required();
  add_choice(convert);
  add_jobs(convert);
  convert->add_option("--to", convert_options.to, "Output format (default: from OUT's extension)");
  convert->add_flag("--v3000", convert_options.v3000, "Write V3000 MOL blocks");
  convert->add_flag("--keep-going", convert_options.keep_going, "Skip entries that cannot be read");
  convert->add_flag("--split", convert_options.split,
                    "One file per entry: OUT with the entry's index before its extension");

  try {
    app.parse(argc, argv);
  } catch (CLI::CallForHelp const& e) {
    return app.exit(e);
  } catch (CLI::CallForAllHelp const& e) {
    return app.exit(e);
  } catch (CLI::CallForVersion const& e) {
    return app.exit(e);
  } catch (CLI::ParseError const& e) {
    std::cerr << "kora: " << e.what() << "\nRun 'kora --help' for usage.\n";
    return 2;
  }

  try {
    if (app.got_subcommand("formats")) return run_formats();
    if (app.got_subcommand(identify)) return run_identify(identify_files);
    if (app.got_subcommand(list)) return run_list(input);
    if (app.got_subcommand(index)) return run_index(input);
    if (app.got_subcommand(info)) return run_info(input, choice, json);
    if (app.got_subcommand(get)) return run_get(input, names);
    if (app.got_subcommand(convert)) return run_convert(input, choice, convert_options);
  } catch (Usage const& e) {
    std::cerr << "kora: " << e.what() << '\n';
    return 2;
  } catch (std::exception const& e) {
    std::cerr << "kora: " << e.what() << '\n';
    return 1;
  }
  return 2;
}
