#pragma once

#include <optional>
#include <string>

namespace Ovelith::CoreTestFramework
{
/// The two operands of a failed comparison, as text.
struct TestFailureDetails
{
    /** @brief The operator, such as "==". */
    std::string comparison;
    /** @brief The left operand. */
    std::string left;
    /** @brief The right operand. */
    std::string right;
};

/** @brief One failed check, as a host receives it. */
struct TestFailureReport
{
    /** @brief Function of the check. */
    std::string function;
    /** @brief File of the check. */
    std::string file;
    /** @brief Line of the check, as text. */
    std::string line;
    /** @brief The check's message, formatted. */
    std::string message;
    /** @brief The operands, for a comparison. */
    std::optional<TestFailureDetails> details;
};

/// Implemented by a host; receives every failure of a case while the module is initialised.
class TestResultListener
{
public:
    /** @brief Virtual, as hosts derive from it. */
    virtual ~TestResultListener() = default;
    /**
     * @brief Receives one failure.
     * @param report The failure, moved in.
     */
    virtual void reportFailure(TestFailureReport&& report) = 0;
};

/**
 * @brief The listener the module reports to.
 * @return The listener set by the host, not owned; null before initialisation.
 */
TestResultListener* getTestResultListener();
/**
 * @brief Sets the listener the module reports to.
 * @param listener Not owned; must outlive its use.
 */
void setTestResultListener(TestResultListener* listener);
} // namespace Ovelith::CoreTestFramework
