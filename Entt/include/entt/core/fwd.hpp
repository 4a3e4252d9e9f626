#ifndef ENTT_CORE_FWD_HPP
#define ENTT_CORE_FWD_HPP

#include "../config/config.h"
#include <cstddef>

namespace entt
{

/*! @brief Alias declaration for type identifiers. */
using id_type = ENTT_ID_TYPE;

template <typename>
class basic_hashed_string;

/*! @brief Aliases for common character types. */
using hashed_string = basic_hashed_string<char>;
using hashed_wstring = basic_hashed_string<wchar_t>;

struct type_info;

} // namespace entt

#endif
