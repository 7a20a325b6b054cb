// The PSF ASCII parser, part one: the order of the sections and the sections that declare
// what the values will be (HEADER entries, TYPE definitions, the SWEEP variable and the
// TRACE list).

#include <cmath>

#include "simdata/detail/psfParser.h"

namespace simdata::psf::detail {

void Parser::run() {
  const Token first = lexer_.next();
  if (!isWord(first, "HEADER")) {
    fail(first.offset,
         "not a PSF ASCII file: it does not start with HEADER (found " + describe(first) + ")");
  }
  parseHeader();
  // The sections that may follow, each at most once and in this order.
  static constexpr std::pair<std::string_view, void (Parser::*)()> kSections[] = {
      {"TYPE", &Parser::parseTypes},
      {"SWEEP", &Parser::parseSweep},
      {"TRACE", &Parser::parseTraces},
      {"VALUE", &Parser::parseValueSection}};
  for (const auto& [word, read] : kSections) {
    if (isWord(lexer_.peek(), word)) {
      lexer_.next();
      (this->*read)();
    }
  }
  const Token end = lexer_.next();
  if (!isWord(end, "END")) {
    fail(end.offset,
         "expected a section (TYPE, SWEEP, TRACE, VALUE) or END, found " + describe(end));
  }
}

std::string Parser::locate(const ParseError& error) const {
  return simdata::detail::atLine(bytes_, error.offset, error.message);
}

Token Parser::expect(TokenKind kind, const char* what) {
  Token token = lexer_.next();
  if (token.kind != kind) {
    fail(token.offset, std::string("expected ") + what + ", found " + describe(token));
  }
  return token;
}

double Parser::readNumber(const char* what) {
  const Token token = lexer_.next();
  double value = 0.0;
  if (token.kind != TokenKind::kWord || !support::parseDouble(token.text, value)) {
    fail(token.offset, std::string("expected ") + what + ", found " + describe(token));
  }
  return value;
}

void Parser::parseHeader() {
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
void Parser::skipList(size_t openedAt) {
  int depth = 1;
  while (depth > 0) {
    const Token token = lexer_.next();
    if (token.kind == TokenKind::kEnd) {
      fail(openedAt, "the list that opens here is not closed");
    }
    if (token.kind == TokenKind::kClose) {
      --depth;
    } else if (token.kind == TokenKind::kOpen && ++depth > kMaxNesting) {
      fail(token.offset, "lists nested deeper than " + std::to_string(kMaxNesting) + " levels");
    }
  }
}

/// PROP( "name" value ... ): keeps the "units" text when asked for.
void Parser::parseProp(std::string* units) {
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

void Parser::skipPropIfAny(std::string* units) {
  if (isWord(lexer_.peek(), "PROP")) {
    lexer_.next();
    parseProp(units);
  }
}

TypeDef Parser::parseTypedef(int depth) {
  if (depth > kMaxNesting) {
    fail(lexer_.peek().offset,
         "record types nested deeper than " + std::to_string(kMaxNesting) + " levels");
  }
  const Token name = expect(TokenKind::kString, "a type name");
  TypeDef type;
  type.name = std::string(support::trimRight(unescape(name.text)));
  for (;;) {
    const Token& token = lexer_.peek();
    if (token.kind == TokenKind::kStar) {
      lexer_.next();
      continue;
    }
    if (token.kind != TokenKind::kWord || !applyTypeWord(token.text, type, depth)) {
      break;
    }
  }
  if (type.category == Category::kNone) {
    fail(name.offset, "type \"" + excerpt(type.name) +
                          "\" has no kind (FLOAT, COMPLEX, INT, STRING, ARRAY or STRUCT)");
  }
  return type;
}

/// Reads one word of a type definition (the word itself is still to be taken) into `type`;
/// false when the word belongs to what follows the definition.
bool Parser::applyTypeWord(std::string_view word, TypeDef& type, int depth) {
  auto set = [&](Category category) {
    if (type.category == Category::kNone) {
      type.category = category;
    }
  };
  if (word == "FLOAT" || word == "DOUBLE" || word == "SINGLE" || word == "INT" || word == "BYTE" ||
      word == "LONG") {
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
    return false;
  }
  return true;
}

void Parser::parseTypes() {
  while (lexer_.peek().kind == TokenKind::kString) {
    auto type = std::make_unique<TypeDef>(parseTypedef(0));
    const std::string key = type->name;
    types_[key] = type.get();
    ownedTypes_.push_back(std::move(type));
  }
}

const TypeDef* Parser::findType(const Token& name) const {
  const auto it = types_.find(std::string(support::trimRight(unescape(name.text))));
  if (it == types_.end()) {
    fail(name.offset, "type \"" + excerpt(name.text) + "\" is not defined in the TYPE section");
  }
  return it->second;
}

void Parser::parseSweep() {
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
void Parser::addFieldQuantities(const TypeDef& type, const std::string& prefix,
                                const std::string& writtenPrefix, const std::string& typeName,
                                bool withColumns) {
  for (const TypeDef& field : type.fields) {
    const std::string name = prefix + ":" + field.name;
    const std::string written = writtenPrefix + ":" + field.name;
    if (field.category == Category::kRecord) {
      addFieldQuantities(field, name, written, typeName, withColumns);
      continue;
    }
    if (field.category != Category::kReal && field.category != Category::kComplex) {
      continue;
    }
    data_.quantities.push_back(Quantity{name, written, typeName, field.units,
                                        field.category == Category::kComplex,
                                        withColumns ? data_.columns.size() : 0, 0.0});
    if (withColumns) {
      data_.columns.emplace_back();
    }
  }
}

size_t Parser::addTrace(const Token& name, const TypeDef* type, const std::string& typeText) {
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

size_t Parser::addTrace(const Token& name, const Token& typeName) {
  return addTrace(name, findType(typeName), unescape(typeName.text));
}

void Parser::parseTraces() {
  traceSection_ = true;
  while (lexer_.peek().kind == TokenKind::kString) {
    const Token name = lexer_.next();
    Slot slot;
    slot.written = name.text;
    if (isWord(lexer_.peek(), "GROUP")) {
      lexer_.next();
      parseGroup(name, slot);
    } else {
      const Token typeName = expect(TokenKind::kString, "the type name of trace");
      slot.traces.push_back(addTrace(name, typeName));
    }
    slots_.push_back(std::move(slot));
  }
}

/// GROUP n "member" "type" ...: a slot whose values are those of its n member traces.
void Parser::parseGroup(const Token& name, Slot& slot) {
  const Token countToken = lexer_.next();
  double count = -1.0;
  if (countToken.kind != TokenKind::kWord || !support::parseDouble(countToken.text, count) ||
      !(count >= 0 && count <= 2147483647.0) || count != std::floor(count)) {
    fail(countToken.offset, "expected the member count of GROUP \"" + excerpt(name.text) +
                                "\", found " + describe(countToken));
  }
  slot.group = true;
  // The members are read one by one, so a count larger than the file fails at its end rather
  // than reserving anything.
  for (long member = 0; member < static_cast<long>(count); ++member) {
    const Token memberName = lexer_.next();
    if (memberName.kind != TokenKind::kString) {
      fail(memberName.offset, "GROUP \"" + excerpt(name.text) + "\" announces " +
                                  std::to_string(static_cast<long>(count)) + " members but lists " +
                                  std::to_string(member));
    }
    const Token typeName = expect(TokenKind::kString, "the type name of a group member");
    slot.traces.push_back(addTrace(memberName, typeName));
  }
}

}  // namespace simdata::psf::detail
