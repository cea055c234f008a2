// SPDX-License-Identifier: MIT
// Reading the platform's file properties, and the names of properties and statuses.
#include "FileRelated/QMXAudioFile.h"

#include "Formats/CodeTexts.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Log.h"

namespace
{

constexpr qmx::CodeText propertyNames[] = {
    QMX_NAMED(kAudioFilePropertyFileFormat),           QMX_NAMED(kAudioFilePropertyDataFormat),
    QMX_NAMED(kAudioFilePropertyDataFormatName),       QMX_NAMED(kAudioFilePropertyIsOptimized),
    QMX_NAMED(kAudioFilePropertyMagicCookieData),      QMX_NAMED(kAudioFilePropertyAudioDataByteCount),
    QMX_NAMED(kAudioFilePropertyAudioDataPacketCount), QMX_NAMED(kAudioFilePropertyMaximumPacketSize),
};

constexpr qmx::CodeText statusNames[] = {
    QMX_NAMED(kAudioFileUnspecifiedError),           QMX_NAMED(kAudioFileUnsupportedFileTypeError),
    QMX_NAMED(kAudioFileUnsupportedDataFormatError), QMX_NAMED(kAudioFileUnsupportedPropertyError),
    QMX_NAMED(kAudioFileBadPropertySizeError),       QMX_NAMED(kAudioFilePermissionsError),
    QMX_NAMED(kAudioFileNotOptimizedError),          QMX_NAMED(kAudioFileFormatNameUnavailableError),
    QMX_NAMED(kAudioFileInvalidChunkError),          QMX_NAMED(kAudioFileDoesNotAllow64BitDataSizeError),
    QMX_NAMED(kAudioFileInvalidPacketOffsetError),   QMX_NAMED(kAudioFileInvalidFileError),
    QMX_NAMED(kAudioFileOperationNotSupportedError),
};

void logFailure(const char* text, AudioFilePropertyID property, OSStatus status)
{
    // a line for which there is no memory is dropped
    (void)qmx::withinMemory([&] { qmx::Log(text, QMXAudioFile::propertyName(property)); });
    QMXAudioFile::printOSStatusCode(status);
}

} // namespace

UInt32 QMXAudioFile::sizeOfPropertyData_propertyID(AudioFileID file, AudioFilePropertyID property)
{
    UInt32 size = 0;
    const OSStatus status = AudioFileGetPropertyInfo(file, property, &size, nullptr);
    if (status == noErr)
        return size;
    logFailure("ERROR READING AUDIO FILE PROPERTY SIZE FOR: %@", property, status);
    return 0;
}

qmx::HeapBlock QMXAudioFile::anyProperty_propertyID(AudioFileID file, AudioFilePropertyID property)
{
    UInt32 size = sizeOfPropertyData_propertyID(file, property);
    auto value = qmx::zeroedHeapBlock(size);
    if (!value)
        return nullptr;
    const OSStatus status = AudioFileGetProperty(file, property, &size, value.get());
    if (status == noErr)
        return value;
    logFailure("ERR READ AUDIO FILE PROP: %@", property, status);
    return nullptr;
}

std::string QMXAudioFile::propertyName(AudioFilePropertyID property)
{
    if (const char* name = findText(propertyNames, property))
        return name;
    return qmx::format("Unknown property: %-4.4s", qmx::fourCharString(property));
}

void QMXAudioFile::printOSStatusCode(OSStatus status)
{
    if (const char* name = findText(statusNames, static_cast<UInt32>(status)))
        qmx::Log("OS Status: %s", name);
    else
        qmx::Log("QMXAudioFile: OS Status: %-4.4s (%d)", qmx::fourCharString(static_cast<UInt32>(status)), status);
}
