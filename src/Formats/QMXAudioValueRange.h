// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>

/// A range of values from a minimum to a maximum, for example of the sample rates that a device supports. Immutable.
class QMX_EXPORT QMXAudioValueRange : public qmx::Object
{
public:
    explicit QMXAudioValueRange(const AudioValueRange& range);

    /// Copies the range; null for a null range.
    static std::shared_ptr<QMXAudioValueRange> initWithAudioValueRange(const AudioValueRange* range);

    Float64 mMinimum() const { return mAudioValueRange.mMinimum; }
    Float64 mMaximum() const { return mAudioValueRange.mMaximum; }
    /// The object's own record, valid while the object lives.
    const AudioValueRange* audioValueRange() const { return &mAudioValueRange; }

private:
    AudioValueRange mAudioValueRange;
};
