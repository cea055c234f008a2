// SPDX-License-Identifier: MIT
#include "Formats/PrintStreamDesc.h"

#include "Foundation/Text/Format.h"

#include <cstdio>
#include <cstring>

namespace
{

constexpr const char* kRule = "- - - - - - - - - - - - - - - - - - - -\n";

// The code's bytes as they lie in memory, which on this host is back to front; this is intended.
std::string rawBytes(AudioFormatID formatID)
{
    char bytes[sizeof formatID];
    std::memcpy(bytes, &formatID, sizeof bytes);
    return {bytes, strnlen(bytes, sizeof bytes)};
}

std::string fieldLines(const AudioStreamBasicDescription& record)
{
    return qmx::format("  Sample Rate:%f\n", record.mSampleRate) +
           qmx::format("  Format ID:%s\n", rawBytes(record.mFormatID)) +
           qmx::format("  Format Flags:%lX\n", record.mFormatFlags) +
           qmx::format("  Bytes per Packet:%ld\n", record.mBytesPerPacket) +
           qmx::format("  Frames per Packet:%ld\n", record.mFramesPerPacket) +
           qmx::format("  Bytes per Frame:%ld\n", record.mBytesPerFrame) +
           qmx::format("  Channels per Frame:%ld\n", record.mChannelsPerFrame) +
           qmx::format("  Bits per Channel:%ld\n", record.mBitsPerChannel);
}

void print(const AudioStreamBasicDescription* record, const std::string& heading)
{
    const std::string text =
        record ? kRule + heading + fieldLines(*record) + kRule : std::string("Can't print a NULL desc!\n");
    std::fputs(text.c_str(), stdout);
}

} // namespace

void D_PrintStreamDesc(const AudioStreamBasicDescription* record, const char* title)
{
    print(record, qmx::format("%s\n", title) + kRule);
}

void PrintStreamDesc(const AudioStreamBasicDescription* record)
{
    print(record, {});
}
