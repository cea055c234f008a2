# SPDX-License-Identifier: MIT
# The public headers: the ones that are installed and, of platform/, the ones that src/ may include. A header becomes
# public by a line here.
set(QMX_PUBLIC_SRC_HEADERS
    Devices/LiveContainer.h
    Devices/QMXAudioDevice.h
    Devices/QMXAudioDeviceDelegate.h
    Devices/QMXAudioDeviceInfoOutput.h
    Devices/QMXAudioDeviceNotifications.h
    Devices/QMXAudioStream.h
    Devices/QMXAudioSubscription.h
    Devices/QMXCoreAudioIOSubscriber.h
    Devices/QMXVUMeterData.h
    Devices/QMXVUMeterDataProvider.h
    FileRelated/QMXAudioFile.h
    FileRelated/QMXAudioFileConverter.h
    FileRelated/QMXAudioFileFrameIntervalCopier.h
    FileRelated/QMXAudioFileProcessor.h
    FileRelated/QMXExtAudioFile.h
    Formats/ByteUtility.h
    Formats/PrintStreamDesc.h
    Formats/QMXAudioBufferList.h
    Formats/QMXAudioDeviceUtils.h
    Formats/QMXAudioStreamBasicDescription.h
    Formats/QMXAudioValueRange.h
    Formats/QMXFileUtils.h
    Front/Convert.h
    Front/Devices.h
    Front/Divide.h
    Front/Format.h
    Front/FrameRange.h
    Front/FrameReader.h
    Front/FrameWriter.h
    Front/Meter.h
    Front/PlayThru.h
    Front/Player.h
    Front/Process.h
    Front/Recorder.h
    Front/Result.h
    Front/StatusText.h
    Front/StoredTracks.h
    Front/Tap.h
    PlayThru/AudioDevice.h
    PlayThru/AudioDeviceList.h
    PlayThru/AudioRingBuffer.h
    PlayThru/ComplexPlayThru.h
    PlayThru/PlayThru.h
    Playback/QMXAUAudioPlayer.h
    Processing/QMXAudioConverter.h
    Processing/QMXAudioProcessor.h
    Processing/QMXAudioUnit.h
    Processing/QMXProgressSubscriber.h
    Processing/QMXSoftwareVolumeControl.h
    QMXCoreAudio.h
    Recording/QMXAUAudioRecorder.h
    Recording/QMXAudioRecorder.h
    Recording/QMXAudioRecordingLoss.h
    Tracks/QMXAudioPause.h
    Tracks/QMXAudioProcessingRangeInfo.h
    Tracks/QMXAudioTrackAutoDefiner.h
    Tracks/QMXAudioTrackInfo.h
    Tracks/QMXTrackAndProcessingInfo.h
    Tracks/SilenceAnalysis.h
    Tracks/Store/QMXAIFAudioTrackInfoReader.h
    Tracks/Store/QMXAIFAudioTrackInfoWriter.h
    Tracks/Store/QMXAIFCommon.h
    Tracks/Store/QMXAIFFUtility.h
    Tracks/Store/QMXAudioFileTrackInfoReaderWriter.h
    Tracks/Store/QMXAudioTrackInfoReader.h
    Tracks/Store/QMXAudioTrackInfoReaderWriterFactory.h
    Tracks/Store/QMXAudioTrackInfoWriter.h
    Tracks/Store/QMXCAFAudioTrackInfoReader.h
    Tracks/Store/QMXCAFAudioTrackInfoWriter.h
    Tracks/Store/QMXMP4AudioTrackInfoReader.h
    Tracks/Store/QMXMP4AudioTrackInfoWriter.h
    qmx.h)
set(QMX_PUBLIC_PLATFORM_HEADERS
    AudioToolbox/AudioConverter.h
    AudioToolbox/AudioFile.h
    AudioToolbox/AudioFormat.h
    AudioToolbox/ExtAudioFile.h
    AudioUnit/AUGraph.h
    AudioUnit/AudioUnit.h
    AudioUnit/AudioUnitProperties.h
    AudioUnit/Components.h
    CoreAudio/AudioDeviceTypes.h
    CoreAudio/AudioHardware.h
    CoreAudio/DeviceDescription.h
    CoreAudio/VirtualHardware.h
    CoreAudioTypes/AudioBuffers.h
    CoreAudioTypes/AudioChannelLayout.h
    CoreAudioTypes/AudioTimeStamp.h
    CoreAudioTypes/CoreAudioTypes.h
    CoreAudioTypes/FourCharCode.h
    CoreAudioTypes/MacTypes.h
    CoreServices/Files.h
    Foundation/Archives/Coder.h
    Foundation/Archives/Image.h
    Foundation/Archives/KeyedArchiver.h
    Foundation/Archives/KeyedUnarchiver.h
    Foundation/Archives/Number.h
    Foundation/Archives/PropertyList.h
    Foundation/Archives/Unarchiver.h
    Foundation/Archives/Values.h
    Foundation/ByteFields.h
    Foundation/Export.h
    Foundation/Files/FileHandle.h
    Foundation/Files/FileManager.h
    Foundation/Files/FileSystem.h
    Foundation/Files/MemoryFileSystem.h
    Foundation/HeapBlock.h
    Foundation/Memory.h
    Foundation/MainThread/NotificationCenter.h
    Foundation/MainThread/RealTimeNotification.h
    Foundation/MainThread/RunLoop.h
    Foundation/MainThread/Timer.h
    Foundation/Modules.h
    Foundation/Object.h
    Foundation/RealTime.h
    Foundation/Text/CFString.h
    Foundation/Text/FailureLine.h
    Foundation/Text/Format.h
    Foundation/Text/Log.h
    Foundation/Threads/ConditionLock.h
    Foundation/Threads/Publication.h
    Foundation/Threads/Retirement.h
    Foundation/Threads/Thread.h
    Foundation/Threads/Worker.h
    Foundation/Version.h
    vecLib/ChannelPeaks.h
    vecLib/Interleaving.h
    vecLib/vecLib.h)

# These need other libraries, which a program that includes them has.
set(QMX_LOOP_HEADERS Front/MainLoopGLib.h Front/MainLoopQt.h)
set(QMX_PUBLIC_HEADERS ${QMX_PUBLIC_SRC_HEADERS} ${QMX_PUBLIC_PLATFORM_HEADERS})

# Public headers include each other as applications include them, <QMXCoreAudio/...>, so that one text serves the build,
# the install and projects that embed the library. In the build they are links in two folders: one has what applications
# see, the other what the platform offers to src/. A link is the same file to the compiler, so a source may include a
# header both ways.
function(link_headers root layer)
    foreach(header ${ARGN})
        cmake_path(GET header PARENT_PATH folder)
        file(MAKE_DIRECTORY ${root}/QMXCoreAudio/${folder})
        file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${layer}/${header} ${root}/QMXCoreAudio/${header} SYMBOLIC)
    endforeach()
endfunction()
set(QMX_PUBLIC ${PROJECT_BINARY_DIR}/include)
set(QMX_SEAM ${PROJECT_BINARY_DIR}/seam)
file(REMOVE_RECURSE ${QMX_PUBLIC} ${QMX_SEAM})
link_headers(${QMX_PUBLIC} src ${QMX_PUBLIC_SRC_HEADERS} ${QMX_LOOP_HEADERS})
link_headers(${QMX_PUBLIC} platform ${QMX_PUBLIC_PLATFORM_HEADERS})
link_headers(${QMX_SEAM} platform ${QMX_PUBLIC_PLATFORM_HEADERS})
