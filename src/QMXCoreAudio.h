// SPDX-License-Identifier: MIT
// All that programs need, in one header: the objects, and of the platform's services what is used beside them.
#pragma once

#if __cplusplus < 202002L
#error "QMXCoreAudio is written in C++20: compile with -std=c++20 or later"
#else

#include <QMXCoreAudio/AudioToolbox/AudioFile.h>
#include <QMXCoreAudio/AudioToolbox/AudioFormat.h>
#include <QMXCoreAudio/AudioToolbox/ExtAudioFile.h>
#include <QMXCoreAudio/AudioUnit/AUGraph.h>
#include <QMXCoreAudio/AudioUnit/AudioUnit.h>
#include <QMXCoreAudio/AudioUnit/Components.h>
#include <QMXCoreAudio/CoreAudio/AudioHardware.h>
#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>
#include <QMXCoreAudio/CoreAudioTypes/AudioBuffers.h>
#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Devices/LiveContainer.h>
#include <QMXCoreAudio/Devices/QMXAudioDevice.h>
#include <QMXCoreAudio/Devices/QMXAudioDeviceDelegate.h>
#include <QMXCoreAudio/Devices/QMXAudioDeviceInfoOutput.h>
#include <QMXCoreAudio/Devices/QMXAudioDeviceNotifications.h>
#include <QMXCoreAudio/Devices/QMXAudioStream.h>
#include <QMXCoreAudio/Devices/QMXAudioSubscription.h>
#include <QMXCoreAudio/Devices/QMXCoreAudioIOSubscriber.h>
#include <QMXCoreAudio/Devices/QMXVUMeterData.h>
#include <QMXCoreAudio/Devices/QMXVUMeterDataProvider.h>
#include <QMXCoreAudio/FileRelated/QMXAudioFile.h>
#include <QMXCoreAudio/FileRelated/QMXAudioFileConverter.h>
#include <QMXCoreAudio/FileRelated/QMXAudioFileFrameIntervalCopier.h>
#include <QMXCoreAudio/FileRelated/QMXAudioFileProcessor.h>
#include <QMXCoreAudio/FileRelated/QMXExtAudioFile.h>
#include <QMXCoreAudio/Formats/ByteUtility.h>
#include <QMXCoreAudio/Formats/PrintStreamDesc.h>
#include <QMXCoreAudio/Formats/QMXAudioBufferList.h>
#include <QMXCoreAudio/Formats/QMXAudioDeviceUtils.h>
#include <QMXCoreAudio/Formats/QMXAudioStreamBasicDescription.h>
#include <QMXCoreAudio/Formats/QMXAudioValueRange.h>
#include <QMXCoreAudio/Formats/QMXFileUtils.h>
#include <QMXCoreAudio/Foundation/ByteFields.h>
#include <QMXCoreAudio/Foundation/Files/FileSystem.h>
#include <QMXCoreAudio/Foundation/Files/MemoryFileSystem.h>
#include <QMXCoreAudio/Foundation/MainThread/NotificationCenter.h>
#include <QMXCoreAudio/Foundation/MainThread/RunLoop.h>
#include <QMXCoreAudio/Foundation/MainThread/Timer.h>
#include <QMXCoreAudio/Foundation/Modules.h>
#include <QMXCoreAudio/Foundation/Text/FailureLine.h>
#include <QMXCoreAudio/Foundation/Text/Format.h>
#include <QMXCoreAudio/Foundation/Text/Log.h>
#include <QMXCoreAudio/Foundation/Version.h>
#include <QMXCoreAudio/PlayThru/AudioDevice.h>
#include <QMXCoreAudio/PlayThru/AudioDeviceList.h>
#include <QMXCoreAudio/PlayThru/AudioRingBuffer.h>
#include <QMXCoreAudio/PlayThru/ComplexPlayThru.h>
#include <QMXCoreAudio/PlayThru/PlayThru.h>
#include <QMXCoreAudio/Playback/QMXAUAudioPlayer.h>
#include <QMXCoreAudio/Processing/QMXAudioConverter.h>
#include <QMXCoreAudio/Processing/QMXAudioProcessor.h>
#include <QMXCoreAudio/Processing/QMXAudioUnit.h>
#include <QMXCoreAudio/Processing/QMXProgressSubscriber.h>
#include <QMXCoreAudio/Processing/QMXSoftwareVolumeControl.h>
#include <QMXCoreAudio/Recording/QMXAUAudioRecorder.h>
#include <QMXCoreAudio/Recording/QMXAudioRecorder.h>
#include <QMXCoreAudio/Recording/QMXAudioRecordingLoss.h>
#include <QMXCoreAudio/Tracks/QMXAudioPause.h>
#include <QMXCoreAudio/Tracks/QMXAudioProcessingRangeInfo.h>
#include <QMXCoreAudio/Tracks/QMXAudioTrackAutoDefiner.h>
#include <QMXCoreAudio/Tracks/QMXAudioTrackInfo.h>
#include <QMXCoreAudio/Tracks/QMXTrackAndProcessingInfo.h>
#include <QMXCoreAudio/Tracks/SilenceAnalysis.h>
#include <QMXCoreAudio/Tracks/Store/QMXAIFAudioTrackInfoReader.h>
#include <QMXCoreAudio/Tracks/Store/QMXAIFAudioTrackInfoWriter.h>
#include <QMXCoreAudio/Tracks/Store/QMXAIFCommon.h>
#include <QMXCoreAudio/Tracks/Store/QMXAIFFUtility.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioFileTrackInfoReaderWriter.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoReader.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoReaderWriterFactory.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoWriter.h>
#include <QMXCoreAudio/Tracks/Store/QMXCAFAudioTrackInfoReader.h>
#include <QMXCoreAudio/Tracks/Store/QMXCAFAudioTrackInfoWriter.h>
#include <QMXCoreAudio/Tracks/Store/QMXMP4AudioTrackInfoReader.h>
#include <QMXCoreAudio/Tracks/Store/QMXMP4AudioTrackInfoWriter.h>

#endif
