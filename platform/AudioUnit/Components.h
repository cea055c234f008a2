// SPDX-License-Identifier: MIT
// Looking up and opening components: the audio units of this library. Any thread but the real-time ones.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

/// A kind of component that can be opened; null is none.
using Component = const struct OpaqueComponent*;
/// An opened component; null is none.
using ComponentInstance = struct OpaqueComponentInstance*;

/// Describes a component, or what to look for: a code of 0 stands for any, and only the flags in the mask count.
struct ComponentDescription {
    OSType componentType = 0;
    OSType componentSubType = 0;
    OSType componentManufacturer = 0;
    UInt32 componentFlags = 0;
    UInt32 componentFlagsMask = 0;
};

inline constexpr OSStatus invalidComponentID = -3000;
inline constexpr OSStatus componentNotCaptured = -3002;
inline constexpr OSStatus badComponentInstance = static_cast<OSStatus>(0x80008001);
inline constexpr OSStatus badComponentSelector = static_cast<OSStatus>(0x80008002);

/// The first component after `after` (null: from the start) that matches `looking`; null if there is none.
QMX_EXPORT Component FindNextComponent(Component after, const ComponentDescription* looking);
/// The number of components that match `looking`.
QMX_EXPORT UInt32 CountComponents(const ComponentDescription* looking);
/// Describes `component`; paramErr for null.
[[nodiscard]] QMX_EXPORT OSErr GetComponentInfo(Component component, ComponentDescription* description);

/// Opens `component`. The caller closes `*instance`, which is null on failure.
[[nodiscard]] QMX_EXPORT OSErr OpenAComponent(Component component, ComponentInstance* instance);
/// The same; null on failure.
QMX_EXPORT ComponentInstance OpenComponent(Component component);
/// Ends an instance's work, waits for the cycle and the listener's call in flight, and frees it. Inside a callback,
/// also on I/O threads, it stops an output unit and waits for nothing; another thread frees the instance soon.
[[nodiscard]] QMX_EXPORT OSErr CloseComponent(ComponentInstance instance);
