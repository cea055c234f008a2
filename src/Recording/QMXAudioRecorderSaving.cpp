// SPDX-License-Identifier: MIT
// The path of the sound: from the I/O thread into the buffers, from there through the saving thread into the file.
#include "AudioToolbox/AudioConverter.h"
#include "FileRelated/QMXAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/Memory.h"
#include "Processing/QMXAudioConverter.h"
#include "Recording/QMXAudioRecorder.h"
#include "Recording/RecorderImplementation.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

using namespace recorder;
using Reason = QMXAudioRecordingLoss::Reason;

namespace
{

constexpr UInt32 rawBufferSize = 393216; // bytes: 384 KiB
constexpr double savingPriorityLowering = 0.1;

} // namespace

// Set-up; the set-up lock is held

/// Whether the device's samples can be written now.
bool QMXAudioRecorder::Implementation::converterSetup()
{
    const auto target = writtenFormat();
    if (!_sourceFormat || !target)
        return false;
    _audioConverter = QMXAudioConverter::initWithSourceFormat_destinationFormat(_sourceFormat, target);
    const Float64 ratio = target->sampleRate() / _sourceFormat->sampleRate();
    fileFramesPerFrame_ = std::isfinite(ratio) && ratio > 0 ? ratio : 1;
    setupRawBuffers();
    const UInt32 outputSize =
        _audioConverter ? _audioConverter->calculateOutputBufferSize(rawByteBufferSizeInBytes) : 0;
    if (outputSize != convertedBufferSizeInBytes) {
        convertedBuffer.reset(new (std::nothrow) Byte[outputSize]);
        convertedBufferSizeInBytes = convertedBuffer ? outputSize : 0;
    }
    return _audioConverter && convertedBuffer && target->bytesPerFrame() > 0; // packets cannot be written by bytes
}

/// The format of the open file; before that, the one that the file is to be created with.
std::shared_ptr<QMXAudioStreamBasicDescription> QMXAudioRecorder::Implementation::writtenFormat() const
{
    return _audioFile && _audioFile->isOpen() ? _audioFile->fileStreamFormat() : _destinationFormat;
}

void QMXAudioRecorder::Implementation::setupRawBuffers()
{
    if (rawByteBufferSizeInBytes == 0) {
        rawByteBufferSizeInBytes = rawBufferSize;
        rawByteBuffer.allocate(rawByteBufferSizeInBytes, 1 + spareRawBuffers_);
    }
    const UInt32 frameBytes = std::clamp(_sourceFormat->bytesPerFrame(), 1U, rawBufferSize);
    sourceFrameBytes_ = frameBytes;
    usedRawBytes_ = rawBufferSize / frameBytes * frameBytes;
}

// The I/O thread

OSStatus
QMXAudioRecorder::Implementation::audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
    QMXAudioDevice& /*device*/, const AudioTimeStamp* /*inNow*/, const AudioBufferList* inInputData,
    const AudioTimeStamp* inInputTime, AudioBufferList* /*outOutputData*/, const AudioTimeStamp* /*inOutputTime*/,
    QMXAudioDevice& /*inClientData*/)
{
    if (!inInputData || recorderState != recording || inInputData->mNumberBuffers == 0)
        return noErr;
    const AudioBuffer& buffer = inInputData->mBuffers[0];
    // frames of 4-byte samples, whatever the device's format, as intended
    const UInt64 frameBytes = UInt64{buffer.mNumberChannels} * sizeof(Float32);
    noteTimeGap(inInputTime, frameBytes ? buffer.mDataByteSize / frameBytes : 0);
    UInt32 length = buffer.mDataByteSize;
    if (insertIntoBuffer_length(buffer.mData, &length) && frameBytes != 0)
        recordedLengthInFrames += length / frameBytes;
    if ((_eventMask & framesBit) != 0)
        notifyCallback(QMXAudioRecorderRecordedFrameNotification);
    return noErr;
}

void QMXAudioRecorder::Implementation::noteTimeGap(const AudioTimeStamp* inputTime, UInt64 frames)
{
    if (!inputTime || (inputTime->mFlags & kAudioTimeStampSampleTimeValid) == 0)
        return;
    const Float64 missing = nextSampleTime_ ? std::round(inputTime->mSampleTime - *nextSampleTime_) : 0;
    if (missing != 0)
        losses_.add(Reason::timeGap, recordedLengthInFrames, static_cast<UInt64>(std::max(missing, 0.0)));
    nextSampleTime_ = inputTime->mSampleTime + static_cast<Float64>(frames);
}

bool QMXAudioRecorder::Implementation::insertIntoBuffer_length(const void* bytes, UInt32* length)
{
    const UInt32 size = usedRawBytes_;
    if (threadShouldExit || !bytes || size == 0 || !rawByteBuffer.isAllocated()) {
        *length = 0;
        return false;
    }
    rawByteBufferLock.lockWhenCondition(1);
    const auto* next = static_cast<const Byte*>(bytes);
    for (UInt32 left = *length; left > 0;) {
        const UInt32 count = std::min(left, size - std::min(size, rawByteBuffer.filled()));
        rawByteBuffer.append(next, count);
        next += count;
        left -= count;
        if (rawByteBuffer.filled() >= size)
            switchBuffers();
    }
    rawByteBufferLock.unlockWithCondition(1);
    return true;
}

// Never waits for the saving thread: a full buffer not yet being saved is overwritten.
void QMXAudioRecorder::Implementation::switchBuffers()
{
    if (const auto overtaken = rawByteBuffer.handOver())
        noteLoss(Reason::overrun, overtaken->firstByte, overtaken->byteCount);
    threadRunLock.unlockWithCondition(hasWork); // a signal, without holding the lock
}

void QMXAudioRecorder::Implementation::noteLoss(Reason reason, UInt64 firstByte, UInt32 byteCount)
{
    const UInt32 frameBytes = sourceFrameBytes_;
    losses_.add(reason, firstByte / frameBytes, byteCount / frameBytes);
}

void QMXAudioRecorder::Implementation::notifyCallback(std::string_view notificationName)
{
    if (notificationName != QMXAudioRecorderRecordedFrameNotification) {
        qmx::NotificationCenter::defaultCenter().postNotificationOnMainThread(std::string(notificationName),
                                                                              shared_from_this());
        return;
    }
    if (notificationCount % std::max(notificationInterval.load(), 1U) == 0) {
        recordedFrame_->send();
        notificationCount = 0;
    }
    ++notificationCount;
}

void QMXAudioRecorder::threadCallback(const std::string& notificationName)
{
    qmx::NotificationCenter::defaultCenter().postNotification(notificationName, shared_from_this());
}

// The saving thread

void QMXAudioRecorder::Implementation::saveBufferRunLoop()
{
    threadIsRunning = true;
    (void)qmx::Thread::setThreadPriority(qmx::Thread::threadPriority() - savingPriorityLowering);
    while (!threadShouldExit) {
        {
            const qmx::Worker::Wait wait(*savingWorker_);
            threadRunLock.lockWhenCondition(hasWork);
        }
        convertBufferAndSaveToFile();
        threadRunLock.unlockWithCondition(hasNone);
    }
    threadIsRunning = false;
}

void QMXAudioRecorder::Implementation::convertBufferAndSaveToFile()
{
    while (!threadShouldExit) {
        const std::scoped_lock lock(setupLock_);
        const RawBuffers::Block* const block = rawByteBuffer.take();
        if (!block)
            return;
        UInt32 saved = block->byteCount;
        const auto failure = saveBytes(block->bytes.get(), &saved);
        if (failure && !_isFlushing) // the bytes that a flush offers were noted as lost at the stop
            noteLoss(*failure, block->firstByte + saved, block->byteCount - saved);
    }
}

/// The reason of a failure; `*byteCount` then becomes the bytes that are in the file.
std::optional<Reason> QMXAudioRecorder::Implementation::saveBytes(const Byte* bytes, UInt32* byteCount)
{
    const UInt32 held = std::exchange(*byteCount, 0);
    const auto length = convert(bytes, held);
    if (!length)
        return Reason::conversion;
    const UInt32 kept = writeConverted(*length);
    if (kept == *length)
        return std::nullopt;
    *byteCount = static_cast<UInt32>(std::min<Float64>(held, std::floor(deviceFramesOf(kept)) * sourceFrameBytes_));
    return Reason::write;
}

/// Returns the bytes of the file's format in the converted buffer; none on failure.
std::optional<UInt32> QMXAudioRecorder::Implementation::convert(const Byte* bytes, UInt32 byteCount)
{
    OSStatus status = kAudioConverterErr_FormatNotSupported;
    if (_audioConverter && convertedBuffer) {
        UInt32 length = convertedRoomFor(byteCount);
        status = _audioConverter->convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(
            bytes, byteCount, convertedBuffer.get(), &length);
        if (status == noErr)
            return length;
    }
    const auto told = [&] { fail(status, aboutDevice("has samples that cannot be converted to the file's format")); };
    if (!qmx::withinMemory(told))
        fail(status, {}); // without a sentence
    return std::nullopt;
}

/// Writes the first bytes of the converted buffer. Returns how many of them are in the file.
UInt32 QMXAudioRecorder::Implementation::writeConverted(UInt32 byteCount)
{
    UInt32 written = byteCount;
    if (!_audioFile)
        return 0;
    if (byteCount == 0 || _audioFile->write_length(convertedBuffer.get(), &written))
        return byteCount;
    const OSStatus known = _audioFile->lastStatus(), status = known != noErr ? known : fnOpnErr;
    if (!qmx::withinMemory([&] { fail(status, aboutFile("could not be written", status)); }))
        fail(status, {}); // without a sentence
    // When the disk fills up, only the start of the block is written and not counted: it is written again by itself.
    const UInt32 frameBytes = std::max(_audioFile->bytesPerFrame(), 1U);
    written = written / frameBytes * frameBytes;
    return written > 0 && _audioFile->write_length(convertedBuffer.get(), &written) ? written : 0;
}

Float64 QMXAudioRecorder::Implementation::deviceFramesOf(UInt32 fileBytes) const
{
    const UInt32 fileFrames = fileBytes / (_audioFile ? std::max(_audioFile->bytesPerFrame(), 1U) : 1);
    return fileFrames / fileFramesPerFrame_;
}

UInt32 QMXAudioRecorder::Implementation::convertedRoomFor(UInt32 byteCount) const
{
    if (!_isFlushing)
        return convertedBufferSizeInBytes;
    if (byteCount == rawByteBufferSizeInBytes)
        return 0; // intended: a flush does not save a buffer that is exactly full
    return std::min(_audioConverter->calculateOutputBufferSize(byteCount), convertedBufferSizeInBytes);
}

// The end of a recording, after the last cycle

void QMXAudioRecorder::Implementation::saveRest()
{
    if (writesPartialBufferAtStop_ && rawByteBuffer.filled() > 0) {
        waitUntilSaved(); // so that nothing is overwritten
        switchBuffers();
    }
    waitUntilSaved();
    const std::scoped_lock lock(setupLock_);
    const bool writes = writesPartialBufferAtStop_;
    noteLossAtEnd(writes ? Reason::write : Reason::partialBuffer,
                  rawByteBuffer.filled() / sourceFrameBytes_ + endConversion(writes));
}

void QMXAudioRecorder::Implementation::noteLossAtEnd(Reason reason, UInt64 frames)
{
    if (frames > 0)
        losses_.add(reason, recordedLengthInFrames - std::min<UInt64>(frames, recordedLengthInFrames), frames);
}

/// Drains the rate conversion, and writes the result or not. Returns how many of the device's frames are lost by that.
/// The set-up lock is held.
UInt64 QMXAudioRecorder::Implementation::endConversion(bool writes)
{
    if (fileFramesPerFrame_ == 1)
        return 0;
    const UInt32 held = convert(convertedBuffer.get(), 0).value_or(0);
    const UInt32 kept = writes ? writeConverted(held) : 0;
    return static_cast<UInt64>(std::llround(deviceFramesOf(held - kept)));
}

void QMXAudioRecorder::Implementation::waitUntilSaved()
{
    threadRunLock.lockWhenCondition(hasNone);
    threadRunLock.unlockWithCondition(hasNone);
}
