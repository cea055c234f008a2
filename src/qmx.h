// SPDX-License-Identifier: MIT
// What an application begins with: devices, recording, playing, files, conversion and division into tracks, with
// results as values. Every object of <QMXCoreAudio/QMXCoreAudio.h> can be reached from it.
#pragma once

#include "Front/Devices.h"
#include "Front/Format.h"
#include "Front/FrameReader.h"
#include "Front/FrameWriter.h"
#include "Front/Meter.h"
#include "Front/PlayThru.h"
#include "Front/Player.h"
#include "Front/Recorder.h"
#include "Front/Result.h"
#include "Front/StatusText.h"
#include "Front/Tap.h"
