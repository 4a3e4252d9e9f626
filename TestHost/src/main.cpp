#include "Diagnostics/TerminalText.h"
#include "TestHost/Host.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

int main(int argc, char** argv)
{
    std::ios::sync_with_stdio(false);

    Ovelith::TestHost::HostEnvironment environment;
    std::error_code error;
    environment.executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error && argc > 0)
    {
        environment.executable = argv[0];
    }
    for (const char* name : Ovelith::TestHost::ENVIRONMENT_VARIABLES)
    {
        if (const char* value = std::getenv(name))
        {
            environment.variables.emplace(name, value);
        }
    }
    environment.outputIsTerminal = isatty(STDOUT_FILENO) != 0;
    // https://no-color.org: a NO_COLOR that is present and not empty turns colour off.
    const char* noColor = std::getenv("NO_COLOR");
    environment.colorByDefault = environment.outputIsTerminal && (noColor == nullptr || noColor[0] == '\0');
    environment.errorColorByDefault = Ovelith::Diagnostics::wantsColour(stderr);
    environment.errorDescriptor = STDERR_FILENO;

    const std::vector<std::string_view> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    return Ovelith::TestHost::runHost(arguments, environment, std::cout, std::cerr);
}
