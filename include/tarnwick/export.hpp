// TARNWICK_MARKDOWN_API marks the library's public functions and classes. The shared library
// is built with hidden visibility, so these are the only symbols it exports.
#pragma once

#if defined(_WIN32) && defined(TARNWICK_MARKDOWN_SHARED)
#if defined(TARNWICK_MARKDOWN_BUILDING)
#define TARNWICK_MARKDOWN_API __declspec(dllexport)
#else
#define TARNWICK_MARKDOWN_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define TARNWICK_MARKDOWN_API __attribute__((visibility("default")))
#else
#define TARNWICK_MARKDOWN_API
#endif
