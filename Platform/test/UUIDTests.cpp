#include "Diagnostics/Assert.h"
#include "UUID.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <random>
#include <string>
#include <vector>

namespace
{
using quv::UUID;

struct ParseCase
{
    const char* label;
    std::string text;
    bool valid;
    uint64_t high;
    uint64_t low;
};

std::vector<ParseCase> parseCases()
{
    using namespace std::string_literals;
    constexpr uint64_t H = 0xb3e0ae89725649acull;
    constexpr uint64_t L = 0x98c12e599aa4c081ull;
    return {
        {"upper case dashed", "B3E0AE89-7256-49AC-98C1-2E599AA4C081", true, H, L},
        {"lower case dashed", "b3e0ae89-7256-49ac-98c1-2e599aa4c081", true, H, L},
        {"mixed case dashed", "b3E0aE89-7256-49aC-98c1-2E599aa4C081", true, H, L},
        {"compact", "B3E0AE89725649AC98C12E599AA4C081", true, H, L},
        {"every digit in both cases", "01234567-89AB-CDEF-0123-456789abcdef", true, 0x0123456789abcdefull,
         0x0123456789abcdefull},
        {"all zeros", "00000000-0000-0000-0000-000000000000", true, 0, 0},
        {"all ones", "ffffffff-ffff-ffff-ffff-ffffffffffff", true, ~0ull, ~0ull},
        {"lowest digit", "00000000-0000-0000-0000-000000000001", true, 0, 1},
        {"highest digit", "10000000-0000-0000-0000-000000000000", true, 1ull << 60, 0},
        {"word boundary", "00000000-0000-0001-8000-000000000000", true, 1, 1ull << 63},
        {"compact word boundary", "0000000000000001f000000000000000", true, 1, 0xfull << 60},
        {"empty", "", false, 0, 0},
        {"dash one early", "B3E0AE8-97256-49AC-98C1-2E599AA4C081", false, 0, 0},
        {"dash at 22 instead of 23", "B3E0AE89-7256-49AC-98C12-E599AA4C081", false, 0, 0},
        {"plus for dash", "B3E0AE89+7256-49AC-98C1-2E599AA4C081", false, 0, 0},
        {"36 digits, no dash", "B3E0AE89A7256A49ACA98C1A2E599AA4C081", false, 0, 0},
        {"g in dashed", "B3E0AE89-7256-49AC-98C1-2E599AA4C08g", false, 0, 0},
        {"G in compact", "G3E0AE89725649AC98C12E599AA4C081", false, 0, 0},
        {"dash in compact", "B3E0AE89-725649AC98C12E599AA4C08", false, 0, 0},
        {"too short", "B3E0AE89-7256-49AC-98C1-2E599AA4C08", false, 0, 0},
        {"too long", "B3E0AE89-7256-49AC-98C1-2E599AA4C0811", false, 0, 0},
        {"compact too short", "B3E0AE89725649AC98C12E599AA4C08", false, 0, 0},
        {"braces", "{B3E0AE89-7256-49AC-98C1-2E599AA4C081}", false, 0, 0},
        {"leading blank", " B3E0AE89725649AC98C12E599AA4C08", false, 0, 0},
        {"byte above 127",
         "B3E0AE89-7256-49AC-98C1-2E599AA4C0\xff"
         "1",
         false, 0, 0},
        {"embedded NUL",
         "B3E0AE89-7256-49AC-98C1-2E599AA4C0\0"
         "1"s,
         false, 0, 0},
    };
}

TEST(UuidTest, ParsesAndValidatesAlike)
{
    for (const ParseCase& c : parseCases())
    {
        SCOPED_TRACE(c.label);
        ASSERT_TRUE(c.text.size() == 32 || c.text.size() == 36 || !c.valid) << "bad table row";
        std::vector<std::string> asserts;
        UUID parsed;
        bool canParse = false;
        Ovelith::Diagnostics::interceptAsserts(
            [&]
            {
                parsed = UUID::fromString(c.text);
                canParse = UUID::canParse(c.text);
            },
            [&](std::string message) { asserts.push_back(std::move(message)); });

        EXPECT_THAT(asserts, testing::IsEmpty());
        EXPECT_EQ(canParse, c.valid);
        EXPECT_EQ(parsed.getHigh(), c.high);
        EXPECT_EQ(parsed.getLow(), c.low);
        EXPECT_EQ(parsed.isEmpty(), c.high == 0 && c.low == 0);
    }
}

// The canonical text of a valid input: lower case, dashed.
std::string canonical(std::string text)
{
    if (text.size() == 32)
    {
        for (size_t position : {8u, 13u, 18u, 23u})
        {
            text.insert(position, 1, '-');
        }
    }
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
    return text;
}

TEST(UuidTest, PrintsCanonicalLowerCaseText)
{
    for (const ParseCase& c : parseCases())
    {
        if (c.valid)
        {
            SCOPED_TRACE(c.label);
            EXPECT_EQ(UUID::fromString(c.text).asString(), canonical(c.text));
        }
    }
    // Every group keeps its leading zeros, and each word lands in the right groups.
    const std::pair<UUID, const char*> printed[] = {
        {UUID(), "00000000-0000-0000-0000-000000000000"},
        {UUID(1, 1), "00000000-0000-0001-0000-000000000001"},
        {UUID(0x0123456789abcdefull, 0xfedcba9876543210ull), "01234567-89ab-cdef-fedc-ba9876543210"},
        {UUID(1ull << 32, 1ull << 48), "00000001-0000-0000-0001-000000000000"},
        {UUID(1ull << 16, 1ull << 16), "00000000-0001-0000-0000-000000010000"},
    };
    for (const auto& [uuid, text] : printed)
    {
        EXPECT_EQ(uuid.asString(), text);
        EXPECT_EQ(UUID::fromString(text), uuid);
    }
}

TEST(UuidTest, EmptyMeansBothWordsZero)
{
    EXPECT_EQ(UUID(), UUID::EMPTY);
    EXPECT_TRUE(UUID::EMPTY.isEmpty());
    EXPECT_FALSE(UUID(0, 1).isEmpty());
    EXPECT_FALSE(UUID(1, 0).isEmpty());
    // A parsed all-zero UUID cannot be told from a failed parse; only canParse can.
    EXPECT_EQ(UUID::fromString("00000000-0000-0000-0000-000000000000"), UUID::fromString("not a uuid"));
}

TEST(UuidTest, OrderMatchesLexicalOrderOfText)
{
    std::vector<UUID> uuids;
    const uint64_t words[] = {0, 1, 0x7fffffffffffffffull, 0x8000000000000000ull, ~0ull};
    for (uint64_t high : words)
    {
        for (uint64_t low : words)
        {
            uuids.emplace_back(high, low);
        }
    }
    std::mt19937_64 random(12345);
    for (int i = 0; i < 40; ++i)
    {
        uuids.emplace_back(random(), random());
    }
    for (const UUID& a : uuids)
    {
        for (const UUID& b : uuids)
        {
            ASSERT_EQ(a < b, a.asString() < b.asString()) << a.asString() << " vs " << b.asString();
            ASSERT_EQ(a == b, a.asString() == b.asString());
            ASSERT_EQ(a != b, !(a == b));
        }
    }
}

TEST(UuidTest, HashMixesBothWords)
{
    const std::hash<UUID> hash;
    EXPECT_EQ(hash(UUID(0, 1)), 0x1f1f1f1fu);
    EXPECT_EQ(hash(UUID(5, 0)), 5u);
    EXPECT_EQ(hash(UUID(5, 2)), (2ull * 0x1f1f1f1full) ^ 5ull);
}
} // namespace
