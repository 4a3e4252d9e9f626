#pragma once

#include "Scripting/Runtime/IPayload.h"
#include "Scripting/Runtime/IRuntime.h"

#include <string>

namespace Scripting
{
// The kind of runtime whose language takes source text.
class StringBasedRuntime : public IRuntime
{
public:
    ResultAny run(ContextId contextId, IPayload* payload, RunOption option) override;

    virtual ResultAny runScript(ContextId contextId, const std::string& source, const std::string& sourceName,
                                RunOption option) = 0;
};
} // namespace Scripting
