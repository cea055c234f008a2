// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/ExtendedFile.h"

#include "AudioToolbox/Extended/FileValues.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

namespace qmx
{
namespace
{

/// Two channels are left and right unless stated otherwise. More are never taken for surround sound.
LayoutBlock knownOrStereo(const LayoutBlock& layout, UInt32 channels)
{
    if (!layout.empty() || channels != 2)
        return layout;
    LayoutBlock stereo(offsetof(AudioChannelLayout, mChannelDescriptions));
    std::memcpy(stereo.data(), &kAudioChannelLayoutTag_Stereo, sizeof kAudioChannelLayoutTag_Stereo);
    return stereo;
}

} // namespace

ExtendedFile::ExtendedFile(AudioFileID file)
    : file_(file), converter_(nullptr, &AudioConverterDispose),
      fileLayout_(fileBlock(file, kAudioFilePropertyChannelLayout))
{
    fileValue(file, kAudioFilePropertyDataFormat, fileFormat_);
}

ExtendedFile::~ExtendedFile()
{
    if (owns_ && file_)
        (void)AudioFileClose(file_); // close() reports a failure; without it the file was not taken over
}

OSStatus ExtendedFile::setClientFormat(const AudioStreamBasicDescription& format)
{
    if (format.mFormatID != kAudioFormatLinearPCM)
        return kExtAudioFileError_NonPCMClientFormat;
    const auto samples = PcmLayout::of(format);
    if (!samples)
        return kExtAudioFileError_InvalidDataFormat;
    const AudioStreamBasicDescription client = withByteCounts(format, *samples);
    AudioConverterRef made = nullptr;
    OSStatus status = connect(client, made);
    if (status != noErr)
        return status;
    ConverterHandle fresh(made, &AudioConverterDispose);
    if (converter_)
        status = settle();
    if (status != noErr)
        return status;
    std::swap(converter_, fresh);
    const auto formatBefore = std::exchange(clientFormat_, client);
    const auto samplesBefore = std::exchange(clientSamples_, *samples);
    try {
        applyLayouts();
        connected();
    } catch (...) {
        std::swap(converter_, fresh);
        clientFormat_ = formatBefore;
        clientSamples_ = samplesBefore;
        throw;
    }
    return noErr;
}

void ExtendedFile::startWithFileFormat()
{
    if (fileFormat_.mFormatID == kAudioFormatLinearPCM && setClientFormat(fileFormat_) == kAudio_MemFullError)
        throw std::bad_alloc();
}

AudioConverterRef ExtendedFile::converter()
{
    rest();
    return converter_.get();
}

OSStatus ExtendedFile::setFileLayout(LayoutBlock layout)
{
    // the file's layout is used for mixing even if its container keeps none
    (void)AudioFileSetProperty(file_, kAudioFilePropertyChannelLayout, static_cast<UInt32>(layout.size()),
                               layout.data());
    fileLayout_ = std::move(layout);
    if (converter_)
        applyLayouts();
    return noErr;
}

OSStatus ExtendedFile::setClientLayout(LayoutBlock layout)
{
    clientLayout_ = std::move(layout);
    if (converter_)
        applyLayouts();
    return noErr;
}

/// Sets which channels are which on the converter.
void ExtendedFile::applyLayouts()
{
    const auto set = [this](AudioConverterPropertyID property, const LayoutBlock& layout) {
        if (!layout.empty()) // if the converter cannot mix by it, channel i goes to i
            (void)AudioConverterSetProperty(converter_.get(), property, static_cast<UInt32>(layout.size()),
                                            layout.data());
    };
    const LayoutBlock file = knownOrStereo(fileLayout_, fileFormat_.mChannelsPerFrame);
    const LayoutBlock client = knownOrStereo(clientLayout_, clientFormat_.mChannelsPerFrame);
    set(kAudioConverterInputChannelLayout, reads() ? file : client);
    set(kAudioConverterOutputChannelLayout, reads() ? client : file);
}

void ExtendedFile::setBufferSize(UInt32 bytes)
{
    use(IOBuffer(std::max(bytes, leastBufferSize())));
}

void ExtendedFile::setBuffer(std::byte* memory)
{
    if (!memory)
        return setBufferSize(bufferSize());
    use(IOBuffer({memory, buffer().size()}));
}

void ExtendedFile::use(IOBuffer fresh)
{
    rest();
    std::swap(buffer_, fresh);
    try {
        bufferChanged();
    } catch (...) {
        std::swap(buffer_, fresh);
        throw;
    }
}

OSStatus ExtendedFile::maximumPacketSize(UInt32& bytes)
{
    return fileValue(file_, kAudioFilePropertyMaximumPacketSize, bytes);
}

OSStatus ExtendedFile::setLength(SInt64)
{
    return kAudioFileOperationNotSupportedError;
}

OSStatus ExtendedFile::setKeepsReadable(UInt32)
{
    return kAudioFileOperationNotSupportedError;
}

OSStatus ExtendedFile::read(UInt32& frames, AudioBufferList&)
{
    frames = 0;
    return kExtAudioFileError_InvalidOperationOrder;
}

OSStatus ExtendedFile::primeReads()
{
    return kExtAudioFileError_InvalidOperationOrder;
}

OSStatus ExtendedFile::write(UInt32, const AudioBufferList&)
{
    return kExtAudioFileError_InvalidOperationOrder;
}

OSStatus ExtendedFile::writeAsync(UInt32, const AudioBufferList&)
{
    return kExtAudioFileError_InvalidOperationOrder;
}

OSStatus ExtendedFile::primeWrites()
{
    return kExtAudioFileError_InvalidOperationOrder;
}

OSStatus ExtendedFile::close()
{
    OSStatus status = complete();
    if (owns_)
        if (const OSStatus closed = AudioFileClose(std::exchange(file_, nullptr)); status == noErr)
            status = closed;
    return status;
}

} // namespace qmx
