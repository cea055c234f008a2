// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Files/FileHandle.h>
#include <QMXCoreAudio/Foundation/Object.h>
#include <QMXCoreAudio/Tracks/QMXTrackAndProcessingInfo.h>
#include <QMXCoreAudio/Tracks/Store/QMXAIFCommon.h>

#include <memory>
#include <string>
#include <vector>

namespace qmx
{
class LastFailure;
struct FoundArchive;
} // namespace qmx

/// The older way to keep track information in an AIFF file. It writes signature and version in the host's byte order
/// and reads the version likewise: on a little-endian host it does not find what it writes, appends half a megabyte
/// with each write, and takes the chunks of the newer classes for incompatible. New programs use
/// QMXAudioTrackInfoReaderWriterFactory.
///
/// One thread at a time per object; reads and writes the disk.
class QMX_EXPORT QMXAudioFileTrackInfoReaderWriter : public qmx::Object
{
public:
    using TrackList = QMXTrackAndProcessingInfo::TrackList;
    using ProcessingList = QMXTrackAndProcessingInfo::ProcessingList;

    /// The file is not touched.
    static std::shared_ptr<QMXAudioFileTrackInfoReaderWriter> initWithAudioFilePath(std::string path);
    ~QMXAudioFileTrackInfoReaderWriter() override;

    // These make the record when there is none yet.
    void addTrackInfo(std::shared_ptr<QMXAudioTrackInfo> track);
    void addTrackInfoForAllTracks(const TrackList& tracks);
    void addAudioProcessingInfo(std::shared_ptr<QMXAudioProcessingRangeInfo> range);
    void addAudioProcessingForAllTracks(const ProcessingList& ranges);
    void setFileHasBeenProcessed(bool processed);

    // These return null or false without a record.
    std::shared_ptr<TrackList> trackInfos() const;
    void clearTrackInfos();
    std::shared_ptr<ProcessingList> processingInfos() const;
    void clearProcessingInfos();
    bool fileHasBeenProcessed() const;

    // Both wait indefinitely while another thread or process stores into the file or extends it.

    /// Reads the record of the first usable chunk among the first ten; an archived nil means no record. True if there
    /// is a record afterwards, even the one from before when the file has no chunk or none that can be decoded.
    [[nodiscard]] bool readTrackInfosFromFile();
    /// Overwrites the last usable chunk among the first ten, else appends one. False without a record. Also false, with
    /// a log line and the file as it was, when writing fails, when the form's size does not match the file's, and when
    /// the file is not AIFF or AIFF-C.
    [[nodiscard]] bool writeTrackInfosToFile();

    /// The status of a failure in the last read or write; noErr if it succeeded. A file that simply holds no record is
    /// no failure.
    OSStatus lastStatus() const;
    /// The same as a sentence for people that names the file; empty if nothing failed.
    std::string lastError() const;

    /// False only for a form whose size does not match the file's; a file that is no form passes, which is intended.
    [[nodiscard]] bool verifyBasicFileFormat(qmx::FileHandle& file) const;
    /// Does nothing; always true.
    bool repairFile_atOffset(qmx::FileHandle& file, UInt64 offset) const;
    /// Versions 2 and 3.
    static bool isSupportedVersion(UInt32 version);
    /// Versions below 4.
    bool versionIsSupported(UInt32 version) const;
    static void validateZNTHApplicationChunk_fileLength(QMXApplicationChunkDescriptor& chunk, UInt64 fileLength);

private:
    explicit QMXAudioFileTrackInfoReaderWriter(std::string path);

    template <class Change> void changeRecord(Change change);
    void loadAllApplicationChunks(qmx::FileHandle& file);
    qmx::FoundArchive readDataFromFile(qmx::FileHandle& file);

    std::string mAudioFilePath;
    UInt32 mBlockSize;
    UInt32 mApplSignature;
    std::vector<QMXApplicationChunkDescriptor> mApplicationChunks; // of the last load, 10 at most
    UInt32 mNumApplicationChunksFound = 0;
    std::shared_ptr<QMXTrackAndProcessingInfo> mInfoData;
    UInt32 mCurrentTrackInfoVersion = 0;
    std::unique_ptr<qmx::LastFailure> failure_;
};
