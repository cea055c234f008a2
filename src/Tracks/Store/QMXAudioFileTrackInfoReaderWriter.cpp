// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXAudioFileTrackInfoReaderWriter.h"

#include "CoreAudioTypes/FourCharCode.h"
#include "Formats/LastFailure.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Log.h"
#include "Tracks/Store/ApplicationChunk.h"
#include "Tracks/Store/QMXAIFFUtility.h"
#include "Tracks/Store/StoredFile.h"

#include <algorithm>
#include <utility>

QMXAudioFileTrackInfoReaderWriter::QMXAudioFileTrackInfoReaderWriter(std::string path)
    : mAudioFilePath(std::move(path)), mBlockSize(qmx::applicationBlockSize), mApplSignature(qmx::trackSignature),
      failure_(std::make_unique<qmx::LastFailure>())
{
}

QMXAudioFileTrackInfoReaderWriter::~QMXAudioFileTrackInfoReaderWriter() = default;

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
    const auto find = [&](qmx::FileHandle& file) { return readDataFromFile(file); };
    if (auto record = qmx::readRecord(mAudioFilePath, *failure_, find)) // else the record from before stays
        mInfoData = *std::move(record);
    return mInfoData != nullptr;
}

qmx::FoundArchive QMXAudioFileTrackInfoReaderWriter::readDataFromFile(qmx::FileHandle& file)
{
    loadAllApplicationChunks(file);
    const auto first = std::ranges::find_if(mApplicationChunks, qmx::isUsable);
    if (first == mApplicationChunks.end())
        return {!mApplicationChunks.empty()};
    mCurrentTrackInfoVersion = first->mVersion;
    return {true, qmx::readArchive(file, *first)};
}

bool QMXAudioFileTrackInfoReaderWriter::writeTrackInfosToFile()
{
    return qmx::storeRecord(
        mAudioFilePath, mInfoData, *failure_, [&](qmx::FileHandle& file, std::span<const UInt8> archive) {
            loadAllApplicationChunks(file);
            const auto last = std::find_if(mApplicationChunks.rbegin(), mApplicationChunks.rend(), qmx::isUsable);
            // signature and version in the host's byte order, which is intended
            return qmx::storeArchive(file, archive,
                                     last == mApplicationChunks.rend() ? std::nullopt : std::optional(*last),
                                     {mBlockSize, mApplSignature, qmx::hostByteOrder});
        });
}

OSStatus QMXAudioFileTrackInfoReaderWriter::lastStatus() const
{
    return failure_->status();
}

std::string QMXAudioFileTrackInfoReaderWriter::lastError() const
{
    return failure_->sentence();
}

void QMXAudioFileTrackInfoReaderWriter::loadAllApplicationChunks(qmx::FileHandle& file)
{
    constexpr std::size_t tableSize = 10;
    mApplicationChunks.clear();
    qmx::findApplicationChunks(file, mApplSignature, qmx::hostByteOrder, [this](const qmx::ApplicationChunk& chunk) {
        ++mNumApplicationChunksFound; // on top of those of earlier loads, which is intended
        if (mApplicationChunks.size() < tableSize)
            mApplicationChunks.push_back(chunk);
        return true;
    });
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
