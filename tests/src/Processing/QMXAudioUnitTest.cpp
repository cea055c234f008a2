// SPDX-License-Identifier: MIT
#include "Processing/QMXAudioUnit.h"

#include "support/Units.h"

TEST(QMXAudioUnit, KeepsTheFormatThatItReadFirst)
{
    const auto unit = QMXAudioUnit::defaultOutputUnit();
    ASSERT_TRUE(unit);
    EXPECT_EQ(44100, unit->streamFormat()->mSampleRate);
    qmx::test::set(unit->audioUnit(), kAudioUnitProperty_SampleRate, kAudioUnitScope_Input, 48000.0);
    EXPECT_EQ(44100, unit->streamFormat()->mSampleRate);
    EXPECT_EQ(48000, QMXAudioUnit::initWithAudioUnit(unit->audioUnit())->streamFormat()->mSampleRate);
    EXPECT_EQ(0, QMXAudioUnit::initWithAudioUnit(nullptr)->streamFormat()->mSampleRate);
}
