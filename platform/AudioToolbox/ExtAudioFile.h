// SPDX-License-Identifier: MIT
// The extended audio file service: an audio file as frames of a format that the caller chooses. Between file and caller
// stands a converter; positions and lengths count frames of the file at the file's rate.
//
// One thread at a time per file. ExtAudioFileWriteAsync may run on an I/O or render thread while no other call is under
// way, and so may ExtAudioFileRead once it is primed.
#pragma once

#include "AudioToolbox/AudioConverter.h"
#include "AudioToolbox/AudioFile.h"
#include "CoreAudioTypes/AudioChannelLayout.h"

/// An open extended audio file; null is none.
using ExtAudioFileRef = struct OpaqueExtAudioFile*;
using ExtAudioFilePropertyID = UInt32;

// Values are records or numbers by value, or a pointer by value. Setting the client format, the converter or the buffer
// ends reading ahead: real-time reads are primed anew.

/// The file's data format. Read only; setting the very format that the file has is taken.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_FileDataFormat = qmx::fourCharCode("ffmt");
/// Which channel of the file is meant for which loudspeaker, an AudioChannelLayout with all its descriptions;
/// InvalidProperty while nobody told. Surround sound of a known layout is mixed to two channels by it.
/// InvalidChannelMap for a layout of another number of channels.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_FileChannelLayout = qmx::fourCharCode("fclo");
/// The format of the frames that the caller reads or writes: linear PCM of any layout and rate. At first the file's own
/// where that is linear PCM, else none (all zero). A format that is refused leaves the one before.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_ClientDataFormat = qmx::fourCharCode("cfmt");
/// The channel layout of the client's frames, as above.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_ClientChannelLayout = qmx::fourCharCode("cclo");
/// The converter between the two formats, which stays the file's; null while there is no client format. It lives until
/// the client format is set again. Its channel map (kAudioConverterChannelMap) can be set at any time; setting this
/// property to the converter or to null tells the file that other settings of it, such as its quality or bit rate, were
/// changed.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_AudioConverter = qmx::fourCharCode("acnv");
/// Bytes of the largest packet of the file, while writing of the largest that may come: MaxPacketSizeUnknown before
/// there is a client format.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_FileMaxPacketSize = qmx::fourCharCode("fmps");
/// Bytes of one frame of the client format in each of its buffers; 0 without one.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_ClientMaxPacketSize = qmx::fourCharCode("cmps");
/// Frames in the file as a signed 64-bit number, without a coding's delay and padding. Can be set while a file of
/// frames of constant size is written: silence is added at its end ('off?' for more than the container holds, which
/// leaves the file as it was). Files are not cut: 'op??', as for files that are read and for codings with packets.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_FileLengthFrames = qmx::fourCharCode("#frm");
/// Null, a pointer: the converter's settings are made at the converter itself. Setting it to null tells the file that
/// they were changed; -50 for anything else.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_ConverterConfig = qmx::fourCharCode("accf");
/// Bytes that are read or written at once, 4096 to 16 MiB and at least one packet. Setting it gives the file memory of
/// its own, also in place of a caller's.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_IOBufferSizeBytes = qmx::fourCharCode("iobs");
/// The address of the memory through which the file is read or written. A caller's own can be set: as many bytes as the
/// property above tells, of any alignment, which stay the caller's and must outlive the file or the next buffer. Null
/// gives the file memory of its own again, and so does an encoder whose packets become larger than the buffer.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_IOBuffer = qmx::fourCharCode("iobf");
/// The file of the audio file service, which stays the extended file's.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_AudioFile = qmx::fourCharCode("afil");
/// Whose codec is at work, a four-character code: 'appl' (kAudioUnitManufacturer_Apple), which stands for the codecs in
/// software. Files of linear PCM or companded samples have none (InvalidProperty). It can be set before the client
/// format (InvalidOperationOrder later); 'fmt?' for any other manufacturer.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_CodecManufacturer = qmx::fourCharCode("cman");
/// The AudioFilePacketTableInfo of a file with packets, which the extended file itself writes. Read only.
inline constexpr ExtAudioFilePropertyID kExtAudioFileProperty_PacketTable = qmx::fourCharCode("xpti");

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
/// dupFNErr and is left as it is. `layout` may be null; a container that keeps none goes without.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileCreateNew(const FSRef* parent, CFStringRef name, AudioFileTypeID type,
                                                        const AudioStreamBasicDescription* format,
                                                        const AudioChannelLayout* layout, ExtAudioFileRef* file);

/// Writes what is still on its way (queued frames, the rate filter's tail, a coding's last packet) and closes. Waits
/// for a read in flight. The file is closed in any case; the status is that of the first write that failed. A coded
/// file into which nothing was written opens with 0 frames, but for ADTS, whose close is refused with
/// kAudioFileInvalidFileError.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileDispose(ExtAudioFileRef file);

/// Reads `*frameCount` frames of the client format into the buffers of `data`, never past their byte sizes;
/// `*frameCount` and the sizes become what came. Fewer than asked for are the end (0 with status 0) or a failure, which
/// comes with the frames before it; the next read tries again where that one failed. Without a client format,
/// InvalidOperationOrder and 0 frames.
///
/// On a thread marked real-time nothing waits: frames are taken from what a thread of the service has read ahead, and
/// fewer of them, down to 0 with status 0, mean that it has not come so far. That takes a call with 0 frames and no
/// data before, which makes the memory; elsewhere that call returns when the first frames are ready.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileRead(ExtAudioFileRef file, UInt32* frameCount, AudioBufferList* data);

/// Writes frames of the client format and returns when they are with the audio file service, after whatever was written
/// before. A coding with packets keeps back what does not fill one. A failure is the status of every later write and of
/// the close, and nothing is written after it. `data` is not used after the call. Not for I/O or render threads.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileWrite(ExtAudioFileRef file, UInt32 frameCount,
                                                    const AudioBufferList* data);

/// Hands frames of the client format to the writing thread of the service: neither locks nor allocates after a call
/// with 0 frames and no data, which makes the memory, four seconds of audio. On a thread marked real-time a full memory
/// is AsyncWriteBufferOverflow (nothing is taken then), more than it ever holds AsyncWriteTooLarge, and a file that was
/// not primed InvalidOperationOrder; any other thread waits for room. A write that failed is the status of every later
/// call.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileWriteAsync(ExtAudioFileRef file, UInt32 frameCount,
                                                         const AudioBufferList* data);

/// Moves to a frame of the file. The next frames read are those that a read from the start would give from there on,
/// with a change of the rate too: to the last bit, but for formats decoded with noise. InvalidSeek for a frame outside
/// the file; while writing also for codings other than linear PCM (there, a place beyond the end fills the gap with
/// zeros at the next write).
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileSeek(ExtAudioFileRef file, SInt64 frame);
/// The frame of the file that is read or written next, rounded down.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileTell(ExtAudioFileRef file, SInt64* frame);

/// A property's size and whether it can be set; InvalidProperty where this file lacks it.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileGetPropertyInfo(ExtAudioFileRef file, ExtAudioFilePropertyID property,
                                                              UInt32* size, Boolean* isWritable);
/// Copies a property's value; `*size` is the room on entry (InvalidPropertySize when it is too small) and what was used
/// on return.
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileGetProperty(ExtAudioFileRef file, ExtAudioFilePropertyID property,
                                                          UInt32* size, void* value);
[[nodiscard]] QMX_EXPORT OSStatus ExtAudioFileSetProperty(ExtAudioFileRef file, ExtAudioFilePropertyID property,
                                                          UInt32 size, const void* value);

namespace qmx
{

/// Frames of the client format that reads on real-time threads asked for and did not get, though the file goes on. Any
/// thread.
QMX_EXPORT UInt64 framesMissedByRealTimeReads(ExtAudioFileRef file);

} // namespace qmx
