// SPDX-License-Identifier: MIT
#include "Tracks/QMXAudioFileTrackInfoReaderWriter.h"

#include "Foundation/Log.h"
#include "Foundation/Memory.h"
#include "Tracks/ApplicationChunk.h"
#include "Tracks/QMXAIFFUtility.h"
#include "Tracks/StoreJournal.h"

#include <utility>

QMXAudioFileTrackInfoReaderWriter::QMXAudioFileTrackInfoReaderWriter(std::string path)
    : mAudioFilePath(std::move(path)), mBlockSize(qmx::applicationBlockSize), mApplSignature(qmx::applicationSignature)
{
}

std::shared_ptr<QMXAudioFileTrackInfoReaderWriter>
QMXAudioFileTrackInfoReaderWriter::initWithAudioFilePath(std::string path)
{
    return qmx::withinMemory(std::shared_ptr<QMXAudioFileTrackInfoReaderWriter>(), [&] {
        return std::shared_ptr<QMXAudioFileTrackInfoReaderWriter>(
            new QMXAudioFileTrackInfoReaderWriter(std::move(path)));
    });
}

template <class Change> void QMXAudioFileTrackInfoReaderWriter::changeRecord(Change change)
{
    if (!mInfoData)
        mInfoData = QMXTrackAndProcessingInfo::init();
    if (mInfoData)
        change(*mInfoData);
    else
        qmx::Log("QMXAudioFileTrackInfoReaderWriter: not enough memory for a record");
}

void QMXAudioFileTrackInfoReaderWriter::addTrackInfo(std::shared_ptr<QMXAudioTrackInfo> track)
{
    changeRecord([&](auto& record) { record.addTrackInfo(std::move(track)); });
}

void QMXAudioFileTrackInfoReaderWriter::addTrackInfoForAllTracks(const TrackList& tracks)
{
    changeRecord([&](auto& record) { record.addTrackInfoForAllTracks(tracks); });
}

void QMXAudioFileTrackInfoReaderWriter::addAudioProcessingInfo(std::shared_ptr<QMXAudioProcessingRangeInfo> range)
{
    changeRecord([&](auto& record) { record.addAudioProcessingInfo(std::move(range)); });
}

void QMXAudioFileTrackInfoReaderWriter::addAudioProcessingForAllTracks(const ProcessingList& ranges)
{
    changeRecord([&](auto& record) { record.addAudioProcessingForAllTracks(ranges); });
}

void QMXAudioFileTrackInfoReaderWriter::setFileHasBeenProcessed(bool processed)
{
    changeRecord([&](auto& record) { record.setFileHasBeenProcessed(processed); });
}

std::shared_ptr<QMXTrackAndProcessingInfo::TrackList> QMXAudioFileTrackInfoReaderWriter::trackInfos() const
{
    return mInfoData ? mInfoData->trackInfos() : nullptr;
}

void QMXAudioFileTrackInfoReaderWriter::clearTrackInfos()
{
    if (mInfoData)
        mInfoData->clearTrackInfos();
}

std::shared_ptr<QMXTrackAndProcessingInfo::ProcessingList> QMXAudioFileTrackInfoReaderWriter::processingInfos() const
{
    return mInfoData ? mInfoData->processingInfos() : nullptr;
}

void QMXAudioFileTrackInfoReaderWriter::clearProcessingInfos()
{
    if (mInfoData)
        mInfoData->clearProcessingInfos();
}

bool QMXAudioFileTrackInfoReaderWriter::fileHasBeenProcessed() const
{
    return mInfoData && mInfoData->fileHasBeenProcessed();
}

bool QMXAudioFileTrackInfoReaderWriter::readTrackInfosFromFile()
{
    qmx::withinMemory([&] { // where there is not enough, the record from before stays
        if (const auto file = qmx::FileHandle::fileHandleForReadingAtPath(mAudioFilePath)) {
            qmx::completeStoreAtPath(mAudioFilePath, *file);
            if (auto read = readDataFromFile(*file))
                mInfoData = std::move(read);
        }
    });
    return mInfoData != nullptr;
}

std::shared_ptr<QMXTrackAndProcessingInfo> QMXAudioFileTrackInfoReaderWriter::readDataFromFile(qmx::FileHandle& file)
{
    if (!verifyBasicFileFormat(file) && !qmx::endsInUnfinishedStore(file))
        return nullptr;
    loadAllApplicationChunks(file);
    const auto chunk = qmx::firstUsable(mApplicationChunks);
    if (!chunk)
        return nullptr;
    mCurrentTrackInfoVersion = chunk->mVersion;
    return qmx::readRecord(file, *chunk);
}

bool QMXAudioFileTrackInfoReaderWriter::writeTrackInfosToFile()
{
    return qmx::withinMemory(false, [&] {
        const std::vector<UInt8> archive = qmx::archiveOf(mInfoData);
        if (archive.empty())
            return false;
        const auto file = qmx::FileHandle::fileHandleForUpdatingAtPath(mAudioFilePath);
        return file && writeDataToFile_fileHandle(archive, *file);
    });
}

bool QMXAudioFileTrackInfoReaderWriter::writeDataToFile_fileHandle(std::span<const UInt8> data, qmx::FileHandle& file)
{
    if (data.empty())
        return true;
    qmx::settleStore(file);
    if (!verifyBasicFileFormat(file))
        return false;
    loadAllApplicationChunks(file);
    // signature and version in the host's byte order, which is intended
    const bool stored = qmx::storeArchive(file, data, qmx::lastUsable(mApplicationChunks),
                                          {mBlockSize, mApplSignature, qmx::hostByteOrder});
    if (!stored)
        qmx::Log("UNABLE TO WRITE APPLICATION INFORMATION TO AUDIO FILE");
    return stored;
}

void QMXAudioFileTrackInfoReaderWriter::loadAllApplicationChunks(qmx::FileHandle& file)
{
    auto found = qmx::findApplicationChunks(file, mApplSignature, qmx::hostByteOrder);
    mApplicationChunks = std::move(found.chunks);
    mNumApplicationChunksFound += found.found; // chunks of earlier loads count on, which is intended
}

bool QMXAudioFileTrackInfoReaderWriter::verifyBasicFileFormat(qmx::FileHandle& file) const
{
    return QMXAIFFUtility::checkFileAtPath_shouldRepair(file, false) != 0;
}

bool QMXAudioFileTrackInfoReaderWriter::repairFile_atOffset(qmx::FileHandle&, UInt64) const
{
    return true;
}

bool QMXAudioFileTrackInfoReaderWriter::isSupportedVersion(UInt32 version)
{
    return QMXAIFCommon::isSupportedVersion(version);
}

bool QMXAudioFileTrackInfoReaderWriter::versionIsSupported(UInt32 version) const
{
    return version < 4;
}

void QMXAudioFileTrackInfoReaderWriter::validateZNTHApplicationChunk_fileLength(QMXApplicationChunkDescriptor& chunk,
                                                                                UInt64 fileLength)
{
    QMXAIFCommon::validateZNTHApplicationChunk_fileLength(chunk, fileLength);
}
