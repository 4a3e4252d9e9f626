#include "Scripting/Runtime/Log.h"

#include <cstdio>

namespace Scripting
{
namespace
{
void defaultLogHandler(void* /*userData*/, LogLevel level, const char* text)
{
    switch (level)
    {
    case LogLevel::Info:
        std::printf("Scripting Log Info: %s\n", text);
        break;
    case LogLevel::Warning:
        std::printf("Scripting Log Warning: %s\n", text);
        break;
    case LogLevel::Raw:
        std::printf("%s\n", text);
        break;
    default:
        // Error, and any level this handler does not know, so that nothing is lost quietly.
        std::printf("Scripting Log Error: %s\n", text);
        break;
    }
}

LogHandler sLogHandler = &defaultLogHandler;
void* sLogUserData = nullptr;
} // namespace

void setLogHandler(LogHandler handler, void* userData)
{
    if (handler == nullptr)
    {
        sLogHandler = &defaultLogHandler;
        sLogUserData = nullptr;
        return;
    }
    sLogHandler = handler;
    sLogUserData = userData;
}

bool logAssertAndContinue(const Ovelith::Diagnostics::AssertReport& report)
{
    logMessage(LogLevel::Error, "Library misuse: {} (failed check `{}` in {}, {}:{})", report.message,
               report.expression != nullptr ? report.expression : "", report.function != nullptr ? report.function : "",
               report.file != nullptr ? report.file : "", report.line);
    return false;
}

namespace internal
{
void dispatchLog(LogLevel level, const char* text)
{
    sLogHandler(sLogUserData, level, text);
}
} // namespace internal
} // namespace Scripting
