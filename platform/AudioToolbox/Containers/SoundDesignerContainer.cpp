// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/SoundDesignerContainer.h"

#include "AudioToolbox/Containers/FlatContainer.h"
#include "AudioToolbox/Containers/SampleLayout.h"
#include "AudioToolbox/Containers/SoundDesignerFork.h"

#include <cerrno>
#include <limits>

namespace qmx
{
namespace
{

constexpr std::size_t largestSidecar = std::size_t{1} << 18;

std::optional<SoundDesignerFormat> formatBeside(const std::string& path)
{
    std::unique_ptr<File> sidecar;
    if (FileSystem::current().open(sidecarPath(path), FileAccess::read, sidecar) != 0)
        return std::nullopt;
    std::int64_t size = 0;
    if (sidecar->size(size) != 0 || size <= 0)
        return std::nullopt;
    Bytes bytes(static_cast<std::size_t>(std::min<std::int64_t>(size, largestSidecar)));
    bytes.resize(sidecar->read(bytes.data(), bytes.size(), 0).count);
    return parseSidecar(bytes);
}

OSStatus writeBeside(const std::string& path, const SoundDesignerFormat& format)
{
    const std::string beside = sidecarPath(path);
    std::unique_ptr<File> file;
    SystemError error = FileSystem::current().open(beside, FileAccess::createNew, file);
    if (error == EEXIST) // left by a file that was here before
        error = FileSystem::current().open(beside, FileAccess::readWrite, file);
    const Bytes bytes = makeSidecar(format);
    if (error == 0)
        error = file->write(bytes.data(), bytes.size(), 0).error;
    if (error == 0)
        error = file->truncate(static_cast<std::int64_t>(bytes.size()));
    return statusForSystemError(error);
}

/// The samples are the whole file: there is nothing to keep true while it grows.
class SoundDesignerContainer : public FlatContainer
{
public:
    explicit SoundDesignerContainer(std::unique_ptr<File> file) : FlatContainer(std::move(file)) {}

    AudioFileTypeID type() const override { return kAudioFileSoundDesigner2Type; }

    OSStatus load(const SoundDesignerFormat& format)
    {
        bool changed = false;
        if (!isPlausible(format.sampleRate, format.channels))
            return kAudioFileUnsupportedDataFormatError;
        format_ =
            formatOf({SampleLayout::Coding::signedInteger, ByteOrder::big, format.sampleBytes * 8, format.sampleBytes},
                     format.sampleRate, format.channels);
        const OSStatus status = file_.refreshLength(changed);
        setAudio(0, std::numeric_limits<UInt64>::max());
        return status;
    }

    OSStatus create(const SoundDesignerFormat& format)
    {
        const OSStatus status = file_.truncate(0);
        return status == noErr ? load(format) : status;
    }
};

bool matches(const FileSigns& signs)
{
    return formatBeside(signs.path).has_value();
}

OSStatus open(PlacedFile placed, bool, std::unique_ptr<Container>& container)
{
    const auto format = formatBeside(placed.path);
    if (!format)
        return kAudioFileInvalidFileError;
    auto loaded = std::make_unique<SoundDesignerContainer>(std::move(placed.file));
    const OSStatus status = loaded->load(*format);
    if (status == noErr)
        container = std::move(loaded);
    return status;
}

bool holds(const AudioStreamBasicDescription& format)
{
    const auto layout = layoutOf(format);
    return layout && layout->coding == SampleLayout::Coding::signedInteger && layout->bits == layout->bytes * 8 &&
           (layout->order == ByteOrder::big || layout->bytes == 1);
}

OSStatus create(PlacedFile placed, const AudioStreamBasicDescription& format, std::unique_ptr<Container>& container)
{
    const SoundDesignerFormat told{layoutOf(format)->bytes, format.mSampleRate, format.mChannelsPerFrame};
    if (const OSStatus status = writeBeside(placed.path, told); status != noErr)
        return status;
    auto created = std::make_unique<SoundDesignerContainer>(std::move(placed.file));
    const OSStatus status = created->create(told);
    if (status == noErr)
        container = std::move(created);
    return status;
}

} // namespace

const ContainerKind soundDesignerKind{kAudioFileSoundDesigner2Type, matches, open, holds, create};

} // namespace qmx
