#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace quv
{
/// 128-bit identity of a script module. Any 32 hexadecimal digits make one: there is no version or
/// variant logic, and nothing here generates UUIDs.
class UUID
{
public:
    /** @brief The empty UUID, EMPTY. */
    constexpr UUID() = default;
    /// The first hexadecimal digit of the text form is the top nibble of `high`.
    /// @param high The upper 64 bits.
    /// @param low The lower 64 bits.
    constexpr UUID(uint64_t high, uint64_t low) : mHigh(high), mLow(low) {}

    /// Both words zero; also what a malformed text parses to.
    static const UUID EMPTY;

    /// Accepts 32 hexadecimal digits, or 36 characters with dashes at 8, 13, 18 and 23. Case is ignored.
    /// Anything else yields EMPTY; a malformed text is an expected input, not a misuse.
    /// @param text The text.
    /// @return The UUID, or EMPTY.
    static UUID fromString(std::string_view text);
    /**
     * @brief Whether fromString() would accept a text.
     * @param text The text.
     * @return True for one of the two accepted forms.
     */
    static bool canParse(std::string_view text);

    /// Always 36 lower-case characters in the dashed form.
    /// @return The text.
    std::string asString() const;

    /**
     * @brief Whether both words are zero.
     * @return True for EMPTY.
     */
    constexpr bool isEmpty() const { return mHigh == 0 && mLow == 0; }
    /** @return The upper 64 bits. */
    constexpr uint64_t getHigh() const { return mHigh; }
    /** @return The lower 64 bits. */
    constexpr uint64_t getLow() const { return mLow; }

    /// Word by word, unsigned: the same order as the lower-case text.
    /// @return The order of the two UUIDs.
    constexpr auto operator<=>(const UUID&) const = default;

    /** @brief Hash of a UUID, for unordered containers. */
    struct Hash
    {
        /**
         * @brief Folds the two words.
         * @param uuid The UUID.
         * @return Its hash.
         */
        constexpr size_t operator()(const UUID& uuid) const noexcept
        {
            return static_cast<size_t>(uuid.mLow * 0x1f1f1f1full ^ uuid.mHigh);
        }
    };

private:
    uint64_t mHigh = 0;
    uint64_t mLow = 0;
};

inline constexpr UUID UUID::EMPTY{};
} // namespace quv

/** @brief UUID::Hash as the standard hash. */
template <>
struct std::hash<quv::UUID> : quv::UUID::Hash
{
};
