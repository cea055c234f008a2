// SPDX-License-Identifier: MIT
#pragma once

#include "FileRelated/QMXAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"

#include <gtest/gtest.h>

#include <bit>
#include <string>
#include <vector>

namespace qmx::test
{

/// The samples of a file of floats or signed integers, full scale 1.0.
inline std::vector<Float32> recordedSamples(const std::string& path)
{
    const auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::read);
    EXPECT_TRUE(file->open());
    auto length = static_cast<UInt32>(file->lengthInBytes());
    std::vector<Byte> bytes(length);
    EXPECT_TRUE(length == 0 || file->read_length(bytes.data(), &length));
    const UInt32 width = file->bitsPerChannel() / 8;
    const bool isBigEndian = file->fileStreamFormat()->isBigEndian();
    std::vector<Float32> samples(length / width);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        UInt32 word = 0;
        for (UInt32 b = 0; b < width; ++b)
            word |= UInt32{bytes[i * width + (isBigEndian ? b : width - 1 - b)]} << (24 - 8 * b);
        samples[i] = file->fileStreamFormat()->isFloat()
                         ? std::bit_cast<Float32>(word)
                         : static_cast<Float32>(static_cast<SInt32>(word)) / 2147483648.0F;
    }
    return samples;
}

} // namespace qmx::test
