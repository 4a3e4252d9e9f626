#pragma once

#include "Scripting/Runtime/Error.h"

#include <cstdio>
#include <string>

namespace Scripting
{
/// @brief An error as people read it: "name: message" on the first line, then the call stack one frame a line
/// ("    at function (file:line)").
///
/// The stack is the raw one a runtime set, or else the parsed call stack; toString() keeps gluing the raw stack
/// to the message, as before.
/// @param error Any error of the family.
/// @return The text, without a final line feed.
std::string formatError(const BaseError& error);

/// @brief Writes formatError(error) to `stream` through Ovelith::Diagnostics::printForTerminal.
/// @param stream Where to write, standard error for most programs.
/// @param error The error.
void printError(std::FILE* stream, const BaseError& error);
} // namespace Scripting
