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

// Whether a result of `T` takes `source` over: always for an error, never for a value when `T` is void (which
// drops it), and for a value of `T`. Anything else is a programming error that must not produce a result of the
// wrong type.
template <typename T>
bool keepsResultAny(const ResultAny& source)
{
    if (source.isError())
    {
        return true;
    }
    if constexpr (std::is_void_v<T>)
    {
        return false;
    }
    else
    {
        if (source.any().type() == Reflection::resolve<T>() &&
            source.any().type().id() == Reflection::resolve<T>().id())
        {
            return true;
        }
        OV_ASSERT(false, "ResultAny is not same type as Result<T>!");
        throwWrongResultType();
    }
}

// A typed view over a ResultAny, shared by Result and Result_deprecated. Every hand-over below moves the
// ResultAny once, so an inline value (see ResultAny) moves at most once and a heap value never.
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
    struct InPlace
    {
    };

    TypedResult() = default;
    explicit TypedResult(ResultAny&& result) : mResult(std::move(result)) {}

    template <typename... Args>
    explicit TypedResult(InPlace, Args&&... args) : mResult(ResultAny::makeResult<T>(std::forward<Args>(args)...))
    {
    }

    // Takes `source` over, or stays empty when `keep` is false.
    TypedResult(ResultAny&& source, const bool keep)
    {
        if (keep)
        {
            mResult = std::move(source);
        }
    }

    // A copy copies the value once, also when this result then drops it.
    TypedResult(const ResultAny& source, const bool keep) : mResult(source)
    {
        if (!keep)
        {
            mResult = ResultAny();
        }
    }

    ResultAny mResult;
};
} // namespace internal

/// A value of `T` (nothing for void) or an error of one of `Errors...` or of Error. The value lives inside
/// the result: tryGet and value give the object itself, not a copy.
/// Read it with `isError()`, `tryGet()` (null for an error), `value()` (only after checking) and tryGetError();
/// it converts to a ResultAny.
/// @tparam T Value type, or void.
/// @tparam Errors Error types besides Error that the result may hold.
template <typename T, typename... Errors>
class Result : public internal::TypedResult<T>
{
    using Base = internal::TypedResult<T>;

    template <typename U, typename... Others>
    friend class Result;

public:
    /** @brief A successful void result. */
    Result() requires std::is_void_v<T>
    = default;

    /// Builds the value in place from whatever `T` can be constructed from.
    /// @tparam V Type of the argument.
    /// @param value Argument of T's constructor.
    template <typename V>
    requires(!std::is_void_v<T> && !std::derived_from<std::remove_cvref_t<V>, Error> &&
             !internal::IsResult<std::remove_cvref_t<V>>::value && !std::is_same_v<std::remove_cvref_t<V>, ResultAny> &&
             std::is_constructible_v<T, V&&>) Result(V&& value)
        : Base(typename Base::InPlace{}, std::forward<V>(value))
    {
    }

    /**
     * @brief Holds an error under its own type.
     * @tparam E Error or one of `Errors`.
     * @param error The error.
     */
    template <typename E>
    requires std::derived_from<std::remove_cvref_t<E>, Error> &&
        internal::isOneOf<std::remove_cvref_t<E>, Error, Errors...>
        Result(E&& error) : Base(ResultAny(std::forward<E>(error)))
    {
    }

    /// From a result of the same value type, or into a void result, which drops the value. Its errors must be
    /// ones this result can hold.
    /// @tparam U Value type of the source.
    /// @tparam Others Error types of the source.
    /// @param other Result to take over.
    template <typename U, typename... Others>
    requires(!std::is_same_v<Result<U, Others...>, Result> &&
             (std::is_same_v<U, T> || std::is_void_v<T>)&&internal::ErrorsOf<Others...>::template subsetOf<Errors...>)
        Result(Result<U, Others...>&& other)
        : Base(std::move(other.mResult), _keeps<U>(other.mResult))
    {
    }

    /**
     * @brief Copies a result of the same value type, or into a void result, which drops the value.
     * @tparam U Value type of the source.
     * @tparam Others Error types of the source.
     * @param other Result to copy.
     */
    template <typename U, typename... Others>
    requires(!std::is_same_v<Result<U, Others...>, Result> &&
             (std::is_same_v<U, T> || std::is_void_v<T>)&&internal::ErrorsOf<Others...>::template subsetOf<Errors...>)
        Result(const Result<U, Others...>& other)
        : Base(other.mResult, _keeps<U>(other.mResult))
    {
    }

    /**
     * @brief Takes a type-erased result over.
     * @param source An error, or a value of exactly `T`; a value of another type asserts and throws.
     * @return The typed result.
     */
    static Result fromResultAny(ResultAny&& source)
    {
        const bool keep = internal::keepsResultAny<T>(source);
        return Result(std::move(source), keep);
    }

    /**
     * @brief A result holding a copy of a value.
     * @tparam U Defaults to T.
     * @param value The value.
     * @return The result.
     */
    template <typename U = T>
    requires(!std::is_void_v<U>) static Result fromCopy(const U& value)
    {
        return Result(typename Base::InPlace{}, value);
    }

    /**
     * @brief Builds the value in place.
     * @tparam Args Constructor argument types.
     * @param args Constructor arguments.
     * @return The result.
     */
    template <typename... Args>
    static Result makeResult(Args&&... args) requires(!std::is_void_v<T>)
    {
        return Result(typename Base::InPlace{}, std::forward<Args>(args)...);
    }

    /// The held error, tried under each listed type and then as Error.
    /// @return The error, owned by the result; null for a value.
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
    template <typename... Args>
    explicit Result(typename Base::InPlace tag, Args&&... args) : Base(tag, std::forward<Args>(args)...)
    {
    }

    Result(ResultAny&& source, const bool keep) : Base(std::move(source), keep) {}

    // A void result drops the value of a source that has one; errors are always kept.
    template <typename U>
    static bool _keeps(const ResultAny& source)
    {
        return !(std::is_void_v<T> && !std::is_void_v<U>) || source.isError();
    }
};

/// The older typed result, without a list of errors. Kept a distinct type for the bindings that use it.
/// @tparam T Value type, or void.
template <typename T>
class Result_deprecated : public internal::TypedResult<T>
{
    using Base = internal::TypedResult<T>;

public:
    /** @brief A successful void result. */
    Result_deprecated() requires std::is_void_v<T>
    = default;

    /**
     * @brief Builds the value in place.
     * @tparam V Type of the argument.
     * @param value Argument of T's constructor.
     */
    template <typename V>
    requires(!std::is_void_v<T> && !std::derived_from<std::remove_cvref_t<V>, Error> &&
             !std::is_same_v<std::remove_cvref_t<V>, Result_deprecated> &&
             !std::is_same_v<std::remove_cvref_t<V>, ResultAny> && std::is_constructible_v<T, V&&>)
        Result_deprecated(V&& value)
        : Base(typename Base::InPlace{}, std::forward<V>(value))
    {
    }

    /**
     * @brief Holds an error under its own type.
     * @tparam E An Error type.
     * @param error The error.
     */
    template <typename E>
    requires std::derived_from<std::remove_cvref_t<E>, Error> Result_deprecated(E&& error)
        : Base(ResultAny(std::forward<E>(error)))
    {
    }

    /**
     * @brief Takes a type-erased result over.
     * @param source An error, or a value of exactly `T`; a value of another type asserts and throws.
     * @return The typed result.
     */
    static Result_deprecated fromResultAny(ResultAny&& source)
    {
        const bool keep = internal::keepsResultAny<T>(source);
        return Result_deprecated(std::move(source), keep);
    }

    /**
     * @brief The held error.
     * @return The error, owned by the result; null for a value.
     */
    const Error* tryGetError() const { return this->mResult.tryGetError(); }

private:
    Result_deprecated(ResultAny&& source, const bool keep) : Base(std::move(source), keep) {}
};
} // namespace Scripting
