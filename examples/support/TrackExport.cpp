// SPDX-License-Identifier: MIT
#include "support/TrackExport.h"

#include "support/AudioTypes.h"
#include "support/Failure.h"
#include "support/FrameCopy.h"
#include "support/Interrupt.h"
#include "support/OutputFile.h"
#include "support/ProgressBar.h"
#include "support/Recording.h"
#include "support/StatusText.h"

#include <QMXCoreAudio/FileRelated/QMXAudioFile.h>
#include <QMXCoreAudio/FileRelated/QMXExtAudioFile.h>
#include <QMXCoreAudio/Formats/QMXAudioStreamBasicDescription.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string_view>
#include <vector>

namespace example
{
namespace
{

namespace fs = std::filesystem;

/// Makes a title a part of a file name that every usual file system accepts.
std::string safeName(const std::string& title)
{
    constexpr std::string_view unsafe = R"(/\:*?"<>|)";
    constexpr std::size_t longest = 120; // bytes
    std::string name;
    for (const char c : title)
        name +=
            static_cast<unsigned char>(c) < ' ' || c == '\x7f' || unsafe.find(c) != std::string_view::npos ? '-' : c;
    if (name.size() > longest) {
        std::size_t end = longest;
        while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) // inside a character
            --end;
        name.resize(end);
    }
    while (name.ends_with(' ') || name.ends_with('.'))
        name.pop_back();
    return name;
}

std::string fileName(std::size_t number, std::size_t count, const QMXAudioTrackInfo& track, AudioFileTypeID type)
{
    const std::size_t digits = std::max<std::size_t>(2, std::to_string(count).size());
    std::string name = std::to_string(number);
    name.insert(0, digits - std::min(digits, name.size()), '0');
    if (const std::string title = safeName(track.trackTitle().value_or("")); !title.empty())
        name.append(" ").append(title);
    return name + extensionOf(type);
}

void checkBounds(const QMXTrackAndProcessingInfo::TrackList& tracks, SInt64 frames, const std::string& recording)
{
    for (const auto& track : tracks)
        if (track->trackBegin() < 0 || track->trackEnd() < track->trackBegin() || track->trackEnd() > frames)
            throw Failure{recording + ": the track " + track->trackTitle().value_or("") + " lies outside of it"};
}

void checkWritten(bool succeeds, const QMXAudioFile& file, const std::string& path)
{
    if (!succeeds)
        check(file.lastStatus() == noErr ? ioErr : file.lastStatus(), "cannot write", path);
}

/// Copies one track's frames unchanged into a new file of the recording's own type.
void copyBytes(QMXAudioFile& source, const QMXAudioTrackInfo& track, const std::string& temporaryPath,
               const std::string& path)
{
    const auto target = QMXAudioFile::initWithPath_accessMode(temporaryPath, QMXAudioFileAccessMode::write);
    checkWritten(target->setFileStreamFormat(*source.fileStreamFormat()), *target, path);
    target->setFileType(source.fileType());
    checkWritten(target->create(), *target, path);
    constexpr UInt32 bytesAtOnce = 1U << 20;
    std::vector<Byte> block(bytesAtOnce);
    const UInt32 frameBytes = source.bytesPerFrame();
    const SInt64 end = track.trackEnd() * frameBytes;
    for (SInt64 from = track.trackBegin() * frameBytes; from < end;) {
        auto size = static_cast<UInt32>(std::min<SInt64>(bytesAtOnce, end - from));
        if (!source.read_length_fromOffset(block.data(), &size, from))
            throw Failure{source.path().value_or("") + ": cannot be read to its end"};
        checkWritten(target->write_length(block.data(), &size), *target, path);
        from += size;
    }
    checkWritten(target->close(), *target, path);
}

/// Converts all tracks to a type.
class Conversion
{
public:
    Conversion(const std::string& recording, AudioFileTypeID type, const AudioStreamBasicDescription& sourceFormat)
        : client_(linearFormat(sourceFormat, kAudioFormatFlagIsFloat, 32)), type_(type),
          format_(formatFor(type_, sourceFormat, {})),
          source_(QMXExtAudioFile::initForReading_clientFormat(recording, &client_))
    {
        check(source_->open(), "cannot read", recording);
    }

    SInt64 lengthInFrames() const { return source_->lengthInFrames(); }
    AudioFileTypeID type() const { return type_; }
    const AudioStreamBasicDescription& format() const { return format_; }

    void write(const QMXAudioTrackInfo& track, const std::string& path)
    {
        const auto target =
            QMXExtAudioFile::initForWriting_fileType_clientFormat_fileFormat(path, type_, &client_, &format_);
        (void)target->open(); // lastStatus() has the first step that failed
        check(target->lastStatus(), "cannot write", fs::path(path).filename());
        check(source_->seek(track.trackBegin()), "cannot read", source_->path());
        copyFrames(*source_, track.trackEnd() - track.trackBegin(), *target, fs::path(path).filename(),
                   [](double) { endIfInterrupted(); });
    }

private:
    AudioStreamBasicDescription client_;
    AudioFileTypeID type_;
    AudioStreamBasicDescription format_;
    std::shared_ptr<QMXExtAudioFile> source_;
};

} // namespace

TrackExport::TrackExport(const CommandLine& line)
    : folder_(line.text("--export").value_or("")), typeCode_(line.text("--type"))
{
    if (typeCode_ && folder_.empty())
        throw Failure{"--type needs --export", 2};
    if (typeCode_)
        typeFromCode(*typeCode_);
}

void TrackExport::write(QMXAudioFile& recording, const QMXTrackAndProcessingInfo::TrackList& tracks) const
{
    const std::string path = recording.path().value_or("");
    AudioFileTypeID type = recording.fileType();
    std::unique_ptr<Conversion> conversion;
    const bool isCompressed = recording.bytesPerFrame() == 0; // packets cannot be cut at any frame
    if (typeCode_ || isCompressed) {
        conversion = std::make_unique<Conversion>(path, typeCode_ ? typeFromCode(*typeCode_) : kAudioFileWAVEType,
                                                  *recording.fileStreamFormat()->audioStreamBasicDescription());
        type = conversion->type();
    }
    checkBounds(tracks, conversion ? conversion->lengthInFrames() : static_cast<SInt64>(frameCount(recording)), path);
    std::error_code error;
    fs::create_directory(folder_, error);
    if (error || !fs::is_directory(folder_, error))
        throw Failure{"cannot write to " + folder_ + ": " + (error ? error.message() : "not a folder")};
    std::vector<std::string> paths;
    for (const auto& track : tracks) {
        paths.push_back(fs::path(folder_) / fileName(paths.size() + 1, tracks.size(), *track, type));
        if (fs::exists(paths.back(), error))
            throw Failure{paths.back() + ": exists"};
    }
    ProgressBar bar;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        endIfInterrupted();
        bar.show("exporting", static_cast<double>(i) / static_cast<double>(tracks.size()));
        OutputFile output(paths[i], path, false);
        if (conversion)
            conversion->write(*tracks[i], output.temporaryPath());
        else
            copyBytes(recording, *tracks[i], output.temporaryPath(), paths[i]);
        output.finish();
    }
    bar.wipe();
    if (isCompressed && !typeCode_)
        std::fprintf(stderr, "Exported as WAVE files of %u bits (--type chooses another)\n",
                     conversion->format().mBitsPerChannel);
}

} // namespace example
