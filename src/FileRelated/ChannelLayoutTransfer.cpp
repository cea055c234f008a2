// SPDX-License-Identifier: MIT
#include "FileRelated/ChannelLayoutTransfer.h"

#include <vector>

namespace qmx
{

void passLayoutOn(const QMXExtAudioFile& source, const QMXExtAudioFile& destination)
{
    UInt32 size = 0;
    if (ExtAudioFileGetPropertyInfo(source.extAudioFileRef(), kExtAudioFileProperty_FileChannelLayout, &size,
                                    nullptr) != noErr ||
        size == 0)
        return;
    std::vector<Byte> layout(size);
    if (ExtAudioFileGetProperty(source.extAudioFileRef(), kExtAudioFileProperty_FileChannelLayout, &size,
                                layout.data()) != noErr)
        return;
    // a container that keeps no layout goes without
    (void)ExtAudioFileSetProperty(destination.extAudioFileRef(), kExtAudioFileProperty_ClientChannelLayout, size,
                                  layout.data());
    if (source.channelsPerFrame() == destination.channelsPerFrame())
        (void)ExtAudioFileSetProperty(destination.extAudioFileRef(), kExtAudioFileProperty_FileChannelLayout, size,
                                      layout.data());
}

} // namespace qmx
