// SPDX-License-Identifier: MIT
#pragma once

#include "AudioUnit/Units/QualityUnit.h"

namespace qmx
{

/// Plays its input faster or slower, and with that higher or lower: the playback rate says how many input frames go
/// into an output frame, whatever the rates of the two formats are. It may change at any time and on any thread: the
/// next slice gets there gradually.
///
/// What its filter looks ahead is silence at first, so that each render asks for about as many frames as it makes; that
/// is its latency. Input times count the frames asked for; where output times jump, they jump by as much times the
/// rate. Channels that the sides do not share are mixed as by the converter unit.
class VarispeedUnit : public QualityUnit
{
public:
    VarispeedUnit();

    OSStatus setParameter(AudioUnitParameterID id, AudioUnitScope scope, Float32 value) override;

protected:
    OSStatus makeEngine(UInt32 bus, std::unique_ptr<RenderEngine>& engine) override;
    OSStatus read(const UnitPropertyAddress& address, void* value) const override;

private:
    static const ParameterRange parameters[2];
    Float64 latency_ = 0; ///< seconds; of the engine. Under the control lock.
};

} // namespace qmx
