// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>

/// A place where the recording lacks what the device captured.
struct QMXAudioRecordingLoss {
    enum class Reason {
        overrun,       ///< saving was so late that full buffers were overwritten
        conversion,    ///< a buffer could not be converted
        write,         ///< the part of a buffer that could not be written
        partialBuffer, ///< the rest that stop() did not write: the buffer that was being filled, what the rate
                       ///< conversion held
        timeGap,       ///< the device's time jumped: cycles that never came; no frames if it jumped back
        rateChange     ///< no frames lost: the device's rate changed here, the file's did not
    };
    Reason reason = Reason::overrun;
    UInt64 frame = 0;     ///< position, in frames accepted from the device
    UInt64 frames = 0;    ///< how many, at the device's rate
    UInt64 fileFrame = 0; ///< position, in frames of the file
};
