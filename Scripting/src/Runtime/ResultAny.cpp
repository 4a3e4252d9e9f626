#include "Scripting/Runtime/ResultAny.h"

#include "Diagnostics/Assert.h"

#include <stdexcept>

namespace Scripting
{
namespace
{
const entt::meta_type& errorType()
{
    static const entt::meta_type sErrorType = Reflection::resolve<Error>();
    return sErrorType;
}
} // namespace

void ResultAny::_checkNotError(const entt::meta_any& any)
{
    const entt::meta_any resultAny = any.as_ref();
    const entt::meta_type& sErrorType = errorType();
    OV_ASSERT(resultAny.type() != sErrorType && !Reflection::HasBaseType(sErrorType, resultAny.type()),
              "Do not call makeResultFromAny with an error object.");
}

ResultAny ResultAny::makeResultFromAny(const entt::meta_any& any)
{
    _checkNotError(any);
    ResultAny result;
    result.mValue = any;
    return result;
}

ResultAny ResultAny::makeResultFromAny(entt::meta_any&& any)
{
    _checkNotError(any);
    ResultAny result;
    result.mValue = std::move(any);
    return result;
}

const Error* ResultAny::tryGetError() const
{
    return mIsError ? mValue.try_cast<const Error>() : nullptr;
}
} // namespace Scripting

namespace Scripting::internal
{
void throwWrongResultType()
{
    // Deliberately a throw: even with the assert captured, no result of the wrong type may come into being.
    throw std::runtime_error("ResultAny is not same type as Result<T>!");
}
} // namespace Scripting::internal
