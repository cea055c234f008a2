// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>
#include <QMXCoreAudio/Processing/QMXProgressSubscriber.h>

#include <string>

class QMXAudioFile;

/// Copies every n-th frame of a stretch of an audio file, for a coarse look at a long file.
class QMX_EXPORT QMXAudioFileFrameIntervalCopier : public qmx::Object
{
public:
    QMXAudioFileFrameIntervalCopier() = delete;

    /// Copies frames `fromFrame`, `fromFrame` + `interval`, ... below `toFrame` (cut to the file's length) as
    /// big-endian 32-bit floats into `buffer`, and returns the number of frames of the file that were stepped over.
    /// With a null buffer nothing is read, and the result is the count of frames that a call with one copies: it takes
    /// count x channels x 4 bytes. 0 for an empty stretch, an interval of 0, and a file without bytes per frame. Files
    /// with more than 4 GiB of audio are out of range.
    ///
    /// A failed read or conversion ends the copy but does not show in the result: the rest is silence, and lastStatus()
    /// reports the failure.
    ///
    /// `file` must be open for reading. `subscriber` (may be null) receives, after each frame, the bytes read so far
    /// divided by the count: up to the bytes per frame, not 1, as intended. Blocks; any thread but the real-time ones.
    static UInt32 copyFramesWithInterval_fromFile_interval_toBuffer_fromFrame_toFrame(QMXProgressSubscriber* subscriber,
                                                                                      QMXAudioFile& file,
                                                                                      UInt32 interval, void* buffer,
                                                                                      SInt64 fromFrame, SInt64 toFrame);
    /// The status of the failure in the calling thread's last copy; 0 if nothing failed.
    static OSStatus lastStatus();
    /// The same as a sentence for people that names the file, empty when nothing failed.
    static std::string lastError();
};
