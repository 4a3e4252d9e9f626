#pragma once

#include <optional>
#include <string>

namespace Ovelith::CoreTestFramework
{
// The two operands of a failed comparison, as text.
struct TestFailureDetails
{
    std::string comparison;
    std::string left;
    std::string right;
};

struct TestFailureReport
{
    std::string function;
    std::string file;
    std::string line;
    std::string message;
    std::optional<TestFailureDetails> details;
};

// Implemented by a host; receives every failure of a case while the module is initialised.
class TestResultListener
{
public:
    virtual ~TestResultListener() = default;
    virtual void reportFailure(TestFailureReport&& report) = 0;
};

TestResultListener* getTestResultListener();
void setTestResultListener(TestResultListener* listener);
} // namespace Ovelith::CoreTestFramework
