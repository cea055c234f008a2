// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/CodedKinds.h"

#include "AudioToolbox/Codings/CodingsModule.h"
#include "AudioToolbox/Containers/PacketContainer.h"
#include "AudioToolbox/Containers/SampleLayout.h"

#include <algorithm>
#include <cmath>

namespace qmx
{
namespace
{

bool isSoundBrand(const FileSigns& signs)
{
    const UInt8* const head = signs.head.data();
    const FourCharCode brand = load32(head + 8, ByteOrder::big);
    return load32(head + 4, ByteOrder::big) == fourCharCode("ftyp") &&
           (brand == fourCharCode("M4A ") || brand == fourCharCode("M4B "));
}

bool isM4A(const FileSigns& signs)
{
    return isSoundBrand(signs);
}

bool isMPEG4(const FileSigns& signs)
{
    const FourCharCode atom = load32(&signs.head[4], ByteOrder::big);
    return !isSoundBrand(signs) && (atom == fourCharCode("ftyp") || atom == fourCharCode("moov") ||
                                    atom == fourCharCode("mdat") || atom == fourCharCode("wide"));
}

bool isTagged(const FileSigns& signs)
{
    return signs.head[0] == 'I' && signs.head[1] == 'D' && signs.head[2] == '3';
}

// A header is only a likeness: samples may start like one. It surely is one if another of the same stream follows the
// first frame, or if the file ends with that frame.
bool startsFrame(const FileSigns& signs, UInt32 frameSize, UInt32 streamBits)
{
    if (!signs.mustBeSure)
        return true;
    constexpr UInt32 shortestFrame = 7;
    UInt8 next[4] = {};
    std::int64_t fileSize = 0;
    if (frameSize < shortestFrame)
        return false;
    if (signs.file.read(next, sizeof next, frameSize).count < sizeof next)
        return signs.file.size(fileSize) == 0 && fileSize == frameSize;
    return ((load32(next, ByteOrder::big) ^ load32(signs.head.data(), ByteOrder::big)) & streamBits) == 0;
}

bool isADTS(const FileSigns& signs)
{
    const UInt32 frameSize = load32(&signs.head[3], ByteOrder::big) >> 13 & 0x1FFF;
    return ((load16(signs.head.data(), ByteOrder::big) & 0xFFF6) == 0xFFF0 &&
            startsFrame(signs, frameSize, 0xFFFFFFF0)) ||
           (isTagged(signs) && signs.hint == kAudioFileAAC_ADTSType);
}

// Bytes of the frame with a valid header.
UInt32 sizeOfMP3Frame(UInt32 header)
{
    constexpr UInt32 fullRates[] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    constexpr UInt32 lowRates[] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    constexpr UInt32 samplesPerSecond[] = {44100, 48000, 32000};
    const UInt32 version = header >> 19 & 3, bitRate = header >> 12 & 15, padding = header >> 9 & 1;
    const bool isFull = version == 3; // the others have half the sample rate or a quarter of it
    const UInt32 sampleRate = samplesPerSecond[header >> 10 & 3] / (isFull ? 1 : version == 2 ? 2 : 4);
    return (isFull ? 144000 * fullRates[bitRate] : 72000 * lowRates[bitRate]) / sampleRate + padding;
}

bool isMP3(const FileSigns& signs)
{
    const UInt32 bits = load32(signs.head.data(), ByteOrder::big);
    const UInt32 version = bits >> 19 & 3, layer = bits >> 17 & 3, bitRate = bits >> 12 & 15, rate = bits >> 10 & 3;
    const bool isHeader =
        bits >> 21 == 0x7FF && version != 1 && layer == 1 && bitRate != 0 && bitRate != 15 && rate != 3;
    return (isHeader && startsFrame(signs, sizeOfMP3Frame(bits), 0xFFFE0C00)) || isTagged(signs);
}

bool isFLAC(const FileSigns& signs)
{
    return load32(signs.head.data(), ByteOrder::big) == fourCharCode("fLaC");
}

// what they hold

bool holdsAAC(const AudioStreamBasicDescription& format)
{
    return format.mFormatID == kAudioFormatMPEG4AAC && holdsPackets(format);
}

bool holdsMP3(const AudioStreamBasicDescription& format)
{
    constexpr Float64 rates[] = {48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000};
    return format.mFormatID == kAudioFormatMPEGLayer3 && std::ranges::count(rates, format.mSampleRate) > 0 &&
           format.mChannelsPerFrame > 0 && format.mChannelsPerFrame <= 2 &&
           std::ranges::count(encodableCodings(), kAudioFormatMPEGLayer3) > 0;
}

bool holdsFLAC(const AudioStreamBasicDescription& format)
{
    constexpr Float64 highestRate = 655350;
    return format.mFormatID == kAudioFormatFLAC && format.mSampleRate == std::floor(format.mSampleRate) &&
           isPlausible(format.mSampleRate, format.mChannelsPerFrame) && format.mSampleRate <= highestRate &&
           format.mChannelsPerFrame <= 8 && format.mFramesPerPacket < mostFramesPerPacket;
}

// how they are opened and made

const CodedFiles* filesOf(AudioFileTypeID type)
{
    const CodingsModule* const module = CodingsModule::find();
    if (!module)
        return nullptr;
    const std::span files = module->files();
    const auto found = std::ranges::find(files, type, &CodedFiles::type);
    return found == files.end() ? nullptr : &*found;
}

template <AudioFileTypeID type> OSStatus open(PlacedFile file, bool forWriting, std::unique_ptr<Container>& container)
{
    const CodedFiles* const files = filesOf(type);
    return files ? files->open(std::move(file), forWriting, container) : kAudioFileUnsupportedFileTypeError;
}

template <AudioFileTypeID type>
OSStatus create(PlacedFile file, const AudioStreamBasicDescription& format, std::unique_ptr<Container>& container)
{
    const CodedFiles* const files = filesOf(type);
    return files ? files->create(std::move(file), format, container) : kAudioFileUnsupportedFileTypeError;
}

template <AudioFileTypeID type>
constexpr ContainerKind kind(bool (*matches)(const FileSigns&), bool (*holds)(const AudioStreamBasicDescription&))
{
    return {type, matches, open<type>, holds, create<type>};
}

} // namespace

std::span<const ContainerKind> codedKinds()
{
    static constexpr ContainerKind kinds[] = {
        kind<kAudioFileM4AType>(isM4A, holdsPackets), kind<kAudioFileMPEG4Type>(isMPEG4, holdsPackets),
        kind<kAudioFileFLACType>(isFLAC, holdsFLAC), kind<kAudioFileAAC_ADTSType>(isADTS, holdsAAC),
        kind<kAudioFileMP3Type>(isMP3, holdsMP3)};
    return kinds;
}

} // namespace qmx
