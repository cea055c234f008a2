// SPDX-License-Identifier: MIT
#pragma once

#include "FileRelated/QMXExtAudioFile.h"
#include "support/Slices.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace qmx::test
{

/// All samples of a file as floats, interleaved.
inline std::vector<Float32> recordedSamples(const std::string& path)
{
    const auto file = QMXExtAudioFile::initForReading(path);
    EXPECT_EQ(noErr, file->open()) << path;
    const UInt32 channels = file->fileStreamFormat()->mChannelsPerFrame;
    EXPECT_EQ(noErr,
              file->setClientStreamFormat(linearFormat(32, channels, kAudioFormatFlagIsFloat, file->sampleRate())));
    auto frames = static_cast<UInt32>(file->lengthInFrames());
    std::vector<Float32> samples(std::size_t{frames} * channels);
    AudioBufferList list;
    list.mNumberBuffers = 1;
    list.mBuffers[0] = {channels, static_cast<UInt32>(samples.size() * sizeof(Float32)), samples.data()};
    EXPECT_EQ(noErr, file->read_numberFrames(&list, &frames));
    samples.resize(std::size_t{frames} * channels);
    return samples;
}

} // namespace qmx::test
