#ifndef ENTT_CONFIG_VERSION_H
#define ENTT_CONFIG_VERSION_H

// The release whose public interface this subset follows.
#define ENTT_VERSION_MAJOR 3
#define ENTT_VERSION_MINOR 13
#define ENTT_VERSION_PATCH 0

#define ENTT_VERSION "3.13.0"

#endif
