#ifndef ENTT_CORE_ANY_HPP
#define ENTT_CORE_ANY_HPP

#include "../config/config.h"
#include "fwd.hpp"
#include <cstdint>

namespace entt
{

/*! @brief What an any does with its element. */
enum class any_policy : std::uint8_t
{
    /*! @brief Owns it; also the mode of an empty any. */
    owner,
    /*! @brief Refers to an element it may change. */
    ref,
    /*! @brief Refers to an element it may only read. */
    cref
};

} // namespace entt

#endif
