// The library's version. The build reads it from here, so these lines are its one definition.
// Semantic versioning: before 1.0.0 a new minor version may change the API, the ABI or the
// records; from 1.0.0 on only a new major version does.
#pragma once

#define TARNWICK_MARKDOWN_VERSION_MAJOR 0
#define TARNWICK_MARKDOWN_VERSION_MINOR 1
#define TARNWICK_MARKDOWN_VERSION_PATCH 0
#define TARNWICK_MARKDOWN_VERSION "0.1.0"
