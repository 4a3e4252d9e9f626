#ifndef ENTT_CONFIG_CONFIG_H
#define ENTT_CONFIG_CONFIG_H

#include "version.h"

// Every knob can be set by the including project before the first EnTT header.

#ifndef ENTT_ID_TYPE
#include <cstdint>
#define ENTT_ID_TYPE std::uint32_t
#endif

#ifndef ENTT_SPARSE_PAGE
#define ENTT_SPARSE_PAGE 4096
#endif

#ifndef ENTT_PACKED_PAGE
#define ENTT_PACKED_PAGE 1024
#endif

#ifdef ENTT_USE_ATOMIC
#include <atomic>
#define ENTT_MAYBE_ATOMIC(Type) std::atomic<Type>
#else
#define ENTT_MAYBE_ATOMIC(Type) Type
#endif

#ifdef ENTT_DISABLE_ASSERT
#undef ENTT_ASSERT
#define ENTT_ASSERT(condition, msg) (void(0))
#elif !defined ENTT_ASSERT
#include <cassert>
#define ENTT_ASSERT(condition, msg) assert(((condition) && (msg)))
#endif

#ifdef ENTT_DISABLE_ASSERT
#undef ENTT_ASSERT_CONSTEXPR
#define ENTT_ASSERT_CONSTEXPR(condition, msg) (void(0))
#elif !defined ENTT_ASSERT_CONSTEXPR
#define ENTT_ASSERT_CONSTEXPR(condition, msg) ENTT_ASSERT(condition, msg)
#endif

#ifdef ENTT_NO_ETO
#define ENTT_ETO_TYPE(Type) void
#else
#define ENTT_ETO_TYPE(Type) Type
#endif

#ifndef ENTT_STANDARD_CPP
#if defined __clang__ || defined __GNUC__
#define ENTT_PRETTY_FUNCTION __PRETTY_FUNCTION__
#define ENTT_PRETTY_FUNCTION_PREFIX '='
#define ENTT_PRETTY_FUNCTION_SUFFIX ']'
#elif defined _MSC_VER
#define ENTT_PRETTY_FUNCTION __FUNCSIG__
#define ENTT_PRETTY_FUNCTION_PREFIX '<'
#define ENTT_PRETTY_FUNCTION_SUFFIX '>'
#endif
#endif

#endif
