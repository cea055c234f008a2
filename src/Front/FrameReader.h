// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/AudioBuffers.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Front/Format.h>
#include <QMXCoreAudio/Front/Result.h>

#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QMXExtAudioFile;

namespace qmx
{

/// What a reader delivers, where that differs from the file.
struct FrameReaderOptions {
    Float64 sampleRate = 0; ///< Hz; 0: the file's
    UInt32 channels = 0;    ///< 0: the file's. One channel feeds all; many to one are mixed
};

/// Reads any audio file as interleaved floats, full scale at 1. Any one thread, but no real-time one; it reads the
/// disk.
///
///     qmx::FrameReader reader("take.flac", 4096);
///     for (std::span<const float> block : reader)
///         use(block, reader.channels());
///     if (reader.error())
///         return fail(reader.error()->text());
class QMX_EXPORT FrameReader
{
public:
    /// Opens the file; if that fails there are no blocks, and error() says why.
    explicit FrameReader(const std::string& path, UInt32 framesPerBlock = 4096, const FrameReaderOptions& options = {});
    /// The same, or the error.
    static Result<FrameReader> open(const std::string& path, UInt32 framesPerBlock = 4096,
                                    const FrameReaderOptions& options = {});
    ~FrameReader();
    FrameReader(FrameReader&&) noexcept;
    FrameReader& operator=(FrameReader&&) noexcept;

    /// Goes once over the blocks from the reader's position to the file's end. A block is valid until the next is read;
    /// the last one may be shorter. The reader stays where it is in memory meanwhile.
    class Iterator
    {
    public:
        using value_type = std::span<const float>;
        using difference_type = std::ptrdiff_t;

        explicit Iterator(FrameReader& reader) : reader_(&reader) {}
        value_type operator*() const { return reader_->block_; }
        Iterator& operator++()
        {
            reader_->readBlock();
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const { return reader_->block_.empty(); }

    private:
        FrameReader* reader_;
    };
    Iterator begin();
    std::default_sentinel_t end() const { return {}; }

    /// What ended the blocks, or the last read; none at the file's true end. A file that ends earlier than it says
    /// gives what it has, and then eofErr.
    const std::optional<Error>& error() const { return error_; }

    /// What the file is in. All 0 if it could not be opened, as are the following.
    const Format& format() const { return format_; }
    UInt32 channels() const { return channels_; }      ///< of the blocks
    Float64 sampleRate() const { return sampleRate_; } ///< of the blocks, Hz
    SInt64 length() const { return length_; }          ///< frames of the file

    /// Moves to a frame of the file, from 0 to length(); error() is none again.
    Result<void> seek(SInt64 frame);
    /// Fills `samples` with whole frames and returns how many; fewer only at the end or before a place that cannot be
    /// read, which is the error of the next read.
    Result<std::size_t> read(std::span<float> samples);

    /// The described object behind it; null if the file could not be opened.
    const std::shared_ptr<QMXExtAudioFile>& object() const { return file_; }

private:
    std::optional<Error> openPath(const std::string& path, UInt32 framesPerBlock, const FrameReaderOptions& options);
    void readBlock();
    Result<std::size_t> readWhole(std::span<float> samples);
    Error whyClosed() const;

    std::shared_ptr<QMXExtAudioFile> file_;
    std::vector<float> samples_;
    std::span<const float> block_;
    std::optional<Error> error_;
    Format format_;
    UInt32 channels_ = 0;
    Float64 sampleRate_ = 0;
    SInt64 length_ = 0;
};

} // namespace qmx
