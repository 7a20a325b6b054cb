#pragma once
// Helpers for tests that need files: a scratch folder removed at the end, and file I/O.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace testing_support {

/// A fresh temporary folder, removed with everything in it when the object dies.
class ScratchDir {
 public:
  ScratchDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kra2-test-XXXXXX").string();
    path_ = mkdtemp(pattern.data()) ? pattern : std::string();
  }
  ~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  std::string file(const std::string& name) const { return (path_ / name).string(); }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

inline void writeFile(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
}

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

/// A line of a case table with every %XX replaced by its byte, so that tabs, line ends and
/// zero bytes can be written in the table.
inline std::string unescapePercent(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

}  // namespace testing_support
