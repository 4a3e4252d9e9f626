#ifndef ENTT_META_NODE_HPP
#define ENTT_META_NODE_HPP

#include "../core/fwd.hpp"
#include "../core/type_info.hpp"
#include "fwd.hpp"
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

namespace entt
{

namespace internal
{

enum class meta_traits : std::uint32_t
{
    is_none = 0x0000,
    is_const = 0x0001,
    is_static = 0x0002,
    is_arithmetic = 0x0004,
    is_integral = 0x0008,
    is_signed = 0x0010,
    is_array = 0x0020,
    is_enum = 0x0040,
    is_class = 0x0080,
    is_pointer = 0x0100
};

[[nodiscard]] constexpr meta_traits operator|(const meta_traits lhs, const meta_traits rhs) noexcept
{
    return static_cast<meta_traits>(static_cast<std::uint32_t>(lhs) | static_cast<std::uint32_t>(rhs));
}

[[nodiscard]] constexpr bool any_of(const meta_traits value, const meta_traits mask) noexcept
{
    return (static_cast<std::uint32_t>(value) & static_cast<std::uint32_t>(mask)) != 0u;
}

// Small-buffer geometry of meta_any: two doubles, as for upstream's default `any`.
inline constexpr std::size_t meta_sbo_size = sizeof(double[2]);
inline constexpr std::size_t meta_sbo_align = alignof(double[2]);

// `instance` always points to the object, also when it lives in `buffer`: reading a pointer
// is cheaper than asking where the object is, and keeps compilers from assuming that a
// reference taken from a moved-in any points into a local buffer.
struct meta_sbo
{
    alignas(meta_sbo_align) std::byte buffer[meta_sbo_size];
    void* instance;
};

enum class meta_any_op : std::uint8_t
{
    destroy,
    copy,
    move,
    assign,
    transfer,
    compare
};

struct meta_type_node;

using meta_node_fn = const meta_type_node&() noexcept;

// One per storage operation a meta_any needs on its value; see meta_vtable in meta.hpp.
using meta_vtable_fn = const void*(const meta_any_op, void*, const void*);

struct meta_template_node
{
    std::size_t arity;
    meta_node_fn* type;
    meta_node_fn* const* args;
};

// Compile-time facts of one C++ type: one constant object per type and binary.
struct meta_type_node
{
    id_type hash;
    const type_info& (*info)() noexcept;
    meta_traits traits;
    std::size_t size_of;
    bool in_situ;
    meta_node_fn* remove_pointer;
    meta_any (*default_constructor)(const meta_ctx&);
    double (*conversion_helper)(void*, const void*);
    meta_any (*from_void)(const meta_ctx&, void*, const void*);
    const meta_template_node* templ;
    meta_vtable_fn* vtable;
};

struct meta_base_node
{
    id_type id;
    meta_node_fn* type;
    const void* (*cast)(const void*) noexcept;
};

struct meta_conv_node
{
    id_type id;
    meta_any (*conv)(const meta_ctx&, const void*);
};

struct meta_ctor_node
{
    id_type id;
    std::size_t arity;
    meta_node_fn* const* args;
    meta_any (*invoke)(const meta_ctx&, meta_any* const);
};

struct meta_func_node
{
    id_type id;
    meta_traits traits;
    std::size_t arity;
    meta_node_fn* ret;
    meta_node_fn* const* args;
    meta_any (*invoke)(const meta_ctx&, meta_handle, meta_any* const);
    // Overloads registered under the same id, newest first.
    std::unique_ptr<meta_func_node> next;
};

// What registration added to one type within one context.
struct meta_type_descriptor
{
    const meta_type_node* node;
    id_type id;
    std::vector<meta_base_node> base;
    std::vector<meta_conv_node> conv;
    std::vector<meta_ctor_node> ctor;
    std::vector<std::unique_ptr<meta_func_node>> func;
};

} // namespace internal

} // namespace entt

#endif
