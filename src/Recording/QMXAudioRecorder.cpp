// SPDX-License-Identifier: MIT
// Life, settings and control, and queries of the file. The path of the sound is in QMXAudioRecorderSaving.cpp.
#include "Recording/QMXAudioRecorder.h"

#include "Devices/QMXAudioDevice.h"
#include "FileRelated/QMXAudioFile.h"
#include "Formats/FileByteOrder.h"
#include "Formats/FileFailureReason.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/HeapBlock.h"
#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/Text/Format.h"
#include "Foundation/Text/Log.h"
#include "Processing/QMXAudioConverter.h"
#include "Recording/RecorderImplementation.h"

#include <functional>
#include <utility>

const char* const QMXAudioRecorderStartedRecordingNotification = "QMXAudioRecorderStartedRecordingNotification";
const char* const QMXAudioRecorderStoppedRecordingNotification = "QMXAudioRecorderStoppedRecordingNotification";
const char* const QMXAudioRecorderRecordedFrameNotification = "QMXAudioRecorderRecordedFrameNotification";
const char* const QMXAudioRecorderPausedRecordingNotification = "QMXAudioRecorderPausedRecordingNotification";
const char* const QMXAudioRecorderFailedNotification = "QMXAudioRecorderFailedNotification";

using namespace recorder;

namespace
{

constexpr UInt32 mostSpareBuffers = 1024;
constexpr const char* noMemory = "there is no memory for the recorder's buffers";

struct TemporaryDirectory {
    std::mutex lock;
    std::string path = "/tmp/";

    static TemporaryDirectory& shared()
    {
        static auto* const directory = new TemporaryDirectory; // never destroyed: recorders may outlive the statics
        return *directory;
    }
};

std::string temporaryFilePath()
{
    TemporaryDirectory& directory = TemporaryDirectory::shared();
    const std::scoped_lock lock(directory.lock);
    return directory.path + "audiotemp.aif";
}

/// Float and signed formats as AIFF files have them.
void normalizeFileStreamFormat(QMXAudioStreamBasicDescription& format)
{
    constexpr AudioFormatFlags packed = kAudioFormatFlagIsPacked, bigEndian = kAudioFormatFlagIsBigEndian;
    const AudioFormatFlags packing = format.isPacked() ? packed : 0;
    if (format.isFloat())
        format.setFormatFlags(kAudioFormatFlagIsFloat | bigEndian | packing);
    else if (format.isSignedInteger())
        format.setFormatFlags(kAudioFormatFlagIsSignedInteger | bigEndian | packing);
}

/// Of the stream that is recorded; 0 without one.
UInt32 inputChannelsOf(QMXAudioDevice& device)
{
    const auto format = device.actualStreamFormat_isInput(0, true);
    return format ? format->channelsPerFrame() : 0;
}

std::shared_ptr<QMXAudioStreamBasicDescription> copyOf(const QMXAudioStreamBasicDescription& format)
{
    return QMXAudioStreamBasicDescription::initWithAudioStreamBasicDescription(format.audioStreamBasicDescription());
}

/// Opens or creates the file. A WAVE that is created has the byte order of its type, whatever the recorder's format
/// says.
void openInByteOrderOfType(QMXAudioFile& file)
{
    const AudioFileTypeID type = file.fileType();
    if (const auto format = file.fileStreamFormat()) {
        (void)file.setFileStreamFormat( // opening reports a failure
            QMXAudioStreamBasicDescription(qmx::inByteOrderOfType(*format->audioStreamBasicDescription(), type)));
        file.setFileType(type); // the format set another one
    }
    (void)file.open(); // the file keeps its failure
}

} // namespace

// The destructor waits for the saving thread, which nothing may do inside a callback.
void QMXAudioRecorder::Implementation::destroy(Implementation* recorder)
{
    qmx::destroyOutsideCallbacks(recorder);
}

QMXAudioRecorder::Implementation::~Implementation()
{
    stop();
    if (_audioFile)
        (void)_audioFile->close(); // nobody is left to be told
    threadShouldExit = true;
    threadRunLock.unlockWithCondition(hasWork);
    savingThread_.join();
}

std::shared_ptr<QMXAudioRecorder::Implementation>
QMXAudioRecorder::Implementation::make(const std::shared_ptr<QMXAudioDevice>& device)
{
    if (!device)
        return nullptr;
    std::shared_ptr<Implementation> recorder(new Implementation, destroy);
    return recorder->begin(device) ? recorder : nullptr;
}

bool QMXAudioRecorder::Implementation::begin(const std::shared_ptr<QMXAudioDevice>& device)
{
    recordedFrame_.emplace(QMXAudioRecorderRecordedFrameNotification, weak_from_this(),
                           qmx::RealTimeNotification::Kind::frame,
                           [](const std::shared_ptr<qmx::Object>& sender, const std::string& name) {
                               static_cast<QMXAudioRecorder&>(*sender).threadCallback(name);
                           });
    failed_.emplace(QMXAudioRecorderFailedNotification, weak_from_this(), qmx::RealTimeNotification::Kind::state);
    setInputDevice(device);
    savingWorker_.emplace([this] { return threadRunLock.condition() == hasWork; });
    savingThread_ = qmx::Thread("QMX recorder", [this] { saveBufferRunLoop(); });
    if (!savingThread_.isJoinable()) {
        qmx::Log("QMXAudioRecorder: Unable to start the saving thread");
        return false;
    }
    recorderState = ready;
    return true;
}

void QMXAudioRecorder::Implementation::take(const std::shared_ptr<QMXAudioFile>& file)
{
    audioFilePath_ = audioFilePath(); // intended: read before there is a file, so it stays empty
    _audioFile = file;
    (void)file->close();                                       // what is still queued is its owner's concern
    file->changeAccessMode(QMXAudioFileAccessMode::readWrite); // intended: a closed file keeps its mode
    if (_destinationFormat)
        (void)file->setFileStreamFormat(*_destinationFormat); // opening reports a failure
    file->setUseCache(useAudioFileCache);
}

std::shared_ptr<QMXAudioRecorder> QMXAudioRecorder::initWithAudioDevice(const std::shared_ptr<QMXAudioDevice>& device)
{
    return Implementation::make(device);
}

std::shared_ptr<QMXAudioRecorder>
QMXAudioRecorder::initWithAudioDevice_filePath(const std::shared_ptr<QMXAudioDevice>& device,
                                               const std::optional<std::string>& path)
{
    auto recorder = path ? Implementation::make(device) : nullptr;
    if (recorder)
        recorder->setAudioFilePath(*path);
    return recorder;
}

std::shared_ptr<QMXAudioRecorder>
QMXAudioRecorder::initWithAudioDevice_audioFile(const std::shared_ptr<QMXAudioDevice>& device,
                                                const std::shared_ptr<QMXAudioFile>& file)
{
    auto recorder = Implementation::make(device);
    if (recorder && file)
        recorder->take(file);
    return recorder;
}

/// Whether there is a recording that has not ended.
bool QMXAudioRecorder::Implementation::hasBegun() const
{
    return recorderState == recording || recorderState == paused;
}

void QMXAudioRecorder::setTemporaryDirectory(const std::string& directory)
{
    TemporaryDirectory& shared = TemporaryDirectory::shared();
    const std::scoped_lock lock(shared.lock);
    shared.path = directory;
}

void QMXAudioRecorder::setAudioFilePath_withFileStreamFormat(const std::string& path,
                                                             const QMXAudioStreamBasicDescription& format)
{
    setAudioFilePath(path);
    setFileStreamFormat(format);
}

void QMXAudioRecorder::Implementation::setDeviceStreamFormat(
    const std::shared_ptr<QMXAudioStreamBasicDescription>& format)
{
    if (!format)
        return;
    deviceChannels_ = inputChannelsOf(*_inputDevice);
    const std::scoped_lock lock(setupLock_);
    if (hasBegun())
        noteLossAtEnd(QMXAudioRecordingLoss::Reason::write, endConversion(true));
    _sourceFormat = copyOf(*format);
    converterSetup();
}

bool QMXAudioRecorder::Implementation::setFileStreamFormat(const QMXAudioStreamBasicDescription& format)
{
    const std::scoped_lock lock(setupLock_);
    _destinationFormat = copyOf(format);
    normalizeFileStreamFormat(*_destinationFormat);
    if (writtenFormat() == _destinationFormat)
        converterSetup();
    return true;
}

void QMXAudioRecorder::Implementation::setInputDevice(const std::shared_ptr<QMXAudioDevice>& device)
{
    if (!device)
        return;
    stop();
    if (_inputDevice)
        _inputDevice->removeAudioIOSubscriber_forInput(*this, true);
    _inputDevice = device;
    const auto stereo = device->preferredChannelsForStereo(false);
    const auto* const channels = static_cast<const UInt32*>(stereo.get());
    leftChannel_ = channels ? channels[0] : 1;
    rightChannel_ = channels ? channels[1] : 0xFFFFFFFF;
    observe(device);
    setDeviceStreamFormat(device->actualStreamFormat_isInput(0, true));
    if (const auto physical = device->physicalStreamFormat_isInput(0, true))
        setFileStreamFormat(*physical);
}

void QMXAudioRecorder::Implementation::observe(const std::shared_ptr<QMXAudioDevice>& device)
{
    deviceRate_ = device->nominalSampleRate(true);
    const auto handler = [owner = weak_from_this()](void (Implementation::*change)()) {
        return [owner, change](const qmx::Notification& /*notification*/) {
            if (const auto self = owner.lock())
                std::invoke(change, static_cast<Implementation&>(*self));
        };
    };
    auto& center = qmx::NotificationCenter::defaultCenter();
    rateObserver_ = center.observe(QMXAudioDeviceNominalSampleRateDidChangeNotification, device,
                                   handler(&Implementation::deviceRateDidChange));
    deviceListObserver_ = center.observe(QMXAudioHardwareDevicesDidChangeNotification, QMXAudioDevice::classObject(),
                                         handler(&Implementation::devicesDidChange));
}

void QMXAudioRecorder::Implementation::deviceRateDidChange()
{
    const Float64 rate = _inputDevice->nominalSampleRate(true);
    if (rate != std::exchange(deviceRate_, rate) && hasBegun())
        losses_.add(QMXAudioRecordingLoss::Reason::rateChange, recordedLengthInFrames, 0);
}

void QMXAudioRecorder::Implementation::devicesDidChange()
{
    if (hasBegun() && !_inputDevice->isAlive())
        giveDeviceUp(kAudioHardwareBadDeviceError, "is gone");
}

bool QMXAudioRecorder::Implementation::setSpareRawBuffers(UInt32 count)
{
    if (recorderState != ready)
        return false;
    if (count > mostSpareBuffers)
        return refuse(kAudio_ParamError, "the recorder cannot have so many buffers");
    const std::scoped_lock lock(setupLock_);
    if (rawByteBuffer.isAllocated() && !rawByteBuffer.allocate(rawByteBufferSizeInBytes, 1 + count)) {
        rawByteBuffer.allocate(rawByteBufferSizeInBytes, 1 + spareRawBuffers_);
        return refuse(memFullErr, noMemory);
    }
    spareRawBuffers_ = count;
    return true;
}

bool QMXAudioRecorder::Implementation::record()
{
    if (recorderState != ready && recorderState != paused)
        return false;
    if (recorderState == ready)
        failure_.clear();
    if (!rawByteBuffer.isAllocated())
        return refuse(memFullErr, noMemory);
    if (inputChannelsOf(*_inputDevice) != deviceChannels_) // the bytes would be taken for other channels
        return refuse(kAudioDeviceUnsupportedFormatError,
                      aboutDevice("is gone or has other channels than when the recorder was set up"));
    if (!openFile())
        return false;
    if (recorderState == ready && _inputDevice->nominalSampleRate(true) != _sourceFormat->sampleRate())
        losses_.add(QMXAudioRecordingLoss::Reason::rateChange, 0, 0);
    nextSampleTime_.reset(); // the time between a pause and its end is no gap
    recorderState = recording;
    _inputDevice->addAudioIOSubscriber_forInput(shared_from_this(), true);
    const bool starts = _inputDevice->start();
    const OSStatus startStatus = _inputDevice->lastStatus();
    if ((_eventMask & startedBit) != 0)
        notifyCallback(QMXAudioRecorderStartedRecordingNotification);
    if (!_audioFile->isOpen())
        fail(_audioFile->lastStatus(), aboutFile("could not be opened or made", _audioFile->lastStatus()));
    if (!_inputDevice->isRunning())
        giveDeviceUp(startStatus != noErr ? startStatus : kAudioHardwareNotRunningError, "could not be started");
    return starts;
}

/// Opens the file, and creates it if that was not done yet. False for a file whose format cannot be written, which is
/// closed again; a file that cannot be opened does not keep the device from running, as intended.
bool QMXAudioRecorder::Implementation::openFile()
{
    const auto given = _audioFile;
    if (!_audioFile)
        makeFile();
    if (!_audioFile)
        return refuse(kAudio_MemFullError, audioFilePath_.value_or("") + " could not be made: not enough memory");
    const bool wasOpen = _audioFile->isOpen();
    if (wasOpen && recorderState == paused)
        return true;                         // the conversion goes on where it stopped
    const std::scoped_lock lock(setupLock_); // a buffer of an earlier attempt may be waiting to be written
    if (!wasOpen)
        openInByteOrderOfType(*_audioFile);
    if (converterSetup() || !_audioFile->isOpen())
        return true;
    const OSStatus status = _audioConverter && !convertedBuffer ? memFullErr : kAudioFileUnsupportedDataFormatError;
    refuse(status, aboutFile("could not be recorded into", status));
    if (!wasOpen)
        (void)_audioFile->close(); // the first failure counts
    _audioFile = given;
    return false;
}

void QMXAudioRecorder::Implementation::makeFile()
{
    if (!audioFilePath_) {
        audioFilePath_ = temporaryFilePath();
        auto& files = qmx::FileManager::defaultManager();
        if (files.fileExistsAtPath(*audioFilePath_))
            (void)files.removeFileAtPath_handler(*audioFilePath_, nullptr);
    }
    auto file = QMXAudioFile::initWithPath_accessMode(audioFilePath_, QMXAudioFileAccessMode::readWrite);
    if (!file)
        return;
    if (_destinationFormat)
        (void)file->setFileStreamFormat(*_destinationFormat); // opening reports a failure
    file->setUseCache(useAudioFileCache);
    const std::scoped_lock lock(setupLock_);
    _audioFile = std::move(file);
}

bool QMXAudioRecorder::Implementation::refuse(OSStatus status, const std::string& sentence)
{
    failure_.set(status, sentence);
    return false;
}

/// Keeps the reason and reports the first failure. Main and saving thread.
void QMXAudioRecorder::Implementation::fail(OSStatus status, const std::string& sentence)
{
    if (_isFlushing)
        return; // the closed file refuses, as intended
    failure_.set(status, sentence);
    if (!failureIsTold_.exchange(true))
        failed_->send();
}

/// Unsubscribes from a device that brings no sound, so that it no longer keeps the recorder alive.
void QMXAudioRecorder::Implementation::giveDeviceUp(OSStatus status, const std::string& reason)
{
    _inputDevice->removeAudioIOSubscriber_forInput(*this, true);
    fail(status, aboutDevice(reason + ": " + qmx::fileFailureReason(status)));
}

std::string QMXAudioRecorder::Implementation::aboutFile(const std::string& failure, OSStatus status) const
{
    return _audioFile->path().value_or("") + " " + failure + ": " + qmx::fileFailureReason(status);
}

std::string QMXAudioRecorder::Implementation::aboutDevice(const std::string& failure) const
{
    return _inputDevice->name().value_or("The input") + " " + failure;
}

bool QMXAudioRecorder::Implementation::recordForDuration(double seconds)
{
    invalidateTimer();
    recordingTimer = qmx::Timer::scheduledTimer(seconds, false, [owner = weak_from_this()](qmx::Timer& /*timer*/) {
        if (const auto self = owner.lock())
            static_cast<Implementation&>(*self).timerStop();
    });
    return recordingTimer->isValid() || refuse(kAudio_ParamError, "a recording cannot have that duration");
}

void QMXAudioRecorder::Implementation::timerStop()
{
    stop();
    recordingTimer.reset();
}

void QMXAudioRecorder::Implementation::invalidateTimer()
{
    if (recordingTimer)
        recordingTimer->invalidate();
    recordingTimer.reset();
}

bool QMXAudioRecorder::Implementation::pause()
{
    if (recorderState != recording)
        return false;
    invalidateTimer();
    const bool stopped = _inputDevice->stop();
    _inputDevice->removeAudioIOSubscriber_forInput(*this, true);
    recorderState = paused;
    if (stopped && (_eventMask & pausedBit) != 0)
        notifyCallback(QMXAudioRecorderPausedRecordingNotification);
    return true;
}

bool QMXAudioRecorder::Implementation::stop()
{
    if (!hasBegun())
        return false;
    const auto self = weak_from_this().lock(); // the device may be the last owner; none in the destructor
    invalidateTimer();
    const bool stopped = _inputDevice->stop(); // after a pause once more, as intended
    _inputDevice->removeAudioIOSubscriber_forInput(*this, true);
    flush(); // intended: does nothing before the state is stopped
    saveRest();
    if (!_audioFile->close())
        fail(_audioFile->lastStatus(), aboutFile("could not be closed", _audioFile->lastStatus()));
    recorderState = ended;
    if (stopped && self && (_eventMask & stoppedBit) != 0)
        notifyCallback(QMXAudioRecorderStoppedRecordingNotification);
    return true;
}

bool QMXAudioRecorder::Implementation::flush()
{
    if (recorderState != ended || _isFlushing.exchange(true))
        return false; // the lock that the first flush took is never released, as intended
    if (rawByteBuffer.filled() > 0)
        switchBuffers();
    waitUntilSaved();
    return true;
}

UInt64 QMXAudioRecorder::Implementation::lengthInMilliSeconds() const
{
    const Float64 rate = sampleRate();
    return rate > 0 ? static_cast<UInt64>(static_cast<Float64>(recordedLengthInFrames) / rate * 1000.0) : 0;
}

std::vector<QMXAudioRecordingLoss> QMXAudioRecorder::Implementation::lostFramePositions() const
{
    return losses_.entries(fileFramesPerFrame_);
}

UInt32 QMXAudioRecorder::inputDeviceID() const
{
    return inputDevice()->deviceID();
}

std::optional<std::string> QMXAudioRecorder::audioFilePath() const
{
    return audioFile() ? audioFile()->path() : std::nullopt;
}

std::shared_ptr<QMXAudioStreamBasicDescription> QMXAudioRecorder::fileStreamFormat() const
{
    return audioFile() ? audioFile()->fileStreamFormat() : nullptr;
}

Float64 QMXAudioRecorder::sampleRate() const
{
    return audioFile() ? audioFile()->sampleRate() : 0;
}

UInt32 QMXAudioRecorder::formatID() const
{
    return audioFile() ? audioFile()->formatID() : 0;
}

std::optional<std::string> QMXAudioRecorder::formatIDName() const
{
    return audioFile() ? audioFile()->formatIDName() : std::nullopt;
}

UInt32 QMXAudioRecorder::formatFlags() const
{
    return audioFile() ? audioFile()->formatFlags() : 0;
}

UInt32 QMXAudioRecorder::bytesPerPacket() const
{
    return audioFile() ? audioFile()->bytesPerPacket() : 0;
}

UInt32 QMXAudioRecorder::framesPerPacket() const
{
    return audioFile() ? audioFile()->framesPerPacket() : 0;
}

UInt32 QMXAudioRecorder::bytesPerFrame() const
{
    return audioFile() ? audioFile()->bytesPerFrame() : 0;
}

UInt32 QMXAudioRecorder::channelsPerFrame() const
{
    return audioFile() ? audioFile()->channelsPerFrame() : 0;
}

UInt32 QMXAudioRecorder::bitsPerChannel() const
{
    return audioFile() ? audioFile()->bitsPerChannel() : 0;
}

bool QMXAudioRecorder::moveToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler)
{
    return audioFile() && audioFile()->moveToPath_handler(newPath, handler);
}

bool QMXAudioRecorder::copyToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler)
{
    return audioFile() && audioFile()->copyToPath_handler(newPath, handler);
}

std::string QMXAudioRecorder::dumpDebugInfo() const
{
    std::string text = qmx::format("\n\nDebug information <QMXAudioRecorder: 0x%X>:\n", static_cast<const void*>(this));
    text += qmx::format("\nAudio File Path: %@\n", audioFilePath());
    text += qmx::format("\n         inputDeviceID: 0x%X\n", inputDeviceID());
    text += qmx::format("\n        lengthInFrames: %u", lengthInFrames());
    text += qmx::format("\n         lengthInBytes: %qu", lengthInBytes());
    text += qmx::format("\n  lengthInMilliSeconds: %qu\n", lengthInMilliSeconds());
    text += qmx::format("\n            sampleRate: %f", sampleRate());
    text += qmx::format("\n              formatID: 0x%X", formatID());
    text += qmx::format("\n          formatIDName: %@", formatIDName());
    text += qmx::format("\n           formatFlags: 0x%X", formatFlags());
    text += qmx::format("\n        bytesPerPacket: %u", bytesPerPacket());
    text += qmx::format("\n       framesPerPacket: %u", framesPerPacket());
    text += qmx::format("\n         bytesPerFrame: %u", bytesPerFrame());
    text += qmx::format("\n      channelsPerFrame: %u", channelsPerFrame());
    text += qmx::format("\n        bitsPerChannel: %u", bitsPerChannel());
    text += qmx::format("\n\n%@", audioFile() ? std::optional(audioFile()->dumpDebugInfo()) : std::nullopt);
    return text;
}
