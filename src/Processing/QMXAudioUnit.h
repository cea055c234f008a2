// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/AudioUnit/AudioUnit.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>

/// An opened output unit. One thread at a time per object; not for real-time threads.
class QMX_EXPORT QMXAudioUnit : public qmx::Object
{
public:
    /// The default output unit, opened and initialised; the object owns and closes it. Null if that fails. Needs no
    /// device.
    static std::shared_ptr<QMXAudioUnit> defaultOutputUnit();
    /// Wraps a unit that the caller owns; it must outlive the object.
    static std::shared_ptr<QMXAudioUnit> initWithAudioUnit(AudioUnit audioUnit);
    ~QMXAudioUnit() override;

    AudioUnit audioUnit() const { return mAudioUnit; }
    /// The format of the unit's input as it was at the first call; all zero if that could not be read. The object owns
    /// the record.
    const AudioStreamBasicDescription* streamFormat();

private:
    QMXAudioUnit(AudioUnit audioUnit, bool isOwned) : mAudioUnit(audioUnit), mIsOwned(isOwned) {}

    AudioUnit mAudioUnit;
    std::unique_ptr<AudioStreamBasicDescription> mAUInternalFormat; ///< null until requested
    bool mIsOwned;
};
