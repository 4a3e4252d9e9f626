#include "Scripting/Runtime/ErrorText.h"

#include "Diagnostics/TerminalText.h"

#include <fmt/format.h>

#include <string_view>

namespace Scripting
{
std::string formatError(const BaseError& error)
{
    std::string text = error.name.empty() ? error.message : error.name + ": " + error.message;
    if (error.stack.has_value())
    {
        std::string_view rest = *error.stack;
        while (!rest.empty())
        {
            const size_t end = rest.find('\n');
            const std::string_view line = rest.substr(0, end);
            if (line.find_first_not_of(" \t") != std::string_view::npos)
            {
                text += '\n';
                text += line;
            }
            rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        }
        return text;
    }
    for (const CallStackEntry& frame : error.callStack)
    {
        text += frame.line >= 0 ? fmt::format("\n    at {} ({}:{})", frame.function, frame.file, frame.line)
                                : fmt::format("\n    at {} ({})", frame.function, frame.file);
    }
    return text;
}

void printError(std::FILE* stream, const BaseError& error)
{
    Ovelith::Diagnostics::printForTerminal(stream, formatError(error));
}
} // namespace Scripting
