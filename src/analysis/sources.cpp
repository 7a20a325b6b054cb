#include "analysis/sources.h"

#include <algorithm>
#include <functional>

zeVsrc::oneSource_t& zeVsrc::record(std::string&& name) {
  std::shared_ptr<oneSource_t>& slot = sources_[std::move(name)];
  if (!slot) {
    slot = std::make_shared<oneSource_t>();
  }
  return *slot;
}

void zeVsrc::addVoltage(std::string name, double value) { record(std::move(name)).voltage = value; }

void zeVsrc::addCurrent(std::string name, double value) { record(std::move(name)).current = value; }

namespace analysis {

namespace {

/// Signals are read in batches of this many.
constexpr int kReadBatch = 10000;

/// Reads the values of `signals` in batches and calls `visit` with each scalar, in order.
void forEachScalar(simdata::Dataset& dataset, const std::vector<const simdata::Signal*>& signals,
                   const std::function<void(const simdata::Signal&, double)>& visit) {
  for (size_t first = 0; first < signals.size(); first += kReadBatch) {
    const size_t end = std::min(signals.size(), first + kReadBatch);
    simdata::SignalArray array(static_cast<int>(end - first));
    for (size_t k = first; k < end; ++k) {
      array.add(signals[k]);
    }
    const std::unique_ptr<simdata::ValueArray> values = dataset.read(array);
    if (!values) {
      continue;
    }
    for (size_t k = first; k < end; ++k) {
      const simdata::Value* value = values->at(static_cast<int>(k - first));
      if (value != nullptr && value->kind() == simdata::kScalarValue) {
        visit(*signals[k], value->scalar());
      }
    }
  }
}

}  // namespace

std::vector<std::string_view> splitAnyOf(std::string_view text, std::string_view separators) {
  std::vector<std::string_view> tokens;
  size_t begin = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (separators.find(text[i]) != std::string_view::npos) {
      tokens.push_back(text.substr(begin, i - begin));
      begin = i + 1;
    }
  }
  tokens.push_back(text.substr(begin));
  return tokens;
}

std::string resistorPowerKey(std::string_view signalName) {
  static constexpr char kSeparators[] = {' ', '\t', '"', ':', '.'};
  const std::vector<std::string_view> tokens =
      splitAnyOf(signalName, std::string_view(kSeparators, sizeof kSeparators));
  if (tokens.size() < 2) {
    return {};
  }
  return std::string(tokens[tokens.size() - 2]);
}

std::vector<const simdata::Signal*> signalsOfTypes(const simdata::SignalList& signals,
                                                   const std::vector<std::string>& typeNames) {
  // Emulates "for every signal type, for every signal of that type": types in order of
  // their first appearance in the list.
  std::vector<std::string> typeOrder;
  std::map<std::string, std::vector<const simdata::Signal*>> byType;
  for (int i = 0; i < signals.count(); ++i) {
    const simdata::Signal* signal = signals.at(i);
    if (std::find(typeNames.begin(), typeNames.end(), signal->typeName) == typeNames.end()) {
      continue;
    }
    auto [slot, inserted] = byType.try_emplace(signal->typeName);
    if (inserted) {
      typeOrder.push_back(signal->typeName);
    }
    slot->second.push_back(signal);
  }
  std::vector<const simdata::Signal*> ordered;
  for (const std::string& type : typeOrder) {
    const auto& group = byType[type];
    ordered.insert(ordered.end(), group.begin(), group.end());
  }
  return ordered;
}

void readSourceValues(simdata::Dataset& dataset, zeVsrc& sources) {
  const simdata::SignalList* list = dataset.signals();
  if (list == nullptr) {
    return;
  }
  const std::vector<const simdata::Signal*> signals = signalsOfTypes(*list, {"vsource", "isource"});
  forEachScalar(dataset, signals, [&](const simdata::Signal& signal, double value) {
    const std::vector<std::string_view> tokens = splitAnyOf(signal.name1, ":");
    if (tokens.size() < 2) {
      return;
    }
    if (tokens[1] == "v") {
      sources.addVoltage(std::string(tokens[0]), value);
    } else if (tokens[1] == "i") {
      sources.addCurrent(std::string(tokens[0]), value);
    }
  });
}

void readResistorPowers(simdata::Dataset& dataset, std::map<std::string, double>& powers) {
  const simdata::SignalList* list = dataset.signals();
  if (list == nullptr) {
    return;
  }
  std::vector<const simdata::Signal*> signals;
  for (const simdata::Signal* signal : signalsOfTypes(*list, {"resistor"})) {
    // Names with fewer than two tokens are skipped before their value is read.
    if (signal->name1.find("pwr") != std::string::npos &&
        splitAnyOf(signal->name1, std::string_view(" \t\":.", 5)).size() >= 2) {
      signals.push_back(signal);
    }
  }
  forEachScalar(dataset, signals, [&](const simdata::Signal& signal, double value) {
    powers[resistorPowerKey(signal.name1)] = value;
  });
}

}  // namespace analysis
