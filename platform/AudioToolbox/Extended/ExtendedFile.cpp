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

/// Without knowing otherwise, two channels are stereo and six are 5.1.
LayoutBlock usualLayout(UInt32 channels)
{
    if (channels != 2 && channels != 6)
        return {};
    LayoutBlock layout(offsetof(AudioChannelLayout, mChannelDescriptions));
    const AudioChannelLayoutTag tag = channels == 2 ? kAudioChannelLayoutTag_Stereo : kAudioChannelLayoutTag_MPEG_5_1_A;
    std::memcpy(layout.data(), &tag, sizeof tag);
    return layout;
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
        AudioFileClose(file_);
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
    return status;
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
    // containers that keep none are no obstacle to mixing by one
    AudioFileSetProperty(file_, kAudioFilePropertyChannelLayout, static_cast<UInt32>(layout.size()), layout.data());
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

/// Tells the converter which channels are which.
void ExtendedFile::applyLayouts()
{
    const auto set = [this](AudioConverterPropertyID property, const LayoutBlock& layout) {
        if (!layout.empty())
            AudioConverterSetProperty(converter_.get(), property, static_cast<UInt32>(layout.size()), layout.data());
    };
    const LayoutBlock file = fileLayout_.empty() ? usualLayout(fileFormat_.mChannelsPerFrame) : fileLayout_;
    const LayoutBlock client = clientLayout_.empty() ? usualLayout(clientFormat_.mChannelsPerFrame) : clientLayout_;
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
