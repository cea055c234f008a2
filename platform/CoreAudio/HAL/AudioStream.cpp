// SPDX-License-Identifier: MIT
#include "CoreAudio/AudioHardware.h"
#include "CoreAudio/HAL/Hardware.h"

namespace
{

using qmx::FoundStream;
using qmx::Hardware;
using qmx::HardwareOperation;
using qmx::Listener;

OSStatus findStream(HardwareOperation operation, AudioStreamID id, UInt32 channel, AudioStreamPropertyID property,
                    std::optional<FoundStream>& stream)
{
    if (const OSStatus status = Hardware::shared().admit(operation, id, {property, channel, false}))
        return status;
    stream = Hardware::shared().stream(id);
    return stream ? noErr : kAudioHardwareBadStreamError;
}

// Streams have no channels of their own: a listener is called whatever channel it was registered with.
Listener listenerOf(AudioStreamPropertyID property, AudioStreamPropertyListenerProc procedure, void* clientData)
{
    return {property, kAudioPropertyWildcardChannel, kAudioPropertyWildcardSection, procedure, clientData};
}

} // namespace

OSStatus AudioStreamGetPropertyInfo(AudioStreamID inStream, UInt32 inChannel, AudioStreamPropertyID inPropertyID,
                                    UInt32* outSize, Boolean* outWritable)
{
    std::optional<FoundStream> stream;
    if (const OSStatus status =
            findStream(HardwareOperation::getPropertyInfo, inStream, inChannel, inPropertyID, stream))
        return status;
    const auto value = streamProperty(stream->view, stream->place, inPropertyID);
    return value ? value->describe(outSize, outWritable) : kAudioHardwareUnknownPropertyError;
}

OSStatus AudioStreamGetProperty(AudioStreamID inStream, UInt32 inChannel, AudioStreamPropertyID inPropertyID,
                                UInt32* ioPropertyDataSize, void* outPropertyData)
{
    if (!ioPropertyDataSize || !outPropertyData)
        return kAudio_ParamError;
    std::optional<FoundStream> stream;
    if (const OSStatus status = findStream(HardwareOperation::getProperty, inStream, inChannel, inPropertyID, stream))
        return status;
    if (const auto answer =
            translateStreamProperty(stream->view, stream->place, inPropertyID, ioPropertyDataSize, outPropertyData))
        return *answer;
    const auto value = streamProperty(stream->view, stream->place, inPropertyID);
    return value ? value->copyTo(ioPropertyDataSize, outPropertyData) : kAudioHardwareUnknownPropertyError;
}

OSStatus AudioStreamSetProperty(AudioStreamID inStream, const AudioTimeStamp* /*inWhen*/, UInt32 inChannel,
                                AudioStreamPropertyID inPropertyID, UInt32 inPropertyDataSize,
                                const void* inPropertyData)
{
    std::optional<FoundStream> stream;
    if (const OSStatus status = findStream(HardwareOperation::setProperty, inStream, inChannel, inPropertyID, stream))
        return status;
    const qmx::CheckedRequest result =
        streamRequest(stream->view, stream->place, inPropertyID, inPropertyDataSize, inPropertyData);
    return result.request ? stream->backend->perform(*result.request) : result.status;
}

OSStatus AudioStreamAddPropertyListener(AudioStreamID inStream, UInt32 inChannel, AudioStreamPropertyID inPropertyID,
                                        AudioStreamPropertyListenerProc inProc, void* inClientData)
{
    if (!inProc)
        return kAudio_ParamError;
    std::optional<FoundStream> stream;
    if (const OSStatus status = findStream(HardwareOperation::addListener, inStream, inChannel, inPropertyID, stream))
        return status;
    return Hardware::shared().listeners().add(inStream, listenerOf(inPropertyID, inProc, inClientData))
               ? noErr
               : kAudioHardwareIllegalOperationError;
}

OSStatus AudioStreamRemovePropertyListener(AudioStreamID inStream, UInt32 inChannel, AudioStreamPropertyID inPropertyID,
                                           AudioStreamPropertyListenerProc inProc, void* inClientData)
{
    const qmx::PropertyAddress address{inPropertyID, inChannel, false};
    return Hardware::shared().removeAnyway(HardwareOperation::removeListener, inStream, address, [&]() -> OSStatus {
        if (Hardware::shared().listeners().remove(inStream, listenerOf(inPropertyID, inProc, inClientData)))
            return noErr;
        return Hardware::shared().stream(inStream) ? kAudioHardwareIllegalOperationError : kAudioHardwareBadStreamError;
    });
}
