#pragma once

#include "Scripting/Reflection/Reflection.h"
#include "Scripting/Runtime/Error.h"

#include <entt/meta/factory.hpp>

#include <concepts>
#include <type_traits>
#include <utility>

namespace Scripting
{
// A value or an error, type-erased: what crosses between native code and a script when a call can fail in
// an expected way. Nothing here copies or moves the held object where that can be avoided.
class ResultAny
{
public:
    ResultAny() = default;

    // Holds a copy of `error` under its own type.
    template <typename E>
    requires std::derived_from<std::remove_cvref_t<E>, Error> ResultAny(E&& error) : mIsError(true)
    {
        using ErrorType = std::remove_cvref_t<E>;
        if constexpr (!std::is_same_v<ErrorType, Error>)
        {
            // Lets the held error be read as an Error whatever its own type is.
            entt::meta<ErrorType>(Reflection::context()).template base<Error>();
        }
        mValue.template emplace<ErrorType>(std::forward<E>(error));
    }

    // The only way to bring an existing meta_any in as a value. Error objects must come through the error
    // constructor instead.
    static ResultAny makeResultFromAny(const entt::meta_any& any);
    static ResultAny makeResultFromAny(entt::meta_any&& any);

    // Constructs the value in place.
    template <typename T, typename... Args>
    static ResultAny makeResult(Args&&... args)
    {
        ResultAny result;
        result.mValue.template emplace<T>(std::forward<Args>(args)...);
        return result;
    }

    bool isError() const { return mIsError; }
    const Error* tryGetError() const;

    // Hands the held meta_any over without touching the object in it.
    entt::meta_any toAny() && { return std::move(mValue); }
    const entt::meta_any& any() const { return mValue; }
    entt::meta_any& any() { return mValue; }

private:
    static void _checkNotError(const entt::meta_any& resultAny);

    bool mIsError = false;
    entt::meta_any mValue;
};
} // namespace Scripting
