#pragma once

/// \file
/// Text and stream functions used by every reader and writer. All of them are ASCII-only and
/// locale-independent: structure files are ASCII, and results must not change with the
/// user's locale.

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace kora {

/// Reads one line into `line` (without its terminator), whatever the line end: LF, CR LF or
/// a lone CR. A CR LF pair is one line end. Stream states follow std::getline:
/// - a line ended by a terminator leaves the stream good;
/// - a last line without a terminator is returned and the stream reports end-of-file;
/// - when the stream is already at its end (nothing left to extract) the line is empty and
///   the stream reports end-of-file and failure, so `while (kora::getline(is, line))` visits
///   every line once.
/// The line buffer's capacity is reused; the stream buffer is scanned in chunks.
std::istream& getline(std::istream& is, std::string& line);

/// Removes the characters of `set` from both ends of `text`.
std::string trim(std::string_view text, std::string_view set = " \t");
/// The same operation; its default set also removes line-end characters.
std::string strip(std::string_view text, std::string_view set = " \t\r\n");
/// trim without a copy: a view into `text`.
std::string_view trim_view(std::string_view text, std::string_view set = " \t") noexcept;

/// The first n characters of `text` (all of it when shorter; nothing when n <= 0).
std::string truncate(std::string_view text, int n);

/// Pads `text` on the right with `pad` to `width` characters; never cuts.
std::string left_justify(std::string_view text, int width, char pad = ' ');
/// Pads `text` on the right with `pad` to at least `min` characters and cuts it at `max`.
std::string left_justify(std::string_view text, int min, int max, char pad = ' ');
/// Pads `text` on the left with `pad` to `width` characters; never cuts.
std::string right_justify(std::string_view text, int width, char pad = ' ');

struct StringFunctionParameters {
  enum BlankFieldControl {
    remove_blank_fields = 0,  ///< a run of separators yields no empty field
    keep_blank_fields = 1     ///< every separator ends a field, so fields may be empty
  };
};

/// Splits `text` at any of the `separators` into `fields` (which is cleared first) and
/// returns the number of fields.
int split(std::string_view text, std::vector<std::string>& fields, std::string_view separators,
          StringFunctionParameters::BlankFieldControl control =
              StringFunctionParameters::remove_blank_fields);
/// The same into views of `text`, for hot paths that must not allocate per field.
int split(std::string_view text, std::vector<std::string_view>& fields, std::string_view separators,
          StringFunctionParameters::BlankFieldControl control =
              StringFunctionParameters::remove_blank_fields);

/// Converts the whole text to a number. Blanks and tabs around the number are allowed; an
/// optional sign, then digits (and for doubles a decimal point and an exponent) must make up
/// everything else. Text that is empty, only blanks, partly a number ("12abc"), out of range,
/// or not finite ("inf", "nan") is not a number: the result is 0 and ok is false. A null
/// pointer means that no report is wanted.
int string_to_int(std::string_view text, bool& ok);
int string_to_int(std::string_view text, bool* ok);
double string_to_double(std::string_view text, bool& ok);
double string_to_double(std::string_view text, bool* ok);

/// Decimal text of a number.
std::string int_to_string(int value);

/// Upper-case copy (ASCII letters only).
std::string toupper(std::string_view text);
/// Rewrites a symbol in element case in place: first letter upper case, the rest lower case
/// ("CA" becomes "Ca", "cl" becomes "Cl").
void lower_element_case(std::string& symbol);

}  // namespace kora
