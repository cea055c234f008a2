// SPDX-License-Identifier: MIT
// The extended audio file service: an audio file as frames of a format that the caller chooses. A converter works
// between file and caller; positions and lengths count frames of the file at the file's rate.
//
// One thread at a time per file. ExtAudioFileWriteAsync may run on an I/O or render thread while no other call is under
// way, and so may ExtAudioFileRead once it is primed.
#pragma once

#include <QMXCoreAudio/AudioToolbox/AudioConverter.h>
#include <QMXCoreAudio/AudioToolbox/AudioFile.h>
#include <QMXCoreAudio/CoreAudioTypes/AudioChannelLayout.h>

/// An open extended audio file; null is none.
using ExtAudioFileRef = struct OpaqueExtAudioFile*;
using ExtAudioFilePropertyID = UInt32;

// Values are records or numbers by value, or a pointer by value. Setting the client format, the converter or the buffer
// ends reading ahead: real-time reads must then be primed again.

/// The file's data format. Read only; setting the same format succeeds.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_FileDataFormat = qmx::fourCharCode("ffmt");
/// Which channel of the file is meant for which loudspeaker, an AudioChannelLayout with all its descriptions;
/// InvalidProperty while unknown. Surround sound of a known layout is mixed to two channels by it. InvalidChannelMap
/// for a layout of another number of channels.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_FileChannelLayout = qmx::fourCharCode("fclo");
/// The format of the frames that the caller reads or writes: linear PCM of any layout and rate. Initially the file's
/// own if that is linear PCM, else none (all zero). A refused format leaves the old one in force.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_ClientDataFormat = qmx::fourCharCode("cfmt");
/// The channel layout of the client's frames, as above.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_ClientChannelLayout = qmx::fourCharCode("cclo");
/// The converter between the two formats, owned by the file; null while there is no client format. It lives until the
/// client format is set again. Its channel map (kAudioConverterChannelMap) can be set at any time; setting this
/// property to the converter or to null notifies the file that other settings of the converter, such as its quality or
/// bit rate, have changed.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_AudioConverter = qmx::fourCharCode("acnv");
/// Maximum packet size of the file in bytes; while writing, of the packets that may come: MaxPacketSizeUnknown before
/// there is a client format.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_FileMaxPacketSize = qmx::fourCharCode("fmps");
/// Bytes of one frame of the client format in each of its buffers; 0 without one.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_ClientMaxPacketSize = qmx::fourCharCode("cmps");
/// Frames in the file as a signed 64-bit number, without a coding's delay and padding. Can be set while a file of
/// frames of constant size is written: silence is added at its end ('off?' for more than the container holds, which
/// leaves the file as it was). Files are never shortened: 'op??', as for files open for reading and for codings with
/// packets.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_FileLengthFrames = qmx::fourCharCode("#frm");
/// Null, a pointer: the converter is configured directly. Setting it to null notifies the file that the converter's
/// settings have changed; -50 for anything else.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_ConverterConfig = qmx::fourCharCode("accf");
/// Bytes that are read or written at once, 4096 to 16 MiB and at least one packet. Setting it makes the file use its
/// own memory, even after a caller's was set.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_IOBufferSizeBytes = qmx::fourCharCode("iobs");
/// The address of the memory through which the file is read or written. A caller can set its own: as many bytes as the
/// property above says, of any alignment; the caller owns them, and they must outlive the file or its use of them. Null
/// makes the file use its own memory again, and so does an encoder whose packets become larger than the buffer.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_IOBuffer = qmx::fourCharCode("iobf");
/// The file of the audio file service, which stays the extended file's.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_AudioFile = qmx::fourCharCode("afil");
/// The manufacturer of the codec in use, a four-character code: 'appl' (kAudioUnitManufacturer_Apple), which stands for
/// the codecs in software. Files of linear PCM or companded samples have none (InvalidProperty). It can be set before
/// the client format (InvalidOperationOrder later); 'fmt?' for any other manufacturer.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_CodecManufacturer = qmx::fourCharCode("cman");
/// The AudioFilePacketTableInfo of a file with packets, which the extended file itself writes. Read only.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_PacketTable = qmx::fourCharCode("xpti");
/// An addition of this library, 1 or 0 in 32 bits: whether the file opens after its writing process was killed, without
/// the last second of what was written at most, or the last packet if that is longer. Set it after the client format
/// and before the first frames: the file opens from then on, ADTS from its first packet on. It costs an MPEG-4 file up
/// to 8 KiB for every 997 packets. Compressed CAF cannot have it ('op??'), all other types always do. The close makes
/// the file that is made without it; if the disk has no room for that, the file stays as a kill would leave it.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_KeepsFileReadable = qmx::fourCharCode("krdb");

inline constexpr OSStatus kExtAudioFileError_InvalidProperty = -66561;
inline constexpr OSStatus kExtAudioFileError_InvalidPropertySize = -66562;
inline constexpr OSStatus kExtAudioFileError_NonPCMClientFormat = -66563;
inline constexpr OSStatus kExtAudioFileError_InvalidChannelMap = -66564;
inline constexpr OSStatus kExtAudioFileError_InvalidOperationOrder = -66565;
inline constexpr OSStatus kExtAudioFileError_InvalidDataFormat = -66566;
inline constexpr OSStatus kExtAudioFileError_MaxPacketSizeUnknown = -66567;
inline constexpr OSStatus kExtAudioFileError_InvalidSeek = -66568;
inline constexpr OSStatus kExtAudioFileError_AsyncWriteTooLarge = -66569;
inline constexpr OSStatus kExtAudioFileError_AsyncWriteBufferOverflow = -66570;

/// Opens an existing file for reading. On failure `*file` is null; the status is that of AudioFileOpen.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileOpen(const FSRef* reference, ExtAudioFileRef* file);

/// An extended file on an open audio file, which stays the caller's: it is not closed with the extended one and must
/// outlive it. For writing, the first frames written replace those at the file's start.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileWrapAudioFileID(AudioFileID audioFile, Boolean forWriting,
                                                              ExtAudioFileRef* file);

/// Creates `name` in the directory `parent` for writing, with the statuses of AudioFileCreate: an existing file is
/// dupFNErr and is left as it is. `layout` may be null; a container that cannot keep it ignores it.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileCreateNew(const FSRef* parent, CFStringRef name, AudioFileTypeID type,
                                                        const AudioStreamBasicDescription* format,
                                                        const AudioChannelLayout* layout, ExtAudioFileRef* file);

/// Writes what is still pending (queued frames, the rate filter's tail, a coding's last packet) and closes. Waits for a
/// read in flight. The file is closed in any case; the status is that of the first write that failed. A coded file into
/// which nothing was written opens with 0 frames, but for ADTS, whose close is refused with kAudioFileInvalidFileError.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileDispose(ExtAudioFileRef file);

/// Reads `*frameCount` frames of the client format into the buffers of `data`, never past their byte sizes;
/// `*frameCount` and the sizes become what was read. Fewer than asked for mean the end (0 with status 0) or a failure,
/// which is returned together with the frames before it; the next read tries again where that one failed. Without a
/// client format, InvalidOperationOrder and 0 frames.
///
/// On a thread marked real-time the call never waits: it takes frames that a thread of the service has read ahead, and
/// fewer of them, down to 0 with status 0, mean that this thread has not read that far. Prime it by a call with 0
/// frames and no data, which allocates the memory; on any other thread that call returns when the first frames are
/// ready.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileRead(ExtAudioFileRef file, UInt32* frameCount, AudioBufferList* data);

/// Writes frames of the client format and returns when the audio file service has them, after all that was written
/// before. A coding with packets holds back frames that do not fill a packet. A failure is the status of every later
/// write and of the close, and nothing is written after it. `data` is not used after the call. Not for I/O or render
/// threads.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileWrite(ExtAudioFileRef file, UInt32 frameCount,
                                                    const AudioBufferList* data);

/// Hands frames of the client format to the writing thread of the service: neither locks nor allocates after a call
/// with 0 frames and no data, which allocates a queue of four seconds of audio. On a thread marked real-time a full
/// queue returns AsyncWriteBufferOverflow (nothing is taken then), more than it can ever hold AsyncWriteTooLarge, and a
/// file that was not primed InvalidOperationOrder; any other thread waits for room. The status of a write that failed
/// is the result of every later call.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileWriteAsync(ExtAudioFileRef file, UInt32 frameCount,
                                                         const AudioBufferList* data);

/// Moves to a frame of the file. The next frames read are those that a read from the start would return from there on,
/// to the last bit, even when the rate changes; formats decoded with noise are the exception. InvalidSeek for a frame
/// outside the file; while writing also for codings other than linear PCM (there, a frame past the end fills the gap
/// with zeros at the next write).
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileSeek(ExtAudioFileRef file, SInt64 frame);
/// The frame of the file that is read or written next, rounded down.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileTell(ExtAudioFileRef file, SInt64* frame);

/// A property's size and whether it can be set; InvalidProperty if this file lacks it.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileGetPropertyInfo(ExtAudioFileRef file, ExtAudioFilePropertyID property,
                                                              UInt32* size, Boolean* isWritable);
/// Copies a property's value; `*size` is the room on entry (InvalidPropertySize when it is too small) and the bytes
/// used on return.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileGetProperty(ExtAudioFileRef file, ExtAudioFilePropertyID property,
                                                          UInt32* size, void* value);
/// Sets a property as described above.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileSetProperty(ExtAudioFileRef file, ExtAudioFilePropertyID property,
                                                          UInt32 size, const void* value);

namespace qmx
{

/// Frames of the client format that reads on real-time threads asked for but did not get, though the file goes on. Any
/// thread.
QMX_EXPORT UInt64 framesMissedByRealTimeReads(ExtAudioFileRef file);

} // namespace qmx
