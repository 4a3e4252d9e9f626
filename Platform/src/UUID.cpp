#include "UUID.h"

#include "Diagnostics/Assert.h"

#include <array>
#include <string_view>

namespace quv
{
namespace
{
constexpr size_t COMPACT_LENGTH = 32;
constexpr size_t DASHED_LENGTH = 36;
constexpr int8_t NOT_HEX = -1;

// Digit values of the characters that `isxdigit` accepts in the "C" locale. A table keeps parsing free of
// the process locale and of the sign of `char`.
constexpr std::array<int8_t, 256> HEX_VALUES = []
{
    std::array<int8_t, 256> table{};
    table.fill(NOT_HEX);
    for (int i = 0; i < 10; ++i)
    {
        table['0' + i] = static_cast<int8_t>(i);
    }
    for (int i = 0; i < 6; ++i)
    {
        table['a' + i] = static_cast<int8_t>(10 + i);
        table['A' + i] = static_cast<int8_t>(10 + i);
    }
    return table;
}();

constexpr int hexValue(char c)
{
    return HEX_VALUES[static_cast<unsigned char>(c)];
}

// Where the 32 digits stand in the dashed form.
constexpr std::array<uint8_t, COMPACT_LENGTH> DASHED_DIGIT_POSITIONS = []
{
    std::array<uint8_t, COMPACT_LENGTH> positions{};
    size_t digit = 0;
    for (size_t i = 0; i < DASHED_LENGTH; ++i)
    {
        if (i != 8 && i != 13 && i != 18 && i != 23)
        {
            positions[digit++] = static_cast<uint8_t>(i);
        }
    }
    return positions;
}();

// NOT_HEX is the only negative table value, so OR-ing all digit values tells whether any failed, without a
// branch per character.
bool isValidText(std::string_view text)
{
    int allValues = 0;
    if (text.size() == COMPACT_LENGTH)
    {
        for (char c : text)
        {
            allValues |= hexValue(c);
        }
        return allValues >= 0;
    }
    if (text.size() == DASHED_LENGTH)
    {
        if (text[8] != '-' || text[13] != '-' || text[18] != '-' || text[23] != '-')
        {
            return false;
        }
        for (uint8_t position : DASHED_DIGIT_POSITIONS)
        {
            allValues |= hexValue(text[position]);
        }
        return allValues >= 0;
    }
    return false;
}
} // namespace

bool UUID::canParse(std::string_view text)
{
    return isValidText(text);
}

UUID UUID::fromString(std::string_view text)
{
    if (!isValidText(text))
    {
        return EMPTY;
    }

    // After the validity test the dashes stand only at their four places, so the digits can be read by
    // position instead of skipping dashes one by one.
    const bool dashed = text.size() == DASHED_LENGTH;
    auto digitAt = [&](size_t digit) { return hexValue(text[dashed ? DASHED_DIGIT_POSITIONS[digit] : digit]); };
    // Both words at once: two independent chains of shifts instead of one twice as long.
    uint64_t high = 0;
    uint64_t low = 0;
    for (size_t digit = 0; digit < 16; ++digit)
    {
        const int highValue = digitAt(digit);
        const int lowValue = digitAt(digit + 16);
        if ((highValue | lowValue) < 0)
        {
            // Unreachable while the validity test and this loop agree on what a digit is.
            OV_ASSERT(false, "Invalid character in UUID after matching as valid");
            return EMPTY;
        }
        high = (high << 4) | static_cast<uint64_t>(highValue);
        low = (low << 4) | static_cast<uint64_t>(lowValue);
    }
    return UUID(high, low);
}

std::string UUID::asString() const
{
    // Digit by digit into the places the parser reads them from: a compiled format would bring its integer
    // formatting for every field type into each program that names a module.
    static constexpr std::string_view DIGITS = "0123456789abcdef";
    std::string text(DASHED_LENGTH, '-');
    for (size_t digit = 0; digit < 16; ++digit)
    {
        const unsigned shift = static_cast<unsigned>(60 - 4 * digit);
        text[DASHED_DIGIT_POSITIONS[digit]] = DIGITS[(mHigh >> shift) & 0xf];
        text[DASHED_DIGIT_POSITIONS[digit + 16]] = DIGITS[(mLow >> shift) & 0xf];
    }
    return text;
}
} // namespace quv
