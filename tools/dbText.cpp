#include "dbText.h"

#include <cstring>

#include "support/text.h"

namespace kra2db {

namespace {

/// Fields may carry blanks and tabs around their text (not other white space).
std::string_view trimBlanks(std::string_view text) { return support::trim(text, " \t"); }

const char* const kIRNames[] = {"name", "rms", "avg", "peak", "tpeak", "min", "tmin"};
const char* const kEMNames[] = {"name", "rms", "avg", "peak", "tpeak", "avgPos", "term1", "term2"};

bool fieldCount(const std::vector<std::string_view>& fields, size_t want, const char* kind,
                std::string& error) {
  if (fields.size() == want) {
    return true;
  }
  error = "expected " + std::to_string(want) + " tab-separated fields for an " + kind +
          " record, found " + std::to_string(fields.size());
  return false;
}

bool realField(std::string_view text, const char* name, double& value, std::string& error) {
  if (parseReal(text, value)) {
    return true;
  }
  error =
      std::string("field ") + name + " is not a number: '" + std::string(text.substr(0, 64)) + "'";
  return false;
}

bool intField(std::string_view text, const char* name, int64_t& value, std::string& error) {
  if (parseInt64(text, value)) {
    return true;
  }
  error = std::string("field ") + name + " is not a 64-bit integer: '" +
          std::string(text.substr(0, 64)) + "'";
  return false;
}

}  // namespace

std::vector<std::string_view> splitTabs(std::string_view line) {
  std::vector<std::string_view> fields;
  size_t start = 0;
  for (;;) {
    const size_t tab = line.find('\t', start);
    if (tab == std::string_view::npos) {
      fields.push_back(line.substr(start));
      return fields;
    }
    fields.push_back(line.substr(start, tab - start));
    start = tab + 1;
  }
}

bool parseReal(std::string_view text, double& value) {
  // Infinity and NaN read (the dump writes them so); magnitudes beyond the double range do not.
  return support::parseDouble(trimBlanks(text), value, {.outOfRangeAsStrtod = false});
}

bool parseInt64(std::string_view text, int64_t& value) {
  return support::parseInteger(trimBlanks(text), value);
}

bool parseIRLine(std::string_view line, IRRecord& out, std::string& error) {
  const std::vector<std::string_view> fields = splitTabs(line);
  if (!fieldCount(fields, kIRFields, "IR", error)) {
    return false;
  }
  double* const targets[] = {&out.rms, &out.avg, &out.peak, &out.tpeak, &out.min, &out.tmin};
  for (size_t i = 1; i < kIRFields; ++i) {
    if (!realField(fields[i], kIRNames[i], *targets[i - 1], error)) {
      return false;
    }
  }
  out.name.assign(fields[0]);
  return true;
}

bool parseEMLine(std::string_view line, kraDB::kraDBEMNode& out, std::string& error) {
  const std::vector<std::string_view> fields = splitTabs(line);
  if (!fieldCount(fields, kEMFields, "EM", error)) {
    return false;
  }
  double* const targets[] = {&out.rms, &out.avg, &out.peak, &out.tpeak, &out.avgPos};
  for (size_t i = 1; i <= 5; ++i) {
    if (!realField(fields[i], kEMNames[i], *targets[i - 1], error)) {
      return false;
    }
  }
  if (!intField(fields[6], kEMNames[6], out.term1, error) ||
      !intField(fields[7], kEMNames[7], out.term2, error)) {
    return false;
  }
  out.name.assign(fields[0]);
  return true;
}

void appendReal(std::string& out, double value) {
  char text[64];
  const auto result = std::to_chars(text, text + sizeof text, value);
  out.append(text, result.ptr);
}

void appendIRLine(std::string& out, const IRRecord& record) {
  out += "IR\t";
  out += record.name;
  for (double value :
       {record.rms, record.avg, record.peak, record.tpeak, record.min, record.tmin}) {
    out += '\t';
    appendReal(out, value);
  }
  out += '\n';
}

void appendEMLine(std::string& out, const kraDB::kraDBEMNode& record) {
  out += "EM\t";
  out += record.name;
  for (double value : {record.rms, record.avg, record.peak, record.tpeak, record.avgPos}) {
    out += '\t';
    appendReal(out, value);
  }
  for (int64_t value : {record.term1, record.term2}) {
    out += '\t';
    out += std::to_string(value);
  }
  out += '\n';
}

void LineReader::Closer::operator()(std::FILE* file) const {
  if (file != stdin) {
    std::fclose(file);
  }
}

bool LineReader::open(const std::string& path) {
  file_.reset(path == "-" ? stdin : std::fopen(path.c_str(), "rb"));
  buffer_.assign(kMaxLine + 1, '\0');
  begin_ = end_ = 0;
  eof_ = tooLong_ = readError_ = false;
  lineNumber_ = 0;
  return file_ != nullptr;
}

bool LineReader::next(std::string_view& line) {
  if (!file_ || tooLong_) {
    return false;
  }
  size_t scanFrom = begin_;
  for (;;) {
    const char* found =
        static_cast<const char*>(std::memchr(buffer_.data() + scanFrom, '\n', end_ - scanFrom));
    if (found != nullptr || (eof_ && end_ > begin_)) {
      const size_t stop = found != nullptr ? static_cast<size_t>(found - buffer_.data()) : end_;
      size_t length = stop - begin_;
      if (length > kMaxLine) {
        tooLong_ = true;
        return false;
      }
      if (length > 0 && buffer_[begin_ + length - 1] == '\r') {
        --length;
      }
      line = std::string_view(buffer_.data() + begin_, length);
      begin_ = found != nullptr ? stop + 1 : end_;
      ++lineNumber_;
      return true;
    }
    if (eof_) {
      return false;
    }
    if (end_ - begin_ > kMaxLine) {
      tooLong_ = true;
      ++lineNumber_;
      return false;
    }
    // Move the partial line to the front and read more behind it.
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    scanFrom = end_;
    const size_t got = std::fread(buffer_.data() + end_, 1, buffer_.size() - end_, file_.get());
    if (got == 0) {
      eof_ = true;
      readError_ = std::ferror(file_.get()) != 0;
    }
    end_ += got;
  }
}

}  // namespace kra2db
