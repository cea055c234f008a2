// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/RenderEngine.h"

#include "CoreAudioTypes/AudioBuffers.h"

#include <algorithm>
#include <cstring>

namespace qmx
{

RenderEngine::RenderEngine(const PcmLayout& output, UInt32 maximumFrames) : own_(output, maximumFrames)
{
    target_.planes.resize(output.planes());
    target_.planeFrameBytes = output.planeFrameBytes();
}

OSStatus RenderEngine::render(const RenderCall& call, AudioBufferList& data)
{
    if (call.frames > maximumFrames())
        return kAudioUnitErr_TooManyFramesToProcess;
    if (!mayRender() || isRendering_.test_and_set())
        return kAudioUnitErr_CannotDoInCurrentContext;
    restartIfAsked();
    const UInt32 frames = aim(data, call.frames);
    const OSStatus status = frames > 0 ? renderInto(call.time, frames, target_) : noErr;
    isRendering_.clear();
    return status;
}

void RenderEngine::restartIfAsked()
{
    if (wantsRestart_.exchange(false))
        restart();
}

/// Points the target at the buffers of `data` and sets their sizes to the frames that all of them have room for, which
/// are returned.
UInt32 RenderEngine::aim(AudioBufferList& data, UInt32 frames)
{
    const auto buffers = buffersOf(data);
    const std::size_t used = std::min(buffers.size(), target_.planes.size());
    for (const AudioBuffer& buffer : buffers.first(used))
        if (buffer.mData)
            frames = std::min(frames, static_cast<UInt32>(buffer.mDataByteSize / target_.planeFrameBytes));

    target_.frames = frames;
    for (std::size_t i = 0; i < target_.planes.size(); ++i)
        target_.planes[i] = own_.plane(i);
    for (std::size_t i = 0; i < used; ++i) {
        if (!buffers[i].mData)
            buffers[i].mData = own_.plane(i);
        target_.planes[i] = static_cast<std::byte*>(buffers[i].mData);
        buffers[i].mDataByteSize = static_cast<UInt32>(frames * target_.planeFrameBytes);
    }
    for (AudioBuffer& buffer : buffers.subspan(used)) {
        if (!buffer.mData)
            continue;
        buffer.mDataByteSize = std::min(buffer.mDataByteSize, static_cast<UInt32>(frames * target_.planeFrameBytes));
        own_.silence(static_cast<std::byte*>(buffer.mData), buffer.mDataByteSize);
    }
    return frames;
}

} // namespace qmx
