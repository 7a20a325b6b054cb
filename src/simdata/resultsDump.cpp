#include "simdata/resultsDump.h"

#include <charconv>
#include <optional>
#include <string_view>
#include <vector>

namespace simdata {

namespace {

std::string shortest(double number) {
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, number).ptr;
  return std::string(text, end);
}

std::string shortest(float number) {
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, number).ptr;
  return std::string(text, end);
}

std::string elementName(int type) {
  switch (type) {
    case kFloat64:
      return "f64";
    case kFloat32:
      return "f32";
    case kInt32:
      return "i32";
    case kInt8:
      return "i8";
    case kComplex:
      return "complex";
    default:
      return "code" + std::to_string(type);
  }
}

std::string elementText(const DataVector& vector, int i) {
  switch (vector.elementType()) {
    case kFloat32:
      return shortest(vector.floatAt(i));
    case kInt32:
      return std::to_string(vector.intAt(i));
    case kInt8:
      return std::to_string(vector.int8At(i));
    default:
      return shortest(vector.doubleAt(i));
  }
}

/// The element texts of a vector, for showing and for telling two axes apart.
std::vector<std::string> elementTexts(const DataVector& vector) {
  std::vector<std::string> texts;
  for (int i = 0; i < vector.length(); ++i) {
    texts.push_back(elementText(vector, i));
  }
  return texts;
}

class Dumper {
 public:
  explicit Dumper(const DumpOptions& options) : options_(options) {}

  void dataset(Dataset& dataset) {
    out_ += std::string("dataset ") + dataset.name() + " type " + dataset.analysisType() + "\n";
    shownAxis_.reset();
    sweep(dataset.sweep());
    const SignalList* signals = dataset.signals();
    const int count = signals != nullptr ? signals->count() : 0;
    std::vector<const Value*> values(count, nullptr);
    std::vector<std::unique_ptr<Value>> owned;
    std::unique_ptr<ValueArray> bulk;
    if (options_.readEach) {
      for (int k = 0; k < count; ++k) {
        owned.push_back(dataset.readValue(signals->at(k)->name2));
        values[k] = owned.back().get();
      }
    } else if (count > 0) {
      SignalArray batch(count);
      for (int k = 0; k < count; ++k) {
        batch.add(signals->at(k));
      }
      bulk = dataset.read(batch);
      for (int k = 0; bulk != nullptr && k < bulk->count() && k < count; ++k) {
        values[k] = bulk->at(k);
      }
    }
    for (int k = 0; k < count; ++k) {
      const Signal& signal = *signals->at(k);
      out_ += "  signal " + signal.name1 + " | " + signal.name2 + " | " + signal.typeName + "\n";
      value(values[k], "    ");
    }
  }

  std::string take() { return std::move(out_); }

 private:
  void sweep(const Sweep* sweep) {
    if (sweep == nullptr) {
      out_ += "  sweep none\n";
      return;
    }
    for (int d = 0; d < sweep->dimensionCount(); ++d) {
      out_ += std::string("  sweep ") + sweep->name(d);
      const Range* range = sweep->range(d);
      if (range == nullptr) {
        out_ += " no range\n";
      } else {
        out_ += " " + elementName(range->dataType) + " " + shortest(range->min) + " " +
                shortest(range->max) + "\n";
      }
    }
  }

  void value(const Value* value, const std::string& indent) {
    if (value == nullptr) {
      out_ += indent + "missing\n";
    } else if (value->kind() == kScalarValue) {
      out_ += indent + "scalar " + shortest(value->scalar()) + "\n";
    } else if (value->dimension() >= 2) {
      out_ += indent + "value " + value->name() + " dimension " +
              std::to_string(value->dimension()) + " waves " + std::to_string(value->waveCount()) +
              "\n";
      for (int i = 0; i < value->waveCount(); ++i) {
        out_ += indent + "  wave " + std::to_string(i) + "\n";
        this->value(value->waveAt(i), indent + "    ");
      }
    } else {
      if (value->xVector() != nullptr) {
        std::vector<std::string> texts = elementTexts(*value->xVector());
        if (!shownAxis_ || *shownAxis_ != texts) {
          vector(indent + "x ", *value->xVector(), texts);
          shownAxis_ = std::move(texts);
        }
      }
      if (value->yVector() != nullptr) {
        vector(indent + "y ", *value->yVector(), elementTexts(*value->yVector()));
      }
    }
  }

  void vector(const std::string& lead, const DataVector& vector,
              const std::vector<std::string>& texts) {
    out_ += lead + vector.name() + " " + elementName(vector.elementType()) + " [" +
            vector.baseUnits() + "] n=" + std::to_string(texts.size()) + ":";
    const size_t cap = options_.headTail > 0 ? static_cast<size_t>(options_.headTail) : 0;
    for (size_t i = 0; i < texts.size(); ++i) {
      if (cap > 0 && texts.size() > 2 * cap && i == cap) {
        out_ += " ... (" + std::to_string(texts.size() - 2 * cap) + " more)";
        i = texts.size() - cap - 1;
        continue;
      }
      out_ += " " + texts[i];
    }
    out_ += "\n";
  }

  const DumpOptions& options_;
  std::string out_;
  std::optional<std::vector<std::string>> shownAxis_;
};

}  // namespace

std::string dump(const ResultsDir& results, const DumpOptions& options) {
  Dumper dumper(options);
  const DatasetArray* datasets = results.datasets();
  for (int i = 0; datasets != nullptr && i < datasets->count(); ++i) {
    dumper.dataset(*datasets->at(i));
  }
  return dumper.take();
}

}  // namespace simdata
