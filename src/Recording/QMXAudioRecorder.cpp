// SPDX-License-Identifier: MIT
// Life, settings and control, and what the file answers. The way of the sound is in QMXAudioRecorderSaving.cpp.
#include "Recording/QMXAudioRecorder.h"

#include "Devices/QMXAudioDevice.h"
#include "FileRelated/QMXAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/Format.h"
#include "Foundation/HeapBlock.h"
#include "Foundation/Log.h"
#include "Foundation/NotificationCenter.h"
#include "Processing/QMXAudioConverter.h"
#include "Recording/RawBuffers.h"
#include "Recording/RecorderState.h"
#include "Recording/RecordingLosses.h"

#include <utility>

const char* const QMXAudioRecorderStartedRecordingNotification = "QMXAudioRecorderStartedRecordingNotification";
const char* const QMXAudioRecorderStoppedRecordingNotification = "QMXAudioRecorderStoppedRecordingNotification";
const char* const QMXAudioRecorderRecordedFrameNotification = "QMXAudioRecorderRecordedFrameNotification";
const char* const QMXAudioRecorderPausedRecordingNotification = "QMXAudioRecorderPausedRecordingNotification";

using namespace recorder;

namespace
{

constexpr UInt32 mostSpareBuffers = 1024;

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

} // namespace

QMXAudioRecorder::QMXAudioRecorder()
    : rawByteBuffer(std::make_unique<RawBuffers>()), losses_(std::make_unique<RecordingLosses>())
{
}

// The destructor waits for the saving thread, which nothing may do inside a callback.
void QMXAudioRecorder::destroy(QMXAudioRecorder* recorder)
{
    qmx::destroyOutsideCallbacks(recorder);
}

QMXAudioRecorder::~QMXAudioRecorder()
{
    stop();
    if (_audioFile)
        _audioFile->close();
    threadShouldExit = true;
    threadRunLock.unlockWithCondition(hasWork);
    savingThread_.join();
}

std::shared_ptr<QMXAudioRecorder> QMXAudioRecorder::initWithAudioDevice(const std::shared_ptr<QMXAudioDevice>& device)
{
    if (!device)
        return nullptr;
    std::shared_ptr<QMXAudioRecorder> recorder(new QMXAudioRecorder, destroy);
    return recorder->begin(device) ? recorder : nullptr;
}

bool QMXAudioRecorder::begin(const std::shared_ptr<QMXAudioDevice>& device)
{
    recordedFrame_.emplace(QMXAudioRecorderRecordedFrameNotification, weak_from_this(),
                           qmx::RealTimeNotification::Kind::frame,
                           [](const std::shared_ptr<qmx::Object>& sender, const std::string& name) {
                               static_cast<QMXAudioRecorder&>(*sender).threadCallback(name);
                           });
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

std::shared_ptr<QMXAudioRecorder>
QMXAudioRecorder::initWithAudioDevice_filePath(const std::shared_ptr<QMXAudioDevice>& device,
                                               const std::optional<std::string>& path)
{
    auto recorder = path ? initWithAudioDevice(device) : nullptr;
    if (recorder)
        recorder->setAudioFilePath(*path);
    return recorder;
}

std::shared_ptr<QMXAudioRecorder>
QMXAudioRecorder::initWithAudioDevice_audioFile(const std::shared_ptr<QMXAudioDevice>& device,
                                                const std::shared_ptr<QMXAudioFile>& file)
{
    auto recorder = initWithAudioDevice(device);
    if (!recorder || !file)
        return recorder;
    recorder->audioFilePath_ = recorder->audioFilePath(); // intended: asked before there is a file, so it stays empty
    recorder->_audioFile = file;
    file->close();
    file->changeAccessMode(QMXAudioFileAccessMode::readWrite); // intended: a closed file keeps its mode
    if (recorder->_destinationFormat)
        file->setFileStreamFormat(*recorder->_destinationFormat);
    file->setUseCache(recorder->useAudioFileCache);
    return recorder;
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

void QMXAudioRecorder::setDeviceStreamFormat(const std::shared_ptr<QMXAudioStreamBasicDescription>& format)
{
    if (!format)
        return;
    deviceChannels_ = inputChannelsOf(*_inputDevice);
    const std::scoped_lock lock(setupLock_);
    _sourceFormat = copyOf(*format);
    converterSetup();
}

bool QMXAudioRecorder::setFileStreamFormat(const QMXAudioStreamBasicDescription& format)
{
    const std::scoped_lock lock(setupLock_);
    _destinationFormat = copyOf(format);
    normalizeFileStreamFormat(*_destinationFormat);
    converterSetup();
    return true;
}

void QMXAudioRecorder::setInputDevice(const std::shared_ptr<QMXAudioDevice>& device)
{
    if (!device)
        return;
    stop();
    if (_inputDevice)
        _inputDevice->removeAudioIOSubscriber_forInput(*this, true);
    _inputDevice = device;
    const qmx::HeapBlock stereo(device->preferredChannelsForStereo(false));
    const auto* const channels = static_cast<const UInt32*>(stereo.get());
    leftChannel = channels ? channels[0] : 1;
    rightChannel = channels ? channels[1] : 0xFFFFFFFF;
    observeRateOf(device);
    setDeviceStreamFormat(device->actualStreamFormat_isInput(0, true));
    if (const auto physical = device->physicalStreamFormat_isInput(0, true))
        setFileStreamFormat(*physical);
}

void QMXAudioRecorder::observeRateOf(const std::shared_ptr<QMXAudioDevice>& device)
{
    deviceRate_ = device->nominalSampleRate(true);
    rateObserver_ = qmx::NotificationCenter::defaultCenter().observe(
        QMXAudioDeviceNominalSampleRateDidChangeNotification, device,
        [owner = weak_from_this()](const qmx::Notification& /*notification*/) {
            const auto self = owner.lock();
            const Float64 rate = self ? self->_inputDevice->nominalSampleRate(true) : 0;
            if (!self || rate == std::exchange(self->deviceRate_, rate))
                return;
            if (self->recorderState == recording || self->recorderState == paused)
                self->losses_->add(QMXAudioRecordingLoss::Reason::rateChange, self->recordedLengthInFrames, 0);
        });
}

bool QMXAudioRecorder::setSpareRawBuffers(UInt32 count)
{
    if (count > mostSpareBuffers || recorderState != ready)
        return false;
    const std::scoped_lock lock(setupLock_);
    if (rawByteBuffer->isAllocated() && !rawByteBuffer->allocate(rawByteBufferSizeInBytes, 1 + count)) {
        rawByteBuffer->allocate(rawByteBufferSizeInBytes, 1 + spareRawBuffers_);
        return false;
    }
    spareRawBuffers_ = count;
    return true;
}

bool QMXAudioRecorder::record()
{
    if ((recorderState != ready && recorderState != paused) || !rawByteBuffer->isAllocated())
        return false;
    if (inputChannelsOf(*_inputDevice) != deviceChannels_)
        return false; // what came would be taken for other channels
    if (!_audioFile)
        makeFile();
    if (!_audioFile->isOpen())
        _audioFile->open();
    if (recorderState == ready && _inputDevice->nominalSampleRate(true) != _sourceFormat->sampleRate())
        losses_->add(QMXAudioRecordingLoss::Reason::rateChange, 0, 0);
    nextSampleTime_.reset(); // the time between a pause and its end is no gap
    recorderState = recording;
    _inputDevice->addAudioIOSubscriber_forInput(shared_from_this(), true);
    const bool starts = _inputDevice->start();
    if ((_eventMask & startedBit) != 0)
        notifyCallback(QMXAudioRecorderStartedRecordingNotification);
    return starts;
}

void QMXAudioRecorder::makeFile()
{
    if (!audioFilePath_) {
        audioFilePath_ = temporaryFilePath();
        auto& files = qmx::FileManager::defaultManager();
        if (files.fileExistsAtPath(*audioFilePath_))
            files.removeFileAtPath_handler(*audioFilePath_, nullptr);
    }
    const std::scoped_lock lock(setupLock_);
    converterSetup();
    _audioFile = QMXAudioFile::initWithPath_accessMode(audioFilePath_, QMXAudioFileAccessMode::readWrite);
    if (!_audioFile)
        return;
    if (_destinationFormat)
        _audioFile->setFileStreamFormat(*_destinationFormat);
    _audioFile->setUseCache(useAudioFileCache);
}

bool QMXAudioRecorder::recordForDuration(double seconds)
{
    invalidateTimer();
    recordingTimer = qmx::Timer::scheduledTimer(seconds, false, [owner = weak_from_this()](qmx::Timer& /*timer*/) {
        if (const auto self = owner.lock())
            self->timerStop();
    });
    return recordingTimer->isValid();
}

void QMXAudioRecorder::timerStop()
{
    stop();
    recordingTimer.reset();
}

void QMXAudioRecorder::invalidateTimer()
{
    if (recordingTimer)
        recordingTimer->invalidate();
    recordingTimer.reset();
}

bool QMXAudioRecorder::pause()
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

bool QMXAudioRecorder::stop()
{
    if (recorderState != recording && recorderState != paused)
        return false;
    const auto self = weak_from_this().lock(); // the device may be the last owner; none in the destructor
    invalidateTimer();
    const bool stopped = _inputDevice->stop(); // after a pause once more, as intended
    _inputDevice->removeAudioIOSubscriber_forInput(*this, true);
    flush(); // intended: does nothing before the state is stopped
    saveRest();
    _audioFile->close();
    recorderState = ended;
    if (stopped && self && (_eventMask & stoppedBit) != 0)
        notifyCallback(QMXAudioRecorderStoppedRecordingNotification);
    return true;
}

bool QMXAudioRecorder::flush()
{
    if (recorderState != ended || _isFlushing.exchange(true))
        return false; // the lock that the first flush took is never given back, as intended
    if (rawByteBuffer->filled() > 0)
        switchBuffers();
    waitUntilSaved();
    return true;
}

bool QMXAudioRecorder::isRecording() const
{
    return recorderState == recording;
}

UInt64 QMXAudioRecorder::lengthInBytes() const
{
    return recordedLengthInFrames * bytesPerFrame();
}

UInt64 QMXAudioRecorder::lengthInMilliSeconds() const
{
    const Float64 rate = sampleRate();
    return rate > 0 ? static_cast<UInt64>(static_cast<Float64>(recordedLengthInFrames) / rate * 1000.0) : 0;
}

UInt64 QMXAudioRecorder::droppedFrames() const
{
    return losses_->droppedFrames();
}

UInt32 QMXAudioRecorder::overruns() const
{
    return losses_->overruns();
}

std::vector<QMXAudioRecordingLoss> QMXAudioRecorder::lostFramePositions() const
{
    return losses_->entries(fileFramesPerFrame_);
}

UInt32 QMXAudioRecorder::inputDeviceID() const
{
    return _inputDevice->deviceID();
}

std::optional<std::string> QMXAudioRecorder::audioFilePath() const
{
    return _audioFile ? _audioFile->path() : std::nullopt;
}

std::shared_ptr<QMXAudioStreamBasicDescription> QMXAudioRecorder::fileStreamFormat() const
{
    return _audioFile ? _audioFile->fileStreamFormat() : nullptr;
}

Float64 QMXAudioRecorder::sampleRate() const
{
    return _audioFile ? _audioFile->sampleRate() : 0;
}

UInt32 QMXAudioRecorder::formatID() const
{
    return _audioFile ? _audioFile->formatID() : 0;
}

std::optional<std::string> QMXAudioRecorder::formatIDName() const
{
    return _audioFile ? _audioFile->formatIDName() : std::nullopt;
}

UInt32 QMXAudioRecorder::formatFlags() const
{
    return _audioFile ? _audioFile->formatFlags() : 0;
}

UInt32 QMXAudioRecorder::bytesPerPacket() const
{
    return _audioFile ? _audioFile->bytesPerPacket() : 0;
}

UInt32 QMXAudioRecorder::framesPerPacket() const
{
    return _audioFile ? _audioFile->framesPerPacket() : 0;
}

UInt32 QMXAudioRecorder::bytesPerFrame() const
{
    return _audioFile ? _audioFile->bytesPerFrame() : 0;
}

UInt32 QMXAudioRecorder::channelsPerFrame() const
{
    return _audioFile ? _audioFile->channelsPerFrame() : 0;
}

UInt32 QMXAudioRecorder::bitsPerChannel() const
{
    return _audioFile ? _audioFile->bitsPerChannel() : 0;
}

bool QMXAudioRecorder::moveToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler)
{
    return _audioFile && _audioFile->moveToPath_handler(newPath, handler);
}

bool QMXAudioRecorder::copyToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler)
{
    return _audioFile && _audioFile->copyToPath_handler(newPath, handler);
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
    text += qmx::format("\n\n%@", _audioFile ? std::optional(_audioFile->dumpDebugInfo()) : std::nullopt);
    return text;
}
