// SPDX-License-Identifier: MIT
#pragma once

#include "AudioUnit/AudioUnit.h"
#include "Foundation/Export.h"
#include "Foundation/Object.h"

#include <memory>

/// An opened output unit. One thread at a time per object; not for real-time threads.
class QMX_EXPORT QMXAudioUnit : public qmx::Object
{
public:
    /// The default output unit, opened and initialised, which the object closes in the end. Null where that fails.
    /// Needs no device.
    static std::shared_ptr<QMXAudioUnit> defaultOutputUnit();
    /// Wraps a unit, which stays the caller's and outlives the object.
    static std::shared_ptr<QMXAudioUnit> initWithAudioUnit(AudioUnit audioUnit);
    ~QMXAudioUnit() override;

    AudioUnit audioUnit() const { return mAudioUnit; }
    /// The format of the unit's input as it was at the first call; all zero where that could not be read. The object's
    /// own.
    const AudioStreamBasicDescription* streamFormat();

private:
    QMXAudioUnit(AudioUnit audioUnit, bool isOwned) : mAudioUnit(audioUnit), mIsOwned(isOwned) {}

    AudioUnit mAudioUnit;
    std::unique_ptr<AudioStreamBasicDescription> mAUInternalFormat; ///< null until asked for
    bool mIsOwned;
};
