#include "Diagnostics/TerminalText.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
using Ovelith::Diagnostics::renderForTerminal;

struct RenderCase
{
    const char* label;
    std::string text;
    std::string plain;
    std::string coloured;
};

TEST(TerminalText, RendersMarkupAsColourOrNothingAndDropsTrailingBlanks)
{
    const RenderCase cases[] = {
        {"empty", "", "", ""},
        {"no markup", "hello", "hello", "hello"},
        {"resolver failure",
         "\n§cMissing Versioned Modules: \n    §c[@example/game - 2.0.0] requested by [game-example - 1.0.0]",
         "\nMissing Versioned Modules:\n    [@example/game - 2.0.0] requested by [game-example - 1.0.0]",
         "\n\x1b[91mMissing Versioned Modules:\x1b[0m\n    \x1b[91m[@example/game - 2.0.0] requested by "
         "[game-example - 1.0.0]\x1b[0m"},
        {"blank-only line", "a  \n   \nb\t", "a\n\nb", "a\n\nb"},
        {"explicit reset", "§cred§r plain", "red plain", "\x1b[91mred\x1b[0m plain"},
        {"unknown code", "§zx", "x", "x"},
        {"markup at the very end", "x§", "x§", "x§"},
    };
    for (const RenderCase& c : cases)
    {
        EXPECT_EQ(renderForTerminal(c.text, false), c.plain) << c.label;
        EXPECT_EQ(renderForTerminal(c.text, true), c.coloured) << c.label;
    }
}
} // namespace
