// kora: identify, list, summarise and convert Mol2, MOL/SD, PDB and SHELX RES files.
//
// Exit status: 0 success; 1 a file could not be read or written (or is of no known
// format); 2 a usage error; 3 convert --keep-going skipped entries.

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kora/formats.hpp"
#include "output.hpp"
#include "sources.hpp"
#include "summary.hpp"

namespace {

using namespace kora;
using namespace kora::cli;
namespace fs = std::filesystem;

// A usage error (exit status 2).
struct Usage : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Progress on standard error for long runs: only on a terminal and for inputs of several MB.
class Progress {
 public:
  Progress(std::string const& file_name, int total) : total_(total) {
    std::error_code ec;
    auto const size = fs::file_size(file_name, ec);
    bytes_ = ec ? 0 : static_cast<double>(size);
    shown_ = isatty(STDERR_FILENO) && bytes_ > 4e6 && total > 1;
    start_ = std::chrono::steady_clock::now();
  }
  ~Progress() {
    if (drawn_) std::cerr << '\n';
  }
  void update(int done) {
    if (!shown_) return;
    auto const now = std::chrono::steady_clock::now();
    if (done < total_ && now - last_ < std::chrono::milliseconds(100)) return;
    last_ = now;
    double const seconds = std::chrono::duration<double>(now - start_).count();
    double const fraction = total_ > 0 ? double(done) / total_ : 1.0;
    double const rate = seconds > 0 ? fraction * bytes_ / 1e6 / seconds : 0.0;
    double const left = fraction > 0 ? seconds * (1.0 - fraction) / fraction : 0.0;
    int const width = 30;
    int const filled = static_cast<int>(fraction * width);
    char line[160];
    std::snprintf(line, sizeof line, "\r[%s%s] %d/%d entries, %.1f MB/s, %d:%02d left ",
                  std::string(static_cast<std::size_t>(filled), '=').c_str(),
                  std::string(static_cast<std::size_t>(width - filled), ' ').c_str(), done, total_,
                  rate, static_cast<int>(left) / 60, static_cast<int>(left) % 60);
    std::cerr << line << std::flush;
    drawn_ = true;
  }

 private:
  int total_;
  double bytes_ = 0;
  bool shown_ = false;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point last_;
};

// The entries a command works on: all, or the one chosen by --entry or --id.
std::vector<int> chosen_entries(Source const& source, std::optional<int> entry,
                                std::string const& id) {
  if (entry) {
    if (*entry < 0 || *entry >= source.size()) {
      throw Failure(source.file_name() + ": no entry " + std::to_string(*entry) + " (it has " +
                    std::to_string(source.size()) + ")");
    }
    return {*entry};
  }
  if (!id.empty()) {
    int const i = source.find(id);
    if (i < 0) throw Failure(source.file_name() + ": no entry named '" + id + "'");
    return {i};
  }
  std::vector<int> all(static_cast<std::size_t>(source.size()));
  for (int i = 0; i < source.size(); ++i)
    all[static_cast<std::size_t>(i)] = i;
  return all;
}

int run_formats() {
  for (THandle<FileFormat> const& format : file_formats()) {
    std::vector<std::string> const extensions = extensions_of(*format);
    std::string joined;
    for (std::string const& e : extensions)
      joined += (joined.empty() ? "" : ",") + e;
    std::cout << format->name() << '\t' << joined << '\t'
              << (format->writeable() ? "writeable" : "read-only") << '\n';
  }
  return 0;
}

int run_identify(std::vector<std::string> const& files) {
  int status = 0;
  for (std::string const& file : files) {
    std::error_code ec;
    THandle<FileFormat> format;
    if (fs::is_regular_file(file, ec)) format = identify_file(file);
    std::cout << file << '\t' << (format ? format->name() : "unknown") << '\n';
    if (!format) status = 1;
  }
  return status;
}

// Standard reading unless --classic.
ReadOptions read_options(bool classic) {
  return classic ? ReadOptions::classic_mode() : ReadOptions::standard_mode();
}

int run_list(std::string const& file, std::string const& from, bool short_ids, bool classic) {
  Source const source(file, from, short_ids, read_options(classic));
  std::cout << "index\tidentifier\toffset\n";
  for (int i = 0; i < source.size(); ++i) {
    std::cout << i << '\t' << source.identifier(i) << '\t' << source.offset(i) << '\n';
  }
  return 0;
}

int run_info(std::string const& file, std::string const& from, bool short_ids,
             std::optional<int> entry, std::string const& id, bool json, bool classic) {
  Source const source(file, from, short_ids, read_options(classic));
  std::vector<int> const entries = chosen_entries(source, entry, id);
  Progress progress(file, static_cast<int>(entries.size()));
  int done = 0;
  for (int i : entries) {
    THandle<CrystalStructureDatabaseEntry> e;
    try {
      e = source.entry(i);
    } catch (std::exception const& error) {
      throw Failure(file + ": entry " + std::to_string(i) + " (" + source.identifier(i).str() +
                    "): " + error.what());
    }
    Summary const s = summarise(i, *e);
    if (json) {
      std::cout << summary_json(s) << '\n';
    } else {
      std::cout << summary_text(s);
    }
    progress.update(++done);
  }
  return 0;
}

int run_convert(std::string const& in, std::string const& out, std::string const& from,
                std::string const& to, bool short_ids, std::optional<int> entry,
                std::string const& id, WriteOptions const& options, bool keep_going) {
  std::string format = to.empty() ? format_of_extension(out) : canonical_format(to);
  if (!to.empty() && format.empty()) throw Usage("unknown output format '" + to + "'");
  if (format.empty()) {
    throw Usage(out == "-" ? "give --to when writing to standard output"
                           : "cannot tell the output format from '" + out + "': give --to");
  }
  Source const source(in, from, short_ids, read_options(options.mode == Mode::classic));
  std::vector<int> const entries = chosen_entries(source, entry, id);
  if (format == "res" && entries.size() > 1) {
    throw Usage("a RES file holds one structure and " + in + " has " +
                std::to_string(entries.size()) + " entries: choose one with --entry or --id");
  }
  std::unique_ptr<MoleculeFile> writer = make_file_object(format);
  Output output(out);
  Progress progress(in, static_cast<int>(entries.size()));
  int skipped = 0;
  int done = 0;
  for (int i : entries) {
    try {
      THandle<CrystalStructureDatabaseEntry> const e = source.entry(i);
      write_entry(*writer, *e, options, output.stream());
    } catch (std::exception const& error) {
      std::string const message = in + ": entry " + std::to_string(i) + " (" +
                                  source.identifier(i).str() + "): " + error.what();
      if (!keep_going) throw Failure(message);
      std::cerr << "kora: skipped " << message << '\n';
      ++skipped;
    }
    output.check();
    progress.update(++done);
  }
  output.commit();
  if (skipped > 0) {
    std::cerr << "kora: skipped " << skipped << " of " << entries.size() << " entries\n";
    return 3;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is a write error to report, not a signal
  CLI::App app{"kora: identify, list, summarise and convert Mol2, MOL/SD, PDB and SHELX RES files"};
  app.require_subcommand(1);
  app.set_help_all_flag("--help-all", "Help for every command");

  app.add_subcommand("formats", "List the formats: name, extensions, writeable");

  std::vector<std::string> identify_files;
  auto* identify = app.add_subcommand("identify", "Name the format of each file");
  identify->add_option("FILE", identify_files, "Files to identify")->required();

  std::string file, out, from, to, id;
  std::optional<int> entry;
  bool short_ids = false, json = false, v3000 = false, keep_going = false, classic = false;
  auto const add_input = [&](CLI::App* command) {
    command->add_option("--from", from, "Input format: mol2, sdf (mol, sd, mdl), pdb (ent), res");
    command->add_flag("--short-ids", short_ids,
                      "Name SD records by their six-to-eight-character codes");
    command->add_flag("--classic", classic,
                      "Read (and write) as the library's format classes do by default, instead "
                      "of following each format's public conventions");
  };
  auto const add_choice = [&](CLI::App* command) {
    auto* by_index =
        command->add_option("--entry", entry, "Only the entry with this index (from 0)");
    command->add_option("--id", id, "Only the entry with this identifier")->excludes(by_index);
  };

  auto* list = app.add_subcommand("list", "List the entries of a file: index, identifier, offset");
  list->add_option("FILE", file, "Input file")->required();
  add_input(list);

  auto* info = app.add_subcommand("info", "Summarise every entry (or one)");
  info->add_option("FILE", file, "Input file")->required();
  add_input(info);
  add_choice(info);
  info->add_flag("--json", json, "One JSON object per entry per line");

  auto* convert = app.add_subcommand("convert", "Write the entries of a file in another format");
  convert->add_option("IN", file, "Input file")->required();
  convert->add_option("OUT", out, "Output file, or - for standard output")->required();
  add_input(convert);
  add_choice(convert);
  convert->add_option("--to", to, "Output format (default: from OUT's extension)");
  convert->add_flag("--v3000", v3000, "Write V3000 MOL blocks");

  convert->add_flag("--keep-going", keep_going, "Skip entries that cannot be read");

  try {
    app.parse(argc, argv);
  } catch (CLI::CallForHelp const& e) {
    return app.exit(e);
  } catch (CLI::CallForAllHelp const& e) {
    return app.exit(e);
  } catch (CLI::ParseError const& e) {
    std::cerr << "kora: " << e.what() << "\nRun 'kora --help' for usage.\n";
    return 2;
  }

  try {
    if (app.got_subcommand("formats")) return run_formats();
    if (app.got_subcommand(identify)) return run_identify(identify_files);
    if (app.got_subcommand(list)) return run_list(file, from, short_ids, classic);
    if (app.got_subcommand(info)) return run_info(file, from, short_ids, entry, id, json, classic);
    if (app.got_subcommand(convert)) {
      WriteOptions options = classic ? WriteOptions::classic_mode() : WriteOptions::standard_mode();
      options.v3000 = v3000;
      return run_convert(file, out, from, to, short_ids, entry, id, options, keep_going);
    }
  } catch (Usage const& e) {
    std::cerr << "kora: " << e.what() << '\n';
    return 2;
  } catch (std::exception const& e) {
    std::cerr << "kora: " << e.what() << '\n';
    return 1;
  }
  return 2;
}
