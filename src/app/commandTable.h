#pragma once
// The command words of the command file with their reference lines, for the help text and for
// suggestions after a misspelt command.

#include <string_view>
#include <vector>

namespace app {

/// One command as the help text shows it.
struct CommandHelp {
  std::string_view word;       ///< the command word, spelt as the table spells it
  std::string_view arguments;  ///< its arguments, empty for none
  std::string_view summary;    ///< what it reads, writes or sets
};

/// Every command of the interpreter's table, in the order in which words are looked up.
std::vector<CommandHelp> commandReference();

}  // namespace app
