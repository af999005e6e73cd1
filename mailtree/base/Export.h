// base/Export.h - the mark of what the shared library exports.
#pragma once

/// Everything is compiled with hidden visibility. Classes and functions that installed headers declare and
/// the library defines have this mark; so have classes with virtual functions, which must be one type
/// everywhere.
#if defined(__GNUC__)
#define MAILTREE_API __attribute__((visibility("default")))
#else
#define MAILTREE_API
#endif
