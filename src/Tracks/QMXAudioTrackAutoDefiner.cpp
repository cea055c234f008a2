// SPDX-License-Identifier: MIT
#include "Tracks/QMXAudioTrackAutoDefiner.h"

#include "AudioToolbox/AudioConverter.h"
#include "AudioToolbox/AudioFile.h"
#include "FileRelated/QMXAudioFile.h"
#include "Formats/LastFailure.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/HeapBlock.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Log.h"
#include "Processing/QMXAudioConverter.h"
#include "Tracks/DefinerProgress.h"
#include "Tracks/QMXAudioTrackInfo.h"
#include "Tracks/SilenceAnalysis.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <limits>

namespace
{

constexpr SInt16 defaultSensitivity = 71;
constexpr float defaultLengthOfSilence = 1400.0F;
constexpr SInt16 defaultZeroOffset = 500;
constexpr int blocksPerSecond = 5;

std::atomic<bool> isCancelled{false};
std::atomic<bool> convertsOtherChannelCounts{false};

qmx::LastFailure& lastFailure()
{
    static auto& failure = *new qmx::LastFailure; // never destroyed: a thread may still ask at the end of the process
    return failure;
}

constexpr const char* cannotBeDivided = "cannot be divided";

/// Keeps the first failure of a run.
void fail(OSStatus status, const QMXAudioFile& file, const char* what)
{
    const auto& path = file.path();
    lastFailure().keepFirst(status, path ? std::string_view(*path) : std::string_view(), what);
}

template <class Integer> Integer truncated(double value)
{
    using Limits = std::numeric_limits<Integer>;
    if (value != value)
        return 0;
    if (value >= Limits::max())
        return Limits::max();
    if (value <= Limits::min())
        return Limits::min();
    return static_cast<Integer>(value);
}

std::shared_ptr<QMXAudioStreamBasicDescription> analysisFormatFor(const QMXAudioFile& file)
{
    auto format = QMXAudioStreamBasicDescription::defaultStandardFileFormat();
    format->setSampleRate(file.sampleRate());
    format->setFormatFlags(kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked);
    return format;
}

/// Blocks of a fifth of a second, and how many of them a file has.
struct Blocks {
    UInt32 frames = 0; ///< in one block
    UInt32 count = 0;

    explicit Blocks(QMXAudioFile& file)
    {
        frames = truncated<UInt32>(file.sampleRate() / blocksPerSecond);
        if (frames == 0) // not opened, or a sample rate below the blocks' rate
            return;
        // Intended: the product wraps for files longer than 858,993,459 frames.
        const UInt32 fifths = file.lengthInFrames() * blocksPerSecond;
        count = truncated<UInt32>(fifths / file.sampleRate() + 1.0);
    }
};

bool isReadDirectly(const QMXAudioStreamBasicDescription& format)
{
    const UInt32 channels = format.channelsPerFrame();
    if (format.isFloat() || channels == 0 || format.bytesPerFrame() / channels != sizeof(SInt16))
        return false;
    return channels == 2 || !QMXAudioTrackAutoDefiner::convertsFilesOfOtherChannelCounts();
}

void reverseBytes(SInt16* samples, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = static_cast<SInt16>(__builtin_bswap16(static_cast<UInt16>(samples[i])));
}

/// Reads a file block by block as host-order samples of the analysis format: straight into the block where they are
/// 16-bit integers, else through a converter.
class BlockReader
{
public:
    BlockReader(QMXAudioFile& file, const std::shared_ptr<QMXAudioStreamBasicDescription>& analysisFormat,
                UInt32 bytesPerBlock)
        : file_(file), bytesPerBlock_(bytesPerBlock),
          block_(qmx::zeroedHeapArray<SInt16>(bytesPerBlock / sizeof(SInt16)))
    {
        if (const OSStatus status = prepareFor(analysisFormat); status != noErr)
            fail(status, file_, cannotBeDivided);
        else
            remaining_ = file.lengthInBytes();
    }

    bool hasMemory() const { return block_ != nullptr; }
    bool hasMore() const { return remaining_ > 0; }
    const SInt16* samples() const { return block_.get(); }

    /// Fills the block; returns its bytes. A failed read is the last one; its block counts with whatever it holds.
    UInt32 readBlock() { return converter_ ? readConverted() : readDirectly(); }

private:
    OSStatus prepareFor(const std::shared_ptr<QMXAudioStreamBasicDescription>& analysisFormat)
    {
        const auto& format = file_.fileStreamFormat();
        if (!file_.isOpen() || !format)
            return fnOpnErr;
        if (format->bytesPerFrame() == 0)
            return kAudioFileUnsupportedDataFormatError;
        if (isReadDirectly(*format)) {
            reversesBytes_ = format->isBigEndian() == (std::endian::native == std::endian::little);
            return noErr;
        }
        converter_ = QMXAudioConverter::initWithSourceFormat_destinationFormat(format, analysisFormat);
        if (!converter_)
            return kAudioFileUnsupportedDataFormatError;
        inputSize_ = converter_->calculateInputBufferSize(bytesPerBlock_);
        input_ = qmx::zeroedHeapArray<Byte>(inputSize_);
        return input_ ? noErr : memFullErr;
    }

    bool read(void* buffer, UInt32& size)
    {
        const bool succeeds = file_.read_length(buffer, &size);
        const bool ends = !succeeds || size == 0;
        if (ends)
            fail(file_.lastStatus() != noErr ? file_.lastStatus() : ioErr, file_, "cannot be read to its end");
        remaining_ = ends ? 0 : remaining_ - std::min<UInt64>(remaining_, size);
        return succeeds;
    }

    UInt32 readDirectly()
    {
        UInt32 size = bytesPerBlock_;
        if (!read(block_.get(), size))
            return bytesPerBlock_;
        if (reversesBytes_)
            reverseBytes(block_.get(), size / sizeof(SInt16)); // only what just came: the rest is in host order already
        return size;
    }

    UInt32 readConverted()
    {
        UInt32 size = inputSize_;
        if (!read(input_.get(), size))
            return bytesPerBlock_;
        UInt32 produced = bytesPerBlock_;
        const OSStatus status = converter_->convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(
            input_.get(), size, block_.get(), &produced);
        if (status != noErr)
            fail(status, file_, cannotBeDivided);
        return std::min(produced, bytesPerBlock_);
    }

    QMXAudioFile& file_;
    UInt32 bytesPerBlock_;
    qmx::HeapArray<SInt16> block_;
    bool reversesBytes_ = false;
    std::shared_ptr<QMXAudioConverter> converter_;
    UInt32 inputSize_ = 0;
    qmx::HeapArray<Byte> input_;
    UInt64 remaining_ = 0;
};

bool isRunCancelled()
{
    return isCancelled.load(std::memory_order_relaxed);
}

/// Counts the crossings of each block into `counts`. Blocks past `blockCount` are reported but not stored.
void countBlocks(BlockReader& reader, const AudioStreamBasicDescription& format, SInt16 level, UInt32* counts,
                 UInt32 blockCount)
{
    for (UInt64 block = 0; reader.hasMore() && !isRunCancelled(); ++block) {
        const UInt32 size = reader.readBlock();
        if (block < blockCount)
            counts[block] = countZeroCrossings(format, reader.samples(), size, level);
        qmx::definerProgress::advance();
    }
}

/// As zeroCrossingSplitFile, within a run.
SInt32 divide(QMXAudioFile& file, UInt16 sensitivity, SInt16 runLength, SInt16 level, UInt32* splits,
              UInt32* trackCount)
{
    const SInt32 result = qmx::withinMemory(-1, [&]() -> SInt32 {
        const auto format = analysisFormatFor(file);
        const Blocks blocks(file);
        const UInt32 lengthInFrames = file.lengthInFrames();
        qmx::definerProgress::setBlockCount(blocks.count);
        const auto counts = qmx::zeroedHeapArray<UInt32>(blocks.count);
        BlockReader reader(file, format, blocks.frames * format->bytesPerFrame());
        if (!counts || !reader.hasMemory())
            return -1;
        countBlocks(reader, *format->audioStreamBasicDescription(), level, counts.get(), blocks.count);

        if (const auto wanted = static_cast<SInt16>(*trackCount); wanted >= 0 && !isRunCancelled()) {
            // Intended: the counted search keeps the first chosen place; its last one makes room for the file's end.
            const UInt32 found =
                *trackCount != 0 ? findCountedSplits(counts.get(), static_cast<SInt16>(blocks.count), wanted, splits)
                                 : findThresholdSplits(counts.get(), blocks.count, sensitivity,
                                                       static_cast<UInt32>(runLength), splits);
            std::for_each_n(splits, found, [&](UInt32& split) { split *= blocks.frames; });
            splits[found] = lengthInFrames;
            *trackCount = found;
        }
        qmx::definerProgress::finish();
        return 0;
    });
    if (result != 0)
        fail(memFullErr, file, cannotBeDivided);
    return result;
}

std::shared_ptr<QMXAudioTrackInfo> untitledTrack(SInt32 number, UInt32 begin, UInt32 end)
{
    auto track = std::make_shared<QMXAudioTrackInfo>();
    track->setTrackTitle(qmx::format("Untitled Track %d", number));
    track->setTrackBegin(begin);
    track->setTrackEnd(end);
    return track;
}

QMXAudioTrackAutoDefiner::Tracks define(QMXAudioFile& file, SInt16 sensitivity, float lengthOfSilence,
                                        SInt16 zeroOffset, SInt16 numberOfTracks)
{
    auto trackCount = static_cast<UInt32>(numberOfTracks);
    std::vector<UInt32> splits(static_cast<std::size_t>(std::max(99, numberOfTracks + 2)));
    isCancelled.store(false, std::memory_order_relaxed);
    const auto runLength = truncated<SInt16>(lengthOfSilence / 1000.0F * 5.0F);
    if (divide(file, static_cast<UInt16>(sensitivity), runLength, zeroOffset, splits.data(), &trackCount) != 0)
        qmx::Log("An Error Ocurred While Auto-Defining Tracks");
    if (isRunCancelled() || trackCount == 0)
        return nullptr;

    auto tracks = std::make_shared<QMXAudioTrackAutoDefiner::Tracks::element_type>();
    for (SInt32 i = 0; i < static_cast<SInt32>(trackCount); ++i) {
        const auto index = static_cast<std::size_t>(i);
        tracks->push_back(untitledTrack(2 * i, splits[index], splits[index + 1])); // intended: 0, 2, 4, ...
    }
    return tracks;
}

/// One run, whose failures are kept.
template <class Define> QMXAudioTrackAutoDefiner::Tracks run(Define define)
{
    lastFailure().clear();
    QMXAudioTrackAutoDefiner::Tracks tracks;
    if (!qmx::withinMemory([&] { tracks = define(); }))
        lastFailure().keepFirst(memFullErr, "The recording", cannotBeDivided);
    return tracks;
}

} // namespace

SInt32 zeroCrossingSplitFile(QMXAudioFile& file, UInt16 sensitivity, SInt16 runLength, SInt16 level, UInt32* splits,
                             UInt32* trackCount)
{
    lastFailure().clear();
    return divide(file, sensitivity, runLength, level, splits, trackCount);
}

QMXAudioTrackAutoDefinerDelegate::~QMXAudioTrackAutoDefinerDelegate() = default;

void QMXAudioTrackAutoDefinerDelegate::autoDefineProgress(float /*progress*/) {}

QMXAudioTrackAutoDefiner::Tracks
QMXAudioTrackAutoDefiner::autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
    const std::string& path, SInt16 sensitivity, float lengthOfSilence, SInt16 zeroOffset, SInt16 numberOfTracks)
{
    return run([&]() -> Tracks {
        const auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::read);
        if (!file)
            throw std::bad_alloc();
        file->setUseCache(false);
        if (!file->open()) // it has no blocks
            lastFailure().keepFirstOf(*file);
        return define(*file, sensitivity, lengthOfSilence, zeroOffset, numberOfTracks);
    });
}

QMXAudioTrackAutoDefiner::Tracks
QMXAudioTrackAutoDefiner::autoDefineTracksInAudioFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
    QMXAudioFile& file, SInt16 sensitivity, float lengthOfSilence, SInt16 zeroOffset, SInt16 numberOfTracks)
{
    file.rewind();
    return run([&] { return define(file, sensitivity, lengthOfSilence, zeroOffset, numberOfTracks); });
}

OSStatus QMXAudioTrackAutoDefiner::lastStatus()
{
    return lastFailure().status();
}

std::string QMXAudioTrackAutoDefiner::lastError()
{
    return lastFailure().sentence();
}

QMXAudioTrackAutoDefiner::Tracks QMXAudioTrackAutoDefiner::autoDefineTracksInFile(const std::string& path)
{
    return autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        path, defaultSensitivity, defaultLengthOfSilence, defaultZeroOffset, 0);
}

QMXAudioTrackAutoDefiner::Tracks
QMXAudioTrackAutoDefiner::autoDefineTracksInFile_lengthOfSilence(const std::string& path, float lengthOfSilence)
{
    return autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        path, defaultSensitivity, lengthOfSilence, defaultZeroOffset, 0);
}

QMXAudioTrackAutoDefiner::Tracks QMXAudioTrackAutoDefiner::autoDefineTracksInFile_sensitivity(const std::string& path,
                                                                                              SInt16 sensitivity)
{
    return autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        path, sensitivity, defaultLengthOfSilence, defaultZeroOffset, 0);
}

QMXAudioTrackAutoDefiner::Tracks
QMXAudioTrackAutoDefiner::autoDefineTracksInFile_sensitivity_lengthOfSilence(const std::string& path,
                                                                             SInt16 sensitivity, float lengthOfSilence)
{
    return autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        path, sensitivity, lengthOfSilence, defaultZeroOffset, 0);
}

QMXAudioTrackAutoDefiner::Tracks
QMXAudioTrackAutoDefiner::autoDefineTracksInFile_sensitivity_zeroOffset(const std::string& path, SInt16 sensitivity,
                                                                        SInt16 zeroOffset)
{
    return autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        path, sensitivity, defaultLengthOfSilence, zeroOffset, 0);
}

QMXAudioTrackAutoDefiner::Tracks
QMXAudioTrackAutoDefiner::autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset(const std::string& path,
                                                                                        SInt16 sensitivity,
                                                                                        float lengthOfSilence,
                                                                                        SInt16 zeroOffset)
{
    return autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(path, sensitivity,
                                                                                        lengthOfSilence, zeroOffset, 0);
}

void QMXAudioTrackAutoDefiner::setDelegate(std::shared_ptr<QMXAudioTrackAutoDefinerDelegate> delegate)
{
    qmx::definerProgress::setDelegate(std::move(delegate));
}

void QMXAudioTrackAutoDefiner::cancel() noexcept
{
    isCancelled.store(true, std::memory_order_relaxed);
}

void QMXAudioTrackAutoDefiner::autoDefineProgress(float progress)
{
    qmx::definerProgress::report(progress);
}

void QMXAudioTrackAutoDefiner::setConvertsFilesOfOtherChannelCounts(bool converts) noexcept
{
    convertsOtherChannelCounts.store(converts, std::memory_order_relaxed);
}

bool QMXAudioTrackAutoDefiner::convertsFilesOfOtherChannelCounts() noexcept
{
    return convertsOtherChannelCounts.load(std::memory_order_relaxed);
}
