#pragma once
// PSF ASCII files: the text form of the Parameter Storage Format. A file is a HEADER of
// name/value pairs, then optionally TYPE (type definitions, including STRUCT records), SWEEP
// (the swept variable), TRACE (what each point holds) and VALUE (the data), and END. Line
// breaks mean nothing; the parser reads tokens. A swept file gives one waveform per trace over
// the sweep variable, a file without SWEEP one scalar per entry; a record (STRUCT) entry NAME
// of type T gives one quantity per numeric field f, named "NAME:f", whose type name is T.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace simdata::psf {

/// Error code the PSF reader leaves behind when a file cannot be read.
inline constexpr uint16_t kPsfErrorCode = 31;

/// One HEADER entry: a text or a number.
struct HeaderItem {
  std::string name;
  std::string text;  ///< the string value, or the number as written
  double number = 0.0;
  bool isNumber = false;
};

/// One numeric quantity of a file: a trace, or a numeric field of a record trace, of a swept
/// file; a numeric entry, or a numeric field of a record entry, of a file without a sweep.
struct Quantity {
  std::string name;      ///< "out", "I48.LOGIC_OUT<3>", "R1:pwr" (escapes removed)
  std::string written;   ///< the same as written in the file (escapes kept)
  std::string typeName;  ///< "V", "I", "resistor", "vsource", ...
  std::string units;     ///< from the PROP of the trace, the field or the type; may be empty
  bool complex = false;  ///< values are complex; only the real parts are kept
  size_t column = 0;     ///< swept files: the index of the values in `columns`
  double scalar = 0.0;   ///< files without a sweep: the value (its real part)
};

/// The text fields of a record entry of a file without a sweep (index files describe their
/// datasets this way: analysisType, dataFile, ...). Lists are left out.
struct Record {
  std::string name;
  std::string typeName;
  std::vector<std::pair<std::string, std::string>> texts;
  /// The text of a field, or null.
  const std::string* text(std::string_view field) const;
};

struct PsfData {
  std::vector<HeaderItem> header;
  bool swept = false;
  std::string sweepName;
  std::string sweepWritten;
  std::string sweepTypeName;
  std::string sweepUnits;
  /// Swept files: the sweep values and one column per column index, each as long as they.
  std::vector<double> sweepValues;
  std::vector<std::vector<double>> columns;
  std::vector<Quantity> quantities;
  std::vector<Record> records;

  const HeaderItem* findHeader(std::string_view name) const;
};

/// Parses a whole PSF ASCII file held in `bytes`. On failure returns false and sets `error` to
/// a text naming `path` and the line of the fault.
bool parsePsf(std::string_view bytes, const std::string& path, PsfData& data, std::string& error);

/// Whether the bytes begin (after blanks) with the word HEADER, as every PSF ASCII file does.
bool startsLikePsfAscii(std::string_view head);

}  // namespace simdata::psf
