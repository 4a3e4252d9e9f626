#ifndef ENTT_CORE_HASHED_STRING_HPP
#define ENTT_CORE_HASHED_STRING_HPP

#include "fwd.hpp"
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace entt
{

namespace internal
{

// FNV-1a parameters, chosen by the width of the identifier type.
template <typename>
struct fnv1a_traits;

template <>
struct fnv1a_traits<std::uint32_t>
{
    using type = std::uint32_t;
    static constexpr std::uint32_t offset = 2166136261u;
    static constexpr std::uint32_t prime = 16777619u;
};

template <>
struct fnv1a_traits<std::uint64_t>
{
    using type = std::uint64_t;
    static constexpr std::uint64_t offset = 14695981039346656037ull;
    static constexpr std::uint64_t prime = 1099511628211ull;
};

template <typename Char>
[[nodiscard]] constexpr id_type fnv1a(const Char* str, std::size_t len) noexcept
{
    using traits = fnv1a_traits<id_type>;
    id_type hash = traits::offset;
    for (std::size_t pos{}; pos < len; ++pos)
    {
        hash = static_cast<id_type>((hash ^ static_cast<id_type>(str[pos])) * traits::prime);
    }
    return hash;
}

template <typename Char>
[[nodiscard]] constexpr std::size_t zstring_length(const Char* str) noexcept
{
    std::size_t len{};
    while (str[len] != Char{})
    {
        ++len;
    }
    return len;
}

} // namespace internal

/**
 * @brief A string and its compile-time 32-bit (or 64-bit) FNV-1a hash.
 * @tparam Char Character type.
 */
template <typename Char>
class basic_hashed_string
{
    struct const_wrapper
    {
        // Implicit on purpose: lets a plain pointer pick the runtime constructor.
        constexpr const_wrapper(const Char* str) noexcept : repr{str} {}

        const Char* repr;
    };

public:
    using value_type = Char;
    using size_type = std::size_t;
    using hash_type = id_type;

    [[nodiscard]] static constexpr hash_type value(const value_type* str, const size_type len) noexcept
    {
        return internal::fnv1a(str, len);
    }

    template <std::size_t N>
    [[nodiscard]] static constexpr hash_type value(const value_type (&str)[N]) noexcept
    {
        return internal::fnv1a(str, internal::zstring_length(str));
    }

    [[nodiscard]] static constexpr hash_type value(const_wrapper wrapper) noexcept
    {
        return internal::fnv1a(wrapper.repr, internal::zstring_length(wrapper.repr));
    }

    constexpr basic_hashed_string() noexcept : basic_hashed_string{nullptr, 0u} {}

    constexpr basic_hashed_string(const value_type* str, const size_type len) noexcept
        : repr{str}, length{len}, hash{internal::fnv1a(str, len)}
    {
    }

    template <std::size_t N>
    constexpr basic_hashed_string(const value_type (&str)[N]) noexcept
        : basic_hashed_string{str, internal::zstring_length(str)}
    {
    }

    explicit constexpr basic_hashed_string(const_wrapper wrapper) noexcept
        : basic_hashed_string{wrapper.repr, internal::zstring_length(wrapper.repr)}
    {
    }

    [[nodiscard]] constexpr size_type size() const noexcept { return length; }

    [[nodiscard]] constexpr const value_type* data() const noexcept { return repr; }

    [[nodiscard]] constexpr hash_type value() const noexcept { return hash; }

    [[nodiscard]] constexpr operator const value_type*() const noexcept { return repr; }

    [[nodiscard]] constexpr operator hash_type() const noexcept { return hash; }

private:
    const value_type* repr;
    size_type length;
    hash_type hash;
};

template <typename Char>
basic_hashed_string(const Char* str, const std::size_t len) -> basic_hashed_string<Char>;

template <typename Char, std::size_t N>
basic_hashed_string(const Char (&str)[N]) -> basic_hashed_string<Char>;

template <typename Char>
[[nodiscard]] constexpr bool operator==(const basic_hashed_string<Char>& lhs,
                                        const basic_hashed_string<Char>& rhs) noexcept
{
    return lhs.value() == rhs.value();
}

template <typename Char>
[[nodiscard]] constexpr bool operator<(const basic_hashed_string<Char>& lhs,
                                       const basic_hashed_string<Char>& rhs) noexcept
{
    return lhs.value() < rhs.value();
}

template <typename Char>
[[nodiscard]] constexpr bool operator<=(const basic_hashed_string<Char>& lhs,
                                        const basic_hashed_string<Char>& rhs) noexcept
{
    return !(rhs < lhs);
}

template <typename Char>
[[nodiscard]] constexpr bool operator>(const basic_hashed_string<Char>& lhs,
                                       const basic_hashed_string<Char>& rhs) noexcept
{
    return rhs < lhs;
}

template <typename Char>
[[nodiscard]] constexpr bool operator>=(const basic_hashed_string<Char>& lhs,
                                        const basic_hashed_string<Char>& rhs) noexcept
{
    return !(lhs < rhs);
}

namespace literals
{

[[nodiscard]] constexpr hashed_string operator""_hs(const char* str, std::size_t len) noexcept
{
    return hashed_string{str, len};
}

[[nodiscard]] constexpr hashed_wstring operator""_hws(const wchar_t* str, std::size_t len) noexcept
{
    return hashed_wstring{str, len};
}

} // namespace literals

} // namespace entt

#endif
