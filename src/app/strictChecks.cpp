// Strict mode (-strict): warnings about input that the ordinary run takes in silence, and the
// line and nearest command after an unknown word. Nothing here runs without -strict, so the
// ordinary log stays as it is.

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>

#include "app/analyzeNetlist.h"
#include "app/commandTable.h"
#include "simdata/timeRange.h"

namespace {

/// Instances named one by one after a run; the rest are counted.
constexpr size_t kMissingNodesListed = 20;

/// Edit distance of two words, ignoring case.
size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) {
    row[j] = j;
  }
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                        std::tolower(static_cast<unsigned char>(b[j - 1]));
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

/// Whether a non-empty file ends without a line feed (its last line is then never read).
bool lastLineUnterminated(const std::string& path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file || file.tellg() <= 0) {
    return false;
  }
  file.seekg(-1, std::ios::end);
  char last = '\n';
  file.get(last);
  return last != '\n';
}

/// The argument positions of each command that are read as numbers.
struct NumberArguments {
  const char* command;
  int first;
  int last;
};
constexpr NumberArguments kNumberArguments[] = {
    {"run", 0, 1}, {"durationTime", 0, 0}, {"emRecoveryFactor", 0, 0}, {"cadGrid", 0, 0}};

}  // namespace

std::string_view zeAnalyzeNetlist::nearestCommand(std::string_view word) {
  std::string_view nearest;
  size_t best = 0;
  for (const app::CommandHelp& command : app::commandReference()) {
    const size_t distance = editDistance(word, command.word);
    if (nearest.empty() || distance < best) {
      nearest = command.word;
      best = distance;
    }
  }
  return nearest;
}

void zeAnalyzeNetlist::warnUnknownCommand(const char* word) {
  const std::string_view nearest = nearestCommand(word);
  logMsg(kError, Echo::yes, "%s: command file %s, line %d: did you mean %.*s?\n", kProgramName,
         cmdFileName.c_str(), cmdLineNumber_, static_cast<int>(nearest.size()), nearest.data());
}

void zeAnalyzeNetlist::warnNumberArguments(const char* word) {
  for (const NumberArguments& entry : kNumberArguments) {
    if (strcasecmp(word, entry.command) != 0) {
      continue;
    }
    for (int i = entry.first; i <= entry.last; ++i) {
      const char* text = argAt(args_.get(), i);
      if (text == nullptr || std::string_view(text) == "nil") {
        continue;
      }
      char* end = nullptr;
      const double value = std::strtod(text, &end);
      if (*end == '\0') {
        continue;
      }
      logMsg(kWarning, Echo::yes,
             "%s: command file %s, line %d: %s reads the argument %s as %g and ignores the "
             "text after the number; unit suffixes such as the SPICE f, p, n, u, m, k and meg "
             "are not understood (write 2e-9, not 2n).\n",
             kProgramName, cmdFileName.c_str(), cmdLineNumber_, entry.command, text, value);
    }
  }
}

void zeAnalyzeNetlist::warnUnreadLastLine(const std::string& path, const char* what) {
  if (!path.empty() && lastLineUnterminated(path)) {
    logMsg(kWarning, Echo::yes, "%s: %s file %s: its last line has no line feed and is not read.\n",
           kProgramName, what, path.c_str());
  }
}

void zeAnalyzeNetlist::warnBeforeCommand(const char* word) {
  warnNumberArguments(word);
  const bool run = strcasecmp(word, "run") == 0;
  if (strcasecmp(word, "calculateLength") == 0 || strcasecmp(word, "checkEM") == 0) {
    warnUnreadLastLine(lengthDataInputFile, "length data");
  }
  if (run || strcasecmp(word, "readMuroDBEM") == 0) {
    warnUnreadLastLine(powerGridRulesInputFile, "PG data");
  }
  if (strcasecmp(word, "loadNetlist") == 0) {
    // Cleared for the load so that a load stopped by a bad line shows; restored below.
    loadedBefore_ = instances.loaded;
    instancesBefore_ = instances.instances.size();
    instances.loaded = false;
  }
}

void zeAnalyzeNetlist::warnRunWindow() {
  if (argAt(args_.get(), 1) == nullptr) {
    return;
  }
  const double start = std::strtod(argAt(args_.get(), 0), nullptr);
  const double stop = std::strtod(argAt(args_.get(), 1), nullptr);
  if (start > stop) {
    logMsg(kWarning, Echo::yes,
           "%s: command file %s, line %d: the run window %g to %g is reversed.\n", kProgramName,
           cmdFileName.c_str(), cmdLineNumber_, start, stop);
    return;
  }
  const std::optional<simdata::TimeRange> data =
      analysis != nullptr ? simdata::sweepTimeRange(analysis->sweep()) : std::nullopt;
  if (data && (start < data->start || stop > data->stop)) {
    logMsg(kWarning, Echo::yes,
           "%s: command file %s, line %d: the run window %g to %g is not inside the data of "
           "analysis %s (%g to %g).\n",
           kProgramName, cmdFileName.c_str(), cmdLineNumber_, start, stop, analysis->name(),
           data->start, data->stop);
  }
}

void zeAnalyzeNetlist::warnMissingNodes() {
  size_t missing = 0;
  for (const zeInstance& instance : instances.instances) {
    if (instance.valid) {
      continue;
    }
    if (++missing <= kMissingNodesListed) {
      const std::string& node = instance.sigIndex1 == -2 ? instance.node1 : instance.node2;
      logMsg(kWarning, Echo::yes,
             "%s: instance %s: node %s has no signal in analysis %s; its result line holds "
             "NaN.\n",
             kProgramName, instance.name.c_str(), node.c_str(),
             analysis != nullptr ? analysis->name() : "");
    }
  }
  if (missing > kMissingNodesListed) {
    logMsg(kWarning, Echo::yes, "%s: %zu more instances have a node without a signal.\n",
           kProgramName, missing - kMissingNodesListed);
  }
}

void zeAnalyzeNetlist::warnAfterCommand(const char* word) {
  if (strcasecmp(word, "run") == 0) {
    warnRunWindow();
    warnMissingNodes();
  } else if (strcasecmp(word, "loadNetlist") == 0) {
    const bool stopped = !instances.loaded;
    instances.loaded = instances.loaded || loadedBefore_;
    const char* path = argAt(args_.get(), 0);
    std::FILE* file = path != nullptr ? std::fopen(path, "r") : nullptr;
    if (stopped && file != nullptr) {
      // Every line before the bad one made one instance. Standard output has had its message.
      logMsg(kWarning, Echo::no,
             "%s: netlist file %s, line %zu: the line does not fit the netlist layout; "
             "loading stopped there.\n",
             kProgramName, path, instances.instances.size() - instancesBefore_ + 1);
    }
    if (file != nullptr) {
      std::fclose(file);
    }
  }
}
