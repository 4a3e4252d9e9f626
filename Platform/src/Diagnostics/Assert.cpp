#include "Diagnostics/Assert.h"

#include <atomic>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>

namespace Ovelith::Diagnostics
{
namespace
{
using Interceptor = std::function<bool(const char* format, va_list arguments)>;

thread_local const Interceptor* tInterceptor = nullptr;

// Atomic only so that a handler set on one thread is seen whole on another; applications set it up front.
std::atomic<AssertHandler> sApplicationHandler{nullptr};

bool defaultAssertHandler(const char* /*message*/, const char* /*expression*/, unsigned line, const char* file,
                          const char* functionSignature)
{
    if (assertsBreakIntoDebugger)
    {
        return true;
    }
    // The place, not the reason: a host identifies the failing spot from this text.
    throw std::runtime_error(std::string("Assertion failed: ") + functionSignature + " " + file + " " +
                             std::to_string(line));
}

std::string formatMessage(const char* format, va_list arguments)
{
    va_list probe;
    va_copy(probe, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, probe);
    va_end(probe);
    if (length <= 0)
    {
        return {};
    }
    std::string text(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.resize(static_cast<size_t>(length));
    return text;
}
} // namespace

bool assertsBreakIntoDebugger = false;

bool reportAssert(const char* message, const char* expression, unsigned line, const char* file,
                  const char* functionSignature, ...)
{
    if (const Interceptor* interceptor = tInterceptor)
    {
        va_list arguments;
        va_start(arguments, functionSignature);
        bool result = false;
        try
        {
            result = (*interceptor)(message, arguments);
        }
        catch (...)
        {
            // A handler may throw to stop the body; the argument list still has to be closed.
            va_end(arguments);
            throw;
        }
        va_end(arguments);
        return result;
    }
    if (const AssertHandler handler = sApplicationHandler.load(std::memory_order_acquire))
    {
        va_list arguments;
        va_start(arguments, functionSignature);
        std::string text;
        try
        {
            text = formatMessage(message, arguments);
        }
        catch (...)
        {
            va_end(arguments);
            throw;
        }
        va_end(arguments);
        return handler(AssertReport{text, expression, file, line, functionSignature});
    }
    return defaultAssertHandler(message, expression, line, file, functionSignature);
}

AssertHandler setAssertHandler(AssertHandler handler)
{
    return sApplicationHandler.exchange(handler, std::memory_order_acq_rel);
}

AssertHandler getAssertHandler()
{
    return sApplicationHandler.load(std::memory_order_acquire);
}

bool debuggerIsEnabled()
{
    return true;
}

void assertBreak()
{
    if (debuggerIsEnabled())
    {
        std::raise(SIGTRAP);
    }
}

void interceptAsserts(const std::function<void()>& body, const std::function<void(std::string)>& handler)
{
    const Interceptor interceptor = [&handler](const char* format, va_list arguments)
    {
        handler(formatMessage(format, arguments));
        return false;
    };
    struct Reset
    {
        ~Reset() { tInterceptor = nullptr; }
    } reset;
    tInterceptor = &interceptor;
    body();
}

std::vector<std::string> collectAsserts(const std::function<void()>& body)
{
    std::vector<std::string> messages;
    interceptAsserts(body, [&messages](std::string message) { messages.push_back(std::move(message)); });
    return messages;
}

template <>
void throwOnAssert<std::string>(const std::function<void()>& body)
{
    interceptAsserts(body, [](std::string message) { throw message; });
}
} // namespace Ovelith::Diagnostics
