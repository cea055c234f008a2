// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXAudioTrackInfoReader.h"

#include "Formats/LastFailure.h"

#include <utility>

QMXAudioTrackInfoReader::QMXAudioTrackInfoReader(std::string path)
    : mAudioFilePath(std::move(path)), failure_(std::make_unique<qmx::LastFailure>())
{
}

QMXAudioTrackInfoReader::~QMXAudioTrackInfoReader() = default;

OSStatus QMXAudioTrackInfoReader::lastStatus() const
{
    return failure_->status();
}

std::string QMXAudioTrackInfoReader::lastError() const
{
    return failure_->sentence();
}
