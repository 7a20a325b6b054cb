#pragma once
// The result file of saveResult: one tab-separated line per instance.

#include <cstdio>
#include <string>

#include "analysis/netlist.h"

namespace analysis {

/// Collects result lines in one large buffer and writes it to the file in big blocks; the
/// buffer is reused, so no line allocates. A null file keeps everything in the buffer.
class ResultWriter {
 public:
  explicit ResultWriter(FILE* file);
  ~ResultWriter();
  ResultWriter(const ResultWriter&) = delete;
  ResultWriter& operator=(const ResultWriter&) = delete;

  /// Appends the line of one instance: its statistics when valid, else the placeholders.
  void add(const zeInstance& instance);
  /// Writes what is buffered.
  void flush();
  /// The text not yet written; a writer without a file keeps every line here.
  const std::string& buffered() const { return buffer_; }

 private:
  void addNumber(double value);
  void addInteger(int value);
  FILE* file_;
  std::string buffer_;
};

/// The line of an instance, as saveResult writes it (for tests and tools).
std::string resultLine(const zeInstance& instance);

}  // namespace analysis
