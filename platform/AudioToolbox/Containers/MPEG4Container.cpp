// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/MPEG4Container.h"

#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Containers/MPEG4Movie.h"
#include "AudioToolbox/Containers/SampleLayout.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qmx
{
namespace
{

constexpr FourCharCode typeAtom = fourCharCode("ftyp");
constexpr FourCharCode soundBrand = fourCharCode("M4A ");
constexpr UInt64 dataHeaderBytes = 16; // with a 64-bit size

Bytes fileTypeAtom(AudioFileTypeID type)
{
    ByteWriter writer(ByteOrder::big);
    writer.u32(28).code(typeAtom).code(type == kAudioFileM4AType ? soundBrand : fourCharCode("mp42")).u32(0);
    return writer.code(fourCharCode("mp42"))
        .code(fourCharCode("isom"))
        .code(type == kAudioFileM4AType ? soundBrand : fourCharCode("iso2"))
        .bytes();
}

/// The packets stand in one atom of data; what describes them comes behind it when the file is closed. A file whose writer was
/// killed before cannot be read.
template <AudioFileTypeID createdType> class MPEG4Container : public PacketContainer
{
public:
    explicit MPEG4Container(std::unique_ptr<File> file) : PacketContainer(std::move(file)) {}

    AudioFileTypeID type() const override { return type_; }

protected:
    OSStatus read() override
    {
        MPEG4Movie movie;
        if (const OSStatus status = readMovie(file_, movie); status != noErr)
            return status;
        std::array<UInt8, 12> head{};
        if (file_.readAll(0, head) == noErr && !isSoundBrand(head.data()))
            type_ = kAudioFileMPEG4Type;
        format_ = movie.format;
        bare_ = movie.bare;
        probe(movie);
        for (const PacketPlace& packet : movie.packets)
            addPacket(packet);
        setTable(movie.primingFrames, movie.validFrames);
        return noErr;
    }

    OSStatus begin() override
    {
        const Bytes header = fileTypeAtom(type_);
        dataAtom_ = header.size();
        endOfData_ = dataAtom_ + dataHeaderBytes;
        const Bytes data = ByteWriter(ByteOrder::big).u32(1).code(fourCharCode("mdat")).u64(dataHeaderBytes).bytes();
        const OSStatus status = file_.writeAll(0, header);
        return status == noErr ? file_.writeAll(dataAtom_, data) : status;
    }

    Bytes tail() override
    {
        if (bare_.empty() && isAAC(format_.mFormatID))
            bare_ =
                makeAACConfig(kMPEG4Object_AAC_LC, static_cast<UInt32>(format_.mSampleRate), format_.mChannelsPerFrame);
        const AudioFilePacketTableInfo info = table();
        MPEG4Movie movie;
        movie.format = format_;
        movie.format.mFramesPerPacket = std::max(1U, format_.mFramesPerPacket);
        movie.bare = bare_;
        movie.primingFrames = static_cast<UInt64>(info.mPrimingFrames);
        movie.validFrames = static_cast<UInt64>(info.mNumberValidFrames);
        return movieAtom(movie, packets());
    }

    OSStatus end() override
    {
        return file_.writeAll(dataAtom_ + 8, ByteWriter(ByteOrder::big).u64(endOfData_ - dataAtom_).bytes());
    }

private:
    static bool isSoundBrand(const UInt8* head)
    {
        const FourCharCode brand = load32(head + 8, ByteOrder::big);
        return load32(head + 4, ByteOrder::big) == typeAtom && (brand == soundBrand || brand == fourCharCode("M4B "));
    }

    /// Low rates are often the half of a high efficiency stream that does not say so.
    void probe(MPEG4Movie& movie)
    {
        const bool maySayLess = format_.mFormatID == kAudioFormatMPEG4AAC && format_.mSampleRate <= 24000;
        if ((!maySayLess && format_.mFormatID != kAudioFormatMPEG4AAC_HE) || movie.packets.empty())
            return;
        Bytes packet(std::min<std::size_t>(movie.packets[0].size, 8192));
        const UInt32 framesBefore = format_.mFramesPerPacket;
        if (file_.readAll(movie.packets[0].position, packet) == noErr)
            probeAAC(format_, bare_, packet);
        if (format_.mFramesPerPacket == 2 * framesBefore) {
            movie.primingFrames *= 2;
            movie.validFrames *= 2;
        }
    }

    AudioFileTypeID type_ = createdType;
    UInt64 dataAtom_ = 0;
};

template <AudioFileTypeID type> bool matches(const FileSigns& signs)
{
    const UInt8* const head = signs.head.data();
    const FourCharCode atom = load32(head + 4, ByteOrder::big), brand = load32(head + 8, ByteOrder::big);
    const bool isSound = atom == typeAtom && (brand == soundBrand || brand == fourCharCode("M4B "));
    if (type == kAudioFileM4AType)
        return isSound;
    return !isSound && (atom == typeAtom || atom == fourCharCode("moov") || atom == fourCharCode("mdat") ||
                        atom == fourCharCode("wide"));
}

} // namespace

const ContainerKind m4aKind{kAudioFileM4AType, matches<kAudioFileM4AType>,
                            loadPackets<MPEG4Container<kAudioFileM4AType>>, holdsPackets,
                            createPackets<MPEG4Container<kAudioFileM4AType>>};
const ContainerKind mpeg4Kind{kAudioFileMPEG4Type, matches<kAudioFileMPEG4Type>,
                              loadPackets<MPEG4Container<kAudioFileMPEG4Type>>, holdsPackets,
                              createPackets<MPEG4Container<kAudioFileMPEG4Type>>};

} // namespace qmx
