#include "simdata/psfFile.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <unordered_map>

#include "support/text.h"

namespace simdata::psf {

namespace {

/// Record types may nest, and so may their values; deeper nesting than this is refused, so
/// neither the type reader nor the value reader recurses without bound.
constexpr int kMaxNesting = 16;

using support::isBlank;

// Numbers are read as the writers print them: "%g"-like or "%.15e" forms, "778810.", ".1e-2",
// and the special values nan, NaN, inf and -inf (support::parseDouble).

std::string unescape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) {
      ++i;
    }
    out += text[i];
  }
  return out;
}

/// A short printable excerpt of file text for messages.
std::string excerpt(std::string_view text) {
  constexpr size_t kMax = 40;
  std::string out;
  for (size_t i = 0; i < text.size() && i < kMax; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    out += (c >= 0x20 && c < 0x7f) ? static_cast<char>(c) : '?';
  }
  if (text.size() > kMax) {
    out += "...";
  }
  return out;
}

struct ParseError : std::exception {
  ParseError(size_t at, std::string text) : offset(at), message(std::move(text)) {}
  const char* what() const noexcept override { return message.c_str(); }
  size_t offset;
  std::string message;
};

enum class TokenKind { kEnd, kString, kWord, kOpen, kClose, kStar };

struct Token {
  TokenKind kind = TokenKind::kEnd;
  size_t offset = 0;
  /// Words: the word; strings: the text between the quotes, escapes kept.
  std::string_view text;
};

std::string describe(const Token& token) {
  switch (token.kind) {
    case TokenKind::kEnd:
      return "the end of the file";
    case TokenKind::kString:
      return "\"" + excerpt(token.text) + "\"";
    case TokenKind::kOpen:
      return "'('";
    case TokenKind::kClose:
      return "')'";
    case TokenKind::kStar:
      return "'*'";
    case TokenKind::kWord:
      break;
  }
  return "'" + excerpt(token.text) + "'";
}

class Lexer {
 public:
  explicit Lexer(std::string_view bytes) : bytes_(bytes) {}

  const Token& peek() {
    if (!peeked_) {
      ahead_ = scan();
      peeked_ = true;
    }
    return ahead_;
  }

  Token next() {
    if (peeked_) {
      peeked_ = false;
      return ahead_;
    }
    return scan();
  }

  size_t position() const { return pos_; }

 private:
  static bool endsWord(char c) { return isBlank(c) || c == '(' || c == ')' || c == '"'; }

  Token scan() {
    while (pos_ < bytes_.size() && isBlank(bytes_[pos_])) {
      ++pos_;
    }
    Token token;
    token.offset = pos_;
    if (pos_ >= bytes_.size()) {
      return token;
    }
    const char c = bytes_[pos_];
    if (c == '"') {
      size_t i = pos_ + 1;
      while (i < bytes_.size() && bytes_[i] != '"') {
        i += bytes_[i] == '\\' ? 2 : 1;
      }
      if (i >= bytes_.size()) {
        throw ParseError(pos_, "a string that starts here is not closed");
      }
      token.kind = TokenKind::kString;
      token.text = bytes_.substr(pos_ + 1, i - pos_ - 1);
      pos_ = i + 1;
      return token;
    }
    if (c == '(' || c == ')' || c == '*') {
      token.kind = c == '(' ? TokenKind::kOpen : c == ')' ? TokenKind::kClose : TokenKind::kStar;
      token.text = bytes_.substr(pos_, 1);
      ++pos_;
      return token;
    }
    size_t i = pos_;
    while (i < bytes_.size() && !endsWord(bytes_[i])) {
      ++i;
    }
    token.kind = TokenKind::kWord;
    token.text = bytes_.substr(pos_, i - pos_);
    pos_ = i;
    return token;
  }

  std::string_view bytes_;
  size_t pos_ = 0;
  bool peeked_ = false;
  Token ahead_;
};

bool isWord(const Token& token, std::string_view word) {
  return token.kind == TokenKind::kWord && token.text == word;
}

/// What the values of a type look like.
enum class Category { kNone, kReal, kComplex, kText, kList, kRecord };

struct TypeDef {
  std::string name;
  Category category = Category::kNone;
  std::string units;
  std::vector<TypeDef> fields;  ///< records only
};

/// A trace of a swept file: where its values go.
struct Trace {
  std::string name;
  std::string written;
  const TypeDef* type = nullptr;
  /// The column of a real or complex trace, or the first column of a record trace's numeric
  /// fields (in field order, nested records flattened).
  size_t column = 0;
};

/// What a VALUE entry name of a swept file stands for: one trace, or a group of traces whose
/// values follow the name bare, in member order.
struct Slot {
  std::string_view written;
  std::vector<size_t> traces;
  bool group = false;
};

class Parser {
 public:
  Parser(std::string_view bytes, PsfData& data) : bytes_(bytes), lexer_(bytes), data_(data) {}

  void run() {
    const Token first = lexer_.next();
    if (!isWord(first, "HEADER")) {
      fail(first.offset,
           "not a PSF ASCII file: it does not start with HEADER (found " + describe(first) + ")");
    }
    parseHeader();
    if (isWord(lexer_.peek(), "TYPE")) {
      lexer_.next();
      parseTypes();
    }
    if (isWord(lexer_.peek(), "SWEEP")) {
      lexer_.next();
      parseSweep();
    }
    if (isWord(lexer_.peek(), "TRACE")) {
      lexer_.next();
      parseTraces();
    }
    if (isWord(lexer_.peek(), "VALUE")) {
      lexer_.next();
      if (data_.swept) {
        parseSweptValues();
      } else {
        parseValues();
      }
    }
    const Token end = lexer_.next();
    if (!isWord(end, "END")) {
      fail(end.offset,
           "expected a section (TYPE, SWEEP, TRACE, VALUE) or END, found " + describe(end));
    }
  }

  /// "line N: message" for an error at a byte offset.
  std::string locate(const ParseError& error) const {
    const size_t end = std::min(error.offset, bytes_.size());
    const size_t line =
        1 + static_cast<size_t>(std::count(bytes_.begin(), bytes_.begin() + end, '\n'));
    return "line " + std::to_string(line) + ": " + error.message;
  }

 private:
  [[noreturn]] static void fail(size_t at, std::string text) {
    throw ParseError(at, std::move(text));
  }

  Token expect(TokenKind kind, const char* what) {
    Token token = lexer_.next();
    if (token.kind != kind) {
      fail(token.offset, std::string("expected ") + what + ", found " + describe(token));
    }
    return token;
  }

  double readNumber(const char* what) {
    const Token token = lexer_.next();
    double value = 0.0;
    if (token.kind != TokenKind::kWord || !support::parseDouble(token.text, value)) {
      fail(token.offset, std::string("expected ") + what + ", found " + describe(token));
    }
    return value;
  }

  void parseHeader() {
    while (lexer_.peek().kind == TokenKind::kString) {
      HeaderItem item;
      item.name = unescape(lexer_.next().text);
      const Token value = lexer_.next();
      if (value.kind == TokenKind::kString) {
        item.text = unescape(value.text);
      } else if (value.kind == TokenKind::kWord && support::parseDouble(value.text, item.number)) {
        item.text = value.text;
        item.isNumber = true;
      } else {
        fail(value.offset, "expected the value of header entry \"" + excerpt(item.name) +
                               "\", found " + describe(value));
      }
      data_.header.push_back(std::move(item));
    }
  }

  /// Skips a parenthesised list whose '(' has been read, counting the depth instead of
  /// recursing.
  void skipList(size_t openedAt) {
    int depth = 1;
    while (depth > 0) {
      const Token token = lexer_.next();
      if (token.kind == TokenKind::kEnd) {
        fail(openedAt, "the list that opens here is not closed");
      }
      if (token.kind == TokenKind::kOpen) {
        if (++depth > kMaxNesting) {
          fail(token.offset, "lists nested deeper than " + std::to_string(kMaxNesting) + " levels");
        }
      } else if (token.kind == TokenKind::kClose) {
        --depth;
      }
    }
  }

  /// PROP( "name" value ... ): keeps the "units" text when asked for.
  void parseProp(std::string* units) {
    const Token open = expect(TokenKind::kOpen, "'(' after PROP");
    for (;;) {
      const Token name = lexer_.next();
      if (name.kind == TokenKind::kClose) {
        return;
      }
      if (name.kind != TokenKind::kString) {
        fail(name.offset, "expected a property name or ')', found " + describe(name));
      }
      const Token value = lexer_.next();
      double number = 0.0;
      if (value.kind == TokenKind::kString) {
        if (units != nullptr && name.text == "units") {
          *units = unescape(value.text);
        }
      } else if (value.kind == TokenKind::kOpen) {
        skipList(open.offset);
      } else if (value.kind != TokenKind::kWord || !support::parseDouble(value.text, number)) {
        fail(value.offset, "expected the value of property \"" + excerpt(name.text) + "\", found " +
                               describe(value));
      }
    }
  }

  void skipPropIfAny(std::string* units = nullptr) {
    if (isWord(lexer_.peek(), "PROP")) {
      lexer_.next();
      parseProp(units);
    }
  }

  TypeDef parseTypedef(int depth) {
    if (depth > kMaxNesting) {
      fail(lexer_.peek().offset,
           "record types nested deeper than " + std::to_string(kMaxNesting) + " levels");
    }
    const Token name = expect(TokenKind::kString, "a type name");
    TypeDef type;
    type.name = std::string(support::trimRight(unescape(name.text)));
    auto set = [&](Category category) {
      if (type.category == Category::kNone) {
        type.category = category;
      }
    };
    for (;;) {
      const Token& token = lexer_.peek();
      if (token.kind == TokenKind::kStar) {
        lexer_.next();
        continue;
      }
      if (token.kind != TokenKind::kWord) {
        break;
      }
      const std::string_view word = token.text;
      if (word == "FLOAT" || word == "DOUBLE" || word == "SINGLE" || word == "INT" ||
          word == "BYTE" || word == "LONG") {
        lexer_.next();
        set(Category::kReal);
      } else if (word == "COMPLEX") {
        lexer_.next();
        if (type.category == Category::kNone || type.category == Category::kReal) {
          type.category = Category::kComplex;
        }
      } else if (word == "STRING") {
        lexer_.next();
        set(Category::kText);
      } else if (word == "ARRAY") {
        lexer_.next();
        expect(TokenKind::kOpen, "'(' after ARRAY");
        expect(TokenKind::kStar, "'*' in ARRAY ( * )");
        expect(TokenKind::kClose, "')' in ARRAY ( * )");
        set(Category::kList);
      } else if (word == "STRUCT") {
        lexer_.next();
        expect(TokenKind::kOpen, "'(' after STRUCT");
        while (lexer_.peek().kind == TokenKind::kString) {
          type.fields.push_back(parseTypedef(depth + 1));
        }
        expect(TokenKind::kClose, "a field definition or ')' closing STRUCT");
        type.category = Category::kRecord;
      } else if (word == "PROP") {
        lexer_.next();
        parseProp(&type.units);
      } else {
        break;
      }
    }
    if (type.category == Category::kNone) {
      fail(name.offset, "type \"" + excerpt(type.name) +
                            "\" has no kind (FLOAT, COMPLEX, INT, STRING, ARRAY or STRUCT)");
    }
    return type;
  }

  void parseTypes() {
    while (lexer_.peek().kind == TokenKind::kString) {
      auto type = std::make_unique<TypeDef>(parseTypedef(0));
      const std::string key = type->name;
      types_[key] = type.get();
      ownedTypes_.push_back(std::move(type));
    }
  }

  const TypeDef* findType(const Token& name) const {
    const auto it = types_.find(std::string(support::trimRight(unescape(name.text))));
    if (it == types_.end()) {
      fail(name.offset, "type \"" + excerpt(name.text) + "\" is not defined in the TYPE section");
    }
    return it->second;
  }

  void parseSweep() {
    while (lexer_.peek().kind == TokenKind::kString) {
      const Token name = lexer_.next();
      if (data_.swept) {
        fail(name.offset, "a second sweep variable (\"" + excerpt(name.text) +
                              "\"): files swept over several variables are not read");
      }
      const Token typeName = expect(TokenKind::kString, "the type name of the sweep variable");
      data_.swept = true;
      data_.sweepName = unescape(name.text);
      data_.sweepWritten = name.text;
      data_.sweepTypeName = unescape(typeName.text);
      const auto type = types_.find(data_.sweepTypeName);
      if (type != types_.end()) {
        data_.sweepUnits = type->second->units;
      }
      skipPropIfAny(&data_.sweepUnits);
    }
  }

  /// Adds the quantities of the numeric fields of a record (nested records flattened, which
  /// the type reader has bounded in depth). Swept files get a column for each.
  void addFieldQuantities(const TypeDef& type, const std::string& prefix,
                          const std::string& writtenPrefix, const std::string& typeName,
                          bool withColumns) {
    for (const TypeDef& field : type.fields) {
      const std::string name = prefix + ":" + field.name;
      const std::string written = writtenPrefix + ":" + field.name;
      if (field.category == Category::kRecord) {
        addFieldQuantities(field, name, written, typeName, withColumns);
      } else if (field.category == Category::kReal || field.category == Category::kComplex) {
        data_.quantities.push_back(Quantity{name, written, typeName, field.units,
                                            field.category == Category::kComplex,
                                            withColumns ? data_.columns.size() : 0, 0.0});
        if (withColumns) {
          data_.columns.emplace_back();
        }
      }
    }
  }

  size_t addTrace(const Token& name, const TypeDef* type, const std::string& typeText) {
    Trace trace;
    trace.name = unescape(name.text);
    trace.written = name.text;
    trace.type = type;
    trace.column = data_.columns.size();
    std::string units = type->units;
    skipPropIfAny(&units);
    if (type->category == Category::kReal || type->category == Category::kComplex) {
      data_.quantities.push_back(Quantity{trace.name, trace.written, typeText, units,
                                          type->category == Category::kComplex, trace.column, 0.0});
      data_.columns.emplace_back();
    } else if (type->category == Category::kRecord) {
      addFieldQuantities(*type, trace.name, trace.written, typeText, true);
    }
    traces_.push_back(std::move(trace));
    return traces_.size() - 1;
  }

  size_t addTrace(const Token& name, const Token& typeName) {
    return addTrace(name, findType(typeName), unescape(typeName.text));
  }

  void parseTraces() {
    traceSection_ = true;
    while (lexer_.peek().kind == TokenKind::kString) {
      const Token name = lexer_.next();
      Slot slot;
      slot.written = name.text;
      if (isWord(lexer_.peek(), "GROUP")) {
        lexer_.next();
        const Token countToken = lexer_.next();
        double count = -1.0;
        if (countToken.kind != TokenKind::kWord || !support::parseDouble(countToken.text, count) ||
            !(count >= 0 && count <= 2147483647.0) || count != std::floor(count)) {
          fail(countToken.offset, "expected the member count of GROUP \"" + excerpt(name.text) +
                                      "\", found " + describe(countToken));
        }
        slot.group = true;
        // The members are read one by one, so a count larger than the file fails at its end
        // rather than reserving anything.
        for (long member = 0; member < static_cast<long>(count); ++member) {
          const Token memberName = lexer_.next();
          if (memberName.kind != TokenKind::kString) {
            fail(memberName.offset, "GROUP \"" + excerpt(name.text) + "\" announces " +
                                        std::to_string(static_cast<long>(count)) +
                                        " members but lists " + std::to_string(member));
          }
          const Token typeName = expect(TokenKind::kString, "the type name of a group member");
          slot.traces.push_back(addTrace(memberName, typeName));
        }
      } else {
        const Token typeName = expect(TokenKind::kString, "the type name of trace");
        slot.traces.push_back(addTrace(name, typeName));
      }
      slots_.push_back(std::move(slot));
    }
  }

  /// Reads one value of a type; numeric values go to `columns` from `column` on (swept files)
  /// or to `scalars` (files without a sweep).
  void readDatum(const TypeDef& type, size_t& column, std::vector<double>* scalars,
                 std::vector<std::pair<std::string, std::string>>* texts, const std::string& path,
                 int depth) {
    if (depth > kMaxNesting) {
      fail(lexer_.peek().offset,
           "values nested deeper than " + std::to_string(kMaxNesting) + " levels");
    }
    switch (type.category) {
      case Category::kReal:
      case Category::kComplex: {
        double real = 0.0;
        const Token token = lexer_.next();
        if (token.kind == TokenKind::kOpen) {
          real = readNumber("the real part of a complex value");
          readNumber("the imaginary part of a complex value");
          expect(TokenKind::kClose, "')' closing a complex value");
        } else if (token.kind != TokenKind::kWord || !support::parseDouble(token.text, real)) {
          fail(token.offset,
               "expected a number for \"" + excerpt(path) + "\", found " + describe(token));
        }
        if (scalars != nullptr) {
          scalars->push_back(real);
        } else {
          data_.columns[column].push_back(real);
        }
        ++column;
        return;
      }
      case Category::kText: {
        const Token token = expect(TokenKind::kString, "a string value");
        if (texts != nullptr) {
          texts->emplace_back(path, unescape(token.text));
        }
        return;
      }
      case Category::kList: {
        const Token open = expect(TokenKind::kOpen, "'(' opening a list value");
        skipList(open.offset);
        return;
      }
      case Category::kRecord: {
        const Token open = lexer_.next();
        if (open.kind != TokenKind::kOpen) {
          fail(open.offset, "expected '(' opening the fields of \"" + excerpt(path) + "\", found " +
                                describe(open));
        }
        for (const TypeDef& field : type.fields) {
          if (lexer_.peek().kind == TokenKind::kClose) {
            fail(lexer_.peek().offset, "the value of \"" + excerpt(path) +
                                           "\" has fewer than its " +
                                           std::to_string(type.fields.size()) + " fields");
          }
          readDatum(field, column, scalars, texts, field.name, depth + 1);
        }
        const Token close = lexer_.next();
        if (close.kind != TokenKind::kClose) {
          fail(close.offset, "the value of \"" + excerpt(path) + "\" has more than its " +
                                 std::to_string(type.fields.size()) + " fields");
        }
        return;
      }
      case Category::kNone:
        break;
    }
    fail(lexer_.peek().offset, "a value of a type without kind");
  }

  /// Every slot must have had its values in the point that ends here.
  void finishPoint(size_t point, size_t at) const {
    if (point == kNoPoint) {
      return;
    }
    for (size_t s = 0; s < slots_.size(); ++s) {
      if (seenAt_[s] != point) {
        char value[32];
        std::snprintf(value, sizeof value, "%g", data_.sweepValues[point]);
        fail(at, "point " + std::to_string(point) + " (" + excerpt(data_.sweepName) + " = " +
                     value + ") has no value for \"" + excerpt(slots_[s].written) + "\"");
      }
    }
  }

  void parseSweptValues() {
    std::unordered_map<std::string_view, size_t> bySlot;
    for (size_t s = 0; s < slots_.size(); ++s) {
      bySlot.emplace(slots_[s].written, s);
    }
    seenAt_.assign(slots_.size(), kNoPoint);
    size_t point = kNoPoint;
    size_t expected = 0;
    while (lexer_.peek().kind == TokenKind::kString) {
      const Token name = lexer_.next();
      if (name.text == data_.sweepWritten) {
        finishPoint(point, name.offset);
        data_.sweepValues.push_back(readNumber("the sweep value"));
        point = data_.sweepValues.size() - 1;
        expected = 0;
        skipPropIfAny();
        continue;
      }
      // Writers keep the TRACE order, so the next slot is nearly always the one expected.
      size_t s = expected;
      if (s >= slots_.size() || slots_[s].written != name.text) {
        const auto it = bySlot.find(name.text);
        if (it != bySlot.end()) {
          s = it->second;
        } else if (!traceSection_ && point == 0) {
          // Swept files without a TRACE section name their traces in the first point.
          s = addUndeclaredTrace(name);
          bySlot.emplace(name.text, s);
        } else {
          fail(name.offset, "\"" + excerpt(name.text) +
                                "\" is neither the sweep variable nor a "
                                "trace listed in TRACE");
        }
      }
      if (point == kNoPoint) {
        fail(name.offset,
             "the value of \"" + excerpt(name.text) + "\" comes before the first sweep value");
      }
      if (seenAt_[s] == point) {
        fail(name.offset,
             "\"" + excerpt(name.text) + "\" has two values in point " + std::to_string(point));
      }
      seenAt_[s] = point;
      expected = s + 1;
      for (size_t t : slots_[s].traces) {
        const Trace& trace = traces_[t];
        size_t column = trace.column;
        readDatum(*trace.type, column, nullptr, nullptr, trace.name, 0);
      }
      skipPropIfAny();
    }
    finishPoint(point, lexer_.peek().offset);
  }

  /// A trace first seen in the values: its type name may follow its name; without one, a
  /// parenthesised value makes it complex, else real.
  size_t addUndeclaredTrace(const Token& name) {
    static const TypeDef kReal{"", Category::kReal, "", {}};
    static const TypeDef kComplex{"", Category::kComplex, "", {}};
    Slot slot;
    slot.written = name.text;
    if (lexer_.peek().kind == TokenKind::kString) {
      slot.traces.push_back(addTrace(name, lexer_.next()));
    } else {
      const TypeDef* type = lexer_.peek().kind == TokenKind::kOpen ? &kComplex : &kReal;
      slot.traces.push_back(addTrace(name, type, ""));
    }
    slots_.push_back(std::move(slot));
    seenAt_.push_back(kNoPoint);
    return slots_.size() - 1;
  }

  void parseValues() {
    std::vector<double> scalars;
    while (lexer_.peek().kind == TokenKind::kString) {
      const Token name = lexer_.next();
      const Token typeName = lexer_.next();
      if (typeName.kind != TokenKind::kString) {
        fail(typeName.offset, "expected the type name of entry \"" + excerpt(name.text) +
                                  "\", found " + describe(typeName));
      }
      const TypeDef* type = findType(typeName);
      const size_t first = data_.quantities.size();
      const std::string entry = unescape(name.text);
      const std::string typeText = unescape(typeName.text);
      if (type->category == Category::kReal || type->category == Category::kComplex) {
        data_.quantities.push_back(Quantity{entry, std::string(name.text), typeText, type->units,
                                            type->category == Category::kComplex, 0, 0.0});
      } else if (type->category == Category::kRecord) {
        addFieldQuantities(*type, entry, std::string(name.text), typeText, false);
      }
      scalars.clear();
      Record record{entry, typeText, {}};
      size_t column = 0;
      readDatum(*type, column, &scalars, &record.texts, entry, 0);
      for (size_t q = first; q < data_.quantities.size() && q - first < scalars.size(); ++q) {
        data_.quantities[q].scalar = scalars[q - first];
      }
      // An entry's own PROP may give the units (terminal currents do).
      std::string units;
      skipPropIfAny(&units);
      if (!units.empty() && type->category != Category::kRecord) {
        for (size_t q = first; q < data_.quantities.size(); ++q) {
          data_.quantities[q].units = units;
        }
      }
      if (!record.texts.empty()) {
        data_.records.push_back(std::move(record));
      }
    }
  }

  static constexpr size_t kNoPoint = std::numeric_limits<size_t>::max();

  std::string_view bytes_;
  Lexer lexer_;
  PsfData& data_;
  std::vector<std::unique_ptr<TypeDef>> ownedTypes_;
  std::unordered_map<std::string, const TypeDef*> types_;
  std::vector<Trace> traces_;
  std::vector<Slot> slots_;
  std::vector<size_t> seenAt_;
  bool traceSection_ = false;
};

}  // namespace

const std::string* Record::text(std::string_view field) const {
  for (const auto& [fieldName, value] : texts) {
    if (fieldName == field) {
      return &value;
    }
  }
  return nullptr;
}

const HeaderItem* PsfData::findHeader(std::string_view name) const {
  for (const HeaderItem& item : header) {
    if (item.name == name) {
      return &item;
    }
  }
  return nullptr;
}

bool parsePsf(std::string_view bytes, const std::string& path, PsfData& data, std::string& error) {
  data = PsfData{};
  Parser parser(bytes, data);
  try {
    parser.run();
  } catch (const ParseError& failure) {
    error = path + ": " + parser.locate(failure);
    data = PsfData{};
    return false;
  } catch (const std::bad_alloc&) {
    error = path + ": not enough memory to read the file";
    data = PsfData{};
    return false;
  }
  return true;
}

bool startsLikePsfAscii(std::string_view head) {
  size_t i = 0;
  while (i < head.size() && isBlank(head[i])) {
    ++i;
  }
  head.remove_prefix(i);
  return head.starts_with("HEADER") && (head.size() == 6 || isBlank(head[6]));
}

}  // namespace simdata::psf
