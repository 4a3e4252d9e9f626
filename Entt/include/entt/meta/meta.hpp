#ifndef ENTT_META_META_HPP
#define ENTT_META_META_HPP

#include "../config/config.h"
#include "../core/any.hpp"
#include "../core/fwd.hpp"
#include "../core/type_info.hpp"
#include "../core/type_traits.hpp"
#include "../locator/locator.hpp"
#include "context.hpp"
#include "fwd.hpp"
#include "node.hpp"
#include "range.hpp"
#include "type_traits.hpp"
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace entt
{

namespace internal
{

template <typename Type>
[[nodiscard]] const meta_type_node& resolve_node() noexcept;

template <typename Type>
[[nodiscard]] constexpr bool meta_in_situ() noexcept
{
    if constexpr (std::is_object_v<Type> && !std::is_array_v<Type> && is_complete_v<Type>)
    {
        return sizeof(Type) <= meta_sbo_size && alignof(Type) <= meta_sbo_align &&
               std::is_nothrow_move_constructible_v<Type>;
    }
    else
    {
        return false;
    }
}

// Storage operations of a meta_any holding a `Type`. What `self` and `other` point to
// depends on the operation: see the cases.
template <typename Type>
const void* meta_vtable(const meta_any_op op, void* self, const void* other)
{
    switch (op)
    {
    case meta_any_op::destroy:
        // self: the storage of an owning any.
        if constexpr (std::is_destructible_v<Type>)
        {
            auto* elem = static_cast<Type*>(static_cast<meta_sbo*>(self)->instance);
            if constexpr (meta_in_situ<Type>())
            {
                std::destroy_at(elem);
            }
            else
            {
                delete elem;
            }
        }
        break;
    case meta_any_op::copy:
        // self: the empty storage to fill; other: the object to copy.
        if constexpr (std::is_copy_constructible_v<Type>)
        {
            auto& sbo = *static_cast<meta_sbo*>(self);
            if constexpr (meta_in_situ<Type>())
            {
                sbo.instance = ::new (static_cast<void*>(sbo.buffer)) Type(*static_cast<const Type*>(other));
            }
            else
            {
                sbo.instance = new Type(*static_cast<const Type*>(other));
            }
            return other;
        }
        break;
    case meta_any_op::move:
        // self: the empty storage to fill; other: the storage to move out of. In-situ values only. The
        // moved-from object stays where it is until its own storage destroys it.
        if constexpr (meta_in_situ<Type>())
        {
            auto* from = static_cast<Type*>(static_cast<const meta_sbo*>(other)->instance);
            auto* to = static_cast<meta_sbo*>(self);
            to->instance = ::new (static_cast<void*>(to->buffer)) Type(std::move(*from));
            return other;
        }
        break;
    case meta_any_op::assign:
        // self: the object to assign to; other: the source object.
        if constexpr (std::is_copy_assignable_v<Type>)
        {
            *static_cast<Type*>(self) = *static_cast<const Type*>(other);
            return other;
        }
        break;
    case meta_any_op::transfer:
        // As assign, but the source may be moved from.
        if constexpr (std::is_move_assignable_v<Type>)
        {
            *static_cast<Type*>(self) = std::move(*static_cast<Type*>(const_cast<void*>(other)));
            return other;
        }
        else if constexpr (std::is_copy_assignable_v<Type>)
        {
            *static_cast<Type*>(self) = *static_cast<const Type*>(other);
            return other;
        }
        break;
    case meta_any_op::compare:
        // self and other: the two objects. Types without operator== compare by identity.
        if constexpr (is_equality_comparable_v<Type>)
        {
            return (*static_cast<const Type*>(self) == *static_cast<const Type*>(other)) ? other : nullptr;
        }
        else
        {
            return (self == other) ? other : nullptr;
        }
    }
    return nullptr;
}

[[nodiscard]] inline const void* meta_try_cast(const meta_context& context, const meta_type_node& from,
                                               const id_type to, const void* instance) noexcept
{
    if (from.hash == to)
    {
        return instance;
    }
    if (const auto* details = context.find(from.hash); details)
    {
        for (auto&& curr : details->base)
        {
            if (const void* elem = meta_try_cast(context, curr.type(), to, curr.cast(instance)); elem)
            {
                return elem;
            }
        }
    }
    return nullptr;
}

// Like meta_try_cast, without an object: casting a bogus pointer to a virtual base would read it.
[[nodiscard]] inline bool meta_can_cast(const meta_context& context, const meta_type_node& from,
                                        const id_type to) noexcept
{
    if (from.hash == to)
    {
        return true;
    }
    if (const auto* details = context.find(from.hash); details)
    {
        for (auto&& curr : details->base)
        {
            if (meta_can_cast(context, curr.type(), to))
            {
                return true;
            }
        }
    }
    return false;
}

[[nodiscard]] inline bool meta_can_convert(const meta_context& context, const meta_type_node& from, const id_type to,
                                           const bool arithmetic_or_enum) noexcept
{
    if (from.hash == to)
    {
        return true;
    }
    if (const auto* details = context.find(from.hash); details)
    {
        for (auto&& curr : details->conv)
        {
            if (curr.id == to)
            {
                return true;
            }
        }
        for (auto&& curr : details->base)
        {
            if (meta_can_convert(context, curr.type(), to, arithmetic_or_enum))
            {
                return true;
            }
        }
    }
    return (from.conversion_helper != nullptr) && arithmetic_or_enum;
}

template <typename Node, typename Next>
[[nodiscard]] const Node* meta_lookup(const meta_ctx&, meta_any* const, const std::size_t, const bool, Next);

} // namespace internal

/*! @brief What a meta_any does with its object: owns it, or refers to it (const or not). */
using meta_any_policy = any_policy;

/*! @brief Type-erased value of any type, owning it or referring to it. */
class meta_any
{
    friend class meta_type;

    template <typename Node, typename Next>
    friend const Node* internal::meta_lookup(const meta_ctx&, meta_any* const, const std::size_t, const bool, Next);

    enum class policy_type : std::uint8_t
    {
        empty,
        owner,
        ref,
        cref
    };

    // Destroys the object the storage owns, also a moved-from one that the any no longer shows.
    void release() noexcept
    {
        if (vtable != nullptr)
        {
            vtable(internal::meta_any_op::destroy, &storage, nullptr);
        }
    }

    void clear() noexcept
    {
        release();
        vtable = nullptr;
        node = nullptr;
        mode = policy_type::empty;
    }

    // Takes over the value of `other`, which is left empty. An in-situ object is moved into this buffer and its
    // moved-from original stays in `other` until `other` is destroyed, reset or assigned; a heap object changes
    // hands by pointer.
    void steal(meta_any& other) noexcept
    {
        node = std::exchange(other.node, nullptr);
        mode = std::exchange(other.mode, policy_type::empty);
        if (mode == policy_type::owner && node->in_situ)
        {
            node->vtable(internal::meta_any_op::move, &storage, &other.storage);
            vtable = node->vtable;
        }
        else
        {
            storage.instance = other.storage.instance;
            if (mode == policy_type::owner)
            {
                vtable = std::exchange(other.vtable, nullptr);
            }
        }
    }

    // Expects a storage that owns nothing.
    void duplicate(const meta_any& other)
    {
        node = nullptr;
        mode = policy_type::empty;
        if (other.node != nullptr)
        {
            if (other.node->vtable == nullptr)
            {
                // void: valid, without a value.
                node = other.node;
            }
            else if (other.node->vtable(internal::meta_any_op::copy, &storage, other.data()) != nullptr)
            {
                node = other.node;
                mode = policy_type::owner;
                vtable = node->vtable;
            }
        }
    }

    template <typename Type, typename... Args>
    void initialize([[maybe_unused]] Args&&... args)
    {
        using plain_type = std::remove_cv_t<std::remove_reference_t<Type>>;
        static_assert(!std::is_array_v<plain_type> && !std::is_function_v<plain_type>, "Unsupported type");
        // node and mode are set last: a throwing constructor leaves the any empty
        if constexpr (std::is_void_v<plain_type>)
        {
            static_assert(sizeof...(Args) == 0u, "Invalid arguments");
            mode = policy_type::empty;
        }
        else if constexpr (std::is_lvalue_reference_v<Type>)
        {
            static_assert((std::is_lvalue_reference_v<Args> && ...) && (sizeof...(Args) == 1u), "Invalid arguments");
            const plain_type* const elem = (std::addressof(args), ...);
            storage.instance = const_cast<plain_type*>(elem);
            mode = std::is_const_v<std::remove_reference_t<Type>> ? policy_type::cref : policy_type::ref;
        }
        else if constexpr (std::is_aggregate_v<plain_type> &&
                           (sizeof...(Args) != 0u || !std::is_default_constructible_v<plain_type>))
        {
            // Aggregates are list-initialized.
            if constexpr (internal::meta_in_situ<plain_type>())
            {
                storage.instance = ::new (static_cast<void*>(storage.buffer)) plain_type{std::forward<Args>(args)...};
            }
            else
            {
                storage.instance = new plain_type{std::forward<Args>(args)...};
            }
            mode = policy_type::owner;
        }
        else
        {
            if constexpr (internal::meta_in_situ<plain_type>())
            {
                storage.instance = ::new (static_cast<void*>(storage.buffer)) plain_type(std::forward<Args>(args)...);
            }
            else
            {
                storage.instance = new plain_type(std::forward<Args>(args)...);
            }
            mode = policy_type::owner;
        }
        node = &internal::resolve_node<plain_type>();
        vtable = (mode == policy_type::owner) ? node->vtable : nullptr;
    }

public:
    meta_any() noexcept : meta_any{meta_ctx_arg, locator<meta_ctx>::value_or()} {}

    meta_any(meta_ctx_arg_t, const meta_ctx& area) noexcept
        : storage{}, node{}, ctx{&area}, vtable{}, mode{policy_type::empty}
    {
    }

    template <typename Type, typename... Args>
    explicit meta_any(std::in_place_type_t<Type>, Args&&... args)
        : meta_any{locator<meta_ctx>::value_or(), std::in_place_type<Type>, std::forward<Args>(args)...}
    {
    }

    template <typename Type, typename... Args>
    explicit meta_any(const meta_ctx& area, std::in_place_type_t<Type>, Args&&... args) : meta_any{meta_ctx_arg, area}
    {
        initialize<Type>(std::forward<Args>(args)...);
    }

    template <typename Type, typename = std::enable_if_t<!std::is_same_v<std::decay_t<Type>, meta_any>>>
    meta_any(Type&& value)
        : meta_any{locator<meta_ctx>::value_or(), std::in_place_type<std::decay_t<Type>>, std::forward<Type>(value)}
    {
    }

    template <typename Type, typename = std::enable_if_t<!std::is_same_v<std::decay_t<Type>, meta_any>>>
    meta_any(const meta_ctx& area, Type&& value)
        : meta_any{area, std::in_place_type<std::decay_t<Type>>, std::forward<Type>(value)}
    {
    }

    meta_any(const meta_ctx& area, const meta_any& other) : meta_any{meta_ctx_arg, area} { duplicate(other); }

    meta_any(const meta_ctx& area, meta_any&& other) : meta_any{meta_ctx_arg, area} { steal(other); }

    /*! @brief A copy always owns a copy of the value, also when the source is a reference. */
    meta_any(const meta_any& other) : meta_any{meta_ctx_arg, *other.ctx} { duplicate(other); }

    meta_any(meta_any&& other) noexcept : meta_any{meta_ctx_arg, *other.ctx} { steal(other); }

    ~meta_any() { release(); }

    meta_any& operator=(const meta_any& other)
    {
        if (this != &other)
        {
            clear();
            ctx = other.ctx;
            duplicate(other);
        }
        return *this;
    }

    meta_any& operator=(meta_any&& other) noexcept
    {
        if (this != &other)
        {
            clear();
            ctx = other.ctx;
            steal(other);
        }
        return *this;
    }

    template <typename Type>
    std::enable_if_t<!std::is_same_v<std::decay_t<Type>, meta_any>, meta_any&> operator=(Type&& value)
    {
        emplace<std::decay_t<Type>>(std::forward<Type>(value));
        return *this;
    }

    [[nodiscard]] inline meta_type type() const noexcept;

    /*! @brief The object, or null; a const reference answers null to the non-const overload. */
    [[nodiscard]] const void* data() const noexcept
    {
        return (mode == policy_type::empty) ? nullptr : storage.instance;
    }

    [[nodiscard]] void* data() noexcept
    {
        return (mode == policy_type::cref) ? nullptr : const_cast<void*>(std::as_const(*this).data());
    }

    template <typename... Args>
    meta_any invoke(const id_type id, Args&&... args) const;

    template <typename... Args>
    meta_any invoke(const id_type id, Args&&... args);

    template <typename Type>
    [[nodiscard]] const Type* try_cast() const
    {
        using plain_type = std::remove_cv_t<Type>;
        const void* instance = data();
        if (node == nullptr || instance == nullptr)
        {
            return nullptr;
        }
        if (node->hash == type_hash<plain_type>::value())
        {
            return static_cast<const Type*>(instance);
        }
        return static_cast<const Type*>(internal::meta_try_cast(internal::meta_context::from(*ctx), *node,
                                                                type_hash<plain_type>::value(), instance));
    }

    template <typename Type>
    [[nodiscard]] Type* try_cast()
    {
        if constexpr (std::is_const_v<Type>)
        {
            return std::as_const(*this).try_cast<std::remove_const_t<Type>>();
        }
        else
        {
            void* instance = data();
            if (node == nullptr || instance == nullptr)
            {
                return nullptr;
            }
            if (node->hash == type_hash<Type>::value())
            {
                return static_cast<Type*>(instance);
            }
            return static_cast<Type*>(const_cast<void*>(internal::meta_try_cast(
                internal::meta_context::from(*ctx), *node, type_hash<Type>::value(), instance)));
        }
    }

    template <typename Type>
    [[nodiscard]] std::remove_const_t<Type> cast() const
    {
        auto* const instance = try_cast<std::remove_reference_t<Type>>();
        ENTT_ASSERT(instance, "Invalid instance");
        return static_cast<Type>(*instance);
    }

    template <typename Type>
    [[nodiscard]] std::remove_const_t<Type> cast()
    {
        // const on a value type lets a const reference serve a by-value cast
        auto* const instance = try_cast<std::remove_reference_t<const Type>>();
        ENTT_ASSERT(instance, "Invalid instance");
        return static_cast<Type>(*instance);
    }

    /*! @brief A reference to the value as `type`, or a converted copy; empty if neither is possible. */
    [[nodiscard]] inline meta_any allow_cast(const meta_type& type) const;

    /*! @brief Converts in place if needed; the value stays untouched when `type` is the type or a base. */
    [[nodiscard]] inline bool allow_cast(const meta_type& type);

    template <typename Type>
    [[nodiscard]] meta_any allow_cast() const;

    template <typename Type>
    [[nodiscard]] bool allow_cast();

    template <typename Type, typename... Args>
    void emplace(Args&&... args)
    {
        clear();
        initialize<Type>(std::forward<Args>(args)...);
    }

    /*! @brief Assigns to the held object, converting `other` first if needed. */
    inline bool assign(const meta_any& other);

    inline bool assign(meta_any&& other);

    void reset() { clear(); }

    /*! @brief `ref` or `cref` for a reference, `owner` otherwise (also when the any is empty). */
    [[nodiscard]] meta_any_policy policy() const noexcept
    {
        switch (mode)
        {
        case policy_type::ref:
            return meta_any_policy::ref;
        case policy_type::cref:
            return meta_any_policy::cref;
        default:
            return meta_any_policy::owner;
        }
    }

    [[nodiscard]] const meta_ctx& context() const noexcept { return *ctx; }

    [[nodiscard]] explicit operator bool() const noexcept { return node != nullptr; }

    [[nodiscard]] bool operator==(const meta_any& other) const noexcept
    {
        if (ctx != other.ctx || (node == nullptr) != (other.node == nullptr))
        {
            return false;
        }
        if (node == nullptr)
        {
            return true;
        }
        if (node->hash != other.node->hash)
        {
            return false;
        }
        return (node->vtable == nullptr) ||
               (node->vtable(internal::meta_any_op::compare, const_cast<void*>(data()), other.data()) != nullptr);
    }

    [[nodiscard]] meta_any as_ref() noexcept
    {
        meta_any other{meta_ctx_arg, *ctx};
        other.node = node;
        other.storage.instance = const_cast<void*>(std::as_const(*this).data());
        other.mode = (mode == policy_type::empty)
                         ? policy_type::empty
                         : ((mode == policy_type::cref) ? policy_type::cref : policy_type::ref);
        return other;
    }

    [[nodiscard]] meta_any as_ref() const noexcept
    {
        meta_any other{meta_ctx_arg, *ctx};
        other.node = node;
        other.storage.instance = const_cast<void*>(data());
        other.mode = (mode == policy_type::empty) ? policy_type::empty : policy_type::cref;
        return other;
    }

private:
    internal::meta_sbo storage;
    const internal::meta_type_node* node;
    const meta_ctx* ctx;
    // Destroys what the storage owns; set while it owns an object, also after a move left it a moved-from one.
    internal::meta_vtable_fn* vtable;
    policy_type mode;
};

/*! @brief A meta_any referring to the argument, or owning it when it is an rvalue. */
template <typename Type>
[[nodiscard]] meta_any forward_as_meta(const meta_ctx& ctx, Type&& value)
{
    return meta_any{ctx, std::in_place_type<Type&&>, std::forward<Type>(value)};
}

template <typename Type>
[[nodiscard]] meta_any forward_as_meta(Type&& value)
{
    return forward_as_meta(locator<meta_ctx>::value_or(), std::forward<Type>(value));
}

namespace internal
{

template <typename Type>
[[nodiscard]] meta_any meta_default_constructor(const meta_ctx& ctx)
{
    return meta_any{ctx, std::in_place_type<Type>};
}

// Arithmetic and enum values convert through double, as C++ would convert them with static_cast.
template <typename Type>
[[nodiscard]] double meta_conversion_helper(void* bin, const void* value)
{
    if constexpr (std::is_enum_v<Type>)
    {
        using underlying_type = std::underlying_type_t<Type>;
        if (bin == nullptr)
        {
            return static_cast<double>(static_cast<underlying_type>(*static_cast<const Type*>(value)));
        }
        *static_cast<Type*>(bin) = static_cast<Type>(static_cast<underlying_type>(*static_cast<const double*>(value)));
        return static_cast<double>(static_cast<underlying_type>(*static_cast<const Type*>(bin)));
    }
    else
    {
        if (bin == nullptr)
        {
            return static_cast<double>(*static_cast<const Type*>(value));
        }
        *static_cast<Type*>(bin) = static_cast<Type>(*static_cast<const double*>(value));
        return static_cast<double>(*static_cast<const Type*>(bin));
    }
}

template <typename Type>
[[nodiscard]] meta_any meta_from_void(const meta_ctx& ctx, void* elem, const void* celem)
{
    if (elem != nullptr)
    {
        return meta_any{ctx, std::in_place_type<Type&>, *static_cast<Type*>(elem)};
    }
    if (celem != nullptr)
    {
        return meta_any{ctx, std::in_place_type<const Type&>, *static_cast<const Type*>(celem)};
    }
    return meta_any{meta_ctx_arg, ctx};
}

template <typename>
struct meta_args_of;

template <typename... Args>
struct meta_args_of<type_list<Args...>>
{
    static constexpr meta_node_fn* value[sizeof...(Args) + 1u]{
        &resolve_node<std::remove_cv_t<std::remove_reference_t<Args>>>..., nullptr};
};

template <typename Type>
struct meta_template_of
{
    using traits_type = meta_template_traits<Type>;
    static constexpr meta_template_node value{traits_type::args_type::size,
                                              &resolve_node<typename traits_type::class_type>,
                                              meta_args_of<typename traits_type::args_type>::value};
};

template <typename Type>
[[nodiscard]] constexpr meta_traits meta_traits_of() noexcept
{
    return (std::is_arithmetic_v<Type> ? meta_traits::is_arithmetic : meta_traits::is_none) |
           (std::is_integral_v<Type> ? meta_traits::is_integral : meta_traits::is_none) |
           (std::is_signed_v<Type> ? meta_traits::is_signed : meta_traits::is_none) |
           (std::is_array_v<Type> ? meta_traits::is_array : meta_traits::is_none) |
           (std::is_enum_v<Type> ? meta_traits::is_enum : meta_traits::is_none) |
           (std::is_class_v<Type> ? meta_traits::is_class : meta_traits::is_none) |
           (std::is_pointer_v<Type> ? meta_traits::is_pointer : meta_traits::is_none);
}

template <typename>
struct meta_is_type_template_specialization : std::false_type
{
};

template <template <typename...> class Clazz, typename... Args>
struct meta_is_type_template_specialization<Clazz<Args...>> : std::true_type
{
};

template <typename Type>
[[nodiscard]] const meta_type_node& resolve_node() noexcept
{
    static_assert(std::is_same_v<Type, std::remove_cv_t<std::remove_reference_t<Type>>>, "Invalid type");
    // Stricter than EnTT, which compiles on and silently gives the type no template information here while units
    // that include the header give it some: two different nodes for one type in one program.
    static_assert(!meta_is_type_template_specialization<Type>::value || is_complete_v<meta_template_traits<Type>>,
                  "Include <entt/meta/template.hpp> in every unit that reflects a class template specialization");
    constexpr bool is_value = std::is_object_v<Type> && !std::is_array_v<Type>;

    static constexpr meta_type_node node{
        type_hash<Type>::value(),
        &type_id<Type>,
        meta_traits_of<Type>(),
        size_of_v<Type>,
        meta_in_situ<Type>(),
        &resolve_node<std::remove_cv_t<std::remove_pointer_t<Type>>>,
        []
        {
            if constexpr (is_value && std::is_default_constructible_v<Type>)
            {
                return &meta_default_constructor<Type>;
            }
            else
            {
                return static_cast<meta_any (*)(const meta_ctx&)>(nullptr);
            }
        }(),
        []
        {
            if constexpr (std::is_arithmetic_v<Type> || std::is_enum_v<Type>)
            {
                return &meta_conversion_helper<Type>;
            }
            else
            {
                return static_cast<double (*)(void*, const void*)>(nullptr);
            }
        }(),
        []
        {
            if constexpr (is_value)
            {
                return &meta_from_void<Type>;
            }
            else
            {
                return static_cast<meta_any (*)(const meta_ctx&, void*, const void*)>(nullptr);
            }
        }(),
        []
        {
            if constexpr (requires { typename meta_template_traits<Type>::class_type; })
            {
                return &meta_template_of<Type>::value;
            }
            else
            {
                return static_cast<const meta_template_node*>(nullptr);
            }
        }(),
        []
        {
            if constexpr (is_value)
            {
                return &meta_vtable<Type>;
            }
            else
            {
                return static_cast<meta_vtable_fn*>(nullptr);
            }
        }()};

    return node;
}

} // namespace internal

/*! @brief Non-owning access to an object for the meta system; moves only. */
struct meta_handle
{
    meta_handle() = default;

    meta_handle(meta_any& value) noexcept : any{value.as_ref()} {}

    meta_handle(const meta_any& value) noexcept : any{value.as_ref()} {}

    template <typename Type, typename = std::enable_if_t<!std::is_same_v<std::decay_t<Type>, meta_handle>>>
    meta_handle(const meta_ctx& ctx, Type& value) noexcept : any{ctx, std::in_place_type<Type&>, value}
    {
    }

    template <typename Type, typename = std::enable_if_t<!std::is_same_v<std::decay_t<Type>, meta_handle>>>
    meta_handle(Type& value) noexcept : meta_handle{locator<meta_ctx>::value_or(), value}
    {
    }

    meta_handle(const meta_ctx& area, meta_handle&& other) : any{area, std::move(other.any)} {}

    meta_handle(const meta_handle&) = delete;
    meta_handle(meta_handle&&) = default;
    ~meta_handle() = default;

    meta_handle& operator=(const meta_handle&) = delete;
    meta_handle& operator=(meta_handle&&) = default;

    [[nodiscard]] explicit operator bool() const noexcept { return static_cast<bool>(any); }

    [[nodiscard]] bool operator==(const meta_handle& other) const noexcept { return (any == other.any); }

    [[nodiscard]] meta_any* operator->() { return &any; }

    [[nodiscard]] const meta_any* operator->() const { return &any; }

private:
    meta_any any;
};

/*! @brief A function registered on a type; one of possibly several overloads on its id. */
struct meta_func
{
    using node_type = internal::meta_func_node;
    using size_type = std::size_t;

    meta_func() noexcept : node{}, ctx{} {}

    meta_func(const meta_ctx& area, const node_type& curr) noexcept : node{&curr}, ctx{&area} {}

    [[nodiscard]] size_type arity() const noexcept { return node->arity; }

    [[nodiscard]] bool is_const() const noexcept
    {
        return internal::any_of(node->traits, internal::meta_traits::is_const);
    }

    [[nodiscard]] bool is_static() const noexcept
    {
        return internal::any_of(node->traits, internal::meta_traits::is_static);
    }

    [[nodiscard]] inline meta_type ret() const noexcept;

    [[nodiscard]] inline meta_type arg(const size_type index) const noexcept;

    meta_any invoke(meta_handle instance, meta_any* const args, const size_type sz) const
    {
        return (sz == arity()) ? node->invoke(*ctx, meta_handle{*ctx, std::move(instance)}, args)
                               : meta_any{meta_ctx_arg, *ctx};
    }

    template <typename... Args>
    meta_any invoke(meta_handle instance, Args&&... args) const
    {
        meta_any arguments[sizeof...(Args) + !sizeof...(Args)]{{*ctx, std::forward<Args>(args)}...};
        return invoke(std::move(instance), arguments, sizeof...(Args));
    }

    [[nodiscard]] meta_func next() const
    {
        return (node->next != nullptr) ? meta_func{*ctx, *node->next} : meta_func{};
    }

    [[nodiscard]] explicit operator bool() const noexcept { return (node != nullptr); }

    [[nodiscard]] bool operator==(const meta_func& other) const noexcept
    {
        return (ctx == other.ctx) && (node == other.node);
    }

private:
    const node_type* node;
    const meta_ctx* ctx;
};

/*! @brief A C++ type as the meta system sees it in one context. */
class meta_type
{
    friend class meta_any;

    [[nodiscard]] const internal::meta_type_descriptor* details() const noexcept
    {
        return (node != nullptr) ? internal::meta_context::from(*ctx).find(node->hash) : nullptr;
    }

    // Invalid types carry no context; results made from them use the default one.
    [[nodiscard]] const meta_ctx& any_context() const noexcept
    {
        return (ctx != nullptr) ? *ctx : locator<meta_ctx>::value_or();
    }

public:
    using node_type = internal::meta_type_node;
    using size_type = std::size_t;

    meta_type() noexcept : node{}, ctx{} {}

    meta_type(const meta_ctx& area, const node_type& curr) noexcept : node{&curr}, ctx{&area} {}

    meta_type(const meta_ctx& area, const internal::meta_base_node& curr) noexcept : meta_type{area, curr.type()} {}

    [[nodiscard]] const type_info& info() const noexcept { return (node != nullptr) ? node->info() : type_id<void>(); }

    /*! @brief The identifier given at registration, the type hash otherwise. */
    [[nodiscard]] id_type id() const noexcept
    {
        if (const auto* elem = details(); elem)
        {
            return elem->id;
        }
        return (node != nullptr) ? node->hash : id_type{};
    }

    [[nodiscard]] size_type size_of() const noexcept { return (node != nullptr) ? node->size_of : 0u; }

    [[nodiscard]] bool is_arithmetic() const noexcept { return has(internal::meta_traits::is_arithmetic); }

    [[nodiscard]] bool is_integral() const noexcept { return has(internal::meta_traits::is_integral); }

    [[nodiscard]] bool is_signed() const noexcept { return has(internal::meta_traits::is_signed); }

    [[nodiscard]] bool is_array() const noexcept { return has(internal::meta_traits::is_array); }

    [[nodiscard]] bool is_enum() const noexcept { return has(internal::meta_traits::is_enum); }

    [[nodiscard]] bool is_class() const noexcept { return has(internal::meta_traits::is_class); }

    [[nodiscard]] bool is_pointer() const noexcept { return has(internal::meta_traits::is_pointer); }

    [[nodiscard]] meta_type remove_pointer() const noexcept
    {
        return (node != nullptr) ? meta_type{*ctx, node->remove_pointer()} : meta_type{};
    }

    [[nodiscard]] bool is_template_specialization() const noexcept
    {
        return (node != nullptr) && (node->templ != nullptr) && (node->templ->arity != 0u);
    }

    [[nodiscard]] size_type template_arity() const noexcept
    {
        return ((node != nullptr) && (node->templ != nullptr)) ? node->templ->arity : 0u;
    }

    /*! @brief The meta type of `meta_class_template_tag<Template>`, or an invalid type. */
    [[nodiscard]] meta_type template_type() const noexcept
    {
        return ((node != nullptr) && (node->templ != nullptr)) ? meta_type{*ctx, node->templ->type()} : meta_type{};
    }

    [[nodiscard]] meta_type template_arg(const size_type index) const noexcept
    {
        return (index < template_arity()) ? meta_type{*ctx, node->templ->args[index]()} : meta_type{};
    }

    /*! @brief Whether `other` is this type or one of its registered bases, directly or not. */
    [[nodiscard]] bool can_cast(const meta_type& other) const noexcept
    {
        return (node != nullptr) && (other.node != nullptr) &&
               internal::meta_can_cast(internal::meta_context::from(*ctx), *node, other.node->hash);
    }

    /*! @brief Whether a value of this type can become a value of `other`, by cast or conversion. */
    [[nodiscard]] bool can_convert(const meta_type& other) const noexcept
    {
        return (node != nullptr) && (other.node != nullptr) &&
               internal::meta_can_convert(internal::meta_context::from(*ctx), *node, other.node->hash,
                                          other.is_arithmetic() || other.is_enum());
    }

    [[nodiscard]] meta_range<meta_type, std::vector<internal::meta_base_node>::const_iterator> base() const noexcept
    {
        using iterator =
            typename meta_range<meta_type, std::vector<internal::meta_base_node>::const_iterator>::iterator;
        if (const auto* elem = details(); elem)
        {
            return {iterator{*ctx, elem->base.cbegin()}, iterator{*ctx, elem->base.cend()}};
        }
        return {};
    }

    [[nodiscard]] meta_range<meta_func, std::vector<std::unique_ptr<internal::meta_func_node>>::const_iterator>
    func() const noexcept
    {
        using iterator =
            typename meta_range<meta_func,
                                std::vector<std::unique_ptr<internal::meta_func_node>>::const_iterator>::iterator;
        if (const auto* elem = details(); elem)
        {
            return {iterator{*ctx, elem->func.cbegin()}, iterator{*ctx, elem->func.cend()}};
        }
        return {};
    }

    /*! @brief The first overload with the given id, searched in this type and then in its bases. */
    [[nodiscard]] meta_func func(const id_type id) const
    {
        if (const auto* elem = details(); elem)
        {
            for (auto&& curr : elem->func)
            {
                if (curr->id == id)
                {
                    return meta_func{*ctx, *curr};
                }
            }
            for (auto&& curr : elem->base)
            {
                if (auto other = meta_type{*ctx, curr.type()}.func(id); other)
                {
                    return other;
                }
            }
        }
        return meta_func{};
    }

    /*! @brief Builds an instance with the best matching constructor, or the implicit default one. */
    [[nodiscard]] meta_any construct(meta_any* const args, const size_type sz) const
    {
        if (node != nullptr)
        {
            if (const auto* elem = details(); elem)
            {
                auto first = elem->ctor.cbegin();
                const auto last = elem->ctor.cend();
                const auto* candidate = internal::meta_lookup<internal::meta_ctor_node>(
                    *ctx, args, sz, false, [&first, last]() { return (first == last) ? nullptr : &*(first++); });
                if (candidate != nullptr)
                {
                    return candidate->invoke(*ctx, args);
                }
            }
            if (sz == 0u && node->default_constructor != nullptr)
            {
                return node->default_constructor(*ctx);
            }
        }
        return meta_any{meta_ctx_arg, any_context()};
    }

    template <typename... Args>
    [[nodiscard]] meta_any construct(Args&&... args) const
    {
        const auto& area = any_context();
        meta_any arguments[sizeof...(Args) + !sizeof...(Args)]{{area, std::forward<Args>(args)}...};
        return construct(arguments, sizeof...(Args));
    }

    /*! @brief A reference to the object behind a pointer of this type; nothing checks that it is one. */
    [[nodiscard]] meta_any from_void(void* element) const
    {
        return ((element != nullptr) && (node != nullptr) && (node->from_void != nullptr))
                   ? node->from_void(*ctx, element, nullptr)
                   : meta_any{meta_ctx_arg, any_context()};
    }

    [[nodiscard]] meta_any from_void(const void* element) const
    {
        return ((element != nullptr) && (node != nullptr) && (node->from_void != nullptr))
                   ? node->from_void(*ctx, nullptr, element)
                   : meta_any{meta_ctx_arg, any_context()};
    }

    /**
     * @brief Calls the best matching overload of a function, searching the bases when this
     * type has none that fits. A const instance only sees const overloads; between equally
     * good const and non-const overloads a non-const instance gets the non-const one.
     */
    meta_any invoke(const id_type id, meta_handle instance, meta_any* const args, const size_type sz) const
    {
        if (node == nullptr)
        {
            return meta_any{meta_ctx_arg, any_context()};
        }
        if (const auto* elem = details(); elem)
        {
            for (auto&& curr : elem->func)
            {
                if (curr->id == id)
                {
                    const bool constness = instance && (instance->data() == nullptr);
                    const internal::meta_func_node* next = curr.get();
                    const auto* candidate = internal::meta_lookup<internal::meta_func_node>(
                        *ctx, args, sz, constness,
                        [&next]() { return (next == nullptr) ? nullptr : std::exchange(next, next->next.get()); });
                    if (candidate != nullptr)
                    {
                        return candidate->invoke(*ctx, meta_handle{*ctx, std::move(instance)}, args);
                    }
                    break;
                }
            }
            for (auto&& curr : elem->base)
            {
                if (auto other = meta_type{*ctx, curr.type()}.invoke(id, *instance.operator->(), args, sz); other)
                {
                    return other;
                }
            }
        }
        return meta_any{meta_ctx_arg, *ctx};
    }

    template <typename... Args>
    meta_any invoke(const id_type id, meta_handle instance, Args&&... args) const
    {
        const auto& area = any_context();
        meta_any arguments[sizeof...(Args) + !sizeof...(Args)]{{area, std::forward<Args>(args)}...};
        return invoke(id, std::move(instance), arguments, sizeof...(Args));
    }

    [[nodiscard]] explicit operator bool() const noexcept { return (node != nullptr); }

    /*! @brief Same context and both invalid, or both valid with equal type hashes. */
    [[nodiscard]] bool operator==(const meta_type& other) const noexcept
    {
        return (ctx == other.ctx) && ((node == nullptr && other.node == nullptr) ||
                                      (node != nullptr && other.node != nullptr && node->hash == other.node->hash));
    }

private:
    [[nodiscard]] bool has(const internal::meta_traits mask) const noexcept
    {
        return (node != nullptr) && internal::any_of(node->traits, mask);
    }

    const node_type* node;
    const meta_ctx* ctx;
};

namespace internal
{

template <typename Type>
[[nodiscard]] std::pair<id_type, Type> meta_range_item(const meta_ctx& ctx, const meta_base_node& elem) noexcept
{
    return {elem.id, Type{ctx, elem.type()}};
}

template <typename Type>
[[nodiscard]] std::pair<id_type, Type> meta_range_item(const meta_ctx& ctx,
                                                       const std::unique_ptr<meta_func_node>& elem) noexcept
{
    return {elem->id, Type{ctx, *elem}};
}

template <typename Type>
[[nodiscard]] std::pair<id_type, Type> meta_range_item(const meta_ctx& ctx,
                                                       const std::unique_ptr<meta_type_descriptor>& elem) noexcept
{
    return {elem->node->hash, Type{ctx, *elem->node}};
}

// Picks the overload whose parameters the arguments match best: exact types count more
// than conversions, a tie is ambiguous (no result) except between a const and a
// non-const function, where the non-const one wins.
template <typename Node, typename Next>
[[nodiscard]] const Node* meta_lookup(const meta_ctx& ctx, meta_any* const args, const std::size_t sz,
                                      [[maybe_unused]] const bool constness, Next next)
{
    const Node* candidate{};
    std::size_t same{};
    bool ambiguous{};

    for (const Node* curr = next(); curr != nullptr; curr = next())
    {
        if constexpr (std::is_same_v<Node, meta_func_node>)
        {
            if (constness && !any_of(curr->traits, meta_traits::is_const))
            {
                continue;
            }
        }

        if (curr->arity != sz)
        {
            continue;
        }

        std::size_t direct{};
        std::size_t ext{};
        for (std::size_t pos{}; pos < sz && pos == (direct + ext) && args[pos]; ++pos)
        {
            const auto& req = curr->args[pos]();
            if (args[pos].node->hash == req.hash)
            {
                ++direct;
            }
            else
            {
                const bool arithmetic_or_enum = any_of(req.traits, meta_traits::is_arithmetic | meta_traits::is_enum);
                ext += meta_can_convert(meta_context::from(ctx), *args[pos].node, req.hash, arithmetic_or_enum);
            }
        }

        if ((direct + ext) != sz)
        {
            continue;
        }

        if (candidate == nullptr || direct > same)
        {
            candidate = curr;
            same = direct;
            ambiguous = false;
        }
        else if (direct == same)
        {
            if constexpr (std::is_same_v<Node, meta_func_node>)
            {
                const bool curr_const = any_of(curr->traits, meta_traits::is_const);
                if (curr_const != any_of(candidate->traits, meta_traits::is_const))
                {
                    candidate = curr_const ? candidate : curr;
                    ambiguous = false;
                    continue;
                }
            }
            ambiguous = true;
        }
    }

    return ambiguous ? nullptr : candidate;
}

} // namespace internal

[[nodiscard]] inline meta_type meta_any::type() const noexcept
{
    return (node != nullptr) ? meta_type{*ctx, *node} : meta_type{};
}

template <typename... Args>
meta_any meta_any::invoke(const id_type id, Args&&... args) const
{
    return type().invoke(id, *this, std::forward<Args>(args)...);
}

template <typename... Args>
meta_any meta_any::invoke(const id_type id, Args&&... args)
{
    return type().invoke(id, *this, std::forward<Args>(args)...);
}

[[nodiscard]] inline meta_any meta_any::allow_cast(const meta_type& type) const
{
    if (node == nullptr || type.node == nullptr)
    {
        return meta_any{meta_ctx_arg, *ctx};
    }

    const auto to = type.node->hash;
    if (node->hash == to)
    {
        return as_ref();
    }

    if (const auto* details = internal::meta_context::from(*ctx).find(node->hash); details)
    {
        // Registered conversions come before bases and before the built-in arithmetic ones.
        for (auto&& curr : details->conv)
        {
            if (curr.id == to)
            {
                return curr.conv(*ctx, data());
            }
        }

        for (auto&& curr : details->base)
        {
            meta_any other{meta_ctx_arg, *ctx};
            other.node = &curr.type();
            other.storage.instance = const_cast<void*>(curr.cast(data()));
            other.mode = policy_type::cref;
            if (auto elem = std::as_const(other).allow_cast(type); elem)
            {
                return elem;
            }
        }
    }

    if (node->conversion_helper != nullptr && (type.is_arithmetic() || type.is_enum()))
    {
        if (auto other = type.construct(); other && other.node->conversion_helper != nullptr)
        {
            const double value = node->conversion_helper(nullptr, data());
            other.node->conversion_helper(other.data(), &value);
            return other;
        }
    }

    return meta_any{meta_ctx_arg, *ctx};
}

[[nodiscard]] inline bool meta_any::allow_cast(const meta_type& type)
{
    if (node != nullptr && type.node != nullptr && node->hash == type.node->hash)
    {
        return true;
    }
    if (auto other = std::as_const(*this).allow_cast(type); other)
    {
        if (other.mode == policy_type::owner)
        {
            *this = std::move(other);
        }
        return true;
    }
    return false;
}

template <typename Type>
[[nodiscard]] meta_any meta_any::allow_cast() const
{
    if constexpr (std::is_reference_v<Type> && !std::is_const_v<std::remove_reference_t<Type>>)
    {
        return meta_any{meta_ctx_arg, *ctx};
    }
    else
    {
        return allow_cast(meta_type{*ctx, internal::resolve_node<std::remove_cv_t<std::remove_reference_t<Type>>>()});
    }
}

template <typename Type>
[[nodiscard]] bool meta_any::allow_cast()
{
    constexpr bool needs_mutable = std::is_reference_v<Type> && !std::is_const_v<std::remove_reference_t<Type>>;
    return allow_cast(meta_type{*ctx, internal::resolve_node<std::remove_cv_t<std::remove_reference_t<Type>>>()}) &&
           (!needs_mutable || data() != nullptr);
}

inline bool meta_any::assign(const meta_any& other)
{
    if (mode == policy_type::empty || mode == policy_type::cref)
    {
        return false;
    }
    auto value = other.allow_cast(type());
    return value && (node->vtable(internal::meta_any_op::assign, data(), value.data()) != nullptr);
}

inline bool meta_any::assign(meta_any&& other)
{
    if (mode == policy_type::empty || mode == policy_type::cref)
    {
        return false;
    }
    if (other.node != nullptr && other.node->hash == node->hash)
    {
        if (void* source = other.data(); source != nullptr)
        {
            return (node->vtable(internal::meta_any_op::transfer, data(), source) != nullptr);
        }
        return (node->vtable(internal::meta_any_op::assign, data(), std::as_const(other).data()) != nullptr);
    }
    return assign(std::as_const(other));
}

[[nodiscard]] inline meta_type meta_func::ret() const noexcept
{
    return meta_type{*ctx, node->ret()};
}

[[nodiscard]] inline meta_type meta_func::arg(const size_type index) const noexcept
{
    return (index < arity()) ? meta_type{*ctx, node->args[index]()} : meta_type{};
}

} // namespace entt

#endif
