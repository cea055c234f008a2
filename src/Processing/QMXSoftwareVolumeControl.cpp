// SPDX-License-Identifier: MIT
#include "Processing/QMXSoftwareVolumeControl.h"

#include "CoreAudioTypes/AudioBuffers.h"
#include "vecLib/vecLib.h"

#include <atomic>
#include <cmath>

namespace
{

class QMXSoftwareVolumeControlImpl final : public QMXSoftwareVolumeControl
{
public:
    void setVolumeScalar(Float32 scalar) override { volumeSetting = scalar; }
    Float32 volumeScalar() const override { return volumeSetting; }
    void reset() override {}
    OSStatus processAudio_numberOfFrames(AudioBufferList& audio, UInt32* numberOfFrames) override;

private:
    std::atomic<Float32> volumeSetting{1};
};

OSStatus QMXSoftwareVolumeControlImpl::processAudio_numberOfFrames(AudioBufferList& audio, UInt32* numberOfFrames)
{
    for (const AudioBuffer& buffer : qmx::buffersOf(audio)) {
        const Float32 gain = volumeSetting;
        auto* const samples = static_cast<Float32*>(buffer.mData);
        vsmul(samples, 1, &gain, samples, 1, *numberOfFrames * buffer.mNumberChannels);
    }
    return noErr;
}

} // namespace

std::shared_ptr<QMXSoftwareVolumeControl> QMXSoftwareVolumeControl::init()
{
    return std::make_shared<QMXSoftwareVolumeControlImpl>();
}

void QMXSoftwareVolumeControl::setVolumeDecibels(Float32 decibels)
{
    setVolumeScalar(static_cast<Float32>(std::pow(10.0, static_cast<double>(decibels) / 20.0)));
}
