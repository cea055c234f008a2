// SPDX-License-Identifier: MIT
// Marks the symbols of the library's binary interface; everything else is hidden.
#pragma once

#if defined(QMX_STATIC)
#define QMX_EXPORT
#else
#define QMX_EXPORT __attribute__((visibility("default")))
#endif
