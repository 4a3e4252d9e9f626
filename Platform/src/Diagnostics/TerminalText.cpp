#include "Diagnostics/TerminalText.h"

#include <cstdlib>
#include <unistd.h>

namespace Ovelith::Diagnostics
{
namespace
{
constexpr std::string_view MARKUP = "§";
constexpr std::string_view RESET = "\x1b[0m";

// The sixteen colour codes "0".."9", "a".."f" in their customary order, then "l" (bold), "n" (underline),
// "o" (italic) and "r" (reset). Unknown codes are dropped like known ones when colour is off.
std::string_view ansiFor(char code)
{
    static constexpr std::string_view COLOURS[16] = {
        "\x1b[30m", "\x1b[34m", "\x1b[32m", "\x1b[36m", "\x1b[31m", "\x1b[35m", "\x1b[33m", "\x1b[37m",
        "\x1b[90m", "\x1b[94m", "\x1b[92m", "\x1b[96m", "\x1b[91m", "\x1b[95m", "\x1b[93m", "\x1b[97m"};
    if (code >= '0' && code <= '9')
    {
        return COLOURS[code - '0'];
    }
    if (code >= 'a' && code <= 'f')
    {
        return COLOURS[10 + code - 'a'];
    }
    switch (code)
    {
    case 'l':
        return "\x1b[1m";
    case 'n':
        return "\x1b[4m";
    case 'o':
        return "\x1b[3m";
    case 'r':
        return RESET;
    default:
        return {};
    }
}

void trimTrailingBlanks(std::string& out, size_t lineStart)
{
    size_t end = out.size();
    while (end > lineStart && (out[end - 1] == ' ' || out[end - 1] == '\t'))
    {
        --end;
    }
    out.resize(end);
}
} // namespace

std::string renderForTerminal(std::string_view text, bool colour)
{
    std::string out;
    out.reserve(text.size() + 16);
    size_t lineStart = 0;
    bool coloured = false;
    auto endLine = [&]
    {
        trimTrailingBlanks(out, lineStart);
        if (coloured)
        {
            out += RESET;
            coloured = false;
        }
    };
    for (size_t i = 0; i < text.size();)
    {
        if (text.substr(i, MARKUP.size()) == MARKUP && i + MARKUP.size() < text.size())
        {
            const char code = text[i + MARKUP.size()];
            i += MARKUP.size() + 1;
            const std::string_view ansi = ansiFor(code);
            if (colour && !ansi.empty())
            {
                out += ansi;
                coloured = ansi != RESET;
            }
            continue;
        }
        if (text[i] == '\n')
        {
            endLine();
            out += '\n';
            lineStart = out.size();
            ++i;
            continue;
        }
        out += text[i++];
    }
    endLine();
    return out;
}

bool wantsColour(std::FILE* stream)
{
    const char* noColour = std::getenv("NO_COLOR");
    if (noColour != nullptr && *noColour != '\0')
    {
        return false;
    }
    return stream != nullptr && isatty(fileno(stream)) == 1;
}

void printForTerminal(std::FILE* stream, std::string_view text)
{
    const std::string rendered = renderForTerminal(text, wantsColour(stream));
    std::fwrite(rendered.data(), 1, rendered.size(), stream);
    std::fputc('\n', stream);
}
} // namespace Ovelith::Diagnostics
