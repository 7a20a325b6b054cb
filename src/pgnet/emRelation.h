#pragma once
// The network side of the EM command: the resistors of its network input, each given the EM
// record that holds its current, the direction of that current, and one listing line per
// resistor. The command hands in the records and the files; this side needs nothing of the
// session.

#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "db/emRecordTable.h"
#include "pgnet/dbNetwork.h"

namespace pgnet {

/// The text that stands for "no hierarchy prefix" in the EM command.
inline constexpr std::string_view kNoHierarchy = "##nil##";

/// The EM command's hierarchy prefix as record names spell it: every "/" becomes ".", one
/// leading "." is dropped and a "." is appended unless there is one. kNoHierarchy gives "".
std::string normaliseHierarchyPrefix(std::string_view text);
/// The EM command's resistor-name prefix as it follows a node name: "." + text, or "" for "".
std::string normaliseResistorPrefix(std::string_view text);

/// Writes the EM command's lines for the nodes of `order` that have a record:
/// "name  |peak|  |avg|  rms  tpeak |avgPos| |avgPos - avg| currDir" with reals as "%g",
/// and, when `tmesh` is not null, "peak avg" (signed) to it. Returns the number of lines.
size_t writeEMListing(const kraDBNetwork& network, std::span<const uint32_t> order, std::FILE* out,
                      std::FILE* tmesh);

/// What the EM command asks of the network side.
struct EmRelationRequest {
  /// The network input (see kraDBNetwork::loadData).
  std::string networkPath;
  /// The resistor-name prefix as the command was given it.
  std::string_view resistorPrefix;
  /// The hierarchy prefix as the command was given it; none when the command had no fifth
  /// argument.
  std::optional<std::string_view> hierarchy;
  /// Read the nets of every resistor and evaluate which way its current flows.
  bool withDirections = false;
};

/// What relateEmRecords needs of the command that calls it, asked in this order.
class EmRelationHost {
 public:
  virtual ~EmRelationHost() = default;
  /// A problem with the network input; the host logs it after the program name.
  virtual void report(const std::string& message) = 0;
  /// Opens the listing and, when the session asks for one, the T-mesh file (null otherwise).
  /// False when one of them cannot be opened; the host has said why.
  virtual bool openOutputs(std::FILE*& listing, std::FILE*& tmesh) = 0;
  /// Adds every EM record of the database to `records` (finished, ready for look-ups).
  virtual void readRecords(kraDB::EMRecordTable& records) = 0;
};

/// The resistors of the network input and the records they point into, kept together for
/// the power-grid analysis that may follow.
struct EmRelation {
  kraDB::EMRecordTable records;
  kraDBNetwork network;
};

/// The EM command's work on the network: loads the network input into `relation` (a missing
/// or faulty input is reported and the nodes read before the fault are kept), opens the
/// outputs, reads the records, gives the resistors their records, evaluates the current
/// directions when asked and writes the listing. False only when the outputs could not be
/// opened. The host closes the outputs.
bool relateEmRecords(const EmRelationRequest& request, EmRelationHost& host, EmRelation& relation);

}  // namespace pgnet
