// UUID text: what is accepted, what it reads as, and that printing and reading agree for any 128 bits. A text
// is hostile input, so nothing here may assert.
#include "FuzzSupport.h"

#include "Diagnostics/Assert.h"
#include "UUID.h"

#include <cctype>
#include <string>
#include <vector>

namespace
{
using quv::UUID;

bool hexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool dashAt(size_t index)
{
    return index == 8 || index == 13 || index == 18 || index == 23;
}

// The accepted shapes, as written for people: 32 digits, or 36 characters with the dashes in their places.
bool modelValid(std::string_view text)
{
    if (text.size() != 32 && text.size() != 36)
    {
        return false;
    }
    for (size_t i = 0; i < text.size(); ++i)
    {
        const bool wantDash = text.size() == 36 && dashAt(i);
        if (wantDash ? text[i] != '-' : !hexDigit(text[i]))
        {
            return false;
        }
    }
    return true;
}

// The printed form of a valid text: its digits in lower case, dashed.
std::string modelPrinted(std::string_view text)
{
    std::string digits;
    for (const char c : text)
    {
        if (c != '-')
        {
            digits += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    for (const size_t dash : {8, 13, 18, 23})
    {
        digits.insert(dash, 1, '-');
    }
    return digits;
}

std::string withoutDashes(std::string text)
{
    std::erase(text, '-');
    return text;
}

std::string upperCase(std::string text)
{
    for (char& c : text)
    {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::vector<std::string> asserts = Ovelith::Diagnostics::collectAsserts(
        [&]
        {
            const bool valid = modelValid(text);
            FUZZ_CHECK(UUID::canParse(text) == valid);
            const UUID parsed = UUID::fromString(text);
            FUZZ_CHECK(valid ? parsed.asString() == modelPrinted(text) : parsed == UUID::EMPTY);

            // Any 128 bits, from the input's first 32 bytes: the text of each reads back to it in every accepted
            // spelling, and the order of the words is the order of the texts.
            Fuzz::Input input(data, size);
            const UUID a(input.u64(), input.u64());
            const UUID b(input.u64(), input.u64());
            for (const UUID& uuid : {a, b})
            {
                const std::string printed = uuid.asString();
                FUZZ_CHECK(printed.size() == 36 && UUID::canParse(printed));
                FUZZ_CHECK(UUID::fromString(printed) == uuid);
                FUZZ_CHECK(UUID::fromString(withoutDashes(printed)) == uuid);
                FUZZ_CHECK(UUID::fromString(upperCase(printed)) == uuid);
            }
            FUZZ_CHECK((a < b) == (a.asString() < b.asString()));
        });
    FUZZ_CHECK(asserts.empty());
    return 0;
}
