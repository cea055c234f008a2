// SPDX-License-Identifier: MIT
#include "Front/LossText.h"

#include "Foundation/Text/Format.h"

namespace qmx
{
namespace
{

const char* reasonText(QMXAudioRecordingLoss::Reason reason)
{
    using Reason = QMXAudioRecordingLoss::Reason;
    switch (reason) {
    case Reason::overrun:
        return "the disk is too slow";
    case Reason::conversion:
        return "a conversion failed";
    case Reason::write:
        return "the file cannot be written";
    case Reason::partialBuffer:
        return "the end was not written";
    case Reason::timeGap:
        return "the device left out time";
    case Reason::rateChange:
        return "the device changed its sample rate";
    }
    return "";
}

} // namespace

std::string lossText(UInt64 frames, const std::vector<QMXAudioRecordingLoss>& places)
{
    std::string text = frames > 0 ? format("%qu frames are missing", frames) : "";
    if (places.empty())
        return text;
    if (!text.empty())
        text += " ";
    if (places.size() > 1)
        text += format("in %u places, first ", static_cast<UInt32>(places.size()));
    return text + format("at frame %qu: ", places.front().fileFrame) + reasonText(places.front().reason);
}

} // namespace qmx
