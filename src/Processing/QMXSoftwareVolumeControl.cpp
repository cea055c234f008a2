// SPDX-License-Identifier: MIT
#include "Processing/QMXSoftwareVolumeControl.h"

#include "vecLib/vecLib.h"

#include <cmath>

std::shared_ptr<QMXSoftwareVolumeControl> QMXSoftwareVolumeControl::init()
{
    return std::shared_ptr<QMXSoftwareVolumeControl>(new QMXSoftwareVolumeControl);
}

void QMXSoftwareVolumeControl::setVolumeDecibels(Float32 decibels)
{
    setVolumeScalar(static_cast<Float32>(std::pow(10.0, static_cast<double>(decibels) / 20.0)));
}

OSStatus QMXSoftwareVolumeControl::processAudio_numberOfFrames(AudioBufferList& audio, UInt32* numberOfFrames)
{
    AudioBuffer* const buffers = audio.mBuffers;
    for (UInt32 i = 0; i < audio.mNumberBuffers; ++i) {
        const Float32 gain = volumeSetting;
        auto* const samples = static_cast<Float32*>(buffers[i].mData);
        vsmul(samples, 1, &gain, samples, 1, *numberOfFrames * buffers[i].mNumberChannels);
    }
    return noErr;
}
