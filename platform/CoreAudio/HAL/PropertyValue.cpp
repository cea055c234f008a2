// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/PropertyValue.h"

#include "Foundation/Text/CFString.h"

#include <algorithm>

namespace qmx
{

PropertyValue PropertyValue::cText(const std::string& text)
{
    return {.kind = Kind::cText, .bytes = {}, .entrySize = 1, .text = text, .isWritable = false};
}

PropertyValue PropertyValue::reference(const std::string& text)
{
    return {.kind = Kind::reference, .bytes = {}, .entrySize = 1, .text = text, .isWritable = false};
}

UInt32 PropertyValue::size() const
{
    switch (kind) {
    case Kind::cText:
        return static_cast<UInt32>(text.size() + 1);
    case Kind::reference:
        return sizeof(CFStringRef);
    default:
        return static_cast<UInt32>(bytes.size());
    }
}

OSStatus PropertyValue::describe(UInt32* outSize, Boolean* outWritable) const
{
    if (outSize)
        *outSize = size();
    if (outWritable)
        *outWritable = isWritable;
    return noErr;
}

OSStatus PropertyValue::copyTo(UInt32* ioSize, void* out) const
{
    const UInt32 room = *ioSize;
    UInt32 used = size();
    const bool isCut = kind == Kind::list || (kind == Kind::cText && room > 0);
    if (room < used && !isCut)
        return kAudioHardwareBadPropertySizeError;
    if (kind == Kind::list) {
        used = std::min(used, room - room % static_cast<UInt32>(entrySize));
        if (used > 0)
            std::memcpy(out, bytes.data(), used);
    } else if (kind == Kind::cText) {
        used = std::min(used, room);
        std::memcpy(out, text.c_str(), used);
        static_cast<char*>(out)[used - 1] = 0;
    } else if (kind == Kind::reference) {
        const CFStringRef reference = CFStringCreate(text);
        std::memcpy(out, &reference, sizeof reference);
    } else {
        std::memcpy(out, bytes.data(), used);
    }
    *ioSize = used;
    return noErr;
}

OSStatus takeTranslation(UInt32* ioSize, const void* block, UInt32 inputSize, UInt32 outputSize,
                         AudioValueTranslation& translation)
{
    if (*ioSize < sizeof translation)
        return kAudioHardwareBadPropertySizeError;
    std::memcpy(&translation, block, sizeof translation);
    if (!translation.mInputData || !translation.mOutputData)
        return kAudio_ParamError;
    if (translation.mInputDataSize < inputSize || translation.mOutputDataSize < outputSize)
        return kAudioHardwareBadPropertySizeError;
    *ioSize = sizeof translation;
    return noErr;
}

} // namespace qmx
