#pragma once
// Reads the hand-worked case tables under tests/data/: plain text, one case per block.
//
//   # a comment line (only at the start of a line)
//   case <name>               starts a case
//   <key> <word> <word>...    a field of the current case; a key may repeat
//
// Words are separated by blanks. In a word, \t, \n, \s (a blank) and \\ stand for those
// characters (any other backslash is itself), and a lone \e for the empty word, so that any
// text fits on one line.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace testing_support {

/// A number as strtod reads it; anything else fails the test.
inline double toNumber(const std::string& word) {
  char* end = nullptr;
  const double value = std::strtod(word.c_str(), &end);
  EXPECT_TRUE(!word.empty() && *end == '\0') << "not a number: " << word;
  return value;
}

inline std::vector<double> toNumbers(const std::vector<std::string>& words) {
  std::vector<double> values;
  for (const std::string& word : words) {
    values.push_back(toNumber(word));
  }
  return values;
}

/// One case of a table: its name, the line it starts at, and its fields by key.
struct TableCase {
  std::string name;
  int line = 0;
  std::map<std::string, std::vector<std::vector<std::string>>> fields;

  bool has(const std::string& key) const { return fields.count(key) != 0; }
  /// Every occurrence of the key, each a list of words (none when absent).
  std::vector<std::vector<std::string>> all(const std::string& key) const {
    return has(key) ? fields.at(key) : std::vector<std::vector<std::string>>{};
  }
  /// The words of the key's first occurrence (none when absent).
  std::vector<std::string> words(const std::string& key) const {
    return has(key) ? fields.at(key).front() : std::vector<std::string>{};
  }
  std::string word(const std::string& key, const std::string& otherwise = "") const {
    return words(key).empty() ? otherwise : words(key).front();
  }
  double number(const std::string& key, double otherwise = 0.0) const {
    return has(key) ? toNumber(word(key)) : otherwise;
  }
  std::vector<double> numbers(const std::string& key) const { return toNumbers(words(key)); }
  /// The words of the key joined by single blanks.
  std::string text(const std::string& key) const {
    std::string joined;
    for (const std::string& word : words(key)) {
      joined += (joined.empty() ? "" : " ") + word;
    }
    return joined;
  }
  /// The name=value words of every occurrence of the key; a bare name stands for name=1.
  std::map<std::string, double> named(const std::string& key) const {
    std::map<std::string, double> values;
    for (const std::vector<std::string>& words : all(key)) {
      for (const std::string& word : words) {
        const size_t equals = word.find('=');
        values[word.substr(0, equals)] =
            equals == std::string::npos ? 1.0 : toNumber(word.substr(equals + 1));
      }
    }
    return values;
  }
};

inline std::string unescape(const std::string& word) {
  std::string text;
  for (size_t i = 0; word != "\\e" && i < word.size(); ++i) {
    const char next = i + 1 < word.size() ? word[i + 1] : '\0';
    if (word[i] == '\\' && (next == 't' || next == 'n' || next == 's' || next == '\\')) {
      text += next == 't' ? '\t' : next == 'n' ? '\n' : next == 's' ? ' ' : '\\';
      ++i;
    } else {
      text += word[i];
    }
  }
  return text;
}

/// The cases of a table file under tests/data/ (a missing file fails the test).
inline std::vector<TableCase> readCaseTable(const std::string& relativePath) {
  const std::string path = std::string(KRA2_SOURCE_DIR) + "/tests/data/" + relativePath;
  std::ifstream in(path);
  std::vector<TableCase> cases;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    std::istringstream words(line);
    std::string key;
    if (!(words >> key) || key[0] == '#') {
      continue;
    }
    if (key == "case") {
      cases.push_back({"", number, {}});
      std::getline(words >> std::ws, cases.back().name);
      continue;
    }
    std::vector<std::string> values;
    for (std::string word; words >> word;) {
      values.push_back(unescape(word));
    }
    if (!cases.empty()) {
      cases.back().fields[key].push_back(values);
    }
  }
  EXPECT_FALSE(cases.empty()) << "no cases in " << path;
  return cases;
}

}  // namespace testing_support
