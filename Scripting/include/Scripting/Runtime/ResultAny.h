#pragma once

#include "Scripting/Reflection/Reflection.h"
#include "Scripting/Runtime/Error.h"

#include <entt/meta/factory.hpp>

#include <concepts>
#include <type_traits>
#include <utility>

namespace Scripting
{
/// A value or an error, type-erased: what crosses between native code and a script when a call can fail in
/// an expected way. Nothing here copies the held object unless the result itself is copied, and building a value
/// in place never moves it.
///
/// The value lives in the meta_any as EnTT stores it: a type of at most 16 bytes (8-byte aligned) with a noexcept
/// move constructor sits inside the meta_any, anything else on the heap. A move of the result, and toAny, hands a
/// heap value over by pointer, but moves an inline value once (the moved-from object stays behind in the source
/// until that is destroyed), so a pointer from tryGet or any() does not survive a move of the result for such
/// values. Keeping every value on the heap would cost an allocation per result instead.
class ResultAny
{
public:
    /** @brief An empty success: no error, an empty any. */
    ResultAny() = default;

    /// Holds a copy of `error` under its own type.
    /// @tparam E Error or a type derived from it.
    /// @param error The error.
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

    /// The only way to bring an existing meta_any in as a value. Error objects must come through the error
    /// constructor instead.
    /// @param any The value, copied; an Error in it asserts.
    /// @return The result.
    static ResultAny makeResultFromAny(const entt::meta_any& any);
    /**
     * @brief As the copying form, taking the any over.
     * @param any The value; an Error in it asserts.
     * @return The result.
     */
    static ResultAny makeResultFromAny(entt::meta_any&& any);

    /// Constructs the value in place.
    /// @tparam T Value type.
    /// @tparam Args Constructor argument types.
    /// @param args Constructor arguments.
    /// @return The result.
    template <typename T, typename... Args>
    static ResultAny makeResult(Args&&... args)
    {
        return ResultAny(std::in_place_type<T>, std::forward<Args>(args)...);
    }

    /**
     * @brief Whether the result holds an error.
     * @return True for an error.
     */
    bool isError() const { return mIsError; }
    /**
     * @brief The held error, as an Error whatever its own type.
     * @return The error, owned by the result; null for a value.
     */
    const Error* tryGetError() const;

    /// Hands the held meta_any over without touching the object in it.
    /// @return The held any, value or error.
    entt::meta_any toAny() && { return std::move(mValue); }
    /**
     * @brief The held any, value or error.
     * @return A reference into the result.
     */
    const entt::meta_any& any() const { return mValue; }
    /**
     * @brief The held any, value or error.
     * @return A reference into the result.
     */
    entt::meta_any& any() { return mValue; }

private:
    template <typename T, typename... Args>
    explicit ResultAny(std::in_place_type_t<T>, Args&&... args)
    {
        mValue.template emplace<T>(std::forward<Args>(args)...);
    }

    static void _checkNotError(const entt::meta_any& resultAny);

    bool mIsError = false;
    entt::meta_any mValue;
};
} // namespace Scripting
