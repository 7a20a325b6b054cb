// Fuzz target: the SPICE raw reader, text and binary, and everything that reads results
// through it. The input is parsed in memory; when it parses it is also opened as a results
// file by a session, which lists it, reads every signal, and runs the instance analysis over
// a netlist chaining its signals (with a setting chosen by the input's length), so that odd
// values (NaN, infinities, an axis that runs backwards) reach the statistics too.

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "analysis/settings.h"
#include "app/analyzeNetlist.h"
#include "fuzzSupport.h"
#include "simdata/rawFile.h"
#include "simdata/resultsReader.h"

namespace {

ArgList words(std::initializer_list<const char*> list) {
  ArgList args;
  for (const char* word : list) {
    args.emplace_back(word);
  }
  return args;
}

/// The variants of the run: plain, AC peaks, each ignore setting, duration pulses, recovery.
void analyse(zeAnalyzeNetlist& session, const std::string& dir, size_t variant) {
  const std::string net = dir + "/net";
  const std::string result = dir + "/result";
  analysis::processSettings() = analysis::ProcessSettings{};
  int ignoreSign = 0;
  session.durationTime = 0.0;
  session.instances = zeNetlist{};
  switch (variant % 6) {
    case 1:
      analysis::processSettings().ACAnalysis = true;
      break;
    case 2:
      ignoreSign = -1;
      break;
    case 3:
      ignoreSign = 2;
      break;
    case 4: {
      session.durationTime = 1e-9;
      const simdata::SignalList* signals = session.analysis->signals();
      std::string text;
      for (int i = 1; signals != nullptr && i + 1 < signals->count(); ++i) {
        text += "R" + std::to_string(i) + " " + signals->at(i)->name1 + " " +
                signals->at(i + 1)->name1 + " 0.5 1\n";
      }
      fuzzing::writeFile(net, text);
      break;
    }
    case 5:
      session.recoveryFactorFlag = true;
      analysis::processSettings().recoveryFactor = 1.0f;
      analysis::processSettings().emRecoveryFactorGiven = true;
      analysis::processSettings().emRecoveryFactor = 0.5f;
      break;
    default:
      break;
  }
  if (variant % 6 != 4) {
    const ArgList netArgs = words({net.c_str()});
    session.processCreateNetlistCmd(&netArgs);
  }
  const ArgList loadArgs = words({net.c_str()});
  session.processLoadNetlistCmd(&loadArgs);
  const ArgList wholeRun = words({"-1e300", "1e300"});
  session.processRunCmd(&wholeRun, ignoreSign);
  const ArgList window = words({"1e-9", "2e-9"});
  session.processRunCmd(&window, ignoreSign);
  const ArgList saveArgs = words({result.c_str()});
  std::vector<zeInstance> unused;
  session.processSaveResultsCmd(&saveArgs, unused);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzing::silenceStdout();
  simdata::initialise();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::vector<simdata::raw::Plot> plots;
  std::string error;
  if (!simdata::raw::parsePlots(bytes, "input.raw", plots, error)) {
    return 0;
  }
  const std::string dir = fuzzing::scratchDir().string();
  const std::string path = dir + "/input.raw";
  fuzzing::writeFile(path, bytes);

  zeAnalyzeNetlist session;
  session.init(nullptr, nullptr, true);
  const ArgList open = words({path.c_str()});
  if (session.processOpenSimDataCmd(&open) != 0) {
    return 0;
  }
  session.processDisplayAnalysisCmd(nullptr);
  const std::string info = dir + "/info";
  const ArgList infoArgs = words({info.c_str()});
  std::vector<std::string> lines;
  session.processSaveAnalysisInfoCmd(&infoArgs, lines);
  const std::string temperature = dir + "/temperature";
  const ArgList temperatureArgs = words({temperature.c_str()});
  session.processSaveTemperatureCmd(&temperatureArgs, session.temperature);

  const simdata::DatasetArray* datasets = session.resultsDir->datasets();
  for (int i = 0; datasets != nullptr && i < datasets->count(); ++i) {
    const char* name = datasets->at(i)->name();
    if (name == nullptr) {
      continue;
    }
    const ArgList select = words({name});
    if (session.processSelectAnalysisCmd(&select) != 0) {
      continue;
    }
    session.processDisplaySignalCmd(nullptr);
    const ArgList verbose = words({"-v"});
    session.processDisplaySignalCmd(&verbose);
    analyse(session, dir, size + static_cast<size_t>(i));
  }
  return 0;
}
