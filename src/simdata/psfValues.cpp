// The PSF ASCII parser, part two: the VALUE section. A swept file lists, point by point, the
// sweep value and then a value for every TRACE slot; a file without a sweep lists entries of
// a declared type, each one value (scalars and record fields become quantities).

#include <cstdio>

#include "simdata/detail/psfParser.h"

namespace simdata::psf::detail {

/// Reads one value of a type; numeric values go to `columns` from `column` on (swept files)
/// or to `scalars` (files without a sweep).
void Parser::readDatum(const TypeDef& type, size_t& column, std::vector<double>* scalars,
                       std::vector<std::pair<std::string, std::string>>* texts,
                       const std::string& path, int depth) {
  if (depth > kMaxNesting) {
    fail(lexer_.peek().offset,
         "values nested deeper than " + std::to_string(kMaxNesting) + " levels");
  }
  switch (type.category) {
    case Category::kReal:
    case Category::kComplex:
      readNumberDatum(column, scalars, path);
      return;
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
    case Category::kRecord:
      readRecordDatum(type, column, scalars, texts, path, depth);
      return;
    case Category::kNone:
      break;
  }
  fail(lexer_.peek().offset, "a value of a type without kind");
}

/// A real value, or a complex one "( re im )" of which the real part is kept.
void Parser::readNumberDatum(size_t& column, std::vector<double>* scalars,
                             const std::string& path) {
  double real = 0.0;
  const Token token = lexer_.next();
  if (token.kind == TokenKind::kOpen) {
    real = readNumber("the real part of a complex value");
    readNumber("the imaginary part of a complex value");
    expect(TokenKind::kClose, "')' closing a complex value");
  } else if (token.kind != TokenKind::kWord || !support::parseDouble(token.text, real)) {
    fail(token.offset, "expected a number for \"" + excerpt(path) + "\", found " + describe(token));
  }
  if (scalars != nullptr) {
    scalars->push_back(real);
  } else {
    data_.columns[column].push_back(real);
  }
  ++column;
}

/// "( field values )": exactly one value per field of the record type.
void Parser::readRecordDatum(const TypeDef& type, size_t& column, std::vector<double>* scalars,
                             std::vector<std::pair<std::string, std::string>>* texts,
                             const std::string& path, int depth) {
  const Token open = lexer_.next();
  if (open.kind != TokenKind::kOpen) {
    fail(open.offset,
         "expected '(' opening the fields of \"" + excerpt(path) + "\", found " + describe(open));
  }
  for (const TypeDef& field : type.fields) {
    if (lexer_.peek().kind == TokenKind::kClose) {
      fail(lexer_.peek().offset, "the value of \"" + excerpt(path) + "\" has fewer than its " +
                                     std::to_string(type.fields.size()) + " fields");
    }
    readDatum(field, column, scalars, texts, field.name, depth + 1);
  }
  const Token close = lexer_.next();
  if (close.kind != TokenKind::kClose) {
    fail(close.offset, "the value of \"" + excerpt(path) + "\" has more than its " +
                           std::to_string(type.fields.size()) + " fields");
  }
}

/// Every slot must have had its values in the point that ends here.
void Parser::finishPoint(size_t point, size_t at) const {
  if (point == kNoPoint) {
    return;
  }
  for (size_t s = 0; s < slots_.size(); ++s) {
    if (seenAt_[s] == point) {
      continue;
    }
    char value[32];
    std::snprintf(value, sizeof value, "%g", data_.sweepValues[point]);
    fail(at, "point " + std::to_string(point) + " (" + excerpt(data_.sweepName) + " = " + value +
                 ") has no value for \"" + excerpt(slots_[s].written) + "\"");
  }
}

void Parser::parseSweptValues() {
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
    const size_t s = slotOf(name, expected, point, bySlot);
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

/// The slot a VALUE entry name stands for. Writers keep the TRACE order, so the slot after
/// the last one read is tried first.
size_t Parser::slotOf(const Token& name, size_t expected, size_t point,
                      std::unordered_map<std::string_view, size_t>& bySlot) {
  if (expected < slots_.size() && slots_[expected].written == name.text) {
    return expected;
  }
  const auto it = bySlot.find(name.text);
  if (it != bySlot.end()) {
    return it->second;
  }
  if (traceSection_ || point != 0) {
    fail(name.offset, "\"" + excerpt(name.text) +
                          "\" is neither the sweep variable nor a "
                          "trace listed in TRACE");
  }
  // Swept files without a TRACE section name their traces in the first point.
  const size_t s = addUndeclaredTrace(name);
  bySlot.emplace(name.text, s);
  return s;
}

/// A trace first seen in the values: its type name may follow its name; without one, a
/// parenthesised value makes it complex, else real.
size_t Parser::addUndeclaredTrace(const Token& name) {
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

/// VALUE: point by point in a swept file, entry by entry otherwise.
void Parser::parseValueSection() {
  if (data_.swept) {
    parseSweptValues();
  } else {
    parseValues();
  }
}

void Parser::parseValues() {
  std::vector<double> scalars;
  while (lexer_.peek().kind == TokenKind::kString) {
    parseEntry(scalars);
  }
}

/// One entry of a file without a sweep: "name" "type" value [PROP(...)].
void Parser::parseEntry(std::vector<double>& scalars) {
  const Token name = lexer_.next();
  const Token typeName = lexer_.next();
  if (typeName.kind != TokenKind::kString) {
    fail(typeName.offset, "expected the type name of entry \"" + excerpt(name.text) + "\", found " +
                              describe(typeName));
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

}  // namespace simdata::psf::detail
