// SPDX-License-Identifier: MIT
// The two-buffer cache of an audio file: write-behind and read-ahead.
//
// Ownership of a buffer passes only through its lock. While writing, condition 1 means free for the caller, 0 full and
// the write thread's; while reading, 0 means empty and the read thread's, 1 full and the caller's. The run locks wake
// the threads (condition 0: work to do). A thread that fails releases its buffer all the same and leaves the status in
// cacheFailure_, so that nobody ever waits for a disk that has failed; the caller's next call reports it and starts
// again.
#include "FileRelated/QMXAudioFileImpl.h"

#include "Foundation/Memory.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>

namespace
{

constexpr double writePriorityLowering = 0.25, readPriorityRaising = 0.05;
constexpr std::chrono::milliseconds longestFlush{300};

constexpr UInt32 otherBuffer(UInt32 buffer)
{
    return buffer == 0 ? 1 : 0;
}

} // namespace

void QMXAudioFileImpl::resetCache(int bufferCondition)
{
    threadShouldExit = false;
    rawByteBufferOffsetInFile = 0;
    rawByteBufferOffsetInBytes = 0;
    rawByteBufferStartingOffset = rawByteBufferEndingOffset = 0;
    currentBuffer = 1;
    bytesInRawByteBuffer = {};
    handOversMade_ = handOversSaved_ = 0;
    readAhead_ = {};
    fillRequested_ = false;
    cacheFailure_ = noErr;
    lossOfBytes_ = noErr;
    for (auto& lock : rawByteBufferLock)
        lock.unlockWithCondition(bufferCondition);
    writeThreadRunLock.unlockWithCondition(1);
    readThreadRunLock.unlockWithCondition(1);
}

void QMXAudioFileImpl::startThread(CacheThread& cacheThread, std::atomic<bool>& isRunning, const char* name,
                                   void (QMXAudioFileImpl::*body)())
{
    if (!hasBuffers() || isRunning)
        return;
    isRunning = true;
    (void)qmx::withinMemory([&] { // else there is no thread
        cacheThread.worker.emplace([&lock = cacheThread.runLock] { return lock.condition() == 0; });
        cacheThread.thread = qmx::Thread(name, [this, &isRunning, body] {
            (this->*body)();
            isRunning = false;
        });
    });
    if (!cacheThread.thread.isJoinable()) { // reads and writes then bypass the cache
        cacheThread.worker.reset();
        isRunning = false;
    }
}

void QMXAudioFileImpl::endThreads()
{
    threadShouldExit = true;
    writeThreadRunLock.unlockWithCondition(0);
    readThreadRunLock.unlockWithCondition(0);
    for (CacheThread* const cacheThread : {&writeThread_, &readThread_}) {
        cacheThread->thread.join();
        cacheThread->worker.reset();
    }
    writeThreadIsRunning = readThreadIsRunning = false; // in a forked child the threads are gone and did not clear them
}

void QMXAudioFileImpl::setUseCache(bool uses)
{
    if (!uses)
        drainWrites();
    _useCache = uses;
    if (fileIsOpen)
        startCache();
}

// Buffers and a thread, once there is something for them to do.
void QMXAudioFileImpl::startCache()
{
    if (!_useCache)
        return;
    for (auto& buffer : rawByteBuffer)
        if (!buffer)
            buffer.reset(new (std::nothrow) Byte[rawByteBufferSizeInBytes]);
    if (fileIsOpenForReading)
        startThread(readThread_, readThreadIsRunning, "QMX file read", &QMXAudioFileImpl::fillBufferRunLoop);
    else
        startThread(writeThread_, writeThreadIsRunning, "QMX file write", &QMXAudioFileImpl::saveBufferRunLoop);
}

// Writing: the caller's side

OSStatus QMXAudioFileImpl::insertBytesIntoBuffer_length_offset(const Byte* bytes, UInt32* length, SInt64 offset)
{
    const UInt32 wanted = *length;
    *length = 0;
    if (threadShouldExit)
        return fnOpnErr;
    for (UInt32 inserted = 0; inserted < wanted;) {
        inserted += insertPart(bytes + inserted, wanted - inserted, offset + inserted);
        if (const OSStatus failure = cacheFailure_.exchange(noErr); failure != noErr) {
            endSpan();
            return failure;
        }
    }
    *length = wanted;
    return noErr;
}

// Copies as much as the current buffer takes; a buffer that is full goes to the thread.
UInt32 QMXAudioFileImpl::insertPart(const Byte* bytes, UInt32 length, SInt64 offset)
{
    const bool continues =
        offset < rawByteBufferEndingOffset && offset == rawByteBufferStartingOffset + rawByteBufferOffsetInBytes;
    if (!continues)
        startSpanAt(offset);
    rawByteBufferLock[currentBuffer].lockWhenCondition(1);
    const UInt32 count = std::min(length, rawByteBufferSizeInBytes - rawByteBufferOffsetInBytes);
    std::memcpy(rawByteBuffer[currentBuffer].get() + rawByteBufferOffsetInBytes, bytes, count);
    rawByteBufferOffsetInBytes += count;
    bytesInRawByteBuffer[currentBuffer] = rawByteBufferOffsetInBytes;
    if (rawByteBufferOffsetInBytes == rawByteBufferSizeInBytes)
        handOverCurrentBuffer();
    else
        rawByteBufferLock[currentBuffer].unlockWithCondition(1);
    return count;
}

// What the current buffer holds goes to the thread; the span is empty at the next offset.
void QMXAudioFileImpl::endSpan()
{
    if (rawByteBufferOffsetInBytes > 0)
        handOverCurrentBuffer();
    rawByteBufferEndingOffset = rawByteBufferStartingOffset;
}

void QMXAudioFileImpl::startSpanAt(SInt64 offset)
{
    endSpan();
    rawByteBufferStartingOffset = offset;
    rawByteBufferEndingOffset = offset + rawByteBufferSizeInBytes;
}

// At most two buffers are on their way: this one, and the other if the thread has not saved it yet.
void QMXAudioFileImpl::handOverCurrentBuffer()
{
    const UInt64 made = handOversMade_.load(std::memory_order_relaxed);
    handOvers_[made % handOvers_.size()] = {currentBuffer, rawByteBufferOffsetInBytes, rawByteBufferStartingOffset};
    rawByteBufferLock[currentBuffer].unlockWithCondition(0);
    handOversMade_.store(made + 1, std::memory_order_release);
    currentBuffer = otherBuffer(currentBuffer);
    rawByteBufferStartingOffset += rawByteBufferOffsetInBytes;
    rawByteBufferEndingOffset = rawByteBufferStartingOffset + rawByteBufferSizeInBytes;
    rawByteBufferOffsetInBytes = 0;
    writeThreadRunLock.unlockWithCondition(0);
}

bool QMXAudioFileImpl::flush()
{
    const qmx::LastFailure::Operation operation(failure_);
    if (!fileIsOpen || fileAccessMode == QMXAudioFileAccessMode::read || !writesBehind())
        return true;
    _isFlushing = true;
    endSpan();
    if (writeThreadRunLock.lockWhenCondition(1, longestFlush))
        writeThreadRunLock.unlock();
    _isFlushing = false;
    succeeded(lossOfBytes_, "could not be written");
    return true;
}

// Hands over what is left and waits, however long, until both buffers are free again.
void QMXAudioFileImpl::drainWrites()
{
    if (!writesBehind())
        return;
    endSpan();
    for (auto& lock : rawByteBufferLock) {
        lock.lockWhenCondition(1);
        lock.unlock();
    }
}

// Writing: the thread's side

void QMXAudioFileImpl::saveBufferRunLoop()
{
    (void)qmx::Thread::setThreadPriority(qmx::Thread::threadPriority() - writePriorityLowering); // or unchanged
    while (!threadShouldExit) {
        {
            const qmx::Worker::Wait wait(*writeThread_.worker);
            writeThreadRunLock.lockWhenCondition(0);
        }
        while (!threadShouldExit && handOversSaved_ < handOversMade_.load(std::memory_order_acquire))
            saveRawByteBuffer();
        writeThreadRunLock.unlockWithCondition(1);
    }
}

void QMXAudioFileImpl::saveRawByteBuffer()
{
    const Span span = handOvers_[handOversSaved_ % handOvers_.size()];
    ++handOversSaved_;
    auto& lock = rawByteBufferLock[span.buffer];
    lock.lockWhenCondition(0);
    UInt32 written = span.byteCount;
    const OSStatus status = AudioFileWriteBytes(audioFileID_, _useInternalCache, span.fileOffset, &written,
                                                rawByteBuffer[span.buffer].get());
    rawByteBufferOffsetInFile = span.fileOffset + written;
    bytesInRawByteBuffer[span.buffer] = 0;
    if (status != noErr) {
        printOSStatusCode(status);
        cacheFailure_ = status;
        lossOfBytes_ = status;
    }
    lock.unlockWithCondition(1);
}

// Reading: the caller's side

OSStatus QMXAudioFileImpl::consumeRawBytes_length_offset(Byte* bytes, UInt32* length, SInt64 offset)
{
    const UInt32 wanted = *length;
    *length = 0;
    if (threadShouldExit || offset < 0)
        return threadShouldExit ? fnOpnErr : kAudio_ParamError;
    if (offset >= static_cast<SInt64>(lengthInBytes()))
        return eofErr;
    UInt32 served = 0;
    while (served < wanted) {
        const SInt64 position = offset + served;
        const OSStatus status = spanHolds(position) ? noErr : turnToBufferWith(position);
        if (status == eofErr)
            break;
        if (status != noErr)
            return status;
        const auto start = static_cast<UInt32>(position - rawByteBufferStartingOffset);
        const UInt32 count = std::min(wanted - served, bytesInRawByteBuffer[currentBuffer] - start);
        std::memcpy(bytes + served, rawByteBuffer[currentBuffer].get() + start, count);
        served += count;
    }
    *length = served;
    return served > 0 || wanted == 0 ? noErr : eofErr;
}

bool QMXAudioFileImpl::spanHolds(SInt64 offset) const
{
    return offset >= rawByteBufferStartingOffset &&
           offset - rawByteBufferStartingOffset < bytesInRawByteBuffer[currentBuffer];
}

// Makes the other buffer the current one, filled with the bytes at `offset`, and has the thread fill the one before
// with what follows. eofErr at the end of the data.
OSStatus QMXAudioFileImpl::turnToBufferWith(SInt64 offset)
{
    finishFill();
    const bool isAhead = offset >= readAhead_.fileOffset && offset - readAhead_.fileOffset < readAhead_.byteCount;
    if (!isAhead) {
        requestFill(offset);
        finishFill();
    }
    if (const OSStatus failure = cacheFailure_.exchange(noErr); failure != noErr) {
        emptySpan();
        return failure;
    }
    if (readAhead_.byteCount == 0)
        return eofErr;
    currentBuffer = readAhead_.buffer;
    rawByteBufferStartingOffset = readAhead_.fileOffset;
    rawByteBufferEndingOffset = rawByteBufferStartingOffset + rawByteBufferSizeInBytes;
    const bool mayFollowMore = readAhead_.byteCount == rawByteBufferSizeInBytes;
    readAhead_ = {};
    if (mayFollowMore)
        requestFill(rawByteBufferEndingOffset);
    return noErr;
}

void QMXAudioFileImpl::requestFill(SInt64 offset)
{
    readAhead_ = {otherBuffer(currentBuffer), 0, offset};
    fillRequested_ = true;
    rawByteBufferLock[readAhead_.buffer].unlockWithCondition(0);
    readThreadRunLock.unlockWithCondition(0);
}

void QMXAudioFileImpl::finishFill()
{
    if (!fillRequested_)
        return;
    auto& lock = rawByteBufferLock[otherBuffer(currentBuffer)];
    lock.lockWhenCondition(1);
    lock.unlock();
    fillRequested_ = false;
}

void QMXAudioFileImpl::emptySpan()
{
    finishFill();
    readAhead_ = {};
    bytesInRawByteBuffer = {};
    rawByteBufferStartingOffset = rawByteBufferEndingOffset = 0;
}

// Reading: the thread's side

void QMXAudioFileImpl::fillBufferRunLoop()
{
    (void)qmx::Thread::setThreadPriority(qmx::Thread::threadPriority() + readPriorityRaising); // or unchanged
    while (!threadShouldExit) {
        {
            const qmx::Worker::Wait wait(*readThread_.worker);
            readThreadRunLock.lockWhenCondition(0);
        }
        fillRawByteBuffer();
        readThreadRunLock.unlockWithCondition(1);
    }
}

void QMXAudioFileImpl::fillRawByteBuffer()
{
    if (threadShouldExit)
        return;
    const UInt32 buffer = readAhead_.buffer;
    auto& lock = rawByteBufferLock[buffer];
    lock.lockWhenCondition(0);
    UInt32 count = rawByteBufferSizeInBytes;
    const OSStatus status =
        AudioFileReadBytes(audioFileID_, _useInternalCache, readAhead_.fileOffset, &count, rawByteBuffer[buffer].get());
    if (status != noErr && status != eofErr) {
        printOSStatusCode(status);
        cacheFailure_ = status;
        count = 0;
    }
    rawByteBufferOffsetInFile = readAhead_.fileOffset + count;
    bytesInRawByteBuffer[buffer] = readAhead_.byteCount = count;
    lock.unlockWithCondition(1);
}
