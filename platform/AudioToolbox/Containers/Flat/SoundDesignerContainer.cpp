// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Flat/SoundDesignerContainer.h"

#include "AudioToolbox/Containers/Flat/FlatContainer.h"
#include "AudioToolbox/Containers/Flat/SoundDesignerFork.h"
#include "AudioToolbox/Containers/SampleLayout.h"
#include "Foundation/Files/Fork.h"

#include <limits>

namespace qmx
{
namespace
{

constexpr std::size_t largestSidecar = std::size_t{1} << 18;

std::optional<SoundDesignerFormat> formatBeside(const std::string& path)
{
    std::unique_ptr<File> sidecar;
    if (FileSystem::current().open(forkPath(path), FileAccess::read, sidecar) != 0)
        return std::nullopt;
    std::int64_t size = 0;
    if (sidecar->size(size) != 0 || size <= 0)
        return std::nullopt;
    Bytes bytes(static_cast<std::size_t>(std::min<std::int64_t>(size, largestSidecar)));
    bytes.resize(sidecar->read(bytes.data(), bytes.size(), 0).count);
    return parseSidecar(bytes);
}

/// The new fork beside a file, under another name until it replaces the old one.
class NewFork
{
public:
    explicit NewFork(const std::string& path) : place_(forkPath(path)), path_(place_ + ".new") {}
    ~NewFork()
    {
        if (isThere_)
            (void)FileSystem::current().remove(path_); // harmless if it stays
    }
    NewFork(const NewFork&) = delete;
    NewFork& operator=(const NewFork&) = delete;

    OSStatus write(const Bytes& bytes)
    {
        (void)FileSystem::current().remove(path_); // left by a process that was killed
        std::unique_ptr<File> file;
        const SystemError error = FileSystem::current().open(path_, FileAccess::createNew, file);
        isThere_ = error == 0;
        return statusForSystemError(isThere_ ? file->write(bytes.data(), bytes.size(), 0).error : error);
    }

    OSStatus putIntoPlace()
    {
        const SystemError error = FileSystem::current().rename(path_, place_);
        isThere_ = error != 0;
        return statusForSystemError(error);
    }

private:
    std::string place_, path_;
    bool isThere_ = false;
};

/// The samples are the whole file: no header changes while it grows.
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
    return !signs.mustBeSure && formatBeside(signs.path).has_value();
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
    FileStatus beside;
    if (FileSystem::current().status(forkPath(placed.path), beside) == 0 && !hasFork(placed.path))
        return dupFNErr; // an unrelated file is in the fork's place
    NewFork fork(placed.path);
    auto created = std::make_unique<SoundDesignerContainer>(std::move(placed.file));
    OSStatus status = fork.write(makeSidecar(told));
    if (status == noErr)
        status = created->create(told);
    if (status == noErr)
        status = fork.putIntoPlace();
    if (status == noErr)
        container = std::move(created);
    return status;
}

} // namespace

const ContainerKind soundDesignerKind{kAudioFileSoundDesigner2Type, matches, open, holds, create, true};

} // namespace qmx
