// Runs the real testhost binary on the fixture module and on inputs it must refuse.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <thread>

extern char** environ;

namespace
{
struct ProcessResult
{
    int exitCode = -1;
    std::string out;
    std::string err;
};

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// A file in the temporary directory, removed with the object.
class TemporaryFile
{
public:
    TemporaryFile()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "hosttest-XXXXXX").string();
        mFd = mkstemp(pattern.data());
        mPath = pattern;
    }
    ~TemporaryFile()
    {
        close(mFd);
        std::filesystem::remove(mPath);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    int fd() const { return mFd; }
    const std::filesystem::path& path() const { return mPath; }

private:
    int mFd = -1;
    std::filesystem::path mPath;
};

// Starts the host with its output going to two files. In a run that crashes on purpose, a sanitizer lets
// signals and exit codes through as they are and skips its leak check, which a case ending mid-way would fail.
pid_t startHost(const std::vector<std::string>& arguments, const TemporaryFile& out, const TemporaryFile& err,
                bool crashing)
{
    std::vector<std::string> argv{HOST_TESTHOST_PATH};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& argument : argv)
    {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    const char* given = std::getenv("ASAN_OPTIONS");
    const std::optional<std::string> sanitizerOptions = given ? std::optional<std::string>(given) : std::nullopt;
    if (crashing)
    {
        const std::string options = sanitizerOptions.value_or("") + ":handle_segv=0:handle_abort=0:detect_leaks=0";
        setenv("ASAN_OPTIONS", options.c_str(), 1);
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out.fd(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.fd(), STDERR_FILENO);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, HOST_TESTHOST_PATH, &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (sanitizerOptions)
    {
        setenv("ASAN_OPTIONS", sanitizerOptions->c_str(), 1);
    }
    else
    {
        unsetenv("ASAN_OPTIONS");
    }
    EXPECT_EQ(spawned, 0) << "cannot start " << HOST_TESTHOST_PATH;
    return spawned == 0 ? pid : -1;
}

ProcessResult runHost(const std::vector<std::string>& arguments, bool crashing = false)
{
    TemporaryFile out;
    TemporaryFile err;
    ProcessResult result;
    const pid_t pid = startHost(arguments, out, err, crashing);
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid)
    {
        return result;
    }
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = readFile(out.path());
    result.err = readFile(err.path());
    return result;
}

std::string lastLine(const std::string& text)
{
    const std::string trimmed = text.ends_with('\n') ? text.substr(0, text.size() - 1) : text;
    const size_t newline = trimmed.rfind('\n');
    return newline == std::string::npos ? trimmed : trimmed.substr(newline + 1);
}

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// The line of the fixture's source that holds `marker`, so that reported places can be checked exactly.
unsigned fixtureLineOf(const std::string& marker)
{
    std::istringstream source(readFile(HOST_FIXTURE_SOURCE_PATH));
    std::string line;
    for (unsigned number = 1; std::getline(source, line); ++number)
    {
        if (contains(line, marker))
        {
            return number;
        }
    }
    ADD_FAILURE() << marker << " not in the fixture";
    return 0;
}

const std::string FIXTURE = HOST_FIXTURE_MODULE_PATH;
const std::string FIXTURE_SOURCE = HOST_FIXTURE_SOURCE_PATH;
const std::string CRASH_FIXTURE = HOST_CRASH_FIXTURE_MODULE_PATH;

// A case's result line with the report lines under it, or nothing.
std::string caseBlock(const std::string& out, const std::string& name)
{
    const std::regex line("(^|\n)(PASS|FAIL|SKIP)  " + name + "( \\(|\n)");
    std::smatch match;
    if (!std::regex_search(out, match, line))
    {
        return {};
    }
    size_t end = static_cast<size_t>(match.position(2));
    do
    {
        end = out.find('\n', end) + 1;
    } while (end != 0 && out.compare(end, 4, "    ") == 0);
    return out.substr(static_cast<size_t>(match.position(2)), end - static_cast<size_t>(match.position(2)));
}

// Workers orphaned by their host become children of this process, so that the checks see them.
class HostIsolationTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { prctl(PR_SET_CHILD_SUBREAPER, 1); }

    // No worker outlives its host, neither running nor as a zombie. (One that did ends within ten minutes.)
    static void expectNoProcessLeft()
    {
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a worker outlived its host";
        EXPECT_EQ(errno, ECHILD);
    }
};
} // namespace

TEST(HostEndToEndTest, SelectionOptionsDecideWhatRuns)
{
    struct Row
    {
        std::vector<std::string> arguments;
        int exitCode;
        std::string summary;
        std::string mustShow;
    };
    const std::vector<Row> rows = {
        {{"--tag", "HostFixture_PassingTests"}, 0, "2 passed, 0 failed", "PASS  HostFixture_PassingTests.Holds"},
        {{"--tag", "suite:perf"}, 0, "1 passed, 0 failed", "PASS  HostFixture_PerfTests.Measures"},
        {{"--filter", "HostFixture_FailingTests.*-*.Throws*"},
         1,
         "1 passed, 2 failed",
         "FAIL  HostFixture_FailingTests.FatalCheck"},
        // The module publishes cases newest first: Passes, then ThrowsUnknown fails and ends the run.
        {{"--filter", "HostFixture_FailingTests.*", "--fail-fast"},
         1,
         "1 passed, 1 failed, 3 skipped",
         "SKIP  HostFixture_FailingTests.Mismatch"},
        {{"-j2", "--filter", "HostFixture_FailingTests.*", "--fail-fast"},
         1,
         "1 passed, 1 failed, 3 skipped",
         "SKIP  HostFixture_FailingTests.Mismatch"},
        {{"--repeat", "2", "--tag", "HostFixture_PassingTests"},
         0,
         "4 passed, 0 failed",
         "PASS  HostFixture_PassingTests.AddsUp"},
        // The failing class alone makes one shard, the two small ones the other.
        {{"--shard-count", "2", "--shard-index", "1"}, 0, "4 passed, 0 failed", "PASS  HostFixture_HookTests.First"},
    };
    for (const Row& row : rows)
    {
        std::vector<std::string> arguments = row.arguments;
        arguments.push_back(FIXTURE);
        const ProcessResult result = runHost(arguments);
        EXPECT_EQ(result.exitCode, row.exitCode) << row.arguments.front() << "\n" << result.out << result.err;
        EXPECT_EQ(lastLine(result.out), row.summary) << row.arguments.front();
        EXPECT_TRUE(contains(result.out, row.mustShow)) << row.arguments.front() << "\n" << result.out;
    }
}

TEST(HostEndToEndTest, GeneratedCasesRunAfterThePlainOnesOnTheirObject)
{
    const std::string module = HOST_GENERATOR_FIXTURE_MODULE_PATH;
    const ProcessResult listed = runHost({"--list", module});
    EXPECT_EQ(listed.exitCode, 0) << listed.err;
    EXPECT_TRUE(contains(listed.out, "1 class, 5 cases")) << listed.out;
    EXPECT_TRUE(contains(listed.out, "HostGenerated_Tests.Gen_Throws  [generated, throws]")) << listed.out;

    for (const char* mode : {"-j1", "-j2"})
    {
        const ProcessResult result = runHost({mode, module});
        EXPECT_EQ(result.exitCode, 1) << mode << "\n" << result.out << result.err;
        EXPECT_EQ(lastLine(result.out), "2 passed, 3 failed") << mode << "\n" << result.out;
        EXPECT_TRUE(caseBlock(result.out, "HostGenerated_Tests.Plain").starts_with("PASS")) << result.out;
        EXPECT_TRUE(caseBlock(result.out, "HostGenerated_Tests.Gen_SameObject").starts_with("PASS")) << result.out;
        EXPECT_TRUE(contains(caseBlock(result.out, "HostGenerated_Tests.Gen_Fails"), ": generated mismatch\n"))
            << result.out;
        const std::string fatal = caseBlock(result.out, "HostGenerated_Tests.Gen_Fatal");
        EXPECT_TRUE(contains(fatal, ": generated fatal\n")) << result.out;
        EXPECT_FALSE(contains(fatal, "after the fatal check")) << "a fatal check ends the generated case";
        EXPECT_EQ(fatal.find(".cpp:", fatal.find(".cpp:") + 1), std::string::npos)
            << "the fatal check reported once: " << fatal;
        EXPECT_TRUE(contains(caseBlock(result.out, "HostGenerated_Tests.Gen_Throws"), "generated boom\n"))
            << result.out;
    }

    // Generated cases are selected by their own tags and names like any other.
    const ProcessResult tagged = runHost({"--tag", "throws", module});
    EXPECT_EQ(lastLine(tagged.out), "0 passed, 1 failed") << tagged.out;
    const ProcessResult filtered = runHost({"--filter", "*.Gen_Same*", module});
    EXPECT_EQ(lastLine(filtered.out), "0 passed, 1 failed") << "alone, it is the first case of its object";
}

TEST(HostEndToEndTest, BadInputGetsOneLineAndExitCodeTwo)
{
    const std::string textFile = FIXTURE_SOURCE;
    struct Row
    {
        std::vector<std::string> arguments;
        std::string error;
    };
    const std::vector<Row> rows = {
        {{"/nonexistent/module.so"}, "test module not found: /nonexistent/module.so"},
        {{textFile}, "cannot load test module: " + textFile + ": "},
        {{std::filesystem::path(textFile).parent_path().string()}, " is a directory"},
        {{HOST_NOT_A_MODULE_PATH}, "does not export getTestModule2"},
        {{FIXTURE, "--filter", "Nothing.*"}, "--filter 'Nothing.*' selects no case of " + FIXTURE},
        {{FIXTURE, "--tag", "nope", "--exclude-tag", "x"}, "--tag nope --exclude-tag x selects no case"},
        {{"--bogus", FIXTURE}, "unknown option '--bogus' (see --help)"},
        {{FIXTURE, "--junit", "/nonexistent-dir/report.xml"}, "cannot write the JUnit report /nonexistent-dir/"},
    };
    for (const Row& row : rows)
    {
        const ProcessResult result = runHost(row.arguments);
        EXPECT_EQ(result.exitCode, 2) << row.error;
        EXPECT_EQ(result.out, "") << row.error;
        EXPECT_TRUE(result.err.starts_with("testhost: error: ")) << result.err;
        EXPECT_TRUE(contains(result.err, row.error)) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
}

TEST_F(HostIsolationTest, EveryWayACaseEndsIsReportedAndTheRunGoesOn)
{
    struct Row
    {
        std::string name;
        std::vector<std::string> lines;
    };
    const std::vector<Row> rows = {
        {"Fates.Passes", {"PASS"}},
        {"Fates.Fails", {"FAIL", ": an ordinary failure\n"}},
        {"Fates.ThrowsUnknown", {"FAIL", ": unknown exception\n"}},
        {"Fates.Segfaults", {"FAIL", ": reported before the crash\n", ": crashed with SIGSEGV\n"}},
        {"Fates.Aborts", {"FAIL", ": crashed with SIGABRT\n"}},
        {"Fates.Exits", {"FAIL", ": exited with status 3\n"}},
        {"Fates.Hangs", {"FAIL", ": timed out after 2 s\n"}},
        {"Fates.PassesAfterAll", {"PASS"}},
        {"Bystanders.SeesOnlyItsSocket", {"PASS"}},
    };
    for (const char* jobs : {"-j1", "-j2"})
    {
        TemporaryFile report;
        const ProcessResult result =
            runHost({"--isolate", jobs, "--timeout", "2", "--junit", report.path().string(), CRASH_FIXTURE}, true);
        EXPECT_EQ(result.exitCode, 1) << jobs << "\n" << result.out << result.err;
        for (const Row& row : rows)
        {
            const std::string block = caseBlock(result.out, "HostCrash_" + row.name);
            EXPECT_TRUE(block.starts_with(row.lines.front())) << jobs << " " << row.name << "\n" << result.out;
            for (size_t index = 1; index < row.lines.size(); ++index)
            {
                EXPECT_TRUE(contains(block, row.lines[index])) << jobs << " " << row.name << "\n" << block;
            }
        }
        EXPECT_EQ(lastLine(result.out), "4 passed, 6 failed") << jobs;
        // The host wrote the whole report itself, crashes and all.
        const std::string xml = readFile(report.path());
        EXPECT_TRUE(contains(xml, "<testsuites name=\"HostCrashFixtureModule\" tests=\"10\" failures=\"6\" ")) << xml;
        EXPECT_TRUE(contains(xml, "<failure message=\"crashed with SIGABRT\">")) << xml;
        EXPECT_TRUE(xml.ends_with("</testsuites>\n"));
        expectNoProcessLeft();
    }
    // A crash is a failure for --fail-fast too.
    const ProcessResult stopped = runHost(
        {"-j2", "--fail-fast", "--filter", "HostCrash_Fates.Segfaults:HostCrash_Fates.Passes*", CRASH_FIXTURE}, true);
    EXPECT_EQ(lastLine(stopped.out), "1 passed, 1 failed, 1 skipped") << stopped.out;
    expectNoProcessLeft();
}

TEST_F(HostIsolationTest, InProcessIsolatedAndParallelRunsReportAlike)
{
    // By file name: a compiler cache may build the fixture under a relative path, which __FILE__ then holds.
    const auto place = [](const std::string& marker)
    {
        return std::filesystem::path(FIXTURE_SOURCE).filename().string() + ":" + std::to_string(fixtureLineOf(marker)) +
               ": ";
    };
    std::vector<std::string> summaries;
    std::vector<std::string> reports;
    for (const char* mode : {"-j1", "--isolate", "-j2"})
    {
        TemporaryFile report;
        const ProcessResult result =
            runHost({mode, "--shuffle", "--seed", "7", "--junit", report.path().string(), FIXTURE});
        const std::string& out = result.out;
        EXPECT_EQ(result.exitCode, 1) << mode;
        EXPECT_EQ(result.err, "") << mode;
        EXPECT_TRUE(out.starts_with("Shuffled with seed 7; --shuffle --seed 7 replays this order\n")) << out;
        // Both non-fatal failures of one case, each with its place and operands; a fatal check ends its case.
        EXPECT_TRUE(contains(out, place("\"the answer\"") + "the answer\n        expected: 41 == 42\n")) << out;
        EXPECT_TRUE(
            contains(out, place("\"markup") + "markup \"quoted\" <here> & there\n        expected: a<b == a&b\n"));
        EXPECT_TRUE(contains(out, ": fatal stop\n") && !contains(out, "after the fatal check")) << mode;
        EXPECT_TRUE(contains(out, ": boom\n") && contains(out, ": unknown exception\n")) << mode;
        // suite:perf stays out of a default run.
        EXPECT_FALSE(contains(out, "HostFixture_PerfTests")) << mode;
        // From the list of failed cases on, all is the same but the time.
        const std::string summary = out.substr(std::min(out.find("\nFailed cases:"), out.size()));
        summaries.push_back(std::regex_replace(summary, std::regex("Ran 9 cases in .*"), ""));
        reports.push_back(std::regex_replace(readFile(report.path()), std::regex(" time=\"[0-9.]+\""), ""));
        expectNoProcessLeft();
    }
    EXPECT_TRUE(summaries[0].ends_with("5 passed, 4 failed\n")) << summaries[0];
    EXPECT_TRUE(contains(reports[0], "<testsuites name=\"HostFixtureModule\" tests=\"9\" failures=\"4\" "));
    // Both reports of a case in its one failure, escaped.
    EXPECT_TRUE(
        contains(reports[0], ": markup \"quoted\" &lt;here&gt; &amp; there\n    expected: a&lt;b == a&amp;b\n"));
    for (size_t index = 1; index < summaries.size(); ++index)
    {
        EXPECT_EQ(summaries[index], summaries[0]);
        EXPECT_EQ(reports[index], reports[0]);
    }
}

TEST_F(HostIsolationTest, WorkersDieWithTheirHost)
{
    TemporaryFile out;
    TemporaryFile err;
    const pid_t host = startHost({"--isolate", "--filter", "HostCrash_Fates.Hangs", CRASH_FIXTURE}, out, err, true);
    ASSERT_GT(host, 0);
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!contains(readFile(err.path()), "hanging") && std::chrono::steady_clock::now() < patience)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    kill(host, SIGKILL);
    waitpid(host, nullptr, 0);
    // The orphaned worker comes to this process, and goes at once.
    while (waitpid(-1, nullptr, WNOHANG) >= 0 && std::chrono::steady_clock::now() < patience)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    expectNoProcessLeft();
}
