#pragma once

#include "Scripting/BindingType/ArgumentDetails.h"
#include "Scripting/Reflection/IFunction.h"
#include "Scripting/Reflection/internal/Invoke.h"
#include "Scripting/Reflection/internal/TypedInvoke.h"

#include <optional>
#include <utility>
#include <vector>

namespace Scripting::Reflection
{
namespace internal
{
// What every function wrapper shares: the described arguments and what is read from them.
class FunctionBase : public IFunction
{
public:
    const entt::meta_any& getDefaultArgument(uint32_t index) const override;
    bool validateArgument(const entt::meta_any& value, uint32_t index) const override;
    const ArgumentDetails& getArgumentDetails(uint32_t index) const override;

protected:
    FunctionBase(Privilege privilege, std::vector<ArgumentDetails>&& details);
    // Reads the argument types through the virtual operations, so only the most derived constructor may call it.
    void _computeArgumentCounts();

    std::vector<ArgumentDetails> mDetails;
};
} // namespace internal

/// A member function, called on the object that `instance` holds or refers to.
/// @tparam Method Pointer to the member function; const methods take a const object.
template <auto Method>
class MemberFunction final : public internal::FunctionBase
{
    using Traits = internal::FunctionTraits<decltype(Method)>;
    using Class = std::conditional_t<Traits::IS_CONST, const typename Traits::Class, typename Traits::Class>;
    using Arguments = typename Traits::Arguments;
    static constexpr uint32_t ARITY = static_cast<uint32_t>(Arguments::size);

public:
    /// All native parameters, injected ones included.
    using NativeArguments = Arguments;

    /**
     * @brief Binds the method with its argument descriptions.
     * @param privilege What a runtime may let a script do.
     * @param details Descriptions of the leading arguments; fewer than the arity is fine.
     */
    MemberFunction(Privilege privilege, std::vector<ArgumentDetails> details)
        : FunctionBase(privilege, std::move(details))
    {
        _computeArgumentCounts();
    }

    entt::meta_any call(entt::meta_any instance, entt::meta_any* args, uint32_t count) const override
    {
        entt::meta_any self = std::move(instance);
        if (count != ARITY)
        {
            return {};
        }
        Class* object = self.template try_cast<Class>();
        if (object == nullptr)
        {
            return {};
        }
        return internal::invokeChecked<typename Traits::Return>(args, Arguments{}, Method, object);
    }
    entt::meta_type getReturnType() const override { return resolve<typename Traits::Return>(); }
    uint32_t getArgumentCount() const override { return ARITY; }
    entt::meta_type getArgumentType(uint32_t index) const override
    {
        return internal::parameterType(Arguments{}, index);
    }
    std::optional<entt::meta_type> getClassType() const override { return resolve<typename Traits::Class>(); }
    const TypedCall* getTypedCall() const override
    {
        return internal::typedCallOf<MemberFunction, typename Traits::Return, Arguments>();
    }

    /**
     * @brief The call that getTypedCall() hands out: the method on `object`, with arguments already converted.
     * @param object The instance, a `Class` the runtime checked.
     * @param arguments One value per parameter, of the kinds getTypedCall() lists.
     * @param result Receives the result, if any.
     */
    static void typedInvoke(const IFunction&, void* object, const TypedValue* arguments, TypedReturn& result)
    {
        internal::invokeTyped<typename Traits::Return>(arguments, result, Arguments{}, Method,
                                                       static_cast<Class*>(object));
    }
};

namespace internal
{
// Free functions and lambdas share everything but how the native thing is reached. With `instanced` the first
// parameter is the object: `instance` goes there and is checked like any argument.
template <typename Traits, bool instanced>
class CallableFunction : public FunctionBase
{
protected:
    using AllArguments = typename Traits::Arguments;
    using Arguments = typename PassedArguments<instanced, AllArguments>::Type;
    static constexpr uint32_t ARITY = static_cast<uint32_t>(Arguments::size);

    CallableFunction(Privilege privilege, std::vector<ArgumentDetails>&& details)
        : FunctionBase(privilege, std::move(details))
    {
    }

    template <typename Native>
    static entt::meta_any _call(entt::meta_any instance, entt::meta_any* args, uint32_t count, const Native& native)
    {
        entt::meta_any self = std::move(instance);
        if (count != ARITY)
        {
            return {};
        }
        if constexpr (instanced)
        {
            using Object = typename SplitFirst<AllArguments>::Head;
            if (!fits<Object>(self))
            {
                return {};
            }
            return invokeChecked<typename Traits::Return>(args, Arguments{}, native, argumentAs<Object>(self));
        }
        else
        {
            return invokeChecked<typename Traits::Return>(args, Arguments{}, native);
        }
    }

    // The object of an instanced function is a class object by reference; anything else keeps the general path.
    static constexpr bool TYPED_OBJECT = []
    {
        if constexpr (instanced)
        {
            using Object = typename SplitFirst<AllArguments>::Head;
            return std::is_lvalue_reference_v<Object> && typedParameterKind<Object>() == TypedKind::Object;
        }
        else
        {
            return true;
        }
    }();

    template <typename Wrapper>
    static const TypedCall* _typedCall()
    {
        if constexpr (TYPED_OBJECT)
        {
            return typedCallOf<Wrapper, typename Traits::Return, Arguments>();
        }
        else
        {
            return nullptr;
        }
    }

    template <typename Native>
    static void _typedInvoke(const Native& native, void* object, const TypedValue* arguments, TypedReturn& result)
    {
        using Return = typename Traits::Return;
        if constexpr (instanced)
        {
            using Object = typename SplitFirst<AllArguments>::Head;
            invokeTyped<Return>(arguments, result, Arguments{}, native,
                                static_cast<Object>(*static_cast<std::remove_reference_t<Object>*>(object)));
        }
        else
        {
            static_cast<void>(object);
            invokeTyped<Return>(arguments, result, Arguments{}, native);
        }
    }

public:
    // All native parameters but the object, injected ones included.
    using NativeArguments = Arguments;

    entt::meta_type getReturnType() const override { return resolve<typename Traits::Return>(); }
    uint32_t getArgumentCount() const override { return ARITY; }
    entt::meta_type getArgumentType(uint32_t index) const override { return parameterType(Arguments{}, index); }
    std::optional<entt::meta_type> getClassType() const override
    {
        if constexpr (instanced)
        {
            return resolve<typename SplitFirst<AllArguments>::Head>();
        }
        else
        {
            return std::nullopt;
        }
    }
};
} // namespace internal

/// A free or static function. Without `instanced` the instance is only destroyed.
/// @tparam Function Pointer to the function.
/// @tparam instanced Whether the first parameter is the object a script calls the function on.
template <auto Function, bool instanced>
class StaticFunction final : public internal::CallableFunction<internal::FunctionTraits<decltype(Function)>, instanced>
{
    using Base = internal::CallableFunction<internal::FunctionTraits<decltype(Function)>, instanced>;

public:
    /**
     * @brief Binds the function with its argument descriptions.
     * @param privilege What a runtime may let a script do.
     * @param details Descriptions of the leading arguments; fewer than the arity is fine.
     */
    StaticFunction(Privilege privilege, std::vector<ArgumentDetails> details) : Base(privilege, std::move(details))
    {
        this->_computeArgumentCounts();
    }

    entt::meta_any call(entt::meta_any instance, entt::meta_any* args, uint32_t count) const override
    {
        return Base::_call(std::move(instance), args, count, Function);
    }
    const TypedCall* getTypedCall() const override { return Base::template _typedCall<StaticFunction>(); }

    /**
     * @brief The call that getTypedCall() hands out: the function, with arguments already converted.
     * @param object With `instanced`, the object the runtime checked; ignored otherwise.
     * @param arguments One value per parameter but the object, of the kinds getTypedCall() lists.
     * @param result Receives the result, if any.
     */
    static void typedInvoke(const IFunction&, void* object, const TypedValue* arguments, TypedReturn& result)
    {
        Base::_typedInvoke(Function, object, arguments, result);
    }
};

/// A lambda or function object, held by value.
/// @tparam Lambda Type of the callable; its call operator must not be a template.
/// @tparam instanced Whether the first parameter is the object a script calls the function on.
template <typename Lambda, bool instanced>
class LambdaFunction final : public internal::CallableFunction<internal::CallableTraits<Lambda>, instanced>
{
    using Base = internal::CallableFunction<internal::CallableTraits<Lambda>, instanced>;

public:
    /**
     * @brief Takes the callable with its argument descriptions.
     * @param privilege What a runtime may let a script do.
     * @param lambda The callable, moved in.
     * @param details Descriptions of the leading arguments; fewer than the arity is fine.
     */
    LambdaFunction(Privilege privilege, Lambda lambda, std::vector<ArgumentDetails> details)
        : Base(privilege, std::move(details)), mLambda(std::move(lambda))
    {
        this->_computeArgumentCounts();
    }

    entt::meta_any call(entt::meta_any instance, entt::meta_any* args, uint32_t count) const override
    {
        return Base::_call(std::move(instance), args, count, mLambda);
    }
    const TypedCall* getTypedCall() const override { return Base::template _typedCall<LambdaFunction>(); }

    /**
     * @brief The call that getTypedCall() hands out: the lambda, with arguments already converted.
     * @param function This wrapper, which holds the lambda.
     * @param object With `instanced`, the object the runtime checked; ignored otherwise.
     * @param arguments One value per parameter but the object, of the kinds getTypedCall() lists.
     * @param result Receives the result, if any.
     */
    static void typedInvoke(const IFunction& function, void* object, const TypedValue* arguments, TypedReturn& result)
    {
        Base::_typedInvoke(static_cast<const LambdaFunction&>(function).mLambda, object, arguments, result);
    }

private:
    Lambda mLambda;
};
} // namespace Scripting::Reflection
