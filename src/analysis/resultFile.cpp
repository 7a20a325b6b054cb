#include "analysis/resultFile.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <vector>

#include "support/parallel.h"

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

ResultWriter::ResultWriter(FILE* file) : file_(file) {
  if (file_ != nullptr) {
    buffer_.reserve(kBufferBytes);
  }
}

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
  // Lines are formatted in blocks on all threads and written in netlist order, a window
  // of blocks at a time so that the text held at once stays bounded.
  constexpr size_t kBlock = 2048;
  constexpr size_t kWindow = 64 * kBlock;
  std::vector<std::string> texts(kWindow / kBlock);
  for (size_t start = 0; start < instances.size(); start += kWindow) {
    const size_t end = std::min(instances.size(), start + kWindow);
    const size_t blocks = (end - start + kBlock - 1) / kBlock;
    support::parallelFor(blocks, 1, [&](size_t first, size_t last) {
      for (size_t b = first; b < last; ++b) {
        analysis::ResultWriter writer(nullptr);
        const size_t from = start + b * kBlock;
        for (size_t i = from; i < std::min(end, from + kBlock); ++i) {
          writer.add(instances[i]);
        }
        texts[b].assign(writer.buffered());
      }
    });
    for (size_t b = 0; b < blocks; ++b) {
      std::fwrite(texts[b].data(), 1, texts[b].size(), file);
    }
  }
  return 0;
}
