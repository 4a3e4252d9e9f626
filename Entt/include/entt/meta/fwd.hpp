#ifndef ENTT_META_FWD_HPP
#define ENTT_META_FWD_HPP

namespace entt
{

class meta_ctx;

class meta_any;

struct meta_handle;

struct meta_func;

class meta_type;

} // namespace entt

#endif
