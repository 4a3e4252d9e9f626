#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace Ovelith::Diagnostics
{
// Library texts carry "§" markup (a "§" and one code character, "§c" for red) so that a console can colour
// them. People should never see the markup itself, nor the trailing blanks some texts leave behind.

/// Returns `text` for a terminal: each "§" code becomes the matching ANSI colour when `colour` is true and is
/// removed otherwise; blanks at the end of every line are removed; colour is reset before each line feed and at
/// the end, so that no colour leaks into what is printed next.
/// @param text Library text with markup.
/// @param colour Whether to turn markup into ANSI colour.
/// @return The text for the terminal.
std::string renderForTerminal(std::string_view text, bool colour);

/// True when `stream` is an interactive terminal and NO_COLOR is unset or empty.
/// @param stream An output stream.
/// @return Whether to colour what goes there.
bool wantsColour(std::FILE* stream);

/// Writes `text` rendered for `stream` (coloured only where wantsColour says so), then a line feed.
/// @param stream Where to write.
/// @param text Library text with markup.
void printForTerminal(std::FILE* stream, std::string_view text);
} // namespace Ovelith::Diagnostics
