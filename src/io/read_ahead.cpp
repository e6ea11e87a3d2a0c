// Entries read on several threads and handed on in order.
//
// Threads take the next entry in turn, within a window of entries not yet handed on; each
// takes the entry's bytes from the input under a lock (a copy at memory speed, or inflating
// from a checkpoint) and parses them with its own file object, then runs the caller's work.
// The caller waits for the entries in order. Nothing is shared between threads but the input
// and the window.

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "kora/framework/flat_file_database.hpp"
#include "kora/io.hpp"

namespace kora {

class ReadAhead::State {
 public:
  State(Entries const& entries, std::vector<int> indices, ReadAheadOptions const& options,
        Work work)
      : entries_(entries),
        indices_(std::move(indices)),
        work_(std::move(work)),
        keep_entries_(options.keep_entries) {
    int threads = options.threads > 0 ? options.threads : hardware_threads();
    cut_batches_();
    // More threads than batches would only wait.
    threads_ = static_cast<int>(std::min<std::size_t>(static_cast<std::size_t>(threads),
                                                      std::max<std::size_t>(batches(), 1)));
    // The window in batches: enough for the entries asked for, and at least one per thread.
    std::size_t const window = options.window > 0
                                   ? static_cast<std::size_t>(options.window)
                                   : 4 * maximum_batch * static_cast<std::size_t>(threads_);
    window_ = std::max(static_cast<std::size_t>(threads_),
                       (window + average_batch_ - 1) / std::max<std::size_t>(average_batch_, 1));
    // One file object per thread, kept from entry to entry as a database keeps its own.
    for (int t = 0; t < threads_; ++t) {
      files_.push_back(make_file_object(entries_.format()));
      files_.back()->set_read_options(entries_.read_);
    }
    if (threads_ == 1) return;
    workers_.reserve(static_cast<std::size_t>(threads_));
    try {
      for (int t = 0; t < threads_; ++t)
        workers_.emplace_back([this, t] { run_(*files_[static_cast<std::size_t>(t)]); });
    } catch (...) {
      stop_();
      throw;
    }
  }
  State(State const&) = delete;
  State& operator=(State const&) = delete;
  ~State() { stop_(); }

  int threads() const { return threads_; }

  bool next(EntryRead& read) {
    if (handed_ == indices_.size()) return false;
    if (workers_.empty()) {
      read = read_one_(indices_[handed_++], std::string(), false, *files_.front());
      return true;
    }
    if (current_.empty() || taken_in_batch_ == current_.size()) next_batch_();
    read = std::move(current_[taken_in_batch_++]);
    ++handed_;
    return true;
  }

 private:
  // Entries are handed to threads in batches of consecutive requests, of about `batch_bytes`
  // of text or `maximum_batch` entries, so that the cost of passing work between threads is
  // paid per batch, not per small entry.
  static constexpr std::size_t batch_bytes = std::size_t(1) << 18;
  static constexpr std::size_t maximum_batch = 64;

  std::size_t batches() const { return starts_.size() - 1; }

  void cut_batches_() {
    starts_.push_back(0);
    auto const index = handle_dynamic_cast<FlatFileDatabaseIndex>(entries_.database_);
    int const size = entries_.size();
    std::size_t bytes = 0;
    for (std::size_t k = 0; k < indices_.size(); ++k) {
      int const i = indices_[k];
      // An entry's length as the index tells it: up to the next entry's start.
      if (index && !entries_.whole_file_ && i >= 0 && i + 1 < size) {
        bytes += static_cast<std::size_t>(
            std::max<std::streamoff>(index->position(i + 1) - index->position(i), 0));
      }
      if (bytes >= batch_bytes || k + 1 - starts_.back() == maximum_batch) {
        starts_.push_back(k + 1);
        bytes = 0;
      }
    }
    if (starts_.back() != indices_.size()) starts_.push_back(indices_.size());
    average_batch_ = batches() > 0 ? indices_.size() / batches() : 1;
  }

  // Entry i read from `text` (or from the input when `have_text` is false) and worked on;
  // failures kept for the caller.
  EntryRead read_one_(int i, std::string&& text, bool have_text, MoleculeFile& file) {
    EntryRead read;
    read.index = i;
    try {
      if (entries_.whole_file_) {
        read.entry = entries_.whole_file_;
      } else {
        if (!have_text) text = text_of_(i);
        read.entry = entries_.entry_from_text_(i, std::move(text), file);
      }
      if (work_) read.output = work_(i, *read.entry);
      if (!keep_entries_) read.entry = {};
    } catch (...) {
      read.error = std::current_exception();
    }
    return read;
  }

  std::string text_of_(int i) const {
    try {
      return entries_.text(i);
    } catch (std::exception const& e) {
      throw entries_.entry_failure_(i, e.what());
    }
  }

  void run_(MoleculeFile& file) {
    std::vector<std::string> texts;
    std::vector<std::exception_ptr> failures;
    for (;;) {
      std::size_t b = 0;
      {
        std::unique_lock lock(state_);
        space_.wait(lock, [this] {
          return stopping_ || claimed_ == batches() || claimed_ < handed_batches_ + window_;
        });
        if (stopping_ || claimed_ == batches()) return;
        b = claimed_++;
        done_.resize(claimed_ - handed_batches_);
      }
      std::size_t const begin = starts_[b];
      std::size_t const count = starts_[b + 1] - begin;
      texts.assign(count, std::string());
      failures.assign(count, nullptr);
      if (!entries_.whole_file_) {
        // The batch's bytes in one turn at the input, so that the other threads parse.
        std::scoped_lock const lock(input_);
        for (std::size_t k = 0; k < count; ++k) {
          try {
            texts[k] = text_of_(indices_[begin + k]);
          } catch (...) {
            failures[k] = std::current_exception();
          }
        }
      }
      std::vector<EntryRead> reads(count);
      for (std::size_t k = 0; k < count; ++k) {
        if (failures[k]) {
          reads[k].index = indices_[begin + k];
          reads[k].error = failures[k];
        } else {
          reads[k] = read_one_(indices_[begin + k], std::move(texts[k]), true, file);
        }
      }
      bool front = false;
      {
        std::scoped_lock const lock(state_);
        done_[b - handed_batches_] = std::move(reads);
        front = b == handed_batches_;
      }
      if (front) ready_.notify_one();
    }
  }

  // The next batch in order, once a thread has read it.
  void next_batch_() {
    std::unique_lock lock(state_);
    if (!current_.empty()) {
      // The batch handed on leaves the window: a thread may take another.
      done_.pop_front();
      ++handed_batches_;
      space_.notify_all();
    }
    ready_.wait(lock, [this] { return !done_.empty() && done_.front().has_value(); });
    current_ = std::move(*done_.front());
    taken_in_batch_ = 0;
  }

  void stop_() {
    {
      std::scoped_lock const lock(state_);
      stopping_ = true;
    }
    space_.notify_all();
    for (std::thread& worker : workers_)
      worker.join();
    workers_.clear();
  }

  Entries const& entries_;
  std::vector<int> indices_;
  Work work_;
  bool keep_entries_;
  std::vector<std::size_t> starts_;  // batch b holds requests starts_[b] to starts_[b + 1] - 1
  std::size_t average_batch_ = 1;
  int threads_ = 1;
  std::size_t window_ = 16;                           // in batches
  std::vector<std::unique_ptr<MoleculeFile>> files_;  // one per thread

  std::mutex input_;  // threads take the bytes of their batches in turn
  std::mutex state_;
  std::condition_variable space_;   // a batch left the window, or reading stops
  std::condition_variable ready_;   // the batch at the front of the window was read
  std::size_t claimed_ = 0;         // batches taken by a thread
  std::size_t handed_batches_ = 0;  // batches whose entries the caller has taken
  std::deque<std::optional<std::vector<EntryRead>>> done_;  // batches handed_batches_, ...
  bool stopping_ = false;
  std::vector<std::thread> workers_;

  // The caller's side.
  std::size_t handed_ = 0;  // entries handed on
  std::vector<EntryRead> current_;
  std::size_t taken_in_batch_ = 0;
};

ReadAhead::ReadAhead(Entries const& entries, std::vector<int> indices,
                     ReadAheadOptions const& options, Work work)
    : state_(std::make_unique<State>(entries, std::move(indices), options, std::move(work))) {}

ReadAhead::~ReadAhead() = default;

bool ReadAhead::next(EntryRead& read) {
  return state_->next(read);
}

int ReadAhead::threads() const {
  return state_->threads();
}

int ReadAhead::hardware_threads() {
  return static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
}

}  // namespace kora
