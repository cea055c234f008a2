// SPDX-License-Identifier: MIT
#include "Processing/QMXAudioUnit.h"

std::shared_ptr<QMXAudioUnit> QMXAudioUnit::defaultOutputUnit()
{
    const ComponentDescription description{kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput,
                                           kAudioUnitManufacturer_Apple};
    AudioUnit unit = nullptr;
    (void)OpenAComponent(FindNextComponent(nullptr, &description), &unit); // null does not initialise
    auto object = std::shared_ptr<QMXAudioUnit>(new QMXAudioUnit(unit, true));
    return AudioUnitInitialize(unit) == noErr ? object : nullptr;
}

std::shared_ptr<QMXAudioUnit> QMXAudioUnit::initWithAudioUnit(AudioUnit audioUnit)
{
    return std::shared_ptr<QMXAudioUnit>(new QMXAudioUnit(audioUnit, false));
}

QMXAudioUnit::~QMXAudioUnit()
{
    if (mIsOwned)
        (void)CloseComponent(mAudioUnit); // nobody is left to be told
}

const AudioStreamBasicDescription* QMXAudioUnit::streamFormat()
{
    if (!mAUInternalFormat) {
        mAUInternalFormat = std::make_unique<AudioStreamBasicDescription>();
        UInt32 size = sizeof *mAUInternalFormat;
        (void)AudioUnitGetProperty(mAudioUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                                   mAUInternalFormat.get(), &size); // all zero tells
    }
    return mAUInternalFormat.get();
}
