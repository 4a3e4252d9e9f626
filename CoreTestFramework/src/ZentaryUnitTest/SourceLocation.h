#pragma once

#include <cstdint>
#include <cstring>

#if __has_include(<source_location>)
#include <source_location>
#endif

namespace ovstd
{
/// Where a check stands. Captured as a default argument, so it names the caller.
struct source_location
{
    /** @brief Line of the call. */
    uint32_t line = 0;
    /** @brief Column of the call, where the compiler offers one. */
    uint32_t column = 0;
    /** @brief File of the call. */
    const char* file_name = "";
    /// The enclosing function; a full signature where the compiler offers one, else its bare name.
    const char* function_name = "";
    /** @brief Length of file_name. */
    uint32_t file_name_length = 0;
    /** @brief Length of function_name. */
    uint32_t function_name_length = 0;

#if defined(__cpp_lib_source_location)
    /**
     * @brief The place of the caller, when used as a default argument.
     * @param where Filled in by the compiler.
     * @return The place.
     */
    static constexpr source_location current(std::source_location where = std::source_location::current()) noexcept
    {
        return make(where.line(), where.column(), where.file_name(), where.function_name());
    }
#else
    /**
     * @brief The place of the caller, when used as a default argument.
     * @param line Filled in by the compiler.
     * @param column Filled in by the compiler.
     * @param file Filled in by the compiler.
     * @param function Filled in by the compiler.
     * @return The place.
     */
    static constexpr source_location current(uint32_t line = __builtin_LINE(), uint32_t column = __builtin_COLUMN(),
                                             const char* file = __builtin_FILE(),
                                             const char* function = __builtin_FUNCTION()) noexcept
    {
        return make(line, column, file, function);
    }
#endif

private:
    static constexpr source_location make(uint32_t line, uint32_t column, const char* file,
                                          const char* function) noexcept
    {
        return {line, column, file, function, length(file), length(function)};
    }
    static constexpr uint32_t length(const char* text) noexcept
    {
        uint32_t n = 0;
        while (text[n] != '\0')
        {
            ++n;
        }
        return n;
    }
};
} // namespace ovstd
