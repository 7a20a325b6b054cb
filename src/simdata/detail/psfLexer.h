#pragma once
// The tokens of a PSF ASCII file, read one at a time with one token of look-ahead, and the
// text helpers the PSF parser's messages and names use.

#include <cstddef>
#include <exception>
#include <string>
#include <string_view>

#include "simdata/detail/textExcerpt.h"
#include "support/text.h"

namespace simdata::psf::detail {

/// A name or string as meant: every backslash escape replaced by the character it escapes.
inline std::string unescape(std::string_view text) {
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
inline std::string excerpt(std::string_view text) {
  return simdata::detail::excerpt(text, simdata::detail::TabShown::kAsUnprintable);
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

/// How a token is named in a message.
inline std::string describe(const Token& token) {
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

inline bool isWord(const Token& token, std::string_view word) {
  return token.kind == TokenKind::kWord && token.text == word;
}

/// Splits the bytes into words, quoted strings and the characters '(', ')' and '*'.
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
  static bool endsWord(char c) { return support::isBlank(c) || c == '(' || c == ')' || c == '"'; }

  Token scan() {
    pos_ = support::skipBlanks(bytes_, pos_);
    Token token;
    token.offset = pos_;
    if (pos_ >= bytes_.size()) {
      return token;
    }
    const char c = bytes_[pos_];
    if (c == '"') {
      return scanString();
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

  /// A string from its opening quote on; a backslash escapes the byte after it.
  Token scanString() {
    size_t i = pos_ + 1;
    while (i < bytes_.size() && bytes_[i] != '"') {
      i += bytes_[i] == '\\' ? 2 : 1;
    }
    if (i >= bytes_.size()) {
      throw ParseError(pos_, "a string that starts here is not closed");
    }
    Token token{TokenKind::kString, pos_, bytes_.substr(pos_ + 1, i - pos_ - 1)};
    pos_ = i + 1;
    return token;
  }

  std::string_view bytes_;
  size_t pos_ = 0;
  bool peeked_ = false;
  Token ahead_;
};

}  // namespace simdata::psf::detail
