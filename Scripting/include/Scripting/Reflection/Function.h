#pragma once

#include "Scripting/BindingType/ArgumentDetails.h"
#include "Scripting/Reflection/IFunction.h"
#include "Scripting/Reflection/internal/Invoke.h"
#include "Scripting/Reflection/internal/TypedInvoke.h"

#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace Scripting::Reflection
{
namespace internal
{
// What a wrapper knows of its callable's signature, fixed at compile time: one constant per callable. Every
// wrapper is then one class whose operations read the table, so that binding a callable instantiates the few
// functions that touch the native code and nothing else.
struct CallableTable
{
    // Calls with the right number of arguments; an invalid any when the object or an argument does not fit.
    using Call = entt::meta_any (*)(const IFunction& function, entt::meta_any& self, entt::meta_any* args);

    Call call = nullptr;
    TypeResolver returnType = nullptr;
    // Null for a callable that takes no object.
    TypeResolver classType = nullptr;
    const TypeResolver* argumentTypes = nullptr;
    uint32_t arity = 0;
    const TypedCall* typedCall = nullptr;
};

// The one wrapper class of every native callable; the templates below only give it a table (and a lambda).
class FunctionBase : public IFunction
{
public:
    /**
     * @brief Binds a callable through its table.
     * @param privilege What a runtime may let a script do.
     * @param details Descriptions of the leading arguments; fewer than the arity is fine.
     * @param table The callable's table; a constant that outlives every wrapper.
     */
    FunctionBase(Privilege privilege, std::vector<ArgumentDetails>&& details, const CallableTable& table);

    entt::meta_any call(entt::meta_any instance, entt::meta_any* args, uint32_t count) const override;
    entt::meta_type getReturnType() const override;
    uint32_t getArgumentCount() const override;
    entt::meta_type getArgumentType(uint32_t index) const override;
    const entt::meta_any& getDefaultArgument(uint32_t index) const override;
    bool validateArgument(const entt::meta_any& value, uint32_t index) const override;
    std::optional<entt::meta_type> getClassType() const override;
    const ArgumentDetails& getArgumentDetails(uint32_t index) const override;
    const TypedCall* getTypedCall() const override;

private:
    const CallableTable* mTable;
    std::vector<ArgumentDetails> mDetails;
};

template <typename Traits>
using MethodClass = std::conditional_t<Traits::IS_CONST, const typename Traits::Class, typename Traits::Class>;
} // namespace internal

/// A member function, called on the object that `instance` holds or refers to.
/// @tparam Method Pointer to the member function; const methods take a const object.
template <auto Method>
class MemberFunction final : public internal::FunctionBase
{
    using Traits = internal::FunctionTraits<decltype(Method)>;
    using Class = internal::MethodClass<Traits>;

public:
    /// All native parameters, injected ones included.
    using NativeArguments = typename Traits::Arguments;

    /**
     * @brief Binds the method with its argument descriptions.
     * @param privilege What a runtime may let a script do.
     * @param details Descriptions of the leading arguments; fewer than the arity is fine.
     */
    MemberFunction(Privilege privilege, std::vector<ArgumentDetails> details)
        : FunctionBase(privilege, std::move(details), table())
    {
    }

    /// What every wrapper of this method reads.
    static const internal::CallableTable& table() { return TABLE<MemberFunction>; }

    /**
     * @brief The call that getTypedCall() hands out: the method on `object`, with arguments already converted.
     * @param object The instance, a `Class` the runtime checked.
     * @param arguments One value per parameter, of the kinds getTypedCall() lists.
     * @param result Receives the result, if any.
     */
    static void typedInvoke(const IFunction&, void* object, const TypedValue* arguments, TypedReturn& result)
    {
        internal::invokeTyped<typename Traits::Return>(arguments, result, NativeArguments{}, Method,
                                                       static_cast<Class*>(object));
    }

    /// The general call, with the count already checked.
    static entt::meta_any generalCall(const IFunction&, entt::meta_any& self, entt::meta_any* args)
    {
        Class* object = internal::objectIn<Class>(self);
        if (object == nullptr)
        {
            return {};
        }
        return internal::invokeChecked<typename Traits::Return>(args, NativeArguments{}, Method, object);
    }

private:
    template <typename Wrapper>
    static constexpr internal::CallableTable TABLE{
        &Wrapper::generalCall,
        &resolve<typename Traits::Return>,
        &resolve<typename Traits::Class>,
        internal::TypeResolvers<NativeArguments>::VALUES,
        static_cast<uint32_t>(NativeArguments::size),
        internal::typedCallOf<Wrapper, typename Traits::Return, NativeArguments>()};
};

namespace internal
{
// The type of the object of an instanced callable; none otherwise. Outside the class that uses it in a constant
// of its own, where it would not yet be defined.
template <bool instanced, typename AllArguments>
consteval TypeResolver objectResolver()
{
    if constexpr (instanced)
    {
        return &resolve<typename SplitFirst<AllArguments>::Head>;
    }
    else
    {
        return nullptr;
    }
}

// Free functions and lambdas share everything but how the native thing is reached. With `instanced` the first
// parameter is the object: `instance` goes there and is checked like any argument.
template <typename Traits, bool instanced>
struct CallableParts
{
    using AllArguments = typename Traits::Arguments;
    using Arguments = typename PassedArguments<instanced, AllArguments>::Type;
    using Return = typename Traits::Return;

    template <typename Native>
    static entt::meta_any call(entt::meta_any& self, entt::meta_any* args, const Native& native)
    {
        if constexpr (instanced)
        {
            using Object = typename SplitFirst<AllArguments>::Head;
            if (!fits<Object>(self))
            {
                return {};
            }
            return invokeChecked<Return>(args, Arguments{}, native, argumentAs<Object>(self));
        }
        else
        {
            static_cast<void>(self);
            return invokeChecked<Return>(args, Arguments{}, native);
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
    static consteval const TypedCall* typedCall()
    {
        if constexpr (TYPED_OBJECT)
        {
            return typedCallOf<Wrapper, Return, Arguments>();
        }
        else
        {
            return nullptr;
        }
    }

    template <typename Wrapper>
    static constexpr CallableTable TABLE{&Wrapper::generalCall,
                                         &resolve<Return>,
                                         objectResolver<instanced, AllArguments>(),
                                         TypeResolvers<Arguments>::VALUES,
                                         static_cast<uint32_t>(Arguments::size),
                                         typedCall<Wrapper>()};

    template <typename Native>
    static void typedInvoke(const Native& native, void* object, const TypedValue* arguments, TypedReturn& result)
    {
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
};
} // namespace internal

/// A free or static function. Without `instanced` the instance is only destroyed.
/// @tparam Function Pointer to the function.
/// @tparam instanced Whether the first parameter is the object a script calls the function on.
template <auto Function, bool instanced>
class StaticFunction final : public internal::FunctionBase
{
    using Parts = internal::CallableParts<internal::FunctionTraits<decltype(Function)>, instanced>;

public:
    /// All native parameters but the object, injected ones included.
    using NativeArguments = typename Parts::Arguments;

    /**
     * @brief Binds the function with its argument descriptions.
     * @param privilege What a runtime may let a script do.
     * @param details Descriptions of the leading arguments; fewer than the arity is fine.
     */
    StaticFunction(Privilege privilege, std::vector<ArgumentDetails> details)
        : FunctionBase(privilege, std::move(details), table())
    {
    }

    /// What every wrapper of this function reads.
    static const internal::CallableTable& table() { return Parts::template TABLE<StaticFunction>; }

    /**
     * @brief The call that getTypedCall() hands out: the function, with arguments already converted.
     * @param object With `instanced`, the object the runtime checked; ignored otherwise.
     * @param arguments One value per parameter but the object, of the kinds getTypedCall() lists.
     * @param result Receives the result, if any.
     */
    static void typedInvoke(const IFunction&, void* object, const TypedValue* arguments, TypedReturn& result)
    {
        Parts::typedInvoke(Function, object, arguments, result);
    }

    /// The general call, with the count already checked.
    static entt::meta_any generalCall(const IFunction&, entt::meta_any& self, entt::meta_any* args)
    {
        return Parts::call(self, args, Function);
    }
};

/// A lambda or function object, held by value.
/// @tparam Lambda Type of the callable; its call operator must not be a template.
/// @tparam instanced Whether the first parameter is the object a script calls the function on.
template <typename Lambda, bool instanced>
class LambdaFunction final : public internal::FunctionBase
{
    using Parts = internal::CallableParts<internal::CallableTraits<Lambda>, instanced>;

public:
    /// All native parameters but the object, injected ones included.
    using NativeArguments = typename Parts::Arguments;

    /**
     * @brief Takes the callable with its argument descriptions.
     * @param privilege What a runtime may let a script do.
     * @param lambda The callable, moved in.
     * @param details Descriptions of the leading arguments; fewer than the arity is fine.
     */
    LambdaFunction(Privilege privilege, Lambda lambda, std::vector<ArgumentDetails> details)
        : FunctionBase(privilege, std::move(details), table()), mLambda(std::move(lambda))
    {
    }

    /// What every wrapper of this lambda type reads.
    static const internal::CallableTable& table() { return Parts::template TABLE<LambdaFunction>; }

    /**
     * @brief The call that getTypedCall() hands out: the lambda, with arguments already converted.
     * @param function This wrapper, which holds the lambda.
     * @param object With `instanced`, the object the runtime checked; ignored otherwise.
     * @param arguments One value per parameter but the object, of the kinds getTypedCall() lists.
     * @param result Receives the result, if any.
     */
    static void typedInvoke(const IFunction& function, void* object, const TypedValue* arguments, TypedReturn& result)
    {
        Parts::typedInvoke(static_cast<const LambdaFunction&>(function).mLambda, object, arguments, result);
    }

    /// The general call, with the count already checked.
    static entt::meta_any generalCall(const IFunction& function, entt::meta_any& self, entt::meta_any* args)
    {
        return Parts::call(self, args, static_cast<const LambdaFunction&>(function).mLambda);
    }

private:
    Lambda mLambda;
};
} // namespace Scripting::Reflection
