// Runs the real testhost binary on the fixture module and on inputs it must refuse.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

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

ProcessResult runHost(const std::vector<std::string>& arguments)
{
    TemporaryFile out;
    TemporaryFile err;
    std::vector<std::string> argv{HOST_TESTHOST_PATH};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& argument : argv)
    {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out.fd(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.fd(), STDERR_FILENO);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, HOST_TESTHOST_PATH, &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ProcessResult result;
    if (spawned != 0)
    {
        ADD_FAILURE() << "cannot start " << HOST_TESTHOST_PATH;
        return result;
    }
    int status = 0;
    waitpid(pid, &status, 0);
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
} // namespace

TEST(HostEndToEndTest, DefaultRunReportsEveryOutcomeAndExitsOne)
{
    const ProcessResult result = runHost({FIXTURE});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "");
    const std::string& out = result.out;
    for (const char* passed :
         {"HostFixture_PassingTests.AddsUp", "HostFixture_PassingTests.Holds", "HostFixture_HookTests.First",
          "HostFixture_HookTests.Second", "HostFixture_FailingTests.Passes"})
    {
        EXPECT_TRUE(contains(out, std::string("PASS  ") + passed + " (")) << passed << "\n" << out;
    }
    for (const char* failed : {"Mismatch", "FatalCheck", "Throws", "ThrowsUnknown"})
    {
        EXPECT_TRUE(contains(out, std::string("FAIL  HostFixture_FailingTests.") + failed + " (")) << failed;
    }
    // Both non-fatal failures of one case, each with its place and operands.
    EXPECT_TRUE(contains(out, FIXTURE_SOURCE + ":" + std::to_string(fixtureLineOf("\"the answer\"")) +
                                  ": the answer\n        expected: 41 == 42\n"))
        << out;
    EXPECT_TRUE(contains(out, FIXTURE_SOURCE + ":" + std::to_string(fixtureLineOf("\"markup")) +
                                  ": markup \"quoted\" <here> & there\n        expected: a<b == a&b\n"))
        << out;
    EXPECT_TRUE(contains(out, ": fatal stop\n"));
    EXPECT_FALSE(contains(out, "after the fatal check"));
    EXPECT_TRUE(contains(out, ": boom\n"));
    EXPECT_TRUE(contains(out, ": unknown exception\n"));
    // suite:perf stays out of a default run.
    EXPECT_FALSE(contains(out, "HostFixture_PerfTests"));
    EXPECT_EQ(lastLine(out), "5 passed, 4 failed");
}

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

TEST(HostEndToEndTest, ListShowsTagsAndPlacesAndRunsNothing)
{
    const ProcessResult result = runHost({"--list", FIXTURE});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(contains(result.out, "\nHostFixture_FailingTests  [hostfixture_failingtests, suite:pull_request, "
                                     "unit_test]\n"))
        << result.out;
    EXPECT_TRUE(contains(result.out, "    HostFixture_FailingTests.Mismatch  [mismatch]  " + FIXTURE_SOURCE + ":" +
                                         std::to_string(fixtureLineOf("ZUT_TEST(Mismatch)")) + "\n"))
        << result.out;
    EXPECT_FALSE(contains(result.out, "PerfTests"));
    EXPECT_FALSE(contains(result.out, "PASS"));
}

TEST(HostEndToEndTest, JUnitReportAccompaniesTheConsole)
{
    // The document's layout is pinned by the reporter's own test; this checks what reaches the file.
    TemporaryFile report;
    const ProcessResult result = runHost({"--junit", report.path().string(), FIXTURE});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(lastLine(result.out), "5 passed, 4 failed");
    const std::string xml = readFile(report.path());
    EXPECT_TRUE(contains(xml, "<testsuites name=\"HostFixtureModule\" tests=\"9\" failures=\"4\" ")) << xml;
    EXPECT_TRUE(contains(xml, "<testcase classname=\"HostFixtureModule.HostFixture_FailingTests\" name=\"Mismatch\""));
    // Both reports of the case in its one failure, escaped.
    EXPECT_TRUE(contains(xml, "<failure message=\"the answer\">Mismatch at "));
    EXPECT_TRUE(contains(xml, ": markup \"quoted\" &lt;here&gt; &amp; there\n    expected: a&lt;b == a&amp;b\n"));
    EXPECT_TRUE(xml.ends_with("</testsuites>\n"));
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
