// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXAudioTrackInfoWriter.h"

#include "AudioToolbox/AudioFile.h"
#include "Formats/LastFailure.h"
#include "Tracks/Store/StoredFile.h"

#include <utility>

QMXAudioTrackInfoWriter::QMXAudioTrackInfoWriter(std::string path)
    : mAudioFilePath(std::move(path)), mTrackAndProcInfo(std::make_shared<QMXTrackAndProcessingInfo>()),
      failure_(std::make_unique<qmx::LastFailure>())
{
}

QMXAudioTrackInfoWriter::~QMXAudioTrackInfoWriter() = default;

void QMXAudioTrackInfoWriter::setTrackAndProcessingInfo(std::shared_ptr<QMXTrackAndProcessingInfo> info)
{
    mTrackAndProcInfo = std::move(info);
}

void QMXAudioTrackInfoWriter::addTrackInfo(std::shared_ptr<QMXAudioTrackInfo> track)
{
    if (mTrackAndProcInfo)
        mTrackAndProcInfo->addTrackInfo(std::move(track));
}

void QMXAudioTrackInfoWriter::addTrackInfoForAllTracks(const QMXTrackAndProcessingInfo::TrackList& tracks)
{
    if (mTrackAndProcInfo)
        mTrackAndProcInfo->addTrackInfoForAllTracks(tracks);
}

void QMXAudioTrackInfoWriter::addAudioProcessingInfo(std::shared_ptr<QMXAudioProcessingRangeInfo> range)
{
    if (mTrackAndProcInfo)
        mTrackAndProcInfo->addAudioProcessingInfo(std::move(range));
}

void QMXAudioTrackInfoWriter::addAudioProcessingForAllTracks(const QMXTrackAndProcessingInfo::ProcessingList& ranges)
{
    if (mTrackAndProcInfo)
        mTrackAndProcInfo->addAudioProcessingForAllTracks(ranges);
}

void QMXAudioTrackInfoWriter::setFileHasBeenProcessed(bool processed)
{
    if (mTrackAndProcInfo)
        mTrackAndProcInfo->setFileHasBeenProcessed(processed);
}

OSStatus QMXAudioTrackInfoWriter::lastStatus() const
{
    return failure_->status();
}

std::string QMXAudioTrackInfoWriter::lastError() const
{
    return failure_->sentence();
}

void QMXAudioTrackInfoWriter::refuseFileType()
{
    (void)qmx::attempt(*failure_, mAudioFilePath, qmx::notStored, []() -> qmx::Refusal { // lastStatus() reports it
        return qmx::StoreFailure{kAudioFileUnsupportedFileTypeError, "files of its type keep no tracks"};
    });
}
