// Runs the real testhost binary on the fixture module and on inputs it must refuse.
#include "HostReportFixture.h"

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

// Settings of a host's run beyond its arguments.
struct Launch
{
    // The run crashes on purpose: a sanitizer lets signals and exit codes through as they are and skips its
    // leak check, which a case ending mid-way would fail.
    bool crashing = false;
    // "NAME=value" entries added to (or replacing those of) this process's environment.
    std::vector<std::string> environment;
    std::string program = HOST_TESTHOST_PATH;
};

Launch crashing()
{
    Launch launch;
    launch.crashing = true;
    return launch;
}

Launch withEnvironment(std::vector<std::string> environment, std::string program = HOST_TESTHOST_PATH)
{
    Launch launch;
    launch.environment = std::move(environment);
    launch.program = std::move(program);
    return launch;
}

// Starts the host with its output going to two files.
pid_t startHost(const std::vector<std::string>& arguments, const TemporaryFile& out, const TemporaryFile& err,
                const Launch& launch = {})
{
    std::vector<std::string> argv{launch.program};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& argument : argv)
    {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);

    std::vector<std::string> variables = launch.environment;
    if (launch.crashing)
    {
        const char* given = std::getenv("ASAN_OPTIONS");
        variables.push_back(std::string("ASAN_OPTIONS=") + (given ? given : "") +
                            ":handle_segv=0:handle_abort=0:detect_leaks=0");
    }
    const auto overridden = [&](const std::string& entry)
    {
        const std::string name = entry.substr(0, entry.find('=') + 1);
        return std::any_of(variables.begin(), variables.end(),
                           [&](const std::string& variable) { return variable.starts_with(name); });
    };
    for (char** entry = environ; *entry != nullptr; ++entry)
    {
        if (!overridden(*entry))
        {
            variables.emplace_back(*entry);
        }
    }
    std::vector<char*> environment;
    for (std::string& variable : variables)
    {
        environment.push_back(variable.data());
    }
    environment.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out.fd(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.fd(), STDERR_FILENO);
    pid_t pid = 0;
    const int spawned =
        posix_spawn(&pid, launch.program.c_str(), &actions, nullptr, pointers.data(), environment.data());
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(spawned, 0) << "cannot start " << launch.program;
    return spawned == 0 ? pid : -1;
}

ProcessResult runHost(const std::vector<std::string>& arguments, const Launch& launch = {})
{
    TemporaryFile out;
    TemporaryFile err;
    ProcessResult result;
    const pid_t pid = startHost(arguments, out, err, launch);
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid)
    {
        return result;
    }
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = HostTestSupport::readWholeFile(out.path());
    result.err = HostTestSupport::readWholeFile(err.path());
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
    std::istringstream source(HostTestSupport::readWholeFile(HOST_FIXTURE_SOURCE_PATH));
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
const std::string ROUNDS_FIXTURE = HOST_ROUNDS_FIXTURE_MODULE_PATH;

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
        // Cases run in the order they were declared: Mismatch fails first and ends the run.
        {{"--filter", "HostFixture_FailingTests.*", "--fail-fast"},
         1,
         "0 passed, 1 failed, 4 skipped",
         "SKIP  HostFixture_FailingTests.Passes"},
        {{"-j2", "--filter", "HostFixture_FailingTests.*", "--fail-fast"},
         1,
         "0 passed, 1 failed, 4 skipped",
         "SKIP  HostFixture_FailingTests.Passes"},
        // The module's own order is newest first: Passes, then ThrowsUnknown fails.
        {{"--module-order", "--filter", "HostFixture_FailingTests.*", "--fail-fast"},
         1,
         "1 passed, 1 failed, 3 skipped",
         "SKIP  HostFixture_FailingTests.Mismatch"},
        {{"--repeat", "2", "--tag", "HostFixture_PassingTests"},
         0,
         "4 passed, 0 failed",
         "PASS  HostFixture_PassingTests.AddsUp"},
        // Hidden cases stay hidden under a filter that names none of them.
        {{"--filter", "-Nothing.Matches"}, 1, "5 passed, 4 failed", "PASS  HostFixture_PassingTests.Holds"},
        {{"--filter", "*Perf*"}, 0, "1 passed, 0 failed", "PASS  HostFixture_PerfTests.Measures"},
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

TEST_F(HostIsolationTest, ShardsSplitCasesInDeclarationOrderHoweverTheyRun)
{
    // The default selection in declaration order; case i belongs to shard i mod 3.
    const std::vector<std::string> cases = {
        "HostFixture_PassingTests.AddsUp",   "HostFixture_PassingTests.Holds",
        "HostFixture_HookTests.First",       "HostFixture_HookTests.Second",
        "HostFixture_FailingTests.Mismatch", "HostFixture_FailingTests.FatalCheck",
        "HostFixture_FailingTests.Throws",   "HostFixture_FailingTests.ThrowsUnknown",
        "HostFixture_FailingTests.Passes"};
    const std::regex resultLine("(^|\n)(PASS|FAIL)  ([^ ]+) \\(");
    for (const std::vector<std::string>& mode : std::vector<std::vector<std::string>>{{}, {"-j2"}, {"--environment"}})
    {
        for (size_t index = 0; index < 3; ++index)
        {
            std::vector<std::string> arguments = {FIXTURE};
            Launch launch;
            if (mode.empty() || mode.front() != "--environment")
            {
                arguments.insert(arguments.end(), mode.begin(), mode.end());
                arguments.insert(arguments.end(), {"--shard-count", "3", "--shard-index", std::to_string(index)});
            }
            else
            {
                launch.environment = {"GTEST_TOTAL_SHARDS=3", "GTEST_SHARD_INDEX=" + std::to_string(index)};
            }
            const ProcessResult result = runHost(arguments, launch);
            std::vector<std::string> ran;
            for (auto it = std::sregex_iterator(result.out.begin(), result.out.end(), resultLine);
                 it != std::sregex_iterator(); ++it)
            {
                ran.push_back((*it)[3]);
            }
            // Workers print cases as they finish; the shard's content is what counts.
            std::sort(ran.begin(), ran.end());
            std::vector<std::string> expected = {cases[index], cases[index + 3], cases[index + 6]};
            std::sort(expected.begin(), expected.end());
            const std::string label =
                (mode.empty() ? std::string("in process") : mode.front()) + " " + std::to_string(index);
            EXPECT_EQ(ran, expected) << label << "\n" << result.out;
            // The hook class's cases land in different shards, and each shard made its own object for its one.
            EXPECT_FALSE(contains(result.out, "one object per class")) << label << "\n" << result.out;
            expectNoProcessLeft();
        }
    }
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
        {{FIXTURE, "--filter", ":::"}, "--filter ':::' holds only empty patterns"},
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
        {"Fates.ThrowsUnknown", {"FAIL", ": uncaught exception (int)\n"}},
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
        const ProcessResult result = runHost(
            {"--isolate", jobs, "--timeout", "2", "--junit", report.path().string(), CRASH_FIXTURE}, crashing());
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
        const std::string xml = HostTestSupport::readWholeFile(report.path());
        EXPECT_TRUE(contains(xml, "<testsuites name=\"HostCrashFixtureModule\" tests=\"10\" failures=\"6\" ")) << xml;
        EXPECT_TRUE(contains(xml, "<failure message=\"crashed with SIGABRT\">")) << xml;
        EXPECT_TRUE(xml.ends_with("</testsuites>\n"));
        expectNoProcessLeft();
    }
    // A crash is a failure for --fail-fast too.
    const ProcessResult stopped =
        runHost({"-j2", "--fail-fast", "--filter", "HostCrash_Fates.Segfaults:HostCrash_Fates.Passes*", CRASH_FIXTURE},
                crashing());
    EXPECT_EQ(lastLine(stopped.out), "1 passed, 1 failed, 1 skipped") << stopped.out;
    expectNoProcessLeft();
}

TEST_F(HostIsolationTest, InProcessIsolatedAndParallelRunsReportAlike)
{
    // The file name alone: how the compiler spells the path (absolute, or relative under a compiler cache) is
    // not what this test is about.
    const auto place = [](const std::string& marker)
    {
        const std::string file = std::filesystem::path(FIXTURE_SOURCE).filename().string();
        return "/" + file + ":" + std::to_string(fixtureLineOf(marker)) + ": ";
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
        EXPECT_TRUE(contains(out, place("the answer  \"") + "the answer\n        expected: 41 == 42\n")) << out;
        EXPECT_TRUE(
            contains(out, place("\"markup") + "markup \"quoted\" <here> & there\n        expected: a<b == a&b\n"));
        EXPECT_TRUE(contains(out, ": fatal stop\n") && !contains(out, "after the fatal check")) << mode;
        EXPECT_TRUE(contains(out, ": uncaught exception (std::runtime_error): boom\n") &&
                    contains(out, ": uncaught exception (int)\n"))
            << mode;
        // suite:perf stays out of a default run.
        EXPECT_FALSE(contains(out, "HostFixture_PerfTests")) << mode;
        // From the list of failed cases on, all is the same but the time.
        const std::string summary = out.substr(std::min(out.find("\nFailed cases:"), out.size()));
        summaries.push_back(std::regex_replace(summary, std::regex("Ran 9 cases in .*"), ""));
        reports.push_back(
            std::regex_replace(HostTestSupport::readWholeFile(report.path()), std::regex(" time=\"[0-9.]+\""), ""));
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
    const pid_t host =
        startHost({"--isolate", "--filter", "HostCrash_Fates.Hangs", CRASH_FIXTURE}, out, err, crashing());
    ASSERT_GT(host, 0);
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!contains(HostTestSupport::readWholeFile(err.path()), "hanging") &&
           std::chrono::steady_clock::now() < patience)
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

TEST(HostEndToEndTest, ACaseThatEndsTheHostLeavesReportsThatNameIt)
{
    struct Row
    {
        std::string filter;
        int exitCode;
        std::string cause;
        // Where the case failed before it went down.
        std::string firstMessage;
    };
    const std::vector<Row> rows = {
        {"HostCrash_Fates.Segfaults:HostCrash_Fates.Passes*", 128 + SIGSEGV, "crashed with SIGSEGV",
         "reported before the crash"},
        {"HostCrash_Fates.Aborts:HostCrash_Fates.Passes*", 128 + SIGABRT, "crashed with SIGABRT",
         "crashed with SIGABRT"},
        {"HostCrash_Fates.Exits:HostCrash_Fates.Passes*", 3, "called exit", "called exit"},
    };
    for (const Row& row : rows)
    {
        TemporaryFile junit;
        TemporaryFile json;
        const ProcessResult result = runHost(
            {"--filter", row.filter, "--junit", junit.path().string(), "--json", json.path().string(), CRASH_FIXTURE},
            crashing());
        const std::string name = row.filter.substr(0, row.filter.find(':'));
        EXPECT_EQ(result.exitCode, row.exitCode) << row.cause;
        // The console named the case as it started; the host says what happened to it.
        EXPECT_TRUE(result.out.ends_with("RUN   " + name + "\n")) << result.out;
        EXPECT_TRUE(contains(result.err, "testhost: " + name + " " + row.cause + "; the reports hold")) << result.err;

        const std::string xml = HostTestSupport::readWholeFile(junit.path());
        const std::string caseName = name.substr(name.find('.') + 1);
        EXPECT_TRUE(contains(xml, R"(tests="2" failures="1" errors="0" skipped="0")")) << xml;
        EXPECT_TRUE(contains(xml, "<testcase classname=\"HostCrashFixtureModule.HostCrash_Fates\" name=\"" + caseName))
            << xml;
        EXPECT_TRUE(contains(xml, "<failure message=\"" + row.firstMessage + "\">")) << xml;
        EXPECT_TRUE(contains(xml, caseName + " at ")) << xml;
        EXPECT_TRUE(contains(xml, ": " + row.cause + "\n</failure>")) << xml;
        EXPECT_TRUE(xml.ends_with("</testsuites>\n")) << xml;
        const std::string report = HostTestSupport::readWholeFile(json.path());
        EXPECT_TRUE(contains(report, "\"message\": \"" + row.cause + "\"}]}")) << report;
        EXPECT_TRUE(report.ends_with("]\n}\n")) << report;
    }
}

TEST(HostEndToEndTest, RoundsRepeatUntilAFailureAndReportsKeepOneEntryPerCase)
{
    struct Row
    {
        std::vector<std::string> arguments;
        int exitCode;
        std::string summary;
        std::string mustShow;
    };
    const std::vector<Row> rows = {
        // The third round fails, and the run ends with it.
        {{"--repeat", "until-fail"}, 1, "5 passed, 1 failed", "Round 3\n"},
        // A later passed round does not hide the failure.
        {{"--repeat", "4"}, 1, "7 passed, 1 failed", "Round 3 of 4\nRUN   HostRounds_Counting.FailsInThirdRound\n"},
        {{"--repeat", "2"}, 0, "4 passed, 0 failed", "Round 2 of 2\nRUN   HostRounds_Counting.FailsInThirdRound\n"},
    };
    for (const Row& row : rows)
    {
        TemporaryFile junit;
        std::vector<std::string> arguments = row.arguments;
        arguments.insert(arguments.end(), {"--junit", junit.path().string(), ROUNDS_FIXTURE});
        const ProcessResult result = runHost(arguments);
        EXPECT_EQ(result.exitCode, row.exitCode) << row.summary << result.out;
        EXPECT_EQ(lastLine(result.out), row.summary);
        EXPECT_TRUE(contains(result.out, row.mustShow)) << result.out;
        const std::string xml = HostTestSupport::readWholeFile(junit.path());
        size_t testcases = 0;
        for (size_t at = xml.find("<testcase "); at != std::string::npos; at = xml.find("<testcase ", at + 1))
        {
            ++testcases;
        }
        EXPECT_EQ(testcases, 2u) << xml;
        // The failure names its round wherever it is listed.
        EXPECT_EQ(contains(xml, "<failure message=\"round 3: call 3\">round 3: "), row.exitCode == 1) << xml;
        EXPECT_EQ(contains(result.out, "Failed cases:\n    HostRounds_Counting.FailsInThirdRound (round 3)\n"),
                  row.exitCode == 1)
            << result.out;
    }
}

TEST(HostEndToEndTest, ReportingOptionsShapeTheConsole)
{
    struct Row
    {
        std::vector<std::string> arguments;
        std::vector<std::string> present;
        std::vector<std::string> absent;
    };
    const std::vector<Row> rows = {
        {{"--brief"}, {"FAIL  HostFixture_FailingTests.Mismatch (", "\n5 passed, 4 failed\n"}, {"PASS  ", "RUN   "}},
        {{"--max-failures", "2", "--filter", "HostFixture_FailingTests.*"},
         {"0 passed, 2 failed, 3 skipped\n", "FAIL  HostFixture_FailingTests.FatalCheck"},
         {"FAIL  HostFixture_FailingTests.Throws "}},
        {{"--durations", "2"}, {"\nSlowest 2 cases:\n"}, {}},
        // In process every case is named as it starts; in workers only when asked.
        {{}, {"RUN   HostFixture_PassingTests.Holds\nPASS  HostFixture_PassingTests.Holds ("}, {}},
        {{"-j2"}, {"PASS  HostFixture_PassingTests.Holds"}, {"RUN   "}},
        {{"-j2", "--verbose"}, {"RUN   HostFixture_PassingTests.Holds\n"}, {}},
        {{"--list", "--format", "json", "--tag", "HostFixture_PassingTests"},
         {"{\n  \"module\": \"HostFixtureModule\",\n",
          "{\"name\": \"HostFixture_PassingTests\", \"tags\": [\"hostfixture_passingtests\", \"suite:pull_request\", "
          "\"unit_test\"], \"cases\": [\n      {\"name\": \"AddsUp\", \"fullName\": "
          "\"HostFixture_PassingTests.AddsUp\", "
          "\"tags\": [\"addsup\"], \"file\": "},
         {"HostFixture_FailingTests"}},
    };
    for (const Row& row : rows)
    {
        std::vector<std::string> arguments = row.arguments;
        arguments.push_back(FIXTURE);
        const ProcessResult result = runHost(arguments);
        const std::string label = row.arguments.empty() ? "(none)" : row.arguments.front();
        for (const std::string& text : row.present)
        {
            EXPECT_TRUE(contains(result.out, text)) << label << " lacks " << text << "\n" << result.out;
        }
        for (const std::string& text : row.absent)
        {
            EXPECT_FALSE(contains(result.out, text)) << label << " has " << text << "\n" << result.out;
        }
    }
    const ProcessResult version = runHost({"--version"});
    EXPECT_TRUE(std::regex_match(version.out, std::regex("testhost [0-9]+\\.[0-9]+\\.[0-9]+\n"))) << version.out;
}

TEST(HostEndToEndTest, TheEnvironmentNamesTheModuleAndTheShard)
{
    // A host copied away from its build finds no module of that build.
    const std::filesystem::path directory = std::filesystem::path(TemporaryFile().path()).concat("-host");
    std::filesystem::create_directory(directory);
    const std::filesystem::path copy = directory / "testhost";
    std::filesystem::copy_file(HOST_TESTHOST_PATH, copy);
    const ProcessResult alone = runHost({}, withEnvironment({}, copy.string()));
    EXPECT_EQ(alone.exitCode, 2);
    EXPECT_EQ(alone.err, "testhost: error: no test module given, and none at " +
                             (directory / "ScriptingTests.so").string() + "; name one, or set TESTHOST_MODULE\n");
    const ProcessResult named =
        runHost({"--tag", "HostFixture_PassingTests"}, withEnvironment({"TESTHOST_MODULE=" + FIXTURE}, copy.string()));
    EXPECT_EQ(lastLine(named.out), "2 passed, 0 failed") << named.err;

    // GoogleTest's variables shard as --shard-count and --shard-index do, and the status file tells a runner so.
    const std::filesystem::path status = directory / "sharded";
    const ProcessResult shard = runHost({FIXTURE}, withEnvironment({"GTEST_TOTAL_SHARDS=2", "GTEST_SHARD_INDEX=1",
                                                                    "GTEST_SHARD_STATUS_FILE=" + status.string()}));
    EXPECT_EQ(lastLine(shard.out), "2 passed, 2 failed");
    EXPECT_TRUE(std::filesystem::exists(status));
    const ProcessResult half = runHost({FIXTURE}, withEnvironment({"GTEST_TOTAL_SHARDS=2"}));
    EXPECT_EQ(half.exitCode, 2);
    EXPECT_TRUE(contains(half.err, "only GTEST_TOTAL_SHARDS is set")) << half.err;
    std::filesystem::remove_all(directory);
}

TEST(HostEndToEndTest, ErrorsQuotingTheModuleLoseTheirMarkupOrShowItAsColour)
{
    const std::string module = HOST_INIT_FAILURE_FIXTURE_MODULE_PATH;
    const ProcessResult plain = runHost({module});
    EXPECT_EQ(plain.exitCode, 2);
    EXPECT_EQ(plain.err, "testhost: error: the module failed to initialise: Missing Versioned Modules:\n"
                         "    [@m - 2.0.0] requested by [app - 1.0.0]\n");
    const ProcessResult coloured = runHost({"--color", "always", module});
    EXPECT_TRUE(contains(coloured.err, "initialise: \033[91mMissing Versioned Modules:\033[0m\n    \033[91m[@m"))
        << coloured.err;
}
