#pragma once

#include <cstdint>
#include <cstring>

#if __has_include(<source_location>)
#include <source_location>
#endif

namespace ovstd
{
// Where a check stands. Captured as a default argument, so it names the caller.
struct source_location
{
    uint32_t line = 0;
    uint32_t column = 0;
    const char* file_name = "";
    // The enclosing function; a full signature where the compiler offers one, else its bare name.
    const char* function_name = "";
    uint32_t file_name_length = 0;
    uint32_t function_name_length = 0;

#if defined(__cpp_lib_source_location)
    static constexpr source_location current(std::source_location where = std::source_location::current()) noexcept
    {
        return make(where.line(), where.column(), where.file_name(), where.function_name());
    }
#else
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
