#pragma once
// The arguments of one command line as the handlers receive them.

#include <cstddef>

#include "simdata/resultsReader.h"

/// The words of one command line after the command word; handlers receive null when the
/// line has none and treat it like an empty list.
using ArgList = simdata::StringVector;

/// Argument i of a possibly absent list, or null.
const char* argAt(const ArgList* args, size_t i);
