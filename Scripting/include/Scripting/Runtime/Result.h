#pragma once

#include "Scripting/Runtime/ResultAny.h"

#include "Diagnostics/Assert.h"

#include <stdexcept>
#include <type_traits>

namespace Scripting
{
template <typename T, typename... Errors>
class Result;

namespace internal
{
template <typename T>
struct IsResult : std::false_type
{
};
template <typename T, typename... Errors>
struct IsResult<Result<T, Errors...>> : std::true_type
{
};

template <typename E, typename... Errors>
inline constexpr bool isOneOf = (std::is_same_v<E, Errors> || ...);

// Every error a source may hold must be one the target can: Error itself always is.
template <typename... From>
struct ErrorsOf
{
    template <typename... To>
    static constexpr bool subsetOf = (isOneOf<From, Error, To...> && ...);
};

[[noreturn]] void throwWrongResultType();

// Moves `source` in when it holds an error or a value of `T`; anything else is a programming error that
// must not produce a result of the wrong type.
template <typename T>
ResultAny adoptResultAny(ResultAny&& source)
{
    if (source.isError())
    {
        return std::move(source);
    }
    if constexpr (std::is_void_v<T>)
    {
        return ResultAny();
    }
    else
    {
        if (source.any().type() == Reflection::resolve<T>() &&
            source.any().type().id() == Reflection::resolve<T>().id())
        {
            return std::move(source);
        }
        OV_ASSERT(false, "ResultAny is not same type as Result<T>!");
        throwWrongResultType();
    }
}

// A typed view over a ResultAny, shared by Result and Result_deprecated.
template <typename T>
class TypedResult
{
public:
    T* tryGet() requires(!std::is_void_v<T>)
    {
        return mResult.isError() ? nullptr : mResult.any().template try_cast<T>();
    }
    // The value in place. Calling it on a result that holds an error is a misuse that tryGet guards against.
    template <typename U = T>
    requires(!std::is_void_v<U>) U& value() { return *tryGet(); }
    bool isError() const { return mResult.isError(); }

    operator ResultAny() && { return std::move(mResult); }
    operator ResultAny() const& { return mResult; }

protected:
    TypedResult() = default;
    explicit TypedResult(ResultAny&& result) : mResult(std::move(result)) {}

    ResultAny mResult;
};
} // namespace internal

// A value of `T` (nothing for void) or an error of one of `Errors...` or of Error. The value lives inside
// the result: tryGet and value give the object itself, not a copy.
template <typename T, typename... Errors>
class Result : public internal::TypedResult<T>
{
    using Base = internal::TypedResult<T>;

    template <typename U, typename... Others>
    friend class Result;

public:
    Result() requires std::is_void_v<T>
    = default;

    // Builds the value in place from whatever `T` can be constructed from.
    template <typename V>
    requires(!std::is_void_v<T> && !std::derived_from<std::remove_cvref_t<V>, Error> &&
             !internal::IsResult<std::remove_cvref_t<V>>::value && !std::is_same_v<std::remove_cvref_t<V>, ResultAny> &&
             std::is_constructible_v<T, V&&>) Result(V&& value)
        : Base(ResultAny::makeResult<T>(std::forward<V>(value)))
    {
    }

    template <typename E>
    requires std::derived_from<std::remove_cvref_t<E>, Error> &&
        internal::isOneOf<std::remove_cvref_t<E>, Error, Errors...>
        Result(E&& error) : Base(ResultAny(std::forward<E>(error)))
    {
    }

    // From a result of the same value type, or into a void result, which drops the value. Its errors must be
    // ones this result can hold.
    template <typename U, typename... Others>
    requires(!std::is_same_v<Result<U, Others...>, Result> &&
             (std::is_same_v<U, T> || std::is_void_v<T>)&&internal::ErrorsOf<Others...>::template subsetOf<Errors...>)
        Result(Result<U, Others...>&& other)
        : Base(_dropValueUnlessKept<U>(std::move(other.mResult)))
    {
    }

    template <typename U, typename... Others>
    requires(!std::is_same_v<Result<U, Others...>, Result> &&
             (std::is_same_v<U, T> || std::is_void_v<T>)&&internal::ErrorsOf<Others...>::template subsetOf<Errors...>)
        Result(const Result<U, Others...>& other)
        : Base(_dropValueUnlessKept<U>(ResultAny(other.mResult)))
    {
    }

    static Result fromResultAny(ResultAny&& source) { return Result(internal::adoptResultAny<T>(std::move(source))); }

    template <typename U = T>
    requires(!std::is_void_v<U>) static Result fromCopy(const U& value)
    {
        return Result(ResultAny::makeResult<T>(value));
    }

    template <typename... Args>
    static Result makeResult(Args&&... args) requires(!std::is_void_v<T>)
    {
        return Result(ResultAny::makeResult<T>(std::forward<Args>(args)...));
    }

    // The held error, tried under each listed type and then as Error.
    const Error* tryGetError() const
    {
        if (!this->mResult.isError())
        {
            return nullptr;
        }
        const Error* error = nullptr;
        ((error = error ? error : this->mResult.any().template try_cast<const Errors>()), ...);
        return error ? error : this->mResult.tryGetError();
    }

private:
    explicit Result(ResultAny&& result) : Base(std::move(result)) {}

    template <typename U>
    static ResultAny _dropValueUnlessKept(ResultAny&& source)
    {
        if constexpr (std::is_void_v<T> && !std::is_void_v<U>)
        {
            if (!source.isError())
            {
                return ResultAny();
            }
        }
        return std::move(source);
    }
};

// The older typed result, without a list of errors. Kept a distinct type for the bindings that use it.
template <typename T>
class Result_deprecated : public internal::TypedResult<T>
{
    using Base = internal::TypedResult<T>;

public:
    Result_deprecated() requires std::is_void_v<T>
    = default;

    template <typename V>
    requires(!std::is_void_v<T> && !std::derived_from<std::remove_cvref_t<V>, Error> &&
             !std::is_same_v<std::remove_cvref_t<V>, Result_deprecated> &&
             !std::is_same_v<std::remove_cvref_t<V>, ResultAny> && std::is_constructible_v<T, V&&>)
        Result_deprecated(V&& value)
        : Base(ResultAny::makeResult<T>(std::forward<V>(value)))
    {
    }

    template <typename E>
    requires std::derived_from<std::remove_cvref_t<E>, Error> Result_deprecated(E&& error)
        : Base(ResultAny(std::forward<E>(error)))
    {
    }

    static Result_deprecated fromResultAny(ResultAny&& source)
    {
        return Result_deprecated(internal::adoptResultAny<T>(std::move(source)), 0);
    }

    const Error* tryGetError() const { return this->mResult.tryGetError(); }

private:
    Result_deprecated(ResultAny&& result, int) : Base(std::move(result)) {}
};
} // namespace Scripting
