// SPDX-License-Identifier: MIT
// Reading the platform's file properties, and the names of properties and statuses.
#include "FileRelated/QMXAudioFile.h"

#include "Foundation/Memory.h"
#include "Foundation/Text/Log.h"

#include <array>
#include <utility>

namespace
{

struct Name {
    UInt32 code;
    const char* text;
};

constexpr std::array propertyNames{
    Name{kAudioFilePropertyFileFormat, "kAudioFilePropertyFileFormat"},
    Name{kAudioFilePropertyDataFormat, "kAudioFilePropertyDataFormat"},
    Name{kAudioFilePropertyDataFormatName, "kAudioFilePropertyDataFormatName"},
    Name{kAudioFilePropertyIsOptimized, "kAudioFilePropertyIsOptimized"},
    Name{kAudioFilePropertyMagicCookieData, "kAudioFilePropertyMagicCookieData"},
    Name{kAudioFilePropertyAudioDataByteCount, "kAudioFilePropertyAudioDataByteCount"},
    Name{kAudioFilePropertyAudioDataPacketCount, "kAudioFilePropertyAudioDataPacketCount"},
    Name{kAudioFilePropertyMaximumPacketSize, "kAudioFilePropertyMaximumPacketSize"},
};

#define QMX_STATUS(name)                                                                                               \
    Name                                                                                                               \
    {                                                                                                                  \
        static_cast<UInt32>(name), #name                                                                               \
    }
constexpr std::array statusNames{
    QMX_STATUS(kAudioFileUnspecifiedError),           QMX_STATUS(kAudioFileUnsupportedFileTypeError),
    QMX_STATUS(kAudioFileUnsupportedDataFormatError), QMX_STATUS(kAudioFileUnsupportedPropertyError),
    QMX_STATUS(kAudioFileBadPropertySizeError),       QMX_STATUS(kAudioFilePermissionsError),
    QMX_STATUS(kAudioFileNotOptimizedError),          QMX_STATUS(kAudioFileFormatNameUnavailableError),
    QMX_STATUS(kAudioFileInvalidChunkError),          QMX_STATUS(kAudioFileDoesNotAllow64BitDataSizeError),
    QMX_STATUS(kAudioFileInvalidPacketOffsetError),   QMX_STATUS(kAudioFileInvalidFileError),
    QMX_STATUS(kAudioFileOperationNotSupportedError),
};
#undef QMX_STATUS

template <std::size_t count> const char* nameOf(const std::array<Name, count>& names, UInt32 code)
{
    for (const Name& name : names)
        if (name.code == code)
            return name.text;
    return nullptr;
}

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
    if (const char* name = nameOf(propertyNames, property))
        return name;
    return qmx::format("Unknown property: %-4.4s", qmx::fourCharString(property));
}

void QMXAudioFile::printOSStatusCode(OSStatus status)
{
    if (const char* name = nameOf(statusNames, static_cast<UInt32>(status)))
        qmx::Log("OS Status: %s", name);
    else
        qmx::Log("QMXAudioFile: OS Status: %-4.4s (%d)", qmx::fourCharString(static_cast<UInt32>(status)), status);
}
