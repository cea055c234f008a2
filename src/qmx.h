// SPDX-License-Identifier: MIT
// What an application begins with: devices, recording, playing, files, conversion and division into tracks, with
// results as values. Every object of <QMXCoreAudio/QMXCoreAudio.h> can be reached from it.
#pragma once

#if __cplusplus < 202002L
#error "QMXCoreAudio is written in C++20: compile with -std=c++20 or later"
#else

#include <QMXCoreAudio/Foundation/MainThread/RunLoop.h>
#include <QMXCoreAudio/Foundation/Text/FailureLine.h>
#include <QMXCoreAudio/Front/Convert.h>
#include <QMXCoreAudio/Front/Devices.h>
#include <QMXCoreAudio/Front/Divide.h>
#include <QMXCoreAudio/Front/Format.h>
#include <QMXCoreAudio/Front/FrameRange.h>
#include <QMXCoreAudio/Front/FrameReader.h>
#include <QMXCoreAudio/Front/FrameWriter.h>
#include <QMXCoreAudio/Front/Meter.h>
#include <QMXCoreAudio/Front/PlayThru.h>
#include <QMXCoreAudio/Front/Player.h>
#include <QMXCoreAudio/Front/Process.h>
#include <QMXCoreAudio/Front/Recorder.h>
#include <QMXCoreAudio/Front/Result.h>
#include <QMXCoreAudio/Front/StatusText.h>
#include <QMXCoreAudio/Front/StoredTracks.h>
#include <QMXCoreAudio/Front/Tap.h>

#endif
