#pragma once
// What every message of the log is made of: its severity (which gives the prefix), whether it
// is echoed on standard output, and the program name that many messages start with.

/// Message severities of out_log.
enum Severity : int { kInfo = 0, kWarning = 1, kError = 2, kStatus = 3, kPlain = 4 };

/// Whether a logged line is also printed on standard output.
enum class Echo : bool { no = false, yes = true };

/// The program name that messages start with.
inline constexpr const char* kProgramName = "kra2";
