// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/InputSource.h"

#include "AudioUnit/Units/Unit.h"
#include "CoreAudioTypes/AudioBuffers.h"
#include "Foundation/RealTime.h"

#include <algorithm>
#include <cstring>

namespace qmx
{
namespace
{

class CallbackSource : public InputSource
{
public:
    explicit CallbackSource(const AURenderCallbackStruct& callback) : callback_(callback) {}

    OSStatus render(const AudioTimeStamp& time, UInt32 element, UInt32 frames, const PcmLayout&,
                    AudioBufferList& data) const override
    {
        const CallbackScope scope;
        AudioUnitRenderActionFlags flags = 0;
        return callback_.inputProc(callback_.inputProcRefCon, &flags, &time, element, frames, &data);
    }

private:
    AURenderCallbackStruct callback_;
};

class ConnectionSource : public InputSource
{
public:
    ConnectionSource(std::shared_ptr<Unit> unit, UInt32 output) : unit_(std::move(unit)), output_(output) {}

    OSStatus render(const AudioTimeStamp& time, UInt32, UInt32 frames, const PcmLayout& layout,
                    AudioBufferList& data) const override
    {
        AudioUnitRenderActionFlags flags = 0;
        return unit_->render({flags, time, output_, frames}, data, &layout);
    }
    const Unit* unit() const override { return unit_.get(); }
    UInt32 output() const override { return output_; }

private:
    std::shared_ptr<Unit> unit_;
    UInt32 output_;
};

} // namespace

std::unique_ptr<InputSource> InputSource::callback(const AURenderCallbackStruct& callback)
{
    return std::make_unique<CallbackSource>(callback);
}

std::unique_ptr<InputSource> InputSource::connection(std::shared_ptr<Unit> unit, UInt32 output)
{
    return std::make_unique<ConnectionSource>(std::move(unit), output);
}

InputSlice::InputSlice(const InputElement& input, UInt32 element, const PcmLayout& layout, UInt32 maximumFrames)
    : input_(input), element_(element), buffers_(layout, maximumFrames)
{
    slice_.planes.resize(layout.planes());
    slice_.planeFrameBytes = layout.planeFrameBytes();
}

OSStatus InputSlice::render(const AudioTimeStamp& outputTime, UInt32 frames)
{
    AudioTimeStamp time;
    time.mSampleTime = static_cast<Float64>(input_.position.load());
    time.mHostTime = outputTime.mHostTime;
    time.mFlags = kAudioTimeStampSampleTimeValid | (outputTime.mFlags & kAudioTimeStampHostTimeValid);
    input_.position += frames;

    AudioBufferList& list = buffers_.silentList(frames);
    const InputSource* const source = input_.source.load();
    const OSStatus status =
        source ? source->render(time, element_, frames, buffers_.layout(), list) : kAudioUnitErr_NoConnection;
    if (status == noErr)
        receive(list, frames);
    else
        receive(buffers_.silentList(frames), frames);
    return status;
}

/// Points the slice at the rendered frames: in place if a buffer holds all of them, otherwise at a copy padded with
/// silence.
void InputSlice::receive(AudioBufferList& rendered, UInt32 frames)
{
    const std::size_t wanted = frames * slice_.planeFrameBytes;
    const auto buffers = buffersOf(rendered);
    slice_.frames = frames;
    for (std::size_t i = 0; i < slice_.planes.size(); ++i) {
        const bool isRendered = i < buffers.size() && buffers[i].mData;
        const auto* const data = isRendered ? static_cast<const std::byte*>(buffers[i].mData) : nullptr;
        const std::size_t bytes = isRendered ? std::min<std::size_t>(buffers[i].mDataByteSize, wanted) : 0;
        slice_.planes[i] = data;
        if (bytes == wanted)
            continue;
        std::byte* const own = buffers_.plane(i);
        const std::size_t whole = bytes - bytes % slice_.planeFrameBytes;
        if (whole > 0 && data != own)
            std::memmove(own, data, whole);
        buffers_.silence(own + whole, wanted - whole);
        slice_.planes[i] = own;
    }
}

void InputSlice::jump(SInt64 frames)
{
    input_.position = std::max<SInt64>(0, input_.position + frames);
}

void InputSlice::restart()
{
    input_.position = 0;
    slice_.frames = 0;
}

} // namespace qmx
