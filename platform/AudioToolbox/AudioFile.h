// SPDX-License-Identifier: MIT
// The audio file service: audio files of any container by bytes and packets. A damaged or hostile file gives a status,
// never a crash, a hang or a huge allocation. One thread at a time per file, except that reads and writes may come from
// two threads.
//
// Compressed files. Packet 0 is the first that the encoder made. A packet holds `mFramesPerPacket` frames of the format
// (if that is 0, the frames of its description). The frames of all packets in a row are: priming frames, which the
// encoder needed to start; the valid frames, which are the original's; remainder frames, which fill the last packet.
// The packet table info holds the three counts. To read frame f of the original, decode from packet (priming + f) /
// frames per packet, minus the roll distance of that packet, and drop what comes before (see kAudioConverterPrimeInfo).
//
// To write one: create the file; set the magic cookie and the packet table info (only its priming frames count yet)
// that the encoder reports before the first packet; write packets one after the other, in order, with their
// descriptions; when the encoder is drained, set the cookie (FLAC adds its totals) and the complete packet table info;
// close. Without packet table info priming and remainder are 0. Packets can be added in order only, to a file that was
// created or initialised by this handle: 'pck?' for another start, 'op??' for another file. Bytes cannot be written:
// 'op??'.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/AudioChannelLayout.h>
#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/CoreServices/Files.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Text/CFString.h>

/// An open audio file; null is none.
using AudioFileID = struct OpaqueAudioFileID*;
using AudioFileTypeID = UInt32;
using AudioFilePropertyID = UInt32;

inline constexpr AudioFileTypeID kAudioFileAIFFType = qmx::fourCharCode("AIFF");
inline constexpr AudioFileTypeID kAudioFileAIFCType = qmx::fourCharCode("AIFC");
inline constexpr AudioFileTypeID kAudioFileWAVEType = qmx::fourCharCode("WAVE");
inline constexpr AudioFileTypeID kAudioFileSoundDesigner2Type = qmx::fourCharCode("Sd2f");
inline constexpr AudioFileTypeID kAudioFileNextType = qmx::fourCharCode("NeXT");
inline constexpr AudioFileTypeID kAudioFileMP3Type = qmx::fourCharCode("MPG3");
inline constexpr AudioFileTypeID kAudioFileAC3Type = qmx::fourCharCode("ac-3");
inline constexpr AudioFileTypeID kAudioFileAAC_ADTSType = qmx::fourCharCode("adts");
inline constexpr AudioFileTypeID kAudioFileMPEG4Type = qmx::fourCharCode("mp4f");
inline constexpr AudioFileTypeID kAudioFileM4AType = qmx::fourCharCode("m4af");
inline constexpr AudioFileTypeID kAudioFileCAFType = qmx::fourCharCode("caff");
inline constexpr AudioFileTypeID kAudioFileMP2Type = qmx::fourCharCode("MPG2");
inline constexpr AudioFileTypeID kAudioFileMP1Type = qmx::fourCharCode("MPG1");
inline constexpr AudioFileTypeID kAudioFileM4BType = qmx::fourCharCode("m4bf");
inline constexpr AudioFileTypeID kAudioFile3GPType = qmx::fourCharCode("3gpp");
inline constexpr AudioFileTypeID kAudioFile3GP2Type = qmx::fourCharCode("3gp2");
inline constexpr AudioFileTypeID kAudioFileAMRType = qmx::fourCharCode("amrf");
inline constexpr AudioFileTypeID kAudioFileRF64Type = qmx::fourCharCode("RF64");
inline constexpr AudioFileTypeID kAudioFileBW64Type = qmx::fourCharCode("BW64");
inline constexpr AudioFileTypeID kAudioFileWave64Type = qmx::fourCharCode("W64f");
inline constexpr AudioFileTypeID kAudioFileFLACType = qmx::fourCharCode("flac");
inline constexpr AudioFileTypeID kAudioFileLATMInLOASType = qmx::fourCharCode("loas");

inline constexpr AudioFilePropertyID kAudioFilePropertyFileFormat = qmx::fourCharCode("ffmt");
inline constexpr AudioFilePropertyID kAudioFilePropertyDataFormat = qmx::fourCharCode("dfmt");
inline constexpr AudioFilePropertyID kAudioFilePropertyIsOptimized = qmx::fourCharCode("optm");
inline constexpr AudioFilePropertyID kAudioFilePropertyMagicCookieData = qmx::fourCharCode("mgic");
inline constexpr AudioFilePropertyID kAudioFilePropertyAudioDataByteCount = qmx::fourCharCode("bcnt");
inline constexpr AudioFilePropertyID kAudioFilePropertyAudioDataPacketCount = qmx::fourCharCode("pcnt");
inline constexpr AudioFilePropertyID kAudioFilePropertyMaximumPacketSize = qmx::fourCharCode("psze");
inline constexpr AudioFilePropertyID kAudioFilePropertyDataOffset = qmx::fourCharCode("doff");
inline constexpr AudioFilePropertyID kAudioFilePropertyChannelLayout = qmx::fourCharCode("cmap");
inline constexpr AudioFilePropertyID kAudioFilePropertyDeferSizeUpdates = qmx::fourCharCode("dszu");
inline constexpr AudioFilePropertyID kAudioFilePropertyDataFormatName = qmx::fourCharCode("fnme");
inline constexpr AudioFilePropertyID kAudioFilePropertyMarkerList = qmx::fourCharCode("mkls");
inline constexpr AudioFilePropertyID kAudioFilePropertyRegionList = qmx::fourCharCode("rgls");
inline constexpr AudioFilePropertyID kAudioFilePropertyPacketToFrame = qmx::fourCharCode("pkfr");
inline constexpr AudioFilePropertyID kAudioFilePropertyFrameToPacket = qmx::fourCharCode("frpk");
inline constexpr AudioFilePropertyID kAudioFilePropertyChunkIDs = qmx::fourCharCode("chid");
inline constexpr AudioFilePropertyID kAudioFilePropertyInfoDictionary = qmx::fourCharCode("info");
inline constexpr AudioFilePropertyID kAudioFilePropertyPacketTableInfo = qmx::fourCharCode("pnfo");
inline constexpr AudioFilePropertyID kAudioFilePropertyPacketToByte = qmx::fourCharCode("pkby");
inline constexpr AudioFilePropertyID kAudioFilePropertyByteToPacket = qmx::fourCharCode("bypk");
inline constexpr AudioFilePropertyID kAudioFilePropertyFormatList = qmx::fourCharCode("flst");
inline constexpr AudioFilePropertyID kAudioFilePropertyPacketSizeUpperBound = qmx::fourCharCode("pkub");
inline constexpr AudioFilePropertyID kAudioFilePropertyPacketToRollDistance = qmx::fourCharCode("pkrl");
inline constexpr AudioFilePropertyID kAudioFilePropertyReserveDuration = qmx::fourCharCode("rsrv");
inline constexpr AudioFilePropertyID kAudioFilePropertyEstimatedDuration = qmx::fourCharCode("edur");
inline constexpr AudioFilePropertyID kAudioFilePropertyBitRate = qmx::fourCharCode("brat");
inline constexpr AudioFilePropertyID kAudioFilePropertyID3Tag = qmx::fourCharCode("id3t");
inline constexpr AudioFilePropertyID kAudioFilePropertySourceBitDepth = qmx::fourCharCode("sbtd");
inline constexpr AudioFilePropertyID kAudioFilePropertyAlbumArtwork = qmx::fourCharCode("aart");

/// An addition of this library, 1 or 0 in 32 bits: whether a file whose writer is killed opens with all packets that
/// were written. 1 for all but MPEG-4, compressed CAF and samples whose sizes are deferred. An MPEG-4 file can be given
/// it before the first packet: it is then written in fragments, and the close makes an ordinary file of them. 'op??' if
/// the file cannot be given the value.
inline constexpr AudioFilePropertyID kAudioFilePropertyKeepsReadable = qmx::fourCharCode("krdb");

/// The value of kAudioFilePropertyPacketToFrame and kAudioFilePropertyFrameToPacket: the question on entry, completed
/// by the answer on return.
struct AudioFramePacketTranslation {
    SInt64 mFrame = 0;
    SInt64 mPacket = 0;
    UInt32 mFrameOffsetInPacket = 0;
};

/// The value of kAudioFilePropertyPacketTableInfo, which compressed files have ('pty?' for others). Can be set while
/// the file is written.
struct AudioFilePacketTableInfo {
    SInt64 mNumberValidFrames = 0;
    SInt32 mPrimingFrames = 0;
    SInt32 mRemainderFrames = 0;
};

/// The value of kAudioFilePropertyPacketToRollDistance: for the packet asked for on entry, how many packets before it a
/// decoder must be given so that this packet's frames come out exactly; 0 for codings whose packets stand alone.
struct AudioPacketRollDistanceTranslation {
    SInt64 mPacket = 0;
    SInt64 mRollDistance = 0;
};

inline constexpr SInt8 fsCurPerm = 0;
inline constexpr SInt8 fsRdPerm = 1;
inline constexpr SInt8 fsWrPerm = 2;
inline constexpr SInt8 fsRdWrPerm = 3;
inline constexpr SInt8 kAudioFileReadPermission = 1;
inline constexpr SInt8 kAudioFileWritePermission = 2;
inline constexpr SInt8 kAudioFileReadWritePermission = 3;

inline constexpr OSStatus kAudioFileUnspecifiedError = qmx::statusCode("wht?");
inline constexpr OSStatus kAudioFileUnsupportedFileTypeError = qmx::statusCode("typ?");
inline constexpr OSStatus kAudioFileUnsupportedDataFormatError = qmx::statusCode("fmt?");
inline constexpr OSStatus kAudioFileUnsupportedPropertyError = qmx::statusCode("pty?");
inline constexpr OSStatus kAudioFileBadPropertySizeError = qmx::statusCode("!siz");
inline constexpr OSStatus kAudioFilePermissionsError = qmx::statusCode("prm?");
inline constexpr OSStatus kAudioFileNotOptimizedError = qmx::statusCode("optm");
inline constexpr OSStatus kAudioFileFormatNameUnavailableError = qmx::statusCode("nme?");
inline constexpr OSStatus kAudioFileInvalidChunkError = qmx::statusCode("chk?");
inline constexpr OSStatus kAudioFileDoesNotAllow64BitDataSizeError = qmx::statusCode("off?");
inline constexpr OSStatus kAudioFileInvalidPacketOffsetError = qmx::statusCode("pck?");
inline constexpr OSStatus kAudioFileInvalidFileError = qmx::statusCode("dta?");
inline constexpr OSStatus kAudioFileOperationNotSupportedError = qmx::statusCode("op\?\?");
inline constexpr OSStatus kAudioFileInvalidPacketDependencyError = qmx::statusCode("dep?");
inline constexpr OSStatus kAudioFileNotOpenError = -38;
inline constexpr OSStatus kAudioFileEndOfFileError = -39;
inline constexpr OSStatus kAudioFilePositionError = -40;
inline constexpr OSStatus kAudioFileFileNotFoundError = -43;

/// Opens an existing audio file. Its contents decide the container and outrank a fork beside it; the hint helps if they
/// are ambiguous (0: none).
/// On failure `*file` is null and the file untouched: fnfErr, permErr/wrPermErr, 'typ?' for contents that are no audio
/// file, 'dta?' for a damaged header, 'fmt?' for an unknown coding. Opening for writing brings the sizes of a file
/// whose writer was killed in line with its length.
///
/// Calls that open AIFF, WAVE or CAF files for writing, initialise, grow or close them wait indefinitely while another
/// thread or process holds the file's lock (Foundation/Files/FileSystem.h), as the track store does during a store.
[[nodiscard]] QMX_EXPORT OSStatus AudioFileOpen(const FSRef* reference, SInt8 permissions, AudioFileTypeID typeHint,
                                                AudioFileID* file);

/// Creates `name` in the directory `parent`, read/write, and removes a fork that an earlier file of that name left.
/// dupFNErr if the file exists, or if another file has the name of the fork it needs: either is left as it is; 'typ?'
/// or 'fmt?' for a type or format that cannot be written, before the disk is touched. `flags` must be 0.
[[nodiscard]] QMX_EXPORT OSStatus AudioFileCreate(const FSRef* parent, CFStringRef name, AudioFileTypeID type,
                                                  const AudioStreamBasicDescription* format, UInt32 flags,
                                                  FSRef* newFile, AudioFileID* file);

/// Empties an existing file and opens it read/write; its fork is removed, or replaced if the new file has one. Type,
/// format and permission are checked before anything is emptied.
[[nodiscard]] QMX_EXPORT OSStatus AudioFileInitialize(const FSRef* reference, AudioFileTypeID type,
                                                      const AudioStreamBasicDescription* format, UInt32 flags,
                                                      AudioFileID* file);

/// Brings the header up to date and closes. The file is closed in any case; the status reports what could not be
/// written. 'dta?' for a new file that could not be opened again: ADTS without packets, and MPEG-4 or FLAC without the
/// cookie of a lossless coding.
/// A process that was forked while the file was open and wrote nothing itself leaves the file as it is.
[[nodiscard]] QMX_EXPORT OSStatus AudioFileClose(AudioFileID file);

/// Reads `*byteCount` bytes of audio data from byte `start` on; `*byteCount` becomes the bytes read. A read that
/// reaches the end returns what there is with status 0; one that starts at or past the end returns 0 bytes and eofErr.
[[nodiscard]] QMX_EXPORT OSStatus AudioFileReadBytes(AudioFileID file, Boolean useCache, SInt64 start,
                                                     UInt32* byteCount, void* buffer);

/// Writes audio data at byte `start`, growing the data if needed (a gap is filled with zeros); `*byteCount` becomes the
/// bytes written. 'off?' if the container cannot hold the size: nothing is written then. Chunks after the audio are
/// kept.
[[nodiscard]] QMX_EXPORT OSStatus AudioFileWriteBytes(AudioFileID file, Boolean useCache, SInt64 start,
                                                      UInt32* byteCount, const void* buffer);

/// Reads `*packetCount` packets from packet `start` on; `*byteCount` and `*packetCount` become what was read: fewer
/// with status 0 at the end, none with eofErr past it; a failure is returned together with the packets before it.
/// `descriptions` (room for `*packetCount`) may be null for formats of constant packet size. The buffer must hold
/// `*packetCount` packets of the file's maximum packet size.
[[nodiscard]] QMX_EXPORT OSStatus AudioFileReadPackets(AudioFileID file, Boolean useCache, UInt32* byteCount,
                                                       AudioStreamPacketDescription* descriptions, SInt64 start,
                                                       UInt32* packetCount, void* buffer);

/// Writes `*packetCount` packets, `byteCount` bytes in all, at packet `start`; `*packetCount` becomes the packets
/// written. Packets of variable size need descriptions, whose offsets count from `buffer`.
[[nodiscard]] QMX_EXPORT OSStatus AudioFileWritePackets(AudioFileID file, Boolean useCache, UInt32 byteCount,
                                                        const AudioStreamPacketDescription* descriptions, SInt64 start,
                                                        UInt32* packetCount, const void* buffer);

/// The size of a property's value and whether it can be set. 'pty?' if this file lacks the property.
[[nodiscard]] QMX_EXPORT OSStatus AudioFileGetPropertyInfo(AudioFileID file, AudioFilePropertyID property, UInt32* size,
                                                           UInt32* isWritable);
/// Copies a property's value; `*size` is the room on entry ('!siz' when it is wrong) and the bytes used on return.
[[nodiscard]] QMX_EXPORT OSStatus AudioFileGetProperty(AudioFileID file, AudioFilePropertyID property, UInt32* size,
                                                       void* value);
/// Sets a property of a file open for writing ('prm?' otherwise); the value is copied. 'pty?' if this file lacks the
/// property, 'op??' if it cannot be set, '!siz' for a wrong size.
[[nodiscard]] QMX_EXPORT OSStatus AudioFileSetProperty(AudioFileID file, AudioFilePropertyID property, UInt32 size,
                                                       const void* value);
