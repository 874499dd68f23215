// TARNWICK_MARKDOWN_API marks the library's public functions and classes. The shared library
// is built with hidden visibility, so these are the only symbols it exports.
#pragma once

#if defined(__GNUC__)
#define TARNWICK_MARKDOWN_API __attribute__((visibility("default")))
#else
#define TARNWICK_MARKDOWN_API
#endif
