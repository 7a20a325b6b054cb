#pragma once
// The PSF ASCII parser, shared by its parts: the sections that declare (HEADER, TYPE, SWEEP,
// TRACE; psfHeader.cpp), the VALUE section (psfValues.cpp) and the entry point (psfFile.cpp).

#include <cstddef>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "simdata/detail/psfLexer.h"
#include "simdata/psfFile.h"

namespace simdata::psf::detail {

/// Record types may nest, and so may their values; deeper nesting than this is refused, so
/// neither the type reader nor the value reader recurses without bound.
inline constexpr int kMaxNesting = 16;

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

/// Reads a PSF ASCII file into `data`; throws ParseError at the first fault.
class Parser {
 public:
  Parser(std::string_view bytes, PsfData& data) : bytes_(bytes), lexer_(bytes), data_(data) {}

  void run();
  /// "line N: message" for an error at a byte offset.
  std::string locate(const ParseError& error) const;

 private:
  static constexpr size_t kNoPoint = std::numeric_limits<size_t>::max();

  [[noreturn]] static void fail(size_t at, std::string text) {
    throw ParseError(at, std::move(text));
  }
  Token expect(TokenKind kind, const char* what);
  double readNumber(const char* what);

  // psfHeader.cpp
  void parseHeader();
  void skipList(size_t openedAt);
  void parseProp(std::string* units);
  void skipPropIfAny(std::string* units = nullptr);
  TypeDef parseTypedef(int depth);
  bool applyTypeWord(std::string_view word, TypeDef& type, int depth);
  void parseTypes();
  const TypeDef* findType(const Token& name) const;
  void parseSweep();
  void addFieldQuantities(const TypeDef& type, const std::string& prefix,
                          const std::string& writtenPrefix, const std::string& typeName,
                          bool withColumns);
  size_t addTrace(const Token& name, const TypeDef* type, const std::string& typeText);
  size_t addTrace(const Token& name, const Token& typeName);
  void parseTraces();
  void parseGroup(const Token& name, Slot& slot);

  // psfValues.cpp
  void parseValueSection();
  void readDatum(const TypeDef& type, size_t& column, std::vector<double>* scalars,
                 std::vector<std::pair<std::string, std::string>>* texts, const std::string& path,
                 int depth);
  void readNumberDatum(size_t& column, std::vector<double>* scalars, const std::string& path);
  void readRecordDatum(const TypeDef& type, size_t& column, std::vector<double>* scalars,
                       std::vector<std::pair<std::string, std::string>>* texts,
                       const std::string& path, int depth);
  void finishPoint(size_t point, size_t at) const;
  void parseSweptValues();
  size_t slotOf(const Token& name, size_t expected, size_t point,
                std::unordered_map<std::string_view, size_t>& bySlot);
  size_t addUndeclaredTrace(const Token& name);
  void parseValues();
  void parseEntry(std::vector<double>& scalars);

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

}  // namespace simdata::psf::detail
