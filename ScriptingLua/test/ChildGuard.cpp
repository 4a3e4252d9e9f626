#include "ChildGuard.h"

#include <fmt/format.h>

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define CORPUS_LEAK_CHECK 1
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define CORPUS_LEAK_CHECK 1
#endif
#ifdef CORPUS_LEAK_CHECK
#include <sanitizer/lsan_interface.h>
#endif

namespace LuaTest::Corpus
{
// A child still running after this is taken to hang; LUA_CORPUS_GUARD_MS overrides it.
std::chrono::milliseconds hangGuard()
{
    const char* text = std::getenv("LUA_CORPUS_GUARD_MS");
    return std::chrono::milliseconds(text != nullptr ? std::atoi(text) : 20000);
}

// Runs `body` in a child process; its report, or what became of the child when it gave none.
std::string runGuarded(const std::function<std::string()>& body, std::chrono::milliseconds guard)
{
    int channel[2];
    if (pipe(channel) != 0)
    {
        return "pipe failed";
    }
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0)
    {
        return "fork failed";
    }
    if (child == 0)
    {
        close(channel[0]);
        std::string report = body();
#ifdef CORPUS_LEAK_CHECK
        // The child leaves by _exit, which skips the leak check at exit; this one runs while its report can
        // still say so.
        if (__lsan_do_recoverable_leak_check() != 0)
        {
            report += "the leak checker found native memory left unreachable\n";
        }
#endif
        // A marker, so that an empty report still tells a child that finished from one that died.
        report.insert(0, "done\n");
        size_t written = 0;
        while (written < report.size())
        {
            const ssize_t count = write(channel[1], report.data() + written, report.size() - written);
            if (count <= 0)
            {
                break;
            }
            written += static_cast<size_t>(count);
        }
        _exit(0);
    }
    close(channel[1]);
    std::string received;
    const auto deadline = std::chrono::steady_clock::now() + guard;
    bool hung = false;
    for (;;)
    {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
        {
            hung = true;
            break;
        }
        pollfd wait{channel[0], POLLIN, 0};
        const int ready = poll(&wait, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR)
        {
            continue;
        }
        if (ready <= 0)
        {
            hung = ready == 0;
            break;
        }
        char buffer[4096];
        const ssize_t count = read(channel[0], buffer, sizeof buffer);
        if (count <= 0)
        {
            break;
        }
        received.append(buffer, static_cast<size_t>(count));
    }
    close(channel[0]);
    if (hung)
    {
        kill(child, SIGKILL);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR)
    {
    }
    if (hung)
    {
        return fmt::format("still running after {} ms: killed\n", guard.count());
    }
    if (WIFSIGNALED(status))
    {
        return fmt::format("the child died of signal {}\n{}", WTERMSIG(status), received);
    }
    if (!received.starts_with("done\n"))
    {
        return fmt::format("the child ended (status {}) without a report\n{}", WEXITSTATUS(status), received);
    }
    return received.substr(5);
}

} // namespace LuaTest::Corpus
