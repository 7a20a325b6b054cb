#pragma once
// A canonical text dump of opened results, for reading them by eye and for comparing a reader's
// view of a file with a stored expectation. The format is stable; every line ends with "\n":
//
//   dataset <name> type <analysis type>
//     sweep none                                  (a dataset without a swept axis)
//     sweep <dimension> <element> <min> <max>     (one line per dimension, in order)
//     sweep <dimension> no range
//     signal <name1> | <name2> | <type name>
//       missing                                   (the read gave no value)
//       scalar <number>
//       value <name> dimension <d> waves <count>  (nested sweeps; then one "wave <i>" per run,
//         wave <i>                                 its lines indented two more spaces)
//       x <vector> <element> [<units>] n=<length>: <numbers>  (only when the axis differs from
//       y <vector> <element> [<units>] n=<length>: <numbers>   the one shown last)
//
// Elements are f64, f32, i32, i8, complex (its real parts) or code<k>. Numbers are in shortest
// round-trip form (std::to_chars without precision; f32 as a float), "nan", "inf", "-inf".
// With a cap of N, a vector longer than 2N shows its first and last N numbers around
// "... (<k> more)". Datasets and signals appear in the reader's order.

#include <string>

#include "simdata/resultsReader.h"

namespace simdata {

/// What dump() shows and how it reads the values.
struct DumpOptions {
  /// Numbers shown at each end of a long vector; 0 shows every number.
  int headTail = 0;
  /// Read every signal on its own (readValue) instead of one bulk read of the dataset: both
  /// paths must show the same values.
  bool readEach = false;
};

/// The canonical text of every dataset, signal and value of the results.
std::string dump(const ResultsDir& results, const DumpOptions& options = {});

}  // namespace simdata
