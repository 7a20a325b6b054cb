#include "analysis/resultFile.h"

#include <charconv>
#include <cstdio>

namespace analysis {

namespace {

constexpr size_t kBufferBytes = size_t{1} << 20;

/// Fields 4 to 15 of the line of an instance that was not analysed. Readers rely on these
/// placeholders, the 1e99 sentinel printed in fixed notation included.
const std::string& invalidTail() {
  static const std::string tail = [] {
    char text[512];
    std::snprintf(text, sizeof text, "\t%s\t%s\t%s\t%s\t%f\t%s\t%s\t%s\t%d\t%f\t%s\t%s\n", "NaN",
                  "NaN", "NaN", "NaN", 1.0, "NaN", "NaN", "NaN", -1, 1e99, "NaN", "NaN");
    return std::string(text);
  }();
  return tail;
}

}  // namespace

ResultWriter::ResultWriter(FILE* file) : file_(file) { buffer_.reserve(kBufferBytes); }

ResultWriter::~ResultWriter() { flush(); }

void ResultWriter::flush() {
  if (file_ != nullptr && !buffer_.empty()) {
    std::fwrite(buffer_.data(), 1, buffer_.size(), file_);
  }
  buffer_.clear();
}

void ResultWriter::addNumber(double value) {
  // Same text as printf's "%.20g".
  char text[64];
  const auto result =
      std::to_chars(text, text + sizeof text, value, std::chars_format::general, 20);
  buffer_.push_back('\t');
  buffer_.append(text, result.ptr);
}

void ResultWriter::addInteger(int value) {
  char text[16];
  const auto result = std::to_chars(text, text + sizeof text, value);
  buffer_.push_back('\t');
  buffer_.append(text, result.ptr);
}

void ResultWriter::add(const zeInstance& instance) {
  buffer_.append(instance.name);
  buffer_.push_back('\t');
  buffer_.append(instance.node1);
  buffer_.push_back('\t');
  buffer_.append(instance.node2);
  if (!instance.valid) {
    buffer_.append(invalidTail());
  } else {
    const voltageData& data = instance.data;
    addNumber(data.peak);
    addNumber(data.avg);
    addNumber(data.rms);
    addNumber(data.peakTime);
    addNumber(data.dutyRatio);
    addNumber(data.absAvg);
    addNumber(data.avgPositive);
    addNumber(data.avgNegative);
    addInteger(instance.direction);
    // Seconds to microseconds.
    addNumber(data.pulseWidth * 1000000.0);
    addNumber(data.peakValue);
    addNumber(data.rawAvg);
    buffer_.push_back('\n');
  }
  if (file_ != nullptr && buffer_.size() >= kBufferBytes - 1024) {
    flush();
  }
}

std::string resultLine(const zeInstance& instance) {
  ResultWriter writer(nullptr);
  writer.add(instance);
  return writer.buffered();
}

}  // namespace analysis

int zeNetlist::saveResults(FILE* file) const {
  if (file == nullptr || instances.empty()) {
    return 0;
  }
  analysis::ResultWriter writer(file);
  for (const zeInstance& instance : instances) {
    writer.add(instance);
  }
  writer.flush();
  return 0;
}
