// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXAudioTrackInfoWriter.h"

#include <utility>

QMXAudioTrackInfoWriter::QMXAudioTrackInfoWriter(std::string path)
    : mAudioFilePath(std::move(path)), mTrackAndProcInfo(std::make_shared<QMXTrackAndProcessingInfo>())
{
}

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
