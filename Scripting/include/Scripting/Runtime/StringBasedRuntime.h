#pragma once

#include "Scripting/Runtime/IPayload.h"
#include "Scripting/Runtime/IRuntime.h"

#include <string>

namespace Scripting
{
/// The kind of runtime whose language takes source text.
/// Language runtimes derive from it and implement runScript.
class StringBasedRuntime : public IRuntime
{
public:
    /**
     * @brief Dispatches a payload to its string-based form.
     * @param contextId The context.
     * @param payload What to run; null is an Error value.
     * @param option Passed through unchanged.
     * @return The payload's result, or an Error.
     */
    ResultAny run(ContextId contextId, IPayload* payload, RunOption option) override;

    /**
     * @brief Runs source text in a context.
     * @param contextId The context.
     * @param source Script text.
     * @param sourceName Name of the text, for messages and stacks.
     * @param option Passed through unchanged.
     * @return What the script returned, converted, or an Error with the script's stack.
     */
    virtual ResultAny runScript(ContextId contextId, const std::string& source, const std::string& sourceName,
                                RunOption option) = 0;
};
} // namespace Scripting
