// SPDX-License-Identifier: MIT
// Marks the symbols of the library's binary interface; everything else is hidden.
#pragma once

#if defined(QMX_STATIC)
#define QMX_EXPORT
#else
#define QMX_EXPORT __attribute__((visibility("default")))
#endif

/// Marks what only the library and its modules share: what modules call, and classes whose objects go from one to the
/// other. It is no part of the interface: a module and its library are of the same version.
#define QMX_MODULE_EXPORT QMX_EXPORT
